// Blocks signals while an output file is replaced.
#pragma once

#include <csignal>

/// For as long as it lives, blocks the signals with which a user, a shell, a timer or a closed pipe ends or
/// stops a process. They take effect afterwards, so that none leaves a file half written, or with the mode
/// that it has only while it is written. Only the calling thread's mask changes, and it is restored.
class HeldSignals {
public:
    /// Blocks nothing if `path` exists and is not a regular file: a write to a pipe or a device may have to
    /// wait, and Ctrl-C must end the wait.
    explicit HeldSignals(const char *path);
    ~HeldSignals();
    HeldSignals(const HeldSignals &) = delete;
    HeldSignals &operator=(const HeldSignals &) = delete;

private:
    bool holding = false;
    sigset_t before = {};
};
