#include "tests/support/signal_mask.h"

std::set<int> BlockedSignals()
{
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    std::set<int> blocked;
    for (int signal = 1; signal < NSIG; ++signal) {
        if (sigismember(&mask, signal) == 1)
            blocked.insert(signal);
    }
    return blocked;
}

OnlyBlocked::OnlyBlocked(const std::set<int> &signals)
{
    sigset_t mask;
    sigemptyset(&mask);
    for (const int signal : signals)
        sigaddset(&mask, signal);
    pthread_sigmask(SIG_SETMASK, &mask, &before);
}

OnlyBlocked::~OnlyBlocked()
{
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}
