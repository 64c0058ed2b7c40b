// Standard input that comes bit by bit, as someone types it.
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

/// Turns line editing and echo off, as a terminal is while passwords are typed.
void deliverAtOnce(PseudoTerminal &terminal)
{
    termios attributes = terminal.attributes();
    attributes.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON);
    terminal.setAttributes(attributes);
}

/// Shows "ready", then two lines.
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

TEST(TypedLine, ATypedLineIsWaitedForToItsEndWhenItIsUnedited)
{
    PseudoTerminal terminal(readTwoLines);
    deliverAtOnce(terminal);
    ASSERT_TRUE(terminal.shows("ready"));
    for (const char *typed : {"o", "n", "e\ntw", "\xE2\x82", "\xAC\n"})
        terminal.type(typed);
    terminal.end();
    EXPECT_EQ(terminal.screen(), "ready<one><tw\xE2\x82\xAC>end");
}

TEST(TypedLine, ATypedLineIsWaitedForWhereReadingDoesNotBlock)
{
    PseudoTerminal terminal([] {
        fcntl(STDIN_FILENO, F_SETFL, O_RDWR | O_NONBLOCK);
        readTwoLines();
    });
    deliverAtOnce(terminal);
    ASSERT_TRUE(terminal.shows("ready"));
    terminal.type("o");
    terminal.type("ne\ntwo\n");
    terminal.end();
    EXPECT_EQ(terminal.screen(), "ready<one><two>end");
}

TEST(TypedLine, ATypedLineIsWaitedForAfterASignal)
{
    PseudoTerminal terminal([] {
        struct sigaction interrupting = {};
        interrupting.sa_handler = [](int) {};
        sigaction(SIGUSR1, &interrupting, nullptr);
        readTwoLines();
    });
    deliverAtOnce(terminal);
    ASSERT_TRUE(terminal.shows("ready"));
    for (const char *typed : {"o", "ne", "\ntwo", "\n"}) {
        terminal.sendSignal(SIGUSR1);
        terminal.type(typed);
    }
    terminal.end();
    EXPECT_EQ(terminal.screen(), "ready<one><two>end");
}

TEST(TypedLine, ATypedLineCanFollowTheEndOfATerminalsInput)
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

/// Reads lines of `input` and shows each with its validity.
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

TEST(TypedLine, ATypedLineIsToldWhenItIsNotUtf8)
{
    const std::string mark = "\xEF\xBF\xBD";
    EXPECT_EQ(readWithValidity("a\xFF\n\xC3\xA9\nb\xE2\nend", 4),
              "<a" + mark + ">-<\xC3\xA9>+<b" + mark + ">-<end>+");
    // Not the beginning of UTF-16 either.
    EXPECT_EQ(readWithValidity("\xFF\xFE"
                               "ab\n",
                               1),
              "<" + mark + mark + "ab>-");
    EXPECT_EQ(readWithValidity(mark + "\n" + mark + "\n", 2), "<" + mark + ">+<" + mark + ">+");
}

} // namespace
