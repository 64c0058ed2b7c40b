// A terminal with a program on it, and a user who types.
#pragma once

#include "tests/support/program_run.h"

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <string>

#include <sys/types.h>
#include <termios.h>

/// A new session on a new pseudo-terminal: a program in the foreground, and the part of a shell that takes
/// the terminal back when the program stops. The terminal passes on the program's bytes unchanged, so
/// screen() contains these and the echo of what is typed. Each wait fails after a time limit. A program that
/// is still running is killed on destruction.
class PseudoTerminal {
public:
    /// Runs the built key generator, with the terminal as its three standard streams. `call.input` is not
    /// used.
    explicit PseudoTerminal(const ProgramCall &call = {.arguments = {}});
    /// Runs `function` in a new process, which ends with status 0 when the function returns. Assertions in it
    /// are lost: let it print what has to be checked.
    explicit PseudoTerminal(const std::function<void()> &function);
    ~PseudoTerminal();
    PseudoTerminal(const PseudoTerminal &) = delete;
    PseudoTerminal &operator=(const PseudoTerminal &) = delete;

    /// Waits until the screen ends in `text`, and all of `text` was written after the last typed input.
    testing::AssertionResult shows(const std::string &text);
    /// Waits for `prompt` and types `answer`.
    testing::AssertionResult answers(const std::string &prompt, const std::string &answer);
    void type(const std::string &bytes);
    /// Everything read from the terminal so far.
    const std::string &screen() const { return received; }

    /// Whether the terminal echoes what is typed.
    bool echoes() const { return (attributes().c_lflag & ECHO) != 0; }
    /// Whether the terminal holds each line back for editing until it is complete.
    bool editsLines() const { return (attributes().c_lflag & ICANON) != 0; }
    termios attributes() const;
    /// The attributes of the terminal before the program changed them.
    const termios &firstAttributes() const { return first; }
    void setAttributes(const termios &newAttributes);
    /// Waits until `state` returns true.
    testing::AssertionResult reaches(const std::function<bool()> &state);

    void sendSignal(int signal) const;
    /// Waits until `signal` has stopped the program. The terminal then no longer belongs to the program.
    testing::AssertionResult stopsBy(int signal);
    /// Gives the terminal back to a stopped program, and continues the program.
    void continueInForeground() const;
    void continueInBackground() const { sendSignal(SIGCONT); }
    /// Waits for the end of the program. The result's output is screen(). Its errors are empty, because
    /// standard error is the terminal, too.
    ProgramResult end();

private:
    bool waitUntil(const std::function<bool()> &holds);
    void receive();
    testing::AssertionResult failure(const std::string &expectation) const;

    int master = -1;
    termios first = {};
    int reports = -1;
    pid_t leader = -1;
    pid_t program = -1;
    std::string received;
    std::size_t typedAt = 0;
    bool isOpen = true;      ///< on the side of the program
    std::deque<int> changes; ///< stops and end of the program, as reported by waitpid and not yet processed
};
