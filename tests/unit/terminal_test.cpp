#include "keygen/terminal.h"

#include "tests/support/pseudo_terminal.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

constexpr std::array endingSignals = {SIGINT,  SIGHUP,  SIGQUIT, SIGTERM, SIGPIPE,  SIGALRM,
                                      SIGUSR1, SIGUSR2, SIGABRT, SIGXCPU, SIGVTALRM};

void print(const std::string &text)
{
    std::fputs(text.c_str(), stdout);
    std::fflush(stdout);
}

std::string readByte()
{
    char byte = 0;
    return read(STDIN_FILENO, &byte, 1) == 1 ? std::string(1, byte) : "nothing";
}

/// `word` and a space, once for each signal that ends a process.
std::string forEachEndingSignal(const std::string &word)
{
    std::string text;
    for (std::size_t i = 0; i < endingSignals.size(); ++i)
        text += word + " ";
    return text;
}

/// Waits for one byte with hidden input, and for another with shown input; prints both.
void readHiddenThenShown()
{
    {
        const HiddenEntry hidden;
        print("hidden\n");
        print("got " + readByte() + "\n");
    }
    print("shown\n");
    print("got " + readByte() + "\n");
}

std::string screenOf(const std::function<void()> &function)
{
    PseudoTerminal terminal(function);
    const ProgramResult result = terminal.end();
    EXPECT_EQ(result.status, 0);
    return result.output;
}

/// The attributes except for the two that hidden input changes.
std::string otherAttributes(termios attributes)
{
    attributes.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON);
    return std::string(reinterpret_cast<const char *>(&attributes), offsetof(termios, c_cc)) +
           std::string(reinterpret_cast<const char *>(attributes.c_cc), sizeof attributes.c_cc);
}

TEST(HiddenEntry, DoesNotEchoInputAndDeliversItImmediately)
{
    PseudoTerminal terminal(readHiddenThenShown);
    const termios &found = terminal.firstAttributes();
    EXPECT_EQ(found.c_lflag & (ECHO | ICANON), static_cast<tcflag_t>(ECHO | ICANON));

    ASSERT_TRUE(terminal.shows("hidden\n"));
    EXPECT_FALSE(terminal.echoes());
    EXPECT_FALSE(terminal.editsLines());
    EXPECT_EQ(otherAttributes(terminal.attributes()), otherAttributes(found));

    terminal.type("x");
    ASSERT_TRUE(terminal.shows("shown\n"));
    EXPECT_EQ(terminal.screen(), "hidden\ngot x\nshown\n");
}

TEST(HiddenEntry, EchoesLaterInputWithoutEditingIt)
{
    PseudoTerminal terminal(readHiddenThenShown);
    const termios &found = terminal.firstAttributes();
    ASSERT_TRUE(terminal.answers("hidden\n", "x"));
    ASSERT_TRUE(terminal.shows("shown\n"));
    EXPECT_TRUE(terminal.echoes());
    EXPECT_FALSE(terminal.editsLines());
    EXPECT_EQ(otherAttributes(terminal.attributes()), otherAttributes(found));

    terminal.type("y");
    EXPECT_EQ(terminal.end().output, "hidden\ngot x\nshown\nygot y\n");
    EXPECT_TRUE(terminal.echoes());
    EXPECT_FALSE(terminal.editsLines());
}

TEST(HiddenEntry, EchoesLaterInputEvenIfEchoWasOffBefore)
{
    PseudoTerminal terminal([] {
        readByte();
        readHiddenThenShown();
    });
    termios silent = terminal.attributes();
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    terminal.setAttributes(silent);
    terminal.type("\n");
    ASSERT_TRUE(terminal.answers("hidden\n", "x"));
    ASSERT_TRUE(terminal.shows("shown\n"));
    EXPECT_TRUE(terminal.echoes());
}

TEST(HiddenEntry, DoesNothingIfStandardInputIsNotATerminal)
{
    PseudoTerminal terminal([] {
        const int pause = dup(STDIN_FILENO);
        dup2(open("/dev/null", O_RDWR), STDIN_FILENO);
        {
            const HiddenEntry hidden;
            for (const int number : endingSignals) {
                struct sigaction action;
                sigaction(number, nullptr, &action);
                print(action.sa_handler == SIG_DFL ? "default " : "handled ");
            }
            dup2(pause, STDIN_FILENO);
            print("\n");
            readByte();
        }
        print("end\n");
    });
    const std::string untouched = forEachEndingSignal("default") + "\n";
    ASSERT_TRUE(terminal.shows(untouched));
    EXPECT_TRUE(terminal.echoes());
    EXPECT_TRUE(terminal.editsLines());
    terminal.type("\n");
    EXPECT_EQ(terminal.end().output, untouched + "\nend\n");
    EXPECT_TRUE(terminal.editsLines());
}

TEST(HiddenEntry, RestoresTheTerminalIfASignalEndsTheProcess)
{
    for (const int number : endingSignals) {
        PseudoTerminal terminal(readHiddenThenShown);
        const termios &found = terminal.firstAttributes();
        ASSERT_TRUE(terminal.shows("hidden\n"));
        terminal.sendSignal(number);
        EXPECT_EQ(terminal.end().signal, number);
        EXPECT_TRUE(terminal.echoes());
        EXPECT_TRUE(terminal.editsLines());
        EXPECT_EQ(otherAttributes(terminal.attributes()), otherAttributes(found));
        EXPECT_EQ(terminal.screen(), "hidden\n");
    }
}

TEST(HiddenEntry, RestoresTheTerminalIfATypedKeyEndsTheProcess)
{
    for (const auto &[key, number] : {std::pair("\x03", SIGINT), std::pair("\x1C", SIGQUIT)}) {
        PseudoTerminal terminal(readHiddenThenShown);
        ASSERT_TRUE(terminal.answers("hidden\n", key));
        EXPECT_EQ(terminal.end().signal, number);
        EXPECT_TRUE(terminal.echoes());
        EXPECT_TRUE(terminal.editsLines());
    }
}

TEST(HiddenEntry, RestoresTheTerminalIfTheProcessAborts)
{
    PseudoTerminal terminal([] {
        const HiddenEntry hidden;
        print("hidden\n");
        readByte();
        std::abort();
    });
    ASSERT_TRUE(terminal.shows("hidden\n"));
    EXPECT_FALSE(terminal.echoes());
    terminal.type("x");
    EXPECT_EQ(terminal.end().signal, SIGABRT);
    EXPECT_TRUE(terminal.echoes());
    EXPECT_TRUE(terminal.editsLines());
}

TEST(HiddenEntry, RestoresATerminalThatIsNotTheControllingOne)
{
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(grantpt(master), 0);
    ASSERT_EQ(unlockpt(master), 0);
    PseudoTerminal terminal([&] {
        dup2(open(ptsname(master), O_RDWR | O_NOCTTY), STDIN_FILENO);
        readHiddenThenShown();
    });
    const auto echoes = [&] {
        termios attributes;
        tcgetattr(master, &attributes);
        return (attributes.c_lflag & ECHO) != 0;
    };
    ASSERT_TRUE(terminal.shows("hidden\n"));
    EXPECT_FALSE(echoes());
    EXPECT_TRUE(terminal.echoes());
    terminal.sendSignal(SIGTERM);
    EXPECT_EQ(terminal.end().signal, SIGTERM);
    EXPECT_TRUE(echoes());
    close(master);
}

TEST(HiddenEntry, RestoresTheTerminalWhileStoppedAndHidesInputAgain)
{
    PseudoTerminal terminal(readHiddenThenShown);
    ASSERT_TRUE(terminal.shows("hidden\n"));
    for (int i = 0; i < 2; ++i) {
        terminal.type("\x1A");
        ASSERT_TRUE(terminal.stopsBy(SIGTSTP));
        EXPECT_TRUE(terminal.echoes());
        EXPECT_TRUE(terminal.editsLines());
        terminal.continueInForeground();
        ASSERT_TRUE(terminal.reaches([&] { return !terminal.echoes(); }));
        EXPECT_FALSE(terminal.editsLines());
    }
    terminal.type("x");
    ASSERT_TRUE(terminal.answers("shown\n", "y"));
    EXPECT_EQ(terminal.end().output, "hidden\ngot x\nshown\nygot y\n");
}

TEST(HiddenEntry, HidesInputAgainAfterAStopThatCannotBeCaught)
{
    PseudoTerminal terminal(readHiddenThenShown);
    const termios &found = terminal.firstAttributes();
    ASSERT_TRUE(terminal.shows("hidden\n"));
    terminal.sendSignal(SIGSTOP);
    ASSERT_TRUE(terminal.stopsBy(SIGSTOP));
    terminal.setAttributes(found); // as a shell does
    terminal.continueInForeground();
    ASSERT_TRUE(terminal.reaches([&] { return !terminal.echoes(); }));
    terminal.type("x");
    EXPECT_TRUE(terminal.shows("shown\n"));
}

TEST(HiddenEntry, DoesNotChangeTheTerminalInTheBackground)
{
    PseudoTerminal terminal(readHiddenThenShown);
    ASSERT_TRUE(terminal.answers("hidden\n", "\x1A"));
    ASSERT_TRUE(terminal.stopsBy(SIGTSTP));
    terminal.continueInBackground();
    // It is stopped because it reads, not because it changes the terminal.
    ASSERT_TRUE(terminal.stopsBy(SIGTTIN));
    EXPECT_TRUE(terminal.echoes());
    EXPECT_TRUE(terminal.editsLines());

    terminal.continueInForeground();
    ASSERT_TRUE(terminal.reaches([&] { return !terminal.echoes(); }));
    terminal.type("x");
    EXPECT_TRUE(terminal.shows("shown\n"));
}

TEST(HiddenEntry, CanBeEndedByASignalInTheBackground)
{
    PseudoTerminal terminal(readHiddenThenShown);
    ASSERT_TRUE(terminal.answers("hidden\n", "\x1A"));
    ASSERT_TRUE(terminal.stopsBy(SIGTSTP));
    terminal.sendSignal(SIGTERM);
    terminal.continueInBackground();
    EXPECT_EQ(terminal.end().signal, SIGTERM);
    EXPECT_TRUE(terminal.echoes());
}

TEST(HiddenEntry, KeepsIgnoredSignalsIgnored)
{
    PseudoTerminal terminal([] {
        for (const int number : endingSignals)
            signal(number, SIG_IGN);
        signal(SIGTSTP, SIG_IGN);
        readHiddenThenShown();
        for (const int number : endingSignals)
            print(signal(number, SIG_DFL) == SIG_IGN ? "ignored " : "changed ");
    });
    ASSERT_TRUE(terminal.shows("hidden\n"));
    for (const int number : endingSignals)
        terminal.sendSignal(number);
    terminal.type("\x03\x1C\x1Ax");
    ASSERT_TRUE(terminal.answers("shown\n", "y"));
    EXPECT_EQ(terminal.end().output, "hidden\ngot x\nshown\nygot y\n" + forEachEndingSignal("ignored"));
}

TEST(HiddenEntry, RestoresSignalHandlersAndTheTerminal)
{
    PseudoTerminal terminal(readHiddenThenShown);
    ASSERT_TRUE(terminal.answers("hidden\n", "x"));
    ASSERT_TRUE(terminal.shows("shown\n"));
    terminal.sendSignal(SIGTERM);
    EXPECT_EQ(terminal.end().signal, SIGTERM);
    EXPECT_TRUE(terminal.echoes());
    EXPECT_FALSE(terminal.editsLines());
}

TEST(HiddenEntry, InputCanBeHiddenAgain)
{
    PseudoTerminal terminal([] {
        readHiddenThenShown();
        readHiddenThenShown();
    });
    ASSERT_TRUE(terminal.answers("hidden\n", "1"));
    ASSERT_TRUE(terminal.answers("shown\n", "2"));
    ASSERT_TRUE(terminal.shows("hidden\n"));
    EXPECT_FALSE(terminal.echoes());
    terminal.type("3");
    ASSERT_TRUE(terminal.shows("shown\n"));
    EXPECT_TRUE(terminal.echoes());
}

TEST(HiddenEntry, KeepsTheErrorNumberOfInterruptedCalls)
{
    EXPECT_EQ(screenOf([] {
                  const HiddenEntry hidden;
                  // The calls of the handler fail from here on.
                  dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
                  errno = 0;
                  raise(SIGCONT);
                  print("error " + std::to_string(errno) + "\n");
              }),
              "error 0\n");
}

} // namespace
