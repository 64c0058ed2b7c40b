#include "tests/support/pseudo_terminal.h"

#include "tests/support/transcript.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds longestWait(30);

/// The part of the screen that is shown with a failure.
std::string lastLines(const std::string &screen)
{
    std::size_t begin = screen.size();
    for (int lines = 0; lines < 12 && begin != 0 && begin != std::string::npos; ++lines)
        begin = screen.rfind('\n', begin - 1);
    return begin == std::string::npos ? screen : screen.substr(begin);
}

int checked(int result, const char *what)
{
    if (result == -1)
        throw std::runtime_error(std::string(what) + " failed");
    return result;
}

/// Resets the signals to the state after a login, so that the program does not inherit what the tests were
/// started with or have set.
void resetSignals()
{
    for (const int number : {SIGINT, SIGHUP, SIGQUIT, SIGTERM, SIGPIPE, SIGALRM, SIGUSR1, SIGUSR2, SIGABRT,
                             SIGXCPU, SIGVTALRM, SIGTSTP, SIGCONT, SIGTTIN, SIGTTOU, SIGCHLD})
        signal(number, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

[[noreturn]] void runProgram(const std::function<void()> &function, int terminal) noexcept
{
    // Ensures that even a program that ignores the hang-up ends with its session.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // Avoids a core file of the tests if a signal is expected to end the program.
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    setpgid(0, 0);
    tcsetpgrp(terminal, getpid());
    resetSignals();
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(terminal, stream);
    close(terminal);
    function();
    std::exit(EXIT_SUCCESS);
}

// For the signal handler of the session leader.
pid_t leadersProgram;
int leadersTerminal;

void continueProgram(int)
{
    tcsetpgrp(leadersTerminal, leadersProgram);
    kill(-leadersProgram, SIGCONT);
}

void report(int reports, int value)
{
    if (write(reports, &value, sizeof value) != sizeof value)
        _exit(EXIT_FAILURE);
}

/// The session leader, which replaces a shell. It reports the process id of its program and then each change
/// of state, and runs as long as the terminal exists: its end would cause a hang-up, which discards unread
/// output.
[[noreturn]] void lead(const std::function<void()> &function, int terminal, int reports) noexcept
{
    resetSignals();
    signal(SIGTTOU, SIG_IGN);
    setsid();
    ioctl(terminal, TIOCSCTTY, 0);
    const pid_t child = fork();
    if (child == 0)
        runProgram(function, terminal);
    setpgid(child, child);
    leadersProgram = child;
    leadersTerminal = terminal;
    signal(SIGUSR1, continueProgram);
    report(reports, child);
    for (;;) {
        int status = 0;
        if (waitpid(child, &status, WUNTRACED) != child)
            continue;
        if (WIFSTOPPED(status))
            tcsetpgrp(terminal, getpgrp());
        else
            close(terminal);
        report(reports, status);
        while (!WIFSTOPPED(status))
            pause();
    }
}

int openMaster()
{
    const int master = checked(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "posix_openpt");
    checked(grantpt(master), "grantpt");
    checked(unlockpt(master), "unlockpt");
    checked(fcntl(master, F_SETFL, O_NONBLOCK), "fcntl");
    return master;
}

/// The other end, set to pass on output unchanged.
int openTerminal(int master)
{
    const int terminal = checked(open(ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC), "open");
    termios attributes;
    checked(tcgetattr(terminal, &attributes), "tcgetattr");
    attributes.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    checked(tcsetattr(terminal, TCSANOW, &attributes), "tcsetattr");
    return terminal;
}

} // namespace

PseudoTerminal::PseudoTerminal(const ProgramCall &call) : PseudoTerminal([&] { Exec(KeygenProgram(), call); })
{
}

PseudoTerminal::PseudoTerminal(const std::function<void()> &function) : master(openMaster())
{
    const int terminal = openTerminal(master);
    first = attributes();
    std::array<int, 2> ends = {};
    checked(pipe2(ends.data(), O_CLOEXEC), "pipe2");
    reports = ends[0];
    // Buffered output would be written twice.
    std::fflush(nullptr);
    leader = checked(fork(), "fork");
    if (leader == 0) {
        close(master);
        close(reports);
        lead(function, terminal, ends[1]);
    }
    close(terminal);
    close(ends[1]);
    if (read(reports, &program, sizeof program) != sizeof program)
        throw std::runtime_error("the program on the terminal did not start");
}

PseudoTerminal::~PseudoTerminal()
{
    kill(leader, SIGKILL);
    while (waitpid(leader, nullptr, 0) == -1 && errno == EINTR) {
    }
    close(reports);
    close(master);
}

testing::AssertionResult PseudoTerminal::shows(const std::string &text)
{
    const auto isShown = [&] { return received.size() >= typedAt + text.size() && received.ends_with(text); };
    return waitUntil(isShown) ? testing::AssertionSuccess() : failure("does not show " + Visible(text));
}

testing::AssertionResult PseudoTerminal::answers(const std::string &prompt, const std::string &answer)
{
    const testing::AssertionResult shown = shows(prompt);
    if (shown)
        type(answer);
    return shown;
}

void PseudoTerminal::type(const std::string &bytes)
{
    typedAt = received.size();
    if (write(master, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
        throw std::runtime_error("cannot write to the terminal");
}

void PseudoTerminal::sendSignal(int signal) const
{
    kill(program, signal);
}

testing::AssertionResult PseudoTerminal::stopsBy(int signal)
{
    if (!waitUntil([&] { return !changes.empty(); }))
        return failure("does not stop");
    const int change = changes.front();
    if (!WIFSTOPPED(change) || WSTOPSIG(change) != signal)
        return failure("changed its state unexpectedly, to status " + std::to_string(change));
    changes.pop_front();
    return testing::AssertionSuccess();
}

void PseudoTerminal::continueInForeground() const
{
    kill(leader, SIGUSR1);
}

ProgramResult PseudoTerminal::end()
{
    ProgramResult result;
    if (!waitUntil([&] { return !isOpen && !changes.empty() && !WIFSTOPPED(changes.back()); }))
        ADD_FAILURE() << failure("does not end").message();
    else if (WIFEXITED(changes.back()))
        result.status = WEXITSTATUS(changes.back());
    else
        result.signal = WTERMSIG(changes.back());
    result.output = received;
    return result;
}

termios PseudoTerminal::attributes() const
{
    termios found;
    checked(tcgetattr(master, &found), "tcgetattr");
    return found;
}

void PseudoTerminal::setAttributes(const termios &newAttributes)
{
    checked(tcsetattr(master, TCSANOW, &newAttributes), "tcsetattr");
}

testing::AssertionResult PseudoTerminal::reaches(const std::function<bool()> &state)
{
    return waitUntil(state) ? testing::AssertionSuccess() : failure("does not reach the expected state");
}

bool PseudoTerminal::waitUntil(const std::function<bool()> &holds)
{
    const Clock::time_point deadline = Clock::now() + longestWait;
    while (!holds() && Clock::now() < deadline)
        receive();
    return holds();
}

/// Reads what the terminal and the leader have written, after a short wait if there is nothing.
void PseudoTerminal::receive()
{
    // A closed terminal would always be ready.
    std::array<pollfd, 2> waiting = {pollfd{reports, POLLIN, 0}, pollfd{isOpen ? master : -1, POLLIN, 0}};
    if (poll(waiting.data(), waiting.size(), 20) < 0 && errno != EINTR)
        throw std::runtime_error("poll failed");
    int change = 0;
    if ((waiting[0].revents & POLLIN) != 0 && read(reports, &change, sizeof change) == sizeof change)
        changes.push_back(change);
    if (waiting[1].revents != 0) {
        std::array<char, 65536> chunk;
        const ssize_t size = read(master, chunk.data(), chunk.size());
        if (size > 0)
            received.append(chunk.data(), static_cast<std::size_t>(size));
        else if (size == 0 || errno == EIO)
            isOpen = false;
    }
}

testing::AssertionResult PseudoTerminal::failure(const std::string &expectation) const
{
    return testing::AssertionFailure() << "the program " << expectation << "\nend of the screen:\n"
                                       << Visible(lastLines(received));
}
