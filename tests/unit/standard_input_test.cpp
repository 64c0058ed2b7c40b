#include "keygen/standard_input.h"

#include "tests/support/child_run.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

namespace {

void show(const QString &answer)
{
    std::printf("<%s>", answer.toUtf8().constData());
}

/// Reads by `plan`, an "L" for each line and a "W" for each word, and shows each answer between < and >.
void readBy(const std::string &plan)
{
    for (const char step : plan)
        show(step == 'L' ? ReadLine() : ReadWord());
}

std::string answers(const std::string &plan, const std::string &input)
{
    const ChildRun run = RunInChild([&] { readBy(plan); }, {.input = input});
    EXPECT_TRUE(run.returned);
    EXPECT_EQ(run.errors, "");
    return run.output;
}

TEST(ReadLine, ReturnsEachLineWithoutItsEnd)
{
    EXPECT_EQ(answers("LLL", "one\ntwo words\nthree\n"), "<one><two words><three>");
}

TEST(ReadLine, TakesACarriageReturnForAPartOfTheLineEnd)
{
    EXPECT_EQ(answers("LLL", "one\r\n\r\ntwo\r\n"), "<one><><two>");
    EXPECT_EQ(answers("LL", "o\rne\ntwo\n"), "<o\rne><two>");
}

TEST(ReadLine, KeepsBlanks)
{
    EXPECT_EQ(answers("LLL", " one \n\t\ntwo\n"), "< one ><\t><two>");
}

TEST(ReadLine, ReturnsEmptyLines)
{
    EXPECT_EQ(answers("LLL", "\n\nlast\n"), "<><><last>");
}

TEST(ReadLine, ReturnsALastLineWithoutLineEnd)
{
    EXPECT_EQ(answers("LL", "one\ntwo"), "<one><two>");
}

TEST(ReadLine, ReturnsNothingAtTheEndOfInput)
{
    EXPECT_EQ(answers("LLL", "one\n"), "<one><><>");
    EXPECT_EQ(answers("LL", ""), "<><>");
}

TEST(ReadLine, ReadsUtf8)
{
    EXPECT_EQ(answers("LL", "clé €\n\xF0\x9D\x84\x9E\n"), "<clé €><\xF0\x9D\x84\x9E>");
}

TEST(ReadLine, GuessesNoOtherEncodingFromTheFirstBytes)
{
    // Read as UTF-16, the letters would be one Chinese character.
    EXPECT_TRUE(answers("L", "\xFF\xFE"
                             "ab\n")
                    .ends_with("ab>"));
}

TEST(ReadLine, DropsAByteOrderMarkAtTheStartOnly)
{
    EXPECT_EQ(answers("LL", "\xEF\xBB\xBFpass\n\xEF\xBB\xBFpass\n"), "<pass><\xEF\xBB\xBFpass>");
    EXPECT_EQ(answers("L", "\xEF\xBB\xBF\xEF\xBB\xBFpass\n"), "<\xEF\xBB\xBFpass>");
    EXPECT_EQ(answers("L", "pass\xEF\xBB\xBF\n"), "<pass\xEF\xBB\xBF>");
}

TEST(ReadLine, TellsWhetherALineIsUtf8)
{
    const ChildRun run = RunInChild(
        [] {
            for (int i = 0; i < 5; ++i) {
                bool valid = i % 2 == 0;
                ReadLine(&valid);
                std::fputs(valid ? "valid " : "invalid ", stdout);
            }
        },
        {.input = "clé\nclé\na\xE9z\na\xE2\x82\n"});
    EXPECT_EQ(run.output, "valid valid invalid invalid valid ");
}

TEST(ReadLine, MarksBytesThatAreNoUtf8)
{
    EXPECT_EQ(answers("LL", "a\xFFz\nnext\n"), "<a\xEF\xBF\xBDz><next>");
}

TEST(ReadLine, ReadsLongLines)
{
    const std::string line(4000, 'x');
    EXPECT_EQ(answers("LL", line + "\nnext\n"), "<" + line + "><next>");
}

TEST(ReadLine, ReadsFromAFileToo)
{
    const TemporaryFolder folder;
    WriteFile(folder / "answers", "one\ntwo\n");
    const ChildRun run = RunInChild([] { readBy("LLL"); }, {.inputFile = folder / "answers"});
    EXPECT_EQ(run.output, "<one><two><>");
}

TEST(ReadWord, ReturnsWordsOfOneLineAndOfSeveral)
{
    EXPECT_EQ(answers("WWW", "one two three\n"), "<one><two><three>");
    EXPECT_EQ(answers("WWW", "one\ntwo\nthree\n"), "<one><two><three>");
    EXPECT_EQ(answers("WWW", "one two\nthree"), "<one><two><three>");
}

TEST(ReadWord, SkipsAnyWhiteSpace)
{
    EXPECT_EQ(answers("WWW", " \t one \r\n\n \n\v\ftwo\t\tthree \n"), "<one><two><three>");
    EXPECT_EQ(answers("WW", "one\rtwo\n"), "<one><two>");
}

TEST(ReadWord, ReturnsALastWordWithoutLineEnd)
{
    EXPECT_EQ(answers("W", "one"), "<one>");
    EXPECT_EQ(answers("WW", "clé à"), "<clé><à>");
}

TEST(ReadWord, ReturnsNothingAtTheEndOfInput)
{
    EXPECT_EQ(answers("WW", "one\n"), "<one><>");
    EXPECT_EQ(answers("WW", " \n \n"), "<><>");
    EXPECT_EQ(answers("W", ""), "<>");
}

TEST(ReadWord, LeavesTheRestOfItsLineToReadLine)
{
    EXPECT_EQ(answers("WLL", "one two three\nfour\n"), "<one>< two three><four>");
    EXPECT_EQ(answers("WWLL", "one two three\nfour\n"), "<one><two>< three><four>");
    EXPECT_EQ(answers("WLL", "one \nfour\n"), "<one>< ><four>");
}

TEST(ReadWord, TakesItsLineEndWithIt)
{
    EXPECT_EQ(answers("WL", "one\ntwo\n"), "<one><two>");
    EXPECT_EQ(answers("WL", "one\r\ntwo\n"), "<one><two>");
    EXPECT_EQ(answers("WL", "\n\none\ntwo\n"), "<one><two>");
}

TEST(ReadWord, ReadsOnAfterALine)
{
    EXPECT_EQ(answers("LWW", "a line\none two\n"), "<a line><one><two>");
}

/// The milliseconds that the answers by `plan` take at the end of input.
int millisecondsAtTheEnd(const std::string &plan)
{
    const ChildRun run = RunInChild([&] {
        const auto start = std::chrono::steady_clock::now();
        for (const char step : plan)
            step == 'L' ? ReadLine() : ReadWord();
        const auto time = std::chrono::steady_clock::now() - start;
        std::printf("%d",
                    static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(time).count()));
    });
    return std::stoi(run.output);
}

TEST(EndOfInput, IsWaitedForTwentyTimesASecond)
{
    for (const char *plan : {"LLLL", "WWWW"}) {
        const int time = millisecondsAtTheEnd(plan);
        EXPECT_GE(time, 200);
        EXPECT_LT(time, 2000);
    }
}

TEST(EndOfInput, PassesWhenMoreArrives)
{
    const TemporaryFolder folder;
    const std::string path = folder / "answers";
    WriteFile(path, "one\n");
    const ChildRun run = RunInChild(
        [&] {
            readBy("LLW");
            std::ofstream(path, std::ios::app) << "two three\nfour\n" << std::flush;
            readBy("WLLL");
        },
        {.inputFile = path});
    EXPECT_EQ(run.output, "<one><><><two>< three><four><>");
}

TEST(AnswersThatComeLate, AreWaitedForOnANonBlockingDescriptor)
{
    const ChildRun run = RunInChild([] {
        std::array<int, 2> ends = {};
        if (pipe2(ends.data(), O_NONBLOCK) != 0)
            std::abort();
        dup2(ends[0], STDIN_FILENO);
        std::thread late([&ends] {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            dprintf(ends[1], "answer\n");
        });
        readBy("L");
        late.join();
    });
    EXPECT_EQ(run.output, "<answer>");
}

TEST(AnswersThatComeInPieces, AreReadAsTheyCome)
{
    const ChildRun run = RunInChild([] {
        std::array<int, 2> ends = {};
        if (pipe(ends.data()) != 0)
            std::abort();
        dup2(ends[0], STDIN_FILENO);
        dprintf(ends[1], "one\ntw");
        readBy("L");
        dprintf(ends[1], "o three\n");
        readBy("WL");
    });
    EXPECT_EQ(run.output, "<one><two>< three>");
}

TEST(Questions, StandOnTheScreenBeforeTheAnswerIsWaitedFor)
{
    for (const char *plan : {"L", "W"}) {
        const ChildRun run = RunInChild([&] {
            std::fputs("question?", stdout);
            readBy(plan);
            _exit(0); // what is buffered then is lost
        });
        EXPECT_EQ(run.output, "question?");
    }
}

} // namespace
