// Runs under valgrind and under memory limits.
#include "tests/support/captured_output.h"
#include "tests/support/sanitizer.h"
#include "tests/support/transcript.h"
#include "tests/support/user_run.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using Arguments = std::vector<std::string>;

class Memory : public testing::Test {
protected:
    void SetUp() override
    {
        if (underSanitizers)
            GTEST_SKIP() << "the sanitizer checks memory itself, and reserves more than any limit allows";
    }
};

class SmallStack : public Memory {};

constexpr int memoryError = 99;

/// Runs under valgrind in `folder`. Invalid accesses, branches on uninitialised memory and definite leaks are
/// failures.
void expectCleanRun(const TemporaryFolder &folder, const Arguments &arguments, int status,
                    const std::string &input = {})
{
    Arguments words = {"--quiet", "--leak-check=full", "--errors-for-leak-kinds=definite",
                       "--error-exitcode=" + std::to_string(memoryError), KeygenProgram()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    const ProgramResult run =
        Run(VALGRIND, {.arguments = words, .input = input, .folder = folder.path().string()});
    EXPECT_EQ(run.status, status) << run.errors;
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.output.find(Transcript("banner.txt")), 0U);
}

const Arguments packet = {"-n",   "8",      "-abs", "packet", "-ecc", "brainpoolP256t1",
                          "-pe",  "aes128", "-pwd", "p111",   "p222", "p333",
                          "p444", "p555",   "p666", "p777",   "p888"};

TEST_F(Memory, AOnePairRunWithRandomDataHasNoMemoryErrors)
{
    const TemporaryFolder folder;
    expectCleanRun(folder, {"-pwd", "password", "-abs", "keys", "-rand", "70000", "noise.bin"}, 0);
    EXPECT_EQ(fs::file_size(folder / "noise.bin"), 70000U);
}

TEST_F(Memory, APacketRunHasNoMemoryErrors)
{
    expectCleanRun(TemporaryFolder(), packet, 0);
}

TEST_F(Memory, APacketRunWithFailedPairsHasNoMemoryErrors)
{
    const TemporaryFolder folder;
    // Directories in place of the files, and a public key on the other curve for the table.
    fs::create_directories(folder.path() / "packet/privateKey00.pem");
    fs::create_directories(folder.path() / "packet/publicKey02.pem");
    fs::create_directories(folder.path() / "packet/publicKeyHash04.bin");
    fs::create_directories(folder.path() / "packet/publicKeysHashHashes.bin");
    RunIn(folder,
          {"-pwd", "password", "-prvk", "k.pem", "-hash", "h.bin", "-pubk", "packet/publicKey00.pem"});
    expectCleanRun(folder, packet, 1);
}

TEST_F(Memory, ARunWithAWrongOptionHasNoMemoryErrors)
{
    expectCleanRun(TemporaryFolder(), {"-pwd", "password", "-abs", "keys", "-\xE2\x82"}, 1);
}

TEST_F(Memory, ARunWithARefusedPasswordHasNoMemoryErrors)
{
    expectCleanRun(TemporaryFolder(),
                   {"-n", "8", "-pwd", "p111", "p222", "p333", "p444", "p555", "p666", "p777", "abc"}, 1);
}

TEST_F(Memory, ARunWithADeclinedDirectoryHasNoMemoryErrors)
{
    expectCleanRun(TemporaryFolder(), {"-pwd", "password", "-pubk", "new/p.pem"}, 1, "maybe\nn\n");
}

TEST_F(Memory, ARunWithFailedKeysAndFailedRandomDataHasNoMemoryErrors)
{
    const TemporaryFolder folder;
    fs::create_symlink("/dev/full", folder.path() / "full.bin");
    expectCleanRun(folder, {"-abs", "keys", "-rand", "100", "full.bin"}, 1);
}

TEST_F(Memory, RandomDataThatExceedsTheMemoryLimitIsReported)
{
    const TemporaryFolder folder;
    PutFile(folder, "old.bin", "contents");
    for (const char *path : {"new.bin", "old.bin"}) {
        const ProgramResult run =
            RunInShell(folder, "ulimit -v 1000000; exec \"$@\"", {"-rand", "2147483647", path});
        EXPECT_TRUE(Ended(run, 1,
                          Transcript("banner.txt") + Title("\nRandom Data Generation : \n") +
                              Info("    Size        : 2147483647 Bytes\n") +
                              Info("    Output path : " + std::string(path) + "\n") +
                              Error("Failed to create output file : " + std::string(path)) +
                              Error("\nFailed to create random data file : " + std::string(path))));
    }
    EXPECT_EQ(FilesIn(folder), "0644 8 old.bin\n");
}

/// A run on a stack of 64 KiB, of which the environment uses almost nothing.
ProgramResult runOnSmallStack(const TemporaryFolder &folder, const Arguments &arguments,
                              const std::string &input = {})
{
    Arguments words = {"-c", "ulimit -s 64; exec env -i \"$@\"", "sh", KeygenProgram()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return Run("sh", {.arguments = words, .input = input, .folder = folder.path().string(), .umask = 022});
}

TEST_F(SmallStack, EveryKindOfRunFitsOnASmallStack)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(EndedAsIn(runOnSmallStack(folder, {"-v"}), 0, "version.txt"));
    EXPECT_TRUE(Ended(runOnSmallStack(folder, {"-h"}), 0, Transcript("banner.txt") + Transcript("help.txt")));
    EXPECT_TRUE(EndedAsIn(runOnSmallStack(folder, {"-pwd", "correct horse", "-abs", "keys"}), 0,
                          "pair_prime256v1_aes256.txt"));
    EXPECT_TRUE(EndedAsIn(runOnSmallStack(folder, packet), 0, "packet_brainpoolP256t1_aes128.txt"));
    EXPECT_TRUE(EndedAsIn(runOnSmallStack(folder, {"-rand", "16", "noise.bin"}), 0, "random_data.txt"));
}

TEST_F(SmallStack, TheQuestionsFitOnASmallStack)
{
    const TemporaryFolder folder;
    const ProgramResult dialogue = runOnSmallStack(
        folder, {}, "new/keys\ny\n2\n" + [] {
            std::string passwords;
            for (int i = 0; i < 16; ++i)
                passwords += "password " + std::to_string(i / 2) + "\n";
            return passwords;
        }() + "2\n2\n");
    EXPECT_EQ(dialogue.status, 0);
    EXPECT_TRUE(fs::exists(folder / "new/keys/publicKeysHashHashes.bin"));
    const ProgramResult folders = runOnSmallStack(folder, {"-pwd", "password", "-pubk", "other/"}, "y\n");
    EXPECT_EQ(folders.status, 0);
    EXPECT_TRUE(fs::exists(folder / "other/publicKey.pem"));
}

} // namespace
