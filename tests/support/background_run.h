// The built key generator, running beside the test.
#pragma once

#include "tests/support/program_run.h"

#include <sys/types.h>

#include <chrono>

/// A run with no input, in a process group of its own: signals that stop a process have their effect. Killed
/// at the end of this object's life.
class BackgroundRun {
public:
    /// Starts it. `call.input` is not used.
    explicit BackgroundRun(const ProgramCall &call);
    ~BackgroundRun();
    BackgroundRun(const BackgroundRun &) = delete;
    BackgroundRun &operator=(const BackgroundRun &) = delete;

    /// Returns when the run waits for a lock that another process holds; false when it ends instead, or its
    /// time is up.
    bool waitsForALock();

    void send(int signal) const;

    /// Waits for the end. A run that a signal stops is killed, and counts as ended by that signal. What it
    /// wrote to standard error counts as output.
    ProgramResult end();

private:
    using Clock = std::chrono::steady_clock;

    /// Whether the run ended or was stopped; its status is then kept.
    bool isOver();

    Clock::time_point deadline;
    int output;
    pid_t child;
    bool over = false;
    int status = 0;
};
