#include "keygen/terminal.h"

#include <csignal>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace {

// The signals with which a user, a shell, a closed pipe, a timer, a limit or abort() ends, stops or continues
// a process.
constexpr std::array watchedSignals = {SIGINT,  SIGHUP,  SIGQUIT, SIGTERM,   SIGPIPE, SIGALRM, SIGUSR1,
                                       SIGUSR2, SIGABRT, SIGXCPU, SIGVTALRM, SIGTSTP, SIGCONT};

// Signal handlers take no arguments of our choice, so their data is global.
bool hidden = false;
termios found;
termios modified;
std::array<struct sigaction, watchedSignals.size()> formerActions;

void apply(const termios &attributes)
{
    tcsetattr(STDIN_FILENO, TCSANOW, &attributes);
}

/// A background job must leave the terminal alone: the shell is using it, and the attempt would stop the job.
void applyInForeground(const termios &attributes)
{
    const pid_t foreground = tcgetpgrp(STDIN_FILENO);
    // There is no foreground group if the terminal is not the session's own.
    if (foreground == -1 || foreground == getpgrp())
        apply(attributes);
}

/// Lets `signal` take its default effect now, inside its own handler; returns when a stopped process
/// continues.
void takeDefaultEffect(int signal)
{
    struct sigaction byDefault = {};
    byDefault.sa_handler = SIG_DFL;
    struct sigaction ours = {};
    sigaction(signal, &byDefault, &ours);
    raise(signal);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    sigset_t blocked;
    pthread_sigmask(SIG_UNBLOCK, &only, &blocked);
    pthread_sigmask(SIG_SETMASK, &blocked, nullptr);
    sigaction(signal, &ours, nullptr);
}

void onSignal(int signal)
{
    const int savedError = errno;
    if (signal != SIGCONT) {
        applyInForeground(found);
        takeDefaultEffect(signal);
    }
    // Still running: the process was stopped, and continues.
    applyInForeground(modified);
    errno = savedError;
}

void watchSignals()
{
    struct sigaction watching = {};
    watching.sa_handler = onSignal;
    watching.sa_flags = SA_RESTART;
    for (const int signal : watchedSignals)
        sigaddset(&watching.sa_mask, signal);
    for (std::size_t i = 0; i < watchedSignals.size(); ++i) {
        sigaction(watchedSignals[i], nullptr, &formerActions[i]);
        // A signal that the caller made us ignore stays ignored.
        if (formerActions[i].sa_handler != SIG_IGN)
            sigaction(watchedSignals[i], &watching, nullptr);
    }
}

void unwatchSignals()
{
    for (std::size_t i = 0; i < watchedSignals.size(); ++i)
        sigaction(watchedSignals[i], &formerActions[i], nullptr);
}

} // namespace

HiddenEntry::HiddenEntry()
{
    if (tcgetattr(STDIN_FILENO, &found) != 0)
        return;
    modified = found;
    modified.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON);
    hidden = true;
    watchSignals();
    apply(modified);
}

HiddenEntry::~HiddenEntry()
{
    if (!hidden)
        return;
    modified.c_lflag |= ECHO;
    apply(modified);
    unwatchSignals();
    hidden = false;
}
