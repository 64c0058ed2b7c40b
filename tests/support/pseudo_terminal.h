// A terminal, with a program that someone types to.
#pragma once

#include "tests/support/program_run.h"

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <string>

#include <sys/types.h>
#include <termios.h>

/// A session of its own on a pseudo-terminal of its own: a program in the foreground, and the little of a
/// shell that takes the terminal back when the program stops. The terminal passes the program's bytes on as
/// they are, so that screen() holds these and the echo of what is typed. Every wait ends, as a failure, after
/// a deadline. What is still running at the end is killed.
class PseudoTerminal {
public:
    /// The built key generator, with the terminal as its three standard streams. `call.input` is not used.
    explicit PseudoTerminal(const ProgramCall &call = {.arguments = {}});
    /// `function` in a process of its own, which ends with status 0 when it returns. Assertions in it are
    /// lost: let it print what is to be checked.
    explicit PseudoTerminal(const std::function<void()> &function);
    ~PseudoTerminal();
    PseudoTerminal(const PseudoTerminal &) = delete;
    PseudoTerminal &operator=(const PseudoTerminal &) = delete;

    /// Waits until the screen ends in `text`, all of it written after what was typed last.
    testing::AssertionResult shows(const std::string &text);
    /// Waits for `prompt` and types `answer`.
    testing::AssertionResult answers(const std::string &prompt, const std::string &answer);
    void type(const std::string &bytes);
    /// Everything read from the terminal so far.
    const std::string &screen() const { return received; }

    /// What is typed appears on the screen.
    bool echoes() const { return (attributes().c_lflag & ECHO) != 0; }
    /// The terminal keeps a line to itself, for editing, until its end is typed.
    bool editsLines() const { return (attributes().c_lflag & ICANON) != 0; }
    termios attributes() const;
    /// The attributes that the program found.
    const termios &firstAttributes() const { return first; }
    void setAttributes(const termios &wanted);
    /// Waits until `state` holds.
    testing::AssertionResult reaches(const std::function<bool()> &state);

    void sendSignal(int signal) const;
    /// Waits until `signal` has stopped the program. The terminal is then no longer the program's.
    testing::AssertionResult stopsBy(int signal);
    /// Gives a stopped program the terminal, and continues it.
    void continueInForeground() const;
    void continueInBackground() const { sendSignal(SIGCONT); }
    /// Waits for the end of the program. The result's output is screen(); its errors are empty, for the
    /// terminal is standard error too.
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
    bool isOpen = true;      ///< on the program's side
    std::deque<int> changes; ///< the program's stops and its end, as waitpid tells them, not waited for yet
};
