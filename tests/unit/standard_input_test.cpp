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

/// Reads as `plan` says, an "L" for each line and a "W" for each word, and prints each answer in angle
/// brackets.
void readBy(const std::string &plan)
{
    for (const char step : plan)
        show(step == 'L' ? ReadLine().text : ReadWord());
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

TEST(ReadLine, TreatsACarriageReturnAsPartOfTheLineEnd)
{
    EXPECT_EQ(answers("LLL", "one\r\n\r\ntwo\r\n"), "<one><><two>");
    EXPECT_EQ(answers("LL", "o\rne\ntwo\n"), "<o\rne><two>");
}

TEST(ReadLine, KeepsSpaces)
{
    EXPECT_EQ(answers("LLL", " one \n\t\ntwo\n"), "< one ><\t><two>");
}

TEST(ReadLine, ReturnsEmptyLines)
{
    EXPECT_EQ(answers("LLL", "\n\nlast\n"), "<><><last>");
}

TEST(ReadLine, ReturnsALastLineWithoutALineEnd)
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

TEST(ReadLine, DoesNotGuessAnotherEncodingFromTheFirstBytes)
{
    // Read as UTF-16, the letters would be one Chinese character.
    EXPECT_TRUE(answers("L", "\xFF\xFE"
                             "ab\n")
                    .ends_with("ab>"));
}

TEST(ReadLine, DropsAByteOrderMarkOnlyAtTheStart)
{
    EXPECT_EQ(answers("LL", "\xEF\xBB\xBFpass\n\xEF\xBB\xBFpass\n"), "<pass><\xEF\xBB\xBFpass>");
    EXPECT_EQ(answers("L", "\xEF\xBB\xBF\xEF\xBB\xBFpass\n"), "<\xEF\xBB\xBFpass>");
    EXPECT_EQ(answers("L", "pass\xEF\xBB\xBF\n"), "<pass\xEF\xBB\xBF>");
}

TEST(ReadLine, ReportsWhetherALineIsUtf8)
{
    const ChildRun run = RunInChild(
        [] {
            for (int i = 0; i < 5; ++i)
                std::fputs(ReadLine().isUtf8 ? "valid " : "invalid ", stdout);
        },
        {.input = "clé\nclé\na\xE9z\na\xE2\x82\n"});
    EXPECT_EQ(run.output, "valid valid invalid invalid valid ");
}

TEST(ReadLine, ReplacesBytesThatAreInvalidUtf8)
{
    EXPECT_EQ(answers("LL", "a\xFFz\nnext\n"), "<a\xEF\xBF\xBDz><next>");
}

TEST(ReadLine, ReadsLongLines)
{
    const std::string line(4000, 'x');
    EXPECT_EQ(answers("LL", line + "\nnext\n"), "<" + line + "><next>");
}

constexpr std::size_t longest = 1 << 20;

/// What ReadLine returns for the lines in `content`: for a long line its length, and for each whether it is
/// accepted.
std::string linesOf(const std::string &content, int lines)
{
    const TemporaryFolder folder;
    WriteFile(folder / "answers", content);
    const ChildRun run = RunInChild(
        [lines] {
            for (int i = 0; i < lines; ++i) {
                const InputLine line = ReadLine();
                if (line.text.size() > 100)
                    std::printf("%lld", static_cast<long long>(line.text.size()));
                show(line.text.right(4));
                std::fputs(line.isTooLong ? "refused " : "", stdout);
            }
        },
        {.inputFile = folder / "answers", .timeoutMilliseconds = 60000});
    EXPECT_TRUE(run.returned);
    return run.output;
}

TEST(ReadLine, ReadsLinesOfOneMebibyte)
{
    EXPECT_EQ(linesOf(std::string(longest - 2, 'x') + "yz\nnext\n", 2), "1048576<xxyz><next>");
}

TEST(ReadLine, RefusesALineBeyondOneMebibyteCompletely)
{
    EXPECT_EQ(linesOf(std::string(longest - 2, 'x') + "yz1\nnext\n", 2), "1048577<xyz1>refused <next>");
    EXPECT_EQ(linesOf(std::string(longest + 1, 'x') + "1\nnext\n", 2), "1048577<xxxx>refused <next>");
    EXPECT_EQ(linesOf(std::string(5 * longest, 'x') + "\n1\r\nnext\n", 3), "1048577<xxxx>refused <1><next>");
}

TEST(ReadLine, RefusesALastLineThatIsTooLong)
{
    EXPECT_EQ(linesOf(std::string(longest + 1, 'x'), 2), "1048577<xxxx>refused <>");
    EXPECT_EQ(linesOf(std::string(longest + 2, 'x'), 2), "1048577<xxxx>refused <>");
}

TEST(ReadLine, DoesNotTreatTheEndOfARefusedLineAsALine)
{
    // As much of the line as is dropped at once, and more.
    const std::size_t dropped = (std::size_t{1} << 26) + longest + 1;
    EXPECT_EQ(linesOf(std::string(dropped, 'x') + "\nnext\n", 2), "1048577<xxxx>refused <next>");
    EXPECT_EQ(linesOf(std::string(dropped, 'x') + "1\nnext\n", 2), "1048577<xxxx>refused <next>");
    EXPECT_EQ(linesOf(std::string(dropped + 2 * longest, 'x') + "1\nnext\n", 2),
              "1048577<xxxx>refused <next>");
    EXPECT_EQ(linesOf(std::string(dropped + 4, 'x'), 2), "1048577<xxxx>refused <>");
}

TEST(ReadLine, RefusesAnEndlessLineAgainAndAgain)
{
    const ChildRun run = RunInChild(
        [] {
            for (int i = 0; i < 3; ++i) {
                const InputLine line = ReadLine();
                std::printf("%lld%s ", static_cast<long long>(line.text.size()),
                            line.isTooLong ? " refused" : "");
            }
        },
        {.inputFile = "/dev/zero", .timeoutMilliseconds = 60000});
    EXPECT_EQ(run.output, "1048577 refused 1048577 refused 1048577 refused ");
}

TEST(ReadLine, ReadsFromAFile)
{
    const TemporaryFolder folder;
    WriteFile(folder / "answers", "one\ntwo\n");
    const ChildRun run = RunInChild([] { readBy("LLL"); }, {.inputFile = folder / "answers"});
    EXPECT_EQ(run.output, "<one><two><>");
}

TEST(ReadWord, ReturnsWordsOnOneLineAndOnSeveral)
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

TEST(ReadWord, ReturnsALastWordWithoutALineEnd)
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

TEST(ReadWord, ReadsTheLineEndAfterTheWord)
{
    EXPECT_EQ(answers("WL", "one\ntwo\n"), "<one><two>");
    EXPECT_EQ(answers("WL", "one\r\ntwo\n"), "<one><two>");
    EXPECT_EQ(answers("WL", "\n\none\ntwo\n"), "<one><two>");
}

TEST(ReadWord, ReadsTheWordAfterALine)
{
    EXPECT_EQ(answers("LWW", "a line\none two\n"), "<a line><one><two>");
}

TEST(ReadWord, ReadsNoWordFromALineThatIsTooLong)
{
    const TemporaryFolder folder;
    WriteFile(folder / "answers", "y " + std::string(longest, 'x') + " n\nnext word\n");
    const ChildRun run =
        RunInChild([] { readBy("WWL"); }, {.inputFile = folder / "answers", .timeoutMilliseconds = 60000});
    EXPECT_EQ(run.output, "<><next>< word>");
}

/// How many milliseconds the answers of `plan` take at the end of input.
int millisecondsAtTheEnd(const std::string &plan)
{
    const ChildRun run = RunInChild([&] {
        const auto start = std::chrono::steady_clock::now();
        for (const char step : plan)
            step == 'L' ? ReadLine().text : ReadWord();
        const auto time = std::chrono::steady_clock::now() - start;
        std::printf("%d",
                    static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(time).count()));
    });
    return std::stoi(run.output);
}

TEST(EndOfInput, InputIsPolledTwentyTimesASecondAtItsEnd)
{
    for (const char *plan : {"LLLL", "WWWW"}) {
        const int time = millisecondsAtTheEnd(plan);
        EXPECT_GE(time, 200);
        EXPECT_LT(time, 2000);
    }
}

TEST(EndOfInput, ReadingContinuesWhenMoreInputArrives)
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

TEST(LateAnswers, ReadingWaitsForInputOnANonBlockingDescriptor)
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

TEST(AnswersInPieces, PiecesAreReadAsTheyArrive)
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

TEST(Questions, QuestionsAreWrittenBeforeReadingWaitsForTheAnswer)
{
    for (const char *plan : {"L", "W"}) {
        const ChildRun run = RunInChild([&] {
            std::fputs("question?", stdout);
            readBy(plan);
            _exit(0); // discards what is still buffered
        });
        EXPECT_EQ(run.output, "question?");
    }
}

} // namespace
