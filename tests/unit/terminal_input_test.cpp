// Standard input that arrives in pieces, as a user types it.
#include "keygen/standard_input.h"

#include "tests/support/pseudo_terminal.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <string>

namespace {

void show(const QString &answer)
{
    std::printf("<%s>", answer.toUtf8().constData());
}

/// Disables line editing and echo, as while passwords are typed.
void disableEditingAndEcho(PseudoTerminal &terminal)
{
    termios attributes = terminal.attributes();
    attributes.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON);
    terminal.setAttributes(attributes);
}

/// Prints "ready", then two lines.
void readTwoLines()
{
    std::fputs("ready", stdout);
    for (int i = 0; i < 2; ++i)
        show(ReadLine().text);
    std::fputs("end", stdout);
}

TEST(TypedLine, ATypedLineIsReturnedAtItsEnd)
{
    PseudoTerminal terminal(readTwoLines);
    ASSERT_TRUE(terminal.answers("ready", "one\n"));
    ASSERT_TRUE(terminal.answers("<one>", "two\n"));
    EXPECT_EQ(terminal.end().status, 0);
    EXPECT_EQ(terminal.screen(), "readyone\n<one>two\n<two>end");
}

TEST(TypedLine, ReadingWaitsForTheEndOfALineWithoutEditing)
{
    PseudoTerminal terminal(readTwoLines);
    disableEditingAndEcho(terminal);
    ASSERT_TRUE(terminal.shows("ready"));
    for (const char *typed : {"o", "n", "e\ntw", "\xE2\x82", "\xAC\n"})
        terminal.type(typed);
    terminal.end();
    EXPECT_EQ(terminal.screen(), "ready<one><tw\xE2\x82\xAC>end");
}

TEST(TypedLine, ReadingWaitsForALineOnANonBlockingDescriptor)
{
    PseudoTerminal terminal([] {
        fcntl(STDIN_FILENO, F_SETFL, O_RDWR | O_NONBLOCK);
        readTwoLines();
    });
    disableEditingAndEcho(terminal);
    ASSERT_TRUE(terminal.shows("ready"));
    terminal.type("o");
    terminal.type("ne\ntwo\n");
    terminal.end();
    EXPECT_EQ(terminal.screen(), "ready<one><two>end");
}

TEST(TypedLine, ReadingWaitsForALineAfterASignal)
{
    PseudoTerminal terminal([] {
        struct sigaction interrupting = {};
        interrupting.sa_handler = [](int) {};
        sigaction(SIGUSR1, &interrupting, nullptr);
        readTwoLines();
    });
    disableEditingAndEcho(terminal);
    ASSERT_TRUE(terminal.shows("ready"));
    for (const char *typed : {"o", "ne", "\ntwo", "\n"}) {
        terminal.sendSignal(SIGUSR1);
        terminal.type(typed);
    }
    terminal.end();
    EXPECT_EQ(terminal.screen(), "ready<one><two>end");
}

TEST(TypedLine, ALineCanFollowTheEndOfInputOnATerminal)
{
    PseudoTerminal terminal([] {
        std::fputs("ready", stdout);
        show(ReadLine().text);
        std::fflush(stdout);
        show(ReadLine().text);
    });
    ASSERT_TRUE(terminal.answers("ready", "\x04"));
    ASSERT_TRUE(terminal.answers("<>", "one\n"));
    terminal.end();
    EXPECT_EQ(terminal.screen(), "ready<>one\n<one>");
}

/// Reads lines of `input` and prints each with its validity.
std::string readWithValidity(const std::string &input, int lines)
{
    PseudoTerminal terminal([&] {
        std::array<int, 2> ends;
        if (pipe(ends.data()) != 0 ||
            write(ends[1], input.data(), input.size()) != static_cast<ssize_t>(input.size()))
            _exit(1);
        close(ends[1]);
        dup2(ends[0], STDIN_FILENO);
        for (int i = 0; i < lines; ++i) {
            const InputLine line = ReadLine();
            show(line.text);
            std::fputs(line.isUtf8 ? "+" : "-", stdout);
        }
    });
    return terminal.end().output;
}

TEST(TypedLine, ALineThatIsInvalidUtf8IsReported)
{
    const std::string mark = "\xEF\xBF\xBD";
    EXPECT_EQ(readWithValidity("a\xFF\n\xC3\xA9\nb\xE2\nend", 4),
              "<a" + mark + ">-<\xC3\xA9>+<b" + mark + ">-<end>+");
    // A byte order mark of UTF-16 is invalid, too.
    EXPECT_EQ(readWithValidity("\xFF\xFE"
                               "ab\n",
                               1),
              "<" + mark + mark + "ab>-");
    EXPECT_EQ(readWithValidity(mark + "\n" + mark + "\n", 2), "<" + mark + ">+<" + mark + ">+");
}

} // namespace
