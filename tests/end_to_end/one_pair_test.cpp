#include "tests/support/captured_output.h"
#include "tests/support/coverage.h"
#include "tests/support/transcript.h"
#include "tests/support/user_run.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

using Arguments = std::vector<std::string>;

const char *const onePair = "keys/\n"
                            "0400 399 keys/privateKey.pem\n"
                            "0444 178 keys/publicKey.pem\n"
                            "0444 32 keys/publicKeyhash.bin\n";

/// The command line for one pair in keys/, and further options.
Arguments pairWith(const Arguments &more)
{
    Arguments arguments = {"-pwd", "correct horse", "-abs", "keys"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

/// Expects one pair in keys/, with the output of `transcript`.
void expectPair(const Arguments &arguments, const std::string &transcript)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(EndedAsIn(RunIn(folder, arguments), 0, transcript)) << testing::PrintToString(arguments);
    EXPECT_EQ(FilesIn(folder), onePair) << testing::PrintToString(arguments);
}

TEST(OnePair, ThePairIsOnPrime256v1AndEncryptedWithAes256ByDefault)
{
    expectPair(pairWith({}), "pair_prime256v1_aes256.txt");
}

TEST(OnePair, TheKeyIsEncryptedWithTheRequestedCipher)
{
    for (const char *cipher : {"aes128", "AES128", "Aes128"})
        expectPair(pairWith({"-pe", cipher}), "pair_prime256v1_aes128.txt");
    for (const char *cipher : {"aes256", "AES256"})
        expectPair(pairWith({"-pe", cipher}), "pair_prime256v1_aes256.txt");
    expectPair(pairWith({"-pe", "aes256", "-pe", "aes128"}), "pair_prime256v1_aes128.txt");
    expectPair(pairWith({"-pe", "aes128", "-pe", "aes256"}), "pair_prime256v1_aes256.txt");
}

TEST(OnePair, ThePairIsOnTheRequestedCurve)
{
    // The numbers are in the opposite order of the help text's list.
    for (const char *curve : {"brainpoolP256t1", "BRAINPOOLP256T1", "1"})
        expectPair(pairWith({"-ecc", curve}), "pair_brainpoolP256t1_aes256.txt");
    for (const char *curve : {"prime256v1", "Prime256V1", "2"})
        expectPair(pairWith({"-ecc", curve}), "pair_prime256v1_aes256.txt");
    expectPair(pairWith({"--ecc-algo", "1", "-pe", "aes128"}), "pair_brainpoolP256t1_aes128.txt");
    expectPair(pairWith({"-ecc", "1", "-ecc", "2"}), "pair_prime256v1_aes256.txt");
}

TEST(OnePair, OptionsMayBeGivenInAnySpelling)
{
    expectPair({"-PWD", "correct horse", "-Abs", "keys"}, "pair_prime256v1_aes256.txt");
    expectPair({"--password", "correct horse", "--absolute-path", "keys/"}, "pair_prime256v1_aes256.txt");
}

TEST(OnePair, TheTwoLongNamesWithoutEffectAreIgnored)
{
    expectPair(pairWith({"--prvkey-enc", "aes128"}), "pair_prime256v1_aes256.txt");
    expectPair(pairWith({"-pe", "aes128", "--prvkey-enc", "nonsense"}), "pair_prime256v1_aes128.txt");
    expectPair(pairWith({"--public-key-hash", "other.bin"}), "pair_prime256v1_aes256.txt");
}

TEST(OnePair, ValuesBeyondTheFirstAreIgnored)
{
    expectPair(
        {"-pwd", "correct horse", "-abs", "keys", "other", "-pe", "aes128", "nonsense", "-ecc", "1", "2"},
        "pair_brainpoolP256t1_aes128.txt");
}

TEST(OnePair, MoreThanTwentyOptionsAreAccepted)
{
    Arguments arguments;
    for (int i = 0; i < 30; ++i)
        arguments.insert(arguments.end(), {"-pe", "aes256"});
    arguments.insert(arguments.end(), {"-pe", "aes128"});
    expectPair(pairWith(arguments), "pair_prime256v1_aes128.txt");
}

TEST(OnePair, TheFirstOfEightPasswordsIsUsed)
{
    expectPair(
        {"-abs", "keys", "-pwd", "correct horse", "p222", "p333", "p444", "p555", "p666", "p777", "p888"},
        "pair_prime256v1_aes256.txt");
}

TEST(OnePair, TheReadOnlyFilesOfAnEarlierRunAreReplaced)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(EndedAsIn(RunIn(folder, pairWith({})), 0, "pair_prime256v1_aes256.txt"));
    const std::string privateKey = ReadFile(folder / "keys/privateKey.pem");
    const std::string publicKey = ReadFile(folder / "keys/publicKey.pem");
    const std::string hash = ReadFile(folder / "keys/publicKeyhash.bin");
    EXPECT_TRUE(EndedAsIn(RunIn(folder, pairWith({})), 0, "pair_prime256v1_aes256.txt"));
    EXPECT_EQ(FilesIn(folder), onePair);
    EXPECT_NE(ReadFile(folder / "keys/privateKey.pem"), privateKey);
    EXPECT_NE(ReadFile(folder / "keys/publicKey.pem"), publicKey);
    EXPECT_NE(ReadFile(folder / "keys/publicKeyhash.bin"), hash);
}

TEST(OnePair, LongerFilesAreReplacedCompletely)
{
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder.path() / "keys");
    for (const char *name : {"keys/privateKey.pem", "keys/publicKey.pem", "keys/publicKeyhash.bin"})
        WriteFile(folder / name, std::string(5000, 'x'));
    EXPECT_TRUE(EndedAsIn(RunIn(folder, pairWith({})), 0, "pair_prime256v1_aes256.txt"));
    EXPECT_EQ(FilesIn(folder), onePair);
}

/// Makes a pair whose file `name` cannot be created because a directory has its name, and expects the
/// failure.
void expectFailure(const std::string &name, const std::string &transcript, const std::string &files)
{
    const TemporaryFolder folder;
    std::filesystem::create_directories(folder.path() / "keys" / name);
    std::filesystem::permissions(folder.path() / "keys" / name, std::filesystem::perms(0751));
    EXPECT_TRUE(EndedAsIn(RunIn(folder, pairWith({})), 0, transcript));
    EXPECT_EQ(FilesIn(folder), files);
    EXPECT_EQ(ModeOf(folder / "keys/" + name), 0751);
}

TEST(OnePair, ARunStopsIfThePrivateKeyCannotBeCreated)
{
    expectFailure("privateKey.pem", "pair_without_private_key.txt", "keys/\nkeys/privateKey.pem/\n");
}

TEST(OnePair, ARunStopsIfThePublicKeyCannotBeCreated)
{
    expectFailure("publicKey.pem", "pair_without_public_key.txt",
                  "keys/\n0400 399 keys/privateKey.pem\nkeys/publicKey.pem/\n");
}

TEST(OnePair, ARunStopsIfTheHashCannotBeCreated)
{
    expectFailure(
        "publicKeyhash.bin", "pair_without_hash.txt",
        "keys/\n0400 399 keys/privateKey.pem\n0444 178 keys/publicKey.pem\nkeys/publicKeyhash.bin/\n");
}

/// Makes a pair whose file `name` is a link to a device that is always full, and expects the failure.
void expectFailureOnFullDevice(const std::string &name, const std::string &transcript,
                               const std::string &files)
{
    const TemporaryFolder folder;
    const int mode = ModeOf("/dev/full");
    std::filesystem::create_directory(folder.path() / "keys");
    std::filesystem::create_symlink("/dev/full", folder.path() / "keys" / name);
    EXPECT_TRUE(EndedAsIn(RunIn(folder, pairWith({})), 0, transcript));
    EXPECT_EQ(FilesIn(folder), files);
    EXPECT_EQ(ModeOf("/dev/full"), mode);
}

TEST(OnePair, AFullDeviceIsReportedForThePrivateKey)
{
    expectFailureOnFullDevice("privateKey.pem", "pair_private_key_unwritten.txt",
                              "keys/\nkeys/privateKey.pem -> /dev/full\n");
}

TEST(OnePair, AFullDeviceIsReportedForThePublicKey)
{
    expectFailureOnFullDevice("publicKey.pem", "pair_public_key_unwritten.txt",
                              "keys/\n0400 399 keys/privateKey.pem\nkeys/publicKey.pem -> /dev/full\n");
}

TEST(OnePair, AFullDeviceIsReportedForTheHash)
{
    expectFailureOnFullDevice("publicKeyhash.bin", "pair_without_hash.txt",
                              "keys/\n0400 399 keys/privateKey.pem\n0444 178 keys/publicKey.pem\n"
                              "keys/publicKeyhash.bin -> /dev/full\n");
}

TEST(OnePair, AFileBeyondTheSizeLimitIsReported)
{
    if (countsCoverage)
        GTEST_SKIP() << "the coverage data exceeds the limit, too";
    const TemporaryFolder folder;
    EXPECT_TRUE(EndedAsIn(RunInShell(folder, "ulimit -f 0; exec \"$@\"", pairWith({})), 0,
                          "pair_private_key_unwritten.txt"));
    EXPECT_EQ(FilesIn(folder), "keys/\n0644 0 keys/privateKey.pem\n");
}

TEST(OnePair, LinksAreFollowed)
{
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder.path() / "keys");
    std::filesystem::create_symlink("../elsewhere.pem", folder.path() / "keys/privateKey.pem");
    std::filesystem::create_symlink("../missing/folder.pem", folder.path() / "keys/publicKey.pem");
    EXPECT_TRUE(EndedAsIn(RunIn(folder, pairWith({})), 0, "pair_without_public_key.txt"));
    EXPECT_EQ(FilesIn(folder), "0400 399 elsewhere.pem\n"
                               "keys/\n"
                               "keys/privateKey.pem -> ../elsewhere.pem\n"
                               "keys/publicKey.pem -> ../missing/folder.pem\n");
}

/// A name that begins with a colon belongs to the application library's built-in resources: the C library
/// writes the file to disk, but the application library searches its resources and does not find it.
std::string endOfPairNotFound(const char *transcript, const Arguments &arguments)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(EndedAsIn(RunIn(folder, arguments), 1, transcript));
    return FilesIn(folder);
}

TEST(OnePair, TheRunEndsIfAFileIsNotFoundAfterItWasWritten)
{
    endOfPairNotFound("pair_private_key_not_found.txt", {"-pwd", "pass", "-prvk", ":k.pem", "-pubk", ":p.pem",
                                                         "-hash", ":h.bin", "-rand", "5", "r.bin"});
    endOfPairNotFound("pair_public_key_not_found.txt", {"-pwd", "pass", "-prvk", "k.pem", "-pubk", ":p.pem",
                                                        "-hash", ":h.bin", "-rand", "5", "r.bin"});
    EXPECT_EQ(
        endOfPairNotFound("pair_hash_not_found.txt", {"-pwd", "pass", "-prvk", "k.pem", "-pubk", "p.pem",
                                                      "-hash", ":h.bin", "-rand", "5", "r.bin"}),
        "0644 32 :h.bin\n0400 399 k.pem\n0444 178 p.pem\n");
}

} // namespace
