#include "tests/support/captured_output.h"
#include "tests/support/coverage.h"
#include "tests/support/transcript.h"
#include "tests/support/user_run.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using Arguments = std::vector<std::string>;

/// The command line for a packet of eight in packet/, and further options.
Arguments packetWith(const Arguments &more)
{
    Arguments arguments = {"-n",   "8",    "-abs", "packet", "-pwd", "p111", "p222",
                           "p333", "p444", "p555", "p666",   "p777", "p888"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

/// A line for each of eight files, each named `before`, the number and `after`.
std::string eightLines(const std::string &before, const std::string &after)
{
    std::string lines;
    for (const char *number : {"00", "01", "02", "03", "04", "05", "06", "07"})
        lines += before + number + after + "\n";
    return lines;
}

std::string packetFiles()
{
    return "packet/\n" + eightLines("0400 399 packet/privateKey", ".pem") +
           eightLines("0444 178 packet/publicKey", ".pem") +
           eightLines("0444 32 packet/publicKeyHash", ".bin") + "0444 32 packet/publicKeysHashHashes.bin\n";
}

std::string without(std::string text, const std::string &line)
{
    const std::size_t at = text.find(line + "\n");
    EXPECT_NE(at, std::string::npos) << line;
    return at == std::string::npos ? text : text.erase(at, line.size() + 1);
}

TEST(Packet, APacketOfEightIsMadeOnEachCurveWithEachCipher)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(EndedAsIn(RunIn(folder, packetWith({})), 0, "packet_prime256v1_aes256.txt"));
    EXPECT_EQ(FilesIn(folder), packetFiles());
    const TemporaryFolder other;
    EXPECT_TRUE(EndedAsIn(RunIn(other, packetWith({"-ecc", "brainpoolP256t1", "-pe", "aes128"})), 0,
                          "packet_brainpoolP256t1_aes128.txt"));
    EXPECT_EQ(FilesIn(other), packetFiles());
}

TEST(Packet, TheNumberMayBeWrittenInAnyDecimalForm)
{
    for (const Arguments &number :
         {Arguments{"-n", "08"}, {"-N", "+8"}, {"--number-key", " 8"}, {"-n", "1", "-n", "8"}}) {
        const TemporaryFolder folder;
        Arguments arguments = packetWith({});
        arguments.erase(arguments.begin(), arguments.begin() + 2);
        arguments.insert(arguments.begin(), number.begin(), number.end());
        EXPECT_TRUE(EndedAsIn(RunIn(folder, arguments), 0, "packet_prime256v1_aes256.txt"));
        EXPECT_EQ(FilesIn(folder), packetFiles());
    }
}

TEST(Packet, TheFilesOfAPacketOfOneAreNumberedAndItsTableHasOneEntry)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(
        EndedAsIn(RunIn(folder, {"-n", "1", "-abs", "packet", "-pwd", "p111"}), 0, "packet_of_one.txt"));
    EXPECT_EQ(FilesIn(folder), "packet/\n"
                               "0400 399 packet/privateKey00.pem\n"
                               "0444 178 packet/publicKey00.pem\n"
                               "0444 32 packet/publicKeyHash00.bin\n"
                               "0444 32 packet/publicKeysHashHashes.bin\n");
}

TEST(Packet, TheReadOnlyFilesOfAnEarlierRunAreReplaced)
{
    const TemporaryFolder folder;
    RunIn(folder, packetWith({}));
    const std::string tableHash = ReadFile(folder / "packet/publicKeysHashHashes.bin");
    const std::string privateKey = ReadFile(folder / "packet/privateKey07.pem");
    EXPECT_TRUE(EndedAsIn(RunIn(folder, packetWith({})), 0, "packet_prime256v1_aes256.txt"));
    EXPECT_EQ(FilesIn(folder), packetFiles());
    EXPECT_NE(ReadFile(folder / "packet/publicKeysHashHashes.bin"), tableHash);
    EXPECT_NE(ReadFile(folder / "packet/privateKey07.pem"), privateKey);
}

TEST(Packet, ARunContinuesAfterAPairThatFails)
{
    const TemporaryFolder folder;
    fs::create_directories(folder.path() / "packet/privateKey03.pem");
    EXPECT_TRUE(EndedAsIn(RunIn(folder, packetWith({})), 0, "packet_without_private_key_3.txt"));
    std::string files = without(packetFiles(), "0444 178 packet/publicKey03.pem");
    files = without(files, "0444 32 packet/publicKeyHash03.bin");
    files.replace(files.find("0400 399 packet/privateKey03.pem"), 32, "packet/privateKey03.pem/");
    EXPECT_EQ(FilesIn(folder), files);
}

TEST(Packet, TheOlderPublicKeyOfAFailedPairIsUsedForTheTable)
{
    const TemporaryFolder folder;
    RunIn(folder, packetWith({}));
    const std::string publicKey = ReadFile(folder / "packet/publicKey07.pem");
    fs::remove(folder.path() / "packet/privateKey07.pem");
    fs::create_directory(folder.path() / "packet/privateKey07.pem");
    EXPECT_TRUE(EndedAsIn(RunIn(folder, packetWith({})), 0, "packet_with_old_public_key_7.txt"));
    EXPECT_EQ(ReadFile(folder / "packet/publicKey07.pem"), publicKey);
}

TEST(Packet, ARunContinuesIfEveryPairFails)
{
    const TemporaryFolder folder;
    for (const char *number : {"0", "1", "2", "3", "4", "5", "6", "7"})
        fs::create_directories(folder.path() / ("packet/publicKey0" + std::string(number) + ".pem"));
    EXPECT_TRUE(EndedAsIn(RunIn(folder, packetWith({})), 0, "packet_without_public_keys.txt"));
    EXPECT_EQ(FilesIn(folder), "packet/\n" + eightLines("0400 399 packet/privateKey", ".pem") +
                                   eightLines("packet/publicKey", ".pem/") +
                                   "0444 32 packet/publicKeysHashHashes.bin\n");
}

TEST(Packet, ARunEndsIfTheTableHashCannotBeWritten)
{
    const TemporaryFolder folder;
    fs::create_directories(folder.path() / "packet/publicKeysHashHashes.bin");
    EXPECT_TRUE(EndedAsIn(RunIn(folder, packetWith({"-rand", "5", "noise.bin"})), 1,
                          "packet_without_table_hash.txt"));
    EXPECT_EQ(FilesIn(folder), without(packetFiles(), "0444 32 packet/publicKeysHashHashes.bin") +
                                   "packet/publicKeysHashHashes.bin/\n");
}

TEST(Packet, EachFileBeyondTheSizeLimitIsReported)
{
    if (countsCoverage)
        GTEST_SKIP() << "the coverage data exceeds the limit, too";
    const TemporaryFolder folder;
    EXPECT_TRUE(EndedAsIn(
        RunInShell(folder, "ulimit -f 0; exec \"$@\"", {"-n", "1", "-pwd", "p111", "-abs", "packet"}), 1,
        "packet_of_one_beyond_limit.txt"));
    EXPECT_EQ(FilesIn(folder), "packet/\n"
                               "0644 0 packet/privateKey00.pem\n"
                               "0444 0 packet/publicKeysHashHashes.bin\n");
}

TEST(Packet, TheRunEndsIfAFileIsNotFoundAfterItWasWritten)
{
    // A name that begins with a colon is searched for in the application library's built-in resources.
    const TemporaryFolder folder;
    Arguments arguments = packetWith({"-hash", ":h.bin", "-pubk", "p.pem", "-prvk", "k.pem"});
    arguments.erase(arguments.begin() + 2, arguments.begin() + 4);
    EXPECT_TRUE(EndedAsIn(RunIn(folder, arguments), 1, "packet_hash_not_found.txt"));
    EXPECT_EQ(FilesIn(folder), "0644 32 :h00.bin\n0400 399 k00.pem\n0444 178 p00.pem\n");
}

TEST(Packet, TheNumberIsInsertedBeforeTheLastFourCharactersOfAName)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(EndedAsIn(
        RunIn(folder, {"-n", "1", "-pwd", "pass", "-prvk", "private", "-pubk", "p", "-hash", "a.hash"}), 0,
        "packet_short_names.txt"));
    // The table hash is written to the given name, which no numbered file has.
    EXPECT_EQ(FilesIn(folder), "0444 178 00p\n"
                               "0444 32 a.00Hash\n"
                               "0444 32 a.hash\n"
                               "0400 399 pri00vate\n");
}

TEST(Packet, HashIsCapitalisedInTheWholePathOfTheHashFiles)
{
    const TemporaryFolder folder;
    fs::create_directories(folder.path() / "hashes");
    fs::create_directories(folder.path() / "Hashes");
    EXPECT_TRUE(
        EndedAsIn(RunIn(folder, {"-n", "1", "-pwd", "pass", "-abs", "hashes"}), 0, "packet_in_hashes.txt"));
    EXPECT_EQ(FilesIn(folder), "Hashes/\n"
                               "0444 32 Hashes/publicKeyHash00.bin\n"
                               "hashes/\n"
                               "0400 399 hashes/privateKey00.pem\n"
                               "0444 178 hashes/publicKey00.pem\n"
                               "0444 32 hashes/publicKeysHashHashes.bin\n");
}

TEST(Packet, OtherSpellingsInThePathOfTheHashFilesAreKept)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(EndedAsIn(RunIn(folder, {"-n", "1", "-pwd", "pass", "-prvk", "k.pem", "-pubk", "p.pem",
                                         "-hash", "PublicKeyhash_HASH.bin"}),
                          0, "packet_other_spellings.txt"));
    EXPECT_EQ(FilesIn(folder), "0444 32 PublicKeyHash_HASH00.bin\n"
                               "0444 32 PublicKeyhash_HASH.bin\n"
                               "0400 399 k00.pem\n"
                               "0444 178 p00.pem\n");
}

TEST(Packet, TheNameOfTheTableHashIsReplacedInTheWholePath)
{
    const TemporaryFolder folder;
    fs::create_directories(folder.path() / "publicKeyhash");
    fs::create_directories(folder.path() / "publicKeyHash");
    fs::create_directories(folder.path() / "publicKeysHashHashes");
    EXPECT_TRUE(
        EndedAsIn(RunIn(folder, {"-n", "1", "-pwd", "pass", "-hash", "publicKeyhash/publicKeyhash.bin",
                                 "-prvk", "k.pem", "-pubk", "p.pem"}),
                  0, "packet_in_public_key_hash.txt"));
    EXPECT_EQ(FilesIn(folder), "0400 399 k00.pem\n"
                               "0444 178 p00.pem\n"
                               "publicKeyHash/\n"
                               "0444 32 publicKeyHash/publicKeyHash00.bin\n"
                               "publicKeyhash/\n"
                               "publicKeysHashHashes/\n"
                               "0444 32 publicKeysHashHashes/publicKeysHashHashes.bin\n");
}

} // namespace
