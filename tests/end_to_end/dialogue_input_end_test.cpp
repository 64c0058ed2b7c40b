// The dialogue at the end of its input, and without a usable home directory.
#include "tests/support/captured_output.h"
#include "tests/support/dialogue_script.h"
#include "tests/support/pseudo_terminal.h"
#include "tests/support/sanitizer.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/transcript.h"
#include "tests/support/written_keys.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <array>
#include <chrono>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// End of input

/// The key generator on a terminal, except for its standard input, which is `input` followed by the end of
/// input.
std::unique_ptr<PseudoTerminal> withInput(const std::string &input, const TemporaryFolder &folder)
{
    return std::make_unique<PseudoTerminal>([&] {
        std::array<int, 2> ends;
        if (pipe(ends.data()) != 0 ||
            write(ends[1], input.data(), input.size()) != static_cast<ssize_t>(input.size()))
            _exit(1);
        dup2(ends[0], STDIN_FILENO);
        close(ends[0]);
        close(ends[1]);
        ExecKeygen(folder.path());
    });
}

struct EndedInput {
    std::string name;
    std::string input;
    std::string question; ///< the first question without an answer
    std::string repeated; ///< what is printed again and again
};

/// Inputs up to each question. A password that is read at that point is refused with `refusal`.
std::vector<EndedInput> inputsUpToEachQuestion(const std::string &refusal)
{
    const std::string onePair = "./keys\n1\n";
    return {
        {"Packets", "\n", question::packets, question::packetsAgain},
        {"CreateFolder", "new/keys\n", question::createFolder, question::createFolderAgain},
        {"Password", onePair, question::Password(), refusal + question::PasswordAgain()},
        {"RepeatPassword", onePair + "abcd\n",
         question::RepeatPassword() + Error("Error: password doesn't match\n") + question::Password(),
         refusal + question::PasswordAgain()},
        {"PacketPassword", "./keys\n2\n", question::Password(" [0]"),
         refusal + question::PasswordAgain(" [0]")},
        {"Curve", onePair + "abcd\nabcd\n", question::curve, question::curveAgain},
        {"Cipher", onePair + "abcd\nabcd\n1\n", question::cipher, question::cipherAgain},
    };
}

std::vector<EndedInput> endedInputs()
{
    return inputsUpToEachQuestion(
        Error("Error: missing -pwd (--password) parametre : password is mandatory\n"));
}

class DialogueAtTheEndOfInput : public testing::TestWithParam<EndedInput> {};

TEST_P(DialogueAtTheEndOfInput, TheQuestionIsRepeatedAtMostTwentyTimesASecond)
{
    constexpr int times = 4;
    const TemporaryFolder folder;
    const auto start = std::chrono::steady_clock::now();
    const std::unique_ptr<PseudoTerminal> terminal = withInput(GetParam().input, folder);
    const std::string expected = GetParam().question + Repeated(GetParam().repeated, times);
    EXPECT_TRUE(terminal->reaches([&] { return terminal->screen().find(expected) != std::string::npos; }));
    // There is one pause before each repetition; the rest may take any time.
    EXPECT_GE(std::chrono::steady_clock::now() - start, times * std::chrono::milliseconds(50));
}

INSTANTIATE_TEST_SUITE_P(EachQuestion, DialogueAtTheEndOfInput, testing::ValuesIn(endedInputs()),
                         [](const auto &test) { return test.param.name; });

// Endless lines

/// The key generator on a terminal, except for its standard input, which is `input` followed by endless
/// zeros. The first line on the screen is its process id.
std::unique_ptr<PseudoTerminal> withEndlessLine(const std::string &input, const TemporaryFolder &folder)
{
    return std::make_unique<PseudoTerminal>([&] {
        std::array<int, 2> ends;
        if (pipe(ends.data()) != 0)
            _exit(1);
        if (fork() == 0) {
            close(ends[0]);
            const std::string zeros(65536, '\0');
            // SIGPIPE ends this process when the reader has ended.
            for (const std::string *next = &input; write(ends[1], next->data(), next->size()) >= 0;)
                next = &zeros;
            _exit(1);
        }
        dup2(ends[0], STDIN_FILENO);
        close(ends[0]);
        close(ends[1]);
        dprintf(STDOUT_FILENO, "%d\n", getpid());
        ExecKeygen(folder.path());
    });
}

/// The peak resident memory of a process, in KiB.
int peakMemory(pid_t id)
{
    std::ifstream status("/proc/" + std::to_string(id) + "/status");
    for (std::string word; status >> word;) {
        if (word == "VmHWM:" && status >> word)
            return std::stoi(word);
    }
    return INT_MAX;
}

class DialogueOnAnEndlessLine : public testing::TestWithParam<EndedInput> {};

TEST_P(DialogueOnAnEndlessLine, AnEndlessLineIsRefusedWithoutMuchMemory)
{
    const TemporaryFolder folder;
    const std::unique_ptr<PseudoTerminal> terminal = withEndlessLine(GetParam().input, folder);
    const std::string expected = GetParam().question + GetParam().repeated;
    EXPECT_TRUE(terminal->reaches([&] { return terminal->screen().find(expected) != std::string::npos; }));
    // A sanitizer uses more.
    if (!underSanitizers) {
        EXPECT_LT(peakMemory(std::stoi(terminal->screen())), 64 * 1024);
    }
}

INSTANTIATE_TEST_SUITE_P(
    EachQuestion, DialogueOnAnEndlessLine,
    testing::ValuesIn(inputsUpToEachQuestion(Error("Error: password must be less than 1024 caracters\n"))),
    [](const auto &test) { return test.param.name; });

TEST(DialogueOnAnEndlessDirectoryName, TheRunEnds)
{
    const TemporaryFolder folder;
    for (const char *input : {"/dev/zero", "long"}) {
        WriteFile(folder / "long", std::string(1 << 20, '/') + "tmp\n1\n");
        const ProgramResult run =
            ::Run("sh", {.arguments = {"-c", "HOME=home exec \"$0\" <\"$1\"", KeygenProgram(), input},
                         .folder = folder.path()});
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.errors, "");
        EXPECT_TRUE(run.output.ends_with(question::Folder("home/Corvane_KeyGen/") +
                                         Error("Error: Can not create path.")));
    }
}

TEST(DialogueAfterTheEndOfInput, TheDialogueContinuesOnATerminal)
{
    const TemporaryFolder folder;
    PseudoTerminal terminal([&] { ExecKeygen(folder.path()); });
    ASSERT_TRUE(terminal.answers(question::Folder("home/Corvane_KeyGen/"), "new/keys\n"));
    ASSERT_TRUE(terminal.answers(question::createFolder, "\x04"));
    ASSERT_TRUE(terminal.answers(question::createFolderAgain, "\x04"));
    ASSERT_TRUE(terminal.answers(question::createFolderAgain, "y\n"));
    ASSERT_TRUE(terminal.answers(question::packets, "\x04"));
    ASSERT_TRUE(terminal.answers(question::packetsAgain, "1\n"));
    ASSERT_TRUE(AnswersAll(terminal, LastSteps("abcd")));
    EXPECT_EQ(terminal.end().status, 0);
    EXPECT_TRUE(OpensPrivateKey(folder / "new/keys/privateKey.pem", "abcd"));
}

TEST(DialogueAfterTheEndOfInput, TheDefaultDirectoryIsUsed)
{
    const TemporaryFolder folder;
    PseudoTerminal terminal([&] { ExecKeygen(folder.path()); });
    ASSERT_TRUE(terminal.answers(question::Folder("home/Corvane_KeyGen/"), "\x04"));
    ASSERT_TRUE(terminal.shows(question::packets));
    EXPECT_TRUE(terminal.screen().ends_with(question::Folder("home/Corvane_KeyGen/") + question::packets));
}

// Home directories

const char *const everyAnswer = "\n1\nabcd\nabcd\n1\n1\n";

/// What follows the last question.
std::string tail(const ProgramResult &run)
{
    EXPECT_EQ(run.errors, "");
    return run.output.substr(run.output.find(question::cipher) + question::cipher.size());
}

/// The question and the final lines of a run whose default directory, in `home`, cannot be created.
std::string noFolder(const std::string &home)
{
    return Info(home + "/Corvane_KeyGen\n") + question::createFolder +
           Error("Error: Creating file path has failed\n") + Info(home + "/Corvane_KeyGen/publicKey.pem\n") +
           Error("Please make sure you have entered the correct path.\n");
}

TEST(DialogueHome, TheHomeDirectoryIsTheOneThatTheEnvironmentNames)
{
    const TemporaryFolder folder;
    const std::string home = folder / "at home";
    fs::create_directory(home);
    const ProgramResult run = RunOnPipe(everyAnswer, folder.path(), home + "/");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.output.find(question::Folder(home + "/Corvane_KeyGen/")), std::string::npos);
    EXPECT_TRUE(OpensPrivateKey(home + "/Corvane_KeyGen/privateKey.pem", "abcd"));
}

TEST(DialogueHome, TheHomeDirectoryIsTheRootIfTheEnvironmentNamesNone)
{
    const TemporaryFolder folder;
    for (const std::vector<std::string> &arguments : {std::vector<std::string>{"-u", "HOME", KeygenProgram()},
                                                      std::vector<std::string>{"HOME=", KeygenProgram()}}) {
        const ProgramResult run = ::Run(
            "env",
            {.arguments = arguments, .input = "./keys\n1\nabcd\nabcd\n1\n1\n", .folder = folder.path()});
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.errors, "");
        EXPECT_NE(run.output.find(question::Folder("//Corvane_KeyGen/")), std::string::npos);
    }
}

TEST(DialogueHome, AMissingHomeDirectoryIsCreatedIfTheUserAgrees)
{
    const TemporaryFolder folder;
    const ProgramResult run = RunOnPipe(std::string(everyAnswer) + "y\n", folder.path(), "no/home");
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(tail(run).starts_with(Info("no/home/Corvane_KeyGen\n") + question::createFolder +
                                      Info("Prime256v1 curve is selected. \n")));
    EXPECT_TRUE(OpensPrivateKey(folder / "no/home/Corvane_KeyGen/privateKey.pem", "abcd"));
}

TEST(DialogueHome, TheRunEndsIfTheUserDeclinesToCreateTheHomeDirectory)
{
    const TemporaryFolder folder;
    const ProgramResult run = RunOnPipe(std::string(everyAnswer) + "n\n", folder.path(), "no/home");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(tail(run), noFolder("no/home"));
    EXPECT_FALSE(fs::exists(folder / "no"));
}

TEST(DialogueHome, TheRunEndsIfNothingCanBeCreatedInTheHomeDirectory)
{
    const TemporaryFolder folder;
    for (const std::string home : {"/dev/null", "/proc"}) {
        const ProgramResult run = RunOnPipe(std::string(everyAnswer) + "y\n", folder.path(), home);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(tail(run), noFolder(home));
    }
}

TEST(DialogueHome, TheRunEndsIfAFileHasTheNameOfTheDefaultDirectory)
{
    const TemporaryFolder folder;
    fs::create_directory(folder / "home");
    WriteFile(folder / "home/Corvane_KeyGen", "");
    const ProgramResult run = RunOnPipe(std::string(everyAnswer) + "y\n", folder.path());
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(tail(run), noFolder("home"));
}

} // namespace
