#include "tests/support/transcript.h"
#include "tests/support/user_run.h"

#include <gtest/gtest.h>

namespace {

TEST(NoPassword, NoPrivateKeyIsWritten)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(EndedAsIn(RunIn(folder, {"-abs", "keys"}), 0, "pair_private_key_unwritten.txt"));
    EXPECT_EQ(FilesIn(folder), "keys/\n0644 0 keys/privateKey.pem\n");
}

TEST(NoPassword, APacketOfOneContainsNoKey)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(
        EndedAsIn(RunIn(folder, {"-n", "1", "-abs", "packet"}), 0, "packet_of_one_without_password.txt"));
    EXPECT_EQ(FilesIn(folder), "packet/\n"
                               "0644 0 packet/privateKey00.pem\n"
                               "0444 32 packet/publicKeysHashHashes.bin\n");
}

TEST(NoPassword, TheKeyOfAnEarlierRunIsEmptiedAndItsOtherFilesAreKept)
{
    const TemporaryFolder folder;
    RunIn(folder, {"-pwd", "correct horse", "-abs", "keys"});
    const std::string publicKey = ReadFile(folder / "keys/publicKey.pem");
    const std::string hash = ReadFile(folder / "keys/publicKeyhash.bin");
    EXPECT_TRUE(EndedAsIn(RunIn(folder, {"-abs", "keys"}), 0, "pair_private_key_unwritten.txt"));
    // The key file stays as it was when it was opened for overwriting.
    EXPECT_EQ(FilesIn(folder), "keys/\n"
                               "0226 0 keys/privateKey.pem\n"
                               "0444 178 keys/publicKey.pem\n"
                               "0444 32 keys/publicKeyhash.bin\n");
    EXPECT_EQ(ReadFile(folder / "keys/publicKey.pem"), publicKey);
    EXPECT_EQ(ReadFile(folder / "keys/publicKeyhash.bin"), hash);
}

TEST(NoPassword, RandomDataNeedsNoPassword)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(EndedAsIn(RunIn(folder, {"-rand", "16", "noise.bin"}), 0, "random_data.txt"));
    EXPECT_EQ(FilesIn(folder), "0644 16 noise.bin\n");
}

} // namespace
