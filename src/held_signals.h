// Signals that wait while an output file is replaced.
#pragma once

#include <csignal>

/// For its own lifetime holds back the signals that a user, a shell, a timer or a closed pipe ends or stops a
/// process by: they take their effect afterwards, and none leaves a file half written, or with a mode that is
/// meant for the moment of writing. Only the calling thread's mask changes, and it is put back as it was.
class HeldSignals {
public:
    /// Holds nothing back where `path` leads to anything but a regular file or a name that is free: a pipe or
    /// a device may have to be waited for, and the wait must end on Ctrl-C.
    explicit HeldSignals(const char *path);
    ~HeldSignals();
    HeldSignals(const HeldSignals &) = delete;
    HeldSignals &operator=(const HeldSignals &) = delete;

private:
    bool holding = false;
    sigset_t before = {};
};
