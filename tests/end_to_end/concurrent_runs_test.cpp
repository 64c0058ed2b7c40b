// Concurrent runs into the same directory take turns.
#include "tests/support/background_run.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"
#include "tests/support/transcript.h"
#include "tests/support/user_run.h"
#include "tests/support/written_keys.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <list>
#include <memory>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

using Arguments = std::vector<std::string>;

constexpr int rounds = 15;

/// Locks a directory as another run would.
class LockedDirectory {
public:
    explicit LockedDirectory(const std::string &path) : descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC))
    {
        EXPECT_EQ(flock(descriptor, LOCK_EX), 0);
    }
    ~LockedDirectory() { close(descriptor); }
    LockedDirectory(const LockedDirectory &) = delete;
    LockedDirectory &operator=(const LockedDirectory &) = delete;

private:
    int descriptor;
};

class ConcurrentRuns : public testing::Test {
protected:
    ProgramCall call(const Arguments &arguments) const
    {
        return {.arguments = arguments, .folder = folder.path().string(), .umask = 022};
    }

    /// Starts all runs at once and expects each to end as in `transcript`.
    void runTogether(const std::vector<Arguments> &runs, const std::string &transcript)
    {
        std::list<BackgroundRun> started;
        for (const Arguments &arguments : runs)
            started.emplace_back(call(arguments));
        for (BackgroundRun &run : started)
            EXPECT_TRUE(EndedAsIn(run.end(), 0, transcript));
    }

    /// Expects the files of one run, under its password.
    void expectPair(const std::string &privateKey, const std::string &publicKey, const std::string &hash,
                    const std::string &password)
    {
        const std::string point = PointOfPrivateKey(folder / privateKey, password);
        EXPECT_EQ(point.size(), 64U);
        EXPECT_EQ(PointOfPublicKey(folder / publicKey), point);
        EXPECT_EQ(ReadFile(folder / hash), Sha256Of(point));
    }

    TemporaryFolder folder;
};

TEST_F(ConcurrentRuns, TheFilesOfAPairBelongTogether)
{
    for (const std::size_t runs : {2U, 4U}) {
        for (int round = 0; round < rounds; ++round) {
            SCOPED_TRACE(std::to_string(runs) + " runs, round " + std::to_string(round));
            runTogether(std::vector<Arguments>(runs, {"-pwd", "password", "-abs", "keys"}),
                        "pair_prime256v1_aes256.txt");
            expectPair("keys/privateKey.pem", "keys/publicKey.pem", "keys/publicKeyhash.bin", "password");
        }
    }
    EXPECT_EQ(FilesIn(folder), "keys/\n"
                               "0400 399 keys/privateKey.pem\n"
                               "0444 178 keys/publicKey.pem\n"
                               "0444 32 keys/publicKeyhash.bin\n");
}

TEST_F(ConcurrentRuns, TheFilesOfAPacketBelongTogether)
{
    const Arguments packet = {"-n",   "8",    "-abs", "packet", "-pwd", "p111", "p222",
                              "p333", "p444", "p555", "p666",   "p777", "p888"};
    for (int round = 0; round < rounds; ++round) {
        SCOPED_TRACE(round);
        runTogether({packet, packet}, "packet_prime256v1_aes256.txt");
        std::string table;
        for (int i = 0; i < 8; ++i) {
            const std::string number = "0" + std::to_string(i);
            expectPair("packet/privateKey" + number + ".pem", "packet/publicKey" + number + ".pem",
                       "packet/publicKeyHash" + number + ".bin",
                       "p" + std::string(3, static_cast<char>('1' + i)));
            table += Sha256Of(std::string("\1\0\0\0", 4) +
                              PointOfPublicKey(folder / ("packet/publicKey" + number + ".pem")));
        }
        EXPECT_EQ(ReadFile(folder / "packet/publicKeysHashHashes.bin"), Sha256Of(table));
    }
}

// Each run locks the directories of the other two in a different order.
TEST_F(ConcurrentRuns, RunsThatShareThreeDirectoriesDoNotDeadlock)
{
    for (const char *name : {"a", "b", "c"})
        fs::create_directory(folder / name);
    const auto run = [](const std::string &privateFolder, const std::string &publicFolder,
                        const std::string &hashFolder) {
        return Arguments{"-pwd",  "password",          "-prvk", privateFolder + "/k",
                         "-pubk", publicFolder + "/p", "-hash", hashFolder + "/h"};
    };
    for (int round = 0; round < rounds; ++round) {
        SCOPED_TRACE(round);
        std::list<BackgroundRun> started;
        for (const Arguments &arguments : {run("a", "b", "c"), run("c", "a", "b"), run("b", "c", "a")})
            started.emplace_back(call(arguments));
        for (BackgroundRun &each : started)
            EXPECT_EQ(each.end().status, 0);
        expectPair("a/k", "b/p", "c/h", "password");
        expectPair("c/k", "a/p", "b/h", "password");
        expectPair("b/k", "c/p", "a/h", "password");
    }
}

TEST_F(ConcurrentRuns, ARunWaitsUntilTheDirectoryIsUnlocked)
{
    fs::create_directory(folder / "keys");
    auto held = std::make_unique<LockedDirectory>(folder / "keys");
    BackgroundRun run(call({"-pwd", "password", "-abs", "keys"}));
    ASSERT_TRUE(run.waitsForALock());
    EXPECT_EQ(FilesIn(folder), "keys/\n");
    held.reset();
    EXPECT_TRUE(EndedAsIn(run.end(), 0, "pair_prime256v1_aes256.txt"));
    expectPair("keys/privateKey.pem", "keys/publicKey.pem", "keys/publicKeyhash.bin", "password");
}

TEST_F(ConcurrentRuns, AWaitingRunEndsOnCtrlC)
{
    fs::create_directory(folder / "keys");
    const LockedDirectory held(folder / "keys");
    for (const int signal : {SIGINT, SIGTERM}) {
        BackgroundRun run(call({"-pwd", "password", "-abs", "keys"}));
        ASSERT_TRUE(run.waitsForALock());
        run.send(signal);
        const ProgramResult result = run.end();
        EXPECT_EQ(result.signal, signal);
        EXPECT_EQ(FilesIn(folder), "keys/\n");
    }
}

TEST_F(ConcurrentRuns, RunsIntoDifferentDirectoriesDoNotWait)
{
    fs::create_directory(folder / "keys");
    const LockedDirectory held(folder / "keys");
    // The parent directory counts as a different one, too.
    for (const char *other : {"others", ".", "keys/inner"})
        EXPECT_EQ(RunIn(folder, {"-pwd", "password", "-abs", other}).status, 0);
}

TEST_F(ConcurrentRuns, ARunForRandomDataDoesNotWait)
{
    const LockedDirectory held(folder.path().string());
    EXPECT_TRUE(EndedAsIn(RunIn(folder, {"-rand", "16", "noise.bin"}), 0, "random_data.txt"));
}

// Only root may read such a directory, so other users cannot lock it.
TEST_F(ConcurrentRuns, ADirectoryThatCannotBeReadIsNotLocked)
{
    fs::create_directory(folder / "keys");
    fs::permissions(folder / "keys", fs::perms(0300));
    EXPECT_TRUE(
        EndedAsIn(RunIn(folder, {"-pwd", "password", "-abs", "keys"}), 0, "pair_prime256v1_aes256.txt"));
    fs::permissions(folder / "keys", fs::perms(0700));
    expectPair("keys/privateKey.pem", "keys/publicKey.pem", "keys/publicKeyhash.bin", "password");
}

} // namespace
