// The built key generator, running in the background.
#pragma once

#include "tests/support/program_run.h"

#include <sys/types.h>

#include <chrono>

/// A run without input, in a process group of its own, so that stop signals take effect. It is killed when
/// this object is destroyed.
class BackgroundRun {
public:
    /// Starts the run. `call.input` is not used.
    explicit BackgroundRun(const ProgramCall &call);
    ~BackgroundRun();
    BackgroundRun(const BackgroundRun &) = delete;
    BackgroundRun &operator=(const BackgroundRun &) = delete;

    /// Waits until the run waits for a lock that another process holds; false if it ends instead or takes too
    /// long.
    bool waitsForALock();

    void send(int signal) const;

    /// Waits for the end. A run that a signal stops is killed, and counts as ended by that signal. Its
    /// standard error counts as output.
    ProgramResult end();

private:
    using Clock = std::chrono::steady_clock;

    /// Whether the run ended or was stopped. Its status is then stored.
    bool isOver();

    Clock::time_point deadline;
    int output;
    pid_t child;
    bool over = false;
    int status = 0;
};
