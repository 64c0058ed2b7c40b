#include "src/held_signals.h"

#include "tests/support/child_run.h"
#include "tests/support/signal_mask.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <future>
#include <string>
#include <thread>

namespace fs = std::filesystem;

namespace {

const std::set<int> endOrStop = {SIGINT,  SIGTERM, SIGHUP,  SIGQUIT, SIGPIPE,
                                 SIGTSTP, SIGALRM, SIGUSR1, SIGUSR2};

/// The signals that are blocked while the signals for `path` are held back.
std::set<int> heldFor(const std::string &path)
{
    const HeldSignals held(path.c_str());
    return BlockedSignals();
}

TEST(HeldSignals, SignalsThatEndOrStopARunAreHeldWhileAFileIsWritten)
{
    const TemporaryFolder folder;
    const OnlyBlocked none({});
    WriteFile(folder / "file", "old");
    fs::create_symlink("file", folder / "link");
    fs::create_symlink("new", folder / "link to a free name");
    for (const char *name : {"file", "link", "link to a free name", "new"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(heldFor(folder / name), endOrStop);
        EXPECT_EQ(BlockedSignals(), std::set<int>());
    }
}

TEST(HeldSignals, NoSignalIsHeldForAPipeOrADevice)
{
    const TemporaryFolder folder;
    const OnlyBlocked none({});
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    fs::create_symlink("pipe", folder / "link");
    for (const std::string &path : {folder / "pipe", folder / "link", std::string("/dev/null")}) {
        SCOPED_TRACE(path);
        EXPECT_EQ(heldFor(path), std::set<int>());
    }
}

TEST(HeldSignals, SignalsThatTheCallerBlocksStayBlocked)
{
    const TemporaryFolder folder;
    const OnlyBlocked callers({SIGINT, SIGCHLD});
    std::set<int> both = endOrStop;
    both.insert(SIGCHLD);
    EXPECT_EQ(heldFor(folder / "new"), both);
    EXPECT_EQ(BlockedSignals(), (std::set<int>{SIGINT, SIGCHLD}));
    EXPECT_EQ(heldFor("/dev/null"), (std::set<int>{SIGINT, SIGCHLD}));
    EXPECT_EQ(BlockedSignals(), (std::set<int>{SIGINT, SIGCHLD}));
}

TEST(HeldSignals, AHeldSignalTakesEffectAfterwards)
{
    const TemporaryFolder folder;
    const ChildRun run = RunInChild([&] {
        const OnlyBlocked none({});
        {
            const HeldSignals held((folder / "new").c_str());
            std::raise(SIGTERM);
            std::printf("held");
            std::fflush(stdout);
        }
        std::printf(" forever");
        std::fflush(stdout);
    });
    EXPECT_EQ(run.signal, SIGTERM);
    EXPECT_EQ(run.output, "held");
}

TEST(HeldSignals, SignalsAreHeldForTheCallingThreadOnly)
{
    const TemporaryFolder folder;
    const OnlyBlocked none({});
    std::promise<void> holding;
    std::set<int> blockedInTheOther;
    std::thread other([&] {
        holding.get_future().wait();
        blockedInTheOther = BlockedSignals();
    });
    {
        const HeldSignals held((folder / "new").c_str());
        holding.set_value();
        other.join();
    }
    EXPECT_EQ(blockedInTheOther, std::set<int>());
}

} // namespace
