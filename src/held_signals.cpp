#include "src/held_signals.h"

#include <sys/stat.h>

#include <array>

namespace {

constexpr std::array heldSignals = {SIGINT,  SIGTERM, SIGHUP,  SIGQUIT, SIGPIPE,
                                    SIGTSTP, SIGALRM, SIGUSR1, SIGUSR2};

bool isReplaced(const char *path)
{
    struct stat found = {};
    return stat(path, &found) != 0 || S_ISREG(found.st_mode);
}

} // namespace

HeldSignals::HeldSignals(const char *path)
{
    if (!isReplaced(path))
        return;
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : heldSignals)
        sigaddset(&held, signal);
    holding = pthread_sigmask(SIG_BLOCK, &held, &before) == 0;
}

HeldSignals::~HeldSignals()
{
    if (holding)
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
}
