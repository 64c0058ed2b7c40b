#include "tests/support/captured_output.h"
#include "tests/support/transcript.h"
#include "tests/support/user_run.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <chrono>
#include <filesystem>

namespace {

namespace fs = std::filesystem;
using Arguments = std::vector<std::string>;

const Arguments pairInNewFolder = {"-pwd", "password", "-pubk", "new/sub/p.pem"};
const char *const newFolderFiles = "new/\n"
                                   "new/sub/\n"
                                   "0444 178 new/sub/p.pem\n"
                                   "0400 399 new/sub/privateKey.pem\n"
                                   "0444 32 new/sub/publicKeyhash.bin\n";

TEST(OutputFolders, DirectoriesAreCreatedWithTheirParentsIfTheUserAgrees)
{
    for (const char *answer : {"y\n", "Y\n", "y", "\n\n  y \n", "y\r\n"}) {
        const TemporaryFolder folder;
        EXPECT_TRUE(EndedAsIn(RunIn(folder, pairInNewFolder, answer), 0, "folder_created.txt")) << answer;
        EXPECT_EQ(FilesIn(folder), newFolderFiles);
        EXPECT_EQ(ModeOf(folder / "new"), 0755);
        EXPECT_EQ(ModeOf(folder / "new/sub"), 0755);
    }
}

TEST(OutputFolders, DirectoriesAreNotCreatedUnlessTheUserAgrees)
{
    for (const char *answer : {"n\n", "N\n", "n", "n y\n", "N\ny\n"}) {
        const TemporaryFolder folder;
        EXPECT_TRUE(EndedAsIn(RunIn(folder, pairInNewFolder, answer), 1, "folder_declined.txt")) << answer;
        EXPECT_EQ(FilesIn(folder), "");
    }
}

TEST(OutputFolders, TheQuestionIsRepeatedUntilTheAnswerIsOneOfFour)
{
    for (const char *answers : {"x\nyes\nY\n", "x yes Y\n", "x\tyes\n\n Y", "x yes\nY\n"}) {
        const TemporaryFolder folder;
        EXPECT_TRUE(EndedAsIn(RunIn(folder, pairInNewFolder, answers), 0, "folder_asked_again.txt"))
            << answers;
        EXPECT_EQ(FilesIn(folder), newFolderFiles);
    }
    const TemporaryFolder folder;
    EXPECT_TRUE(EndedAsIn(RunIn(folder, pairInNewFolder, "yy no N"), 1, "folder_declined_at_last.txt"));
    EXPECT_EQ(FilesIn(folder), "");
}

TEST(OutputFolders, TheUserIsAskedForEachDirectory)
{
    const Arguments arguments = {"-pwd",  "password", "-hash", "c/h.bin",
                                 "-prvk", "b/k.pem",  "-pubk", "a/p.pem"};
    for (const char *answers : {"y\nY\ny\n", "y Y y", "y Y\ny\n"}) {
        const TemporaryFolder folder;
        EXPECT_TRUE(EndedAsIn(RunIn(folder, arguments, answers), 0, "three_folders_created.txt")) << answers;
        EXPECT_EQ(FilesIn(folder), "a/\n0444 178 a/p.pem\nb/\n0400 399 b/k.pem\nc/\n0444 32 c/h.bin\n");
    }
    const TemporaryFolder first;
    EXPECT_TRUE(EndedAsIn(RunIn(first, arguments, "n"), 1, "public_key_folder_declined.txt"));
    EXPECT_EQ(FilesIn(first), "");
    const TemporaryFolder second;
    EXPECT_TRUE(EndedAsIn(RunIn(second, arguments, "y n"), 1, "private_key_folder_declined.txt"));
    EXPECT_EQ(FilesIn(second), "a/\n");
    const TemporaryFolder third;
    EXPECT_TRUE(EndedAsIn(RunIn(third, arguments, "y y n"), 1, "hash_folder_declined.txt"));
    EXPECT_EQ(FilesIn(third), "a/\nb/\n");
}

TEST(OutputFolders, ADirectoryThatCannotBeCreatedEndsTheRun)
{
    const TemporaryFolder folder;
    PutFile(folder, "new", "a file");
    EXPECT_TRUE(EndedAsIn(RunIn(folder, pairInNewFolder, "y\n"), 1, "folder_declined.txt"));
    EXPECT_EQ(FilesIn(folder), "0644 6 new\n");
}

TEST(OutputFolders, TheUserIsNotAskedForExistingDirectories)
{
    const TemporaryFolder folder;
    fs::create_directories(folder.path() / "new/sub");
    const std::string output = RunIn(folder, pairInNewFolder).output;
    EXPECT_EQ(output.find("(y/n)"), std::string::npos);
    EXPECT_EQ(FilesIn(folder), newFolderFiles);
}

TEST(OutputFolders, TheUserIsNotAskedForTheDirectoryOfRandomData)
{
    const TemporaryFolder folder;
    const ProgramResult run = RunIn(folder, {"-rand", "5", "new/noise.bin"}, "y\n");
    EXPECT_EQ(run.output.find("(y/n)"), std::string::npos);
    EXPECT_EQ(FilesIn(folder), "");
}

TEST(BaseDirectory, TheBaseDirectoryIsCreatedWithoutAQuestion)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(
        EndedAsIn(RunIn(folder, {"-pwd", "correct horse", "-abs", "keys"}), 0, "pair_prime256v1_aes256.txt"));
    EXPECT_EQ(ModeOf(folder / "keys"), 0755);
}

TEST(BaseDirectory, TheUserIsAskedForTheBaseDirectoryIfItsParentIsMissing)
{
    const TemporaryFolder folder;
    const Arguments arguments = {"-pwd", "password", "-abs", "new/sub"};
    EXPECT_TRUE(EndedAsIn(RunIn(folder, arguments, "n"), 1, "base_folder_declined.txt"));
    EXPECT_EQ(FilesIn(folder), "");
    EXPECT_TRUE(EndedAsIn(RunIn(folder, arguments, "y"), 0, "base_folder_created.txt"));
    EXPECT_EQ(FilesIn(folder), "new/\n"
                               "new/sub/\n"
                               "0400 399 new/sub/privateKey.pem\n"
                               "0444 178 new/sub/publicKey.pem\n"
                               "0444 32 new/sub/publicKeyhash.bin\n");
}

TEST(BaseDirectory, TheBaseDirectoryStaysIfTheUserDeclinesADirectoryInIt)
{
    const TemporaryFolder folder;
    const Arguments arguments = {"-pwd", "password", "-abs", "out", "-pubk", "keys/"};
    EXPECT_TRUE(EndedAsIn(RunIn(folder, arguments, "n"), 1, "folder_in_base_folder_declined.txt"));
    EXPECT_EQ(FilesIn(folder), "out/\n");
    EXPECT_TRUE(EndedAsIn(RunIn(folder, arguments, "y"), 0, "folder_in_base_folder_created.txt"));
    EXPECT_EQ(FilesIn(folder), "out/\n"
                               "out/keys/\n"
                               "0444 178 out/keys/publicKey.pem\n"
                               "0400 399 out/privateKey.pem\n"
                               "0444 32 out/publicKeyhash.bin\n");
}

double processorSeconds()
{
    rusage used = {};
    getrusage(RUSAGE_CHILDREN, &used);
    const auto seconds = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(used.ru_utime) + seconds(used.ru_stime);
}

TEST(OutputFolders, TheQuestionIsRepeatedTwentyTimesASecondAtTheEndOfInput)
{
    const TemporaryFolder folder;
    const double before = processorSeconds();
    const auto start = std::chrono::steady_clock::now();
    const ProgramResult run =
        ::Run("timeout", {.arguments = {"--foreground", "-s", "KILL", "0.9", KeygenProgram(), "-pwd",
                                        "password", "-pubk", "new/p.pem"},
                          .folder = folder.path().string()});
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

    EXPECT_EQ(run.status, 137);
    EXPECT_EQ(run.errors, "");
    const std::string question =
        Transcript("banner.txt") + Info("new\n") +
        Reprompt("Warning: File path does not exist. Do you want to create it?\n(y/n)");
    ASSERT_EQ(run.output.substr(0, question.size()), question);
    const std::string again = Reprompt("(y/n)");
    const std::string repeats = run.output.substr(question.size());
    std::size_t count = 0;
    while (repeats.compare(count * again.size(), again.size(), again) == 0)
        ++count;
    EXPECT_EQ(count * again.size(), repeats.size()) << Visible(repeats);
    EXPECT_GE(count, 2U);
    EXPECT_LE(static_cast<double>(count), seconds * 20 + 1);
    EXPECT_LT(processorSeconds() - before, 0.45);
    EXPECT_EQ(FilesIn(folder), "");
}

} // namespace
