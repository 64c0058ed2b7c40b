#include "tests/support/captured_output.h"
#include "tests/support/coverage.h"
#include "tests/support/transcript.h"
#include "tests/support/user_run.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>

namespace {

namespace fs = std::filesystem;
using Arguments = std::vector<std::string>;

std::string announced(const std::string &size, const std::string &path)
{
    return Title("\nRandom Data Generation : \n") + Info("    Size        : " + size + " Bytes\n") +
           Info("    Output path : " + path + "\n");
}

std::string generated(const std::string &size, const std::string &path)
{
    return announced(size, path) + Success("\nRandom data generated successfully : " + path + "\n");
}

std::string failed(const std::string &size, const std::string &path, const std::string &error)
{
    return announced(size, path) + Error(error + path) +
           Error("\nFailed to create random data file : " + path);
}

const char *const notCreated = "Failed to create output file : ";

TEST(RandomData, RandomDataIsWrittenInTheRequestedSize)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(EndedAsIn(RunIn(folder, {"-rand", "16", "noise.bin"}), 0, "random_data.txt"));
    EXPECT_EQ(FilesIn(folder), "0644 16 noise.bin\n");
    for (const char *size : {"0", "1", "4095", "65537"}) {
        const std::string path = std::string(size) + ".bin";
        EXPECT_TRUE(Ended(RunIn(folder, {"--random", size, path}), 0,
                          Transcript("banner.txt") + generated(size, path)));
        EXPECT_EQ(std::to_string(fs::file_size(folder / path)), size);
    }
}

TEST(RandomData, RandomDataMayBeLargerThanTheStack)
{
    const TemporaryFolder folder;
    const ProgramResult run =
        RunInShell(folder, "ulimit -s 512; exec \"$@\"", {"-rand", "1000000", "noise.bin"});
    EXPECT_TRUE(Ended(run, 0, Transcript("banner.txt") + generated("1000000", "noise.bin")));
    EXPECT_EQ(FilesIn(folder), "0644 1000000 noise.bin\n");
}

TEST(RandomData, EachByteValueOccursAboutEquallyOften)
{
    const TemporaryFolder folder;
    RunIn(folder, {"-rand", "262144", "noise.bin"});
    std::array<int, 256> counts = {};
    for (const char byte : ReadFile(folder / "noise.bin"))
        ++counts[static_cast<unsigned char>(byte)];
    // 1024 each on average; ten standard deviations to either side.
    EXPECT_GT(*std::min_element(counts.begin(), counts.end()), 704);
    EXPECT_LT(*std::max_element(counts.begin(), counts.end()), 1344);
}

TEST(RandomData, AnOlderFileIsReplacedAfterANotice)
{
    const TemporaryFolder folder;
    PutFile(folder, "noise.bin", std::string(5000, 'x'));
    EXPECT_TRUE(EndedAsIn(RunIn(folder, {"-rand", "16", "noise.bin"}), 0, "random_data_overwritten.txt"));
    EXPECT_EQ(FilesIn(folder), "0644 16 noise.bin\n");
    const std::string first = ReadFile(folder / "noise.bin");
    EXPECT_TRUE(EndedAsIn(RunIn(folder, {"-rand", "16", "noise.bin"}), 0, "random_data_overwritten.txt"));
    EXPECT_EQ(FilesIn(folder), "0644 16 noise.bin\n");
    EXPECT_NE(ReadFile(folder / "noise.bin"), first);
}

TEST(RandomData, RandomDataIsMadeAfterTheKeys)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(
        EndedAsIn(RunIn(folder, {"-rand", "16", "noise.bin", "-pwd", "correct horse", "-abs", "keys"}), 0,
                  "pair_and_random_data.txt"));
    EXPECT_EQ(FilesIn(folder), "keys/\n"
                               "0400 399 keys/privateKey.pem\n"
                               "0444 178 keys/publicKey.pem\n"
                               "0444 32 keys/publicKeyhash.bin\n"
                               "0644 16 noise.bin\n");
    EXPECT_TRUE(
        EndedAsIn(RunIn(folder, {"-n", "1", "-pwd", "p111", "-abs", "packet", "-rand", "16", "other.bin"}), 0,
                  "packet_and_random_data.txt"));
    EXPECT_EQ(fs::file_size(folder / "other.bin"), 16U);
}

TEST(RandomData, RandomDataIsMadeEvenIfThePairFails)
{
    const TemporaryFolder folder;
    fs::create_directories(folder.path() / "keys/privateKey.pem");
    EXPECT_TRUE(
        EndedAsIn(RunIn(folder, {"-pwd", "correct horse", "-abs", "keys", "-rand", "16", "noise.bin"}), 0,
                  "failed_pair_and_random_data.txt"));
    EXPECT_EQ(FilesIn(folder), "keys/\nkeys/privateKey.pem/\n0644 16 noise.bin\n");
}

TEST(RandomData, RandomDataInAMissingDirectoryFails)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(
        EndedAsIn(RunIn(folder, {"-rand", "16", "missing/noise.bin"}), 1, "random_data_without_folder.txt"));
    EXPECT_EQ(FilesIn(folder), "");
}

TEST(RandomData, TheKeysAreMadeBeforeRandomDataFails)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(EndedAsIn(
        RunIn(folder, {"-pwd", "correct horse", "-abs", "keys", "-rand", "16", "missing/noise.bin"}), 1,
        "pair_and_failed_random_data.txt"));
    EXPECT_EQ(FilesIn(folder), "keys/\n"
                               "0400 399 keys/privateKey.pem\n"
                               "0444 178 keys/publicKey.pem\n"
                               "0444 32 keys/publicKeyhash.bin\n");
}

TEST(RandomData, RandomDataFailsIfADirectoryHasItsName)
{
    const TemporaryFolder folder;
    fs::create_directory(folder.path() / "noise.bin");
    EXPECT_TRUE(
        EndedAsIn(RunIn(folder, {"-rand", "16", "noise.bin"}), 1, "random_data_in_a_folders_place.txt"));
    EXPECT_EQ(FilesIn(folder), "noise.bin/\n");
}

TEST(RandomData, AFullDeviceIsReported)
{
    const TemporaryFolder folder;
    fs::create_symlink("/dev/full", folder.path() / "full.bin");
    EXPECT_TRUE(EndedAsIn(RunIn(folder, {"-rand", "16", "full.bin"}), 1, "random_data_on_full_device.txt"));
    EXPECT_EQ(FilesIn(folder), "full.bin -> /dev/full\n");
}

TEST(RandomData, AFileBeyondTheSizeLimitIsReported)
{
    if (countsCoverage)
        GTEST_SKIP() << "the coverage data exceeds the limit, too";
    const TemporaryFolder folder;
    // The unit of the limit is 512 or 1024 bytes.
    EXPECT_TRUE(
        Ended(RunInShell(folder, "ulimit -f 1; exec \"$@\"", {"-rand", "5000", "noise.bin"}), 1,
              Transcript("banner.txt") + failed("5000", "noise.bin", "Error while writing in file : ")));
    EXPECT_LE(fs::file_size(folder / "noise.bin"), 1024U);
}

TEST(RandomData, SizesAreReadAsDecimalNumbers)
{
    const TemporaryFolder folder;
    for (const char *size : {" 5", "5 ", "05", "+5"}) {
        fs::remove(folder / "five.bin");
        EXPECT_TRUE(Ended(RunIn(folder, {"-rand", size, "five.bin"}), 0,
                          Transcript("banner.txt") + generated("5", "five.bin")));
        EXPECT_EQ(FilesIn(folder), "0644 5 five.bin\n");
    }
}

TEST(RandomData, AnyOtherSizeCountsAsZero)
{
    for (const char *size :
         {"many", "", "0x10", "1e3", "5.0", "2147483648", "4294967301", "99999999999999999999"}) {
        const TemporaryFolder folder;
        EXPECT_TRUE(Ended(RunIn(folder, {"-rand", size, "none.bin"}), 0,
                          Transcript("banner.txt") + generated("0", "none.bin")));
        EXPECT_EQ(FilesIn(folder), "0644 0 none.bin\n");
    }
}

TEST(RandomData, ANegativeSizeIsRefusedAndNoFileChanges)
{
    const TemporaryFolder folder;
    PutFile(folder, "old.bin", "contents");
    for (const char *size : {"-1", "-5", "-2147483648"}) {
        for (const char *path : {"new.bin", "old.bin"})
            EXPECT_TRUE(Ended(RunIn(folder, {"-rand", std::string(" ") + size, path}), 1,
                              Transcript("banner.txt") + failed(size, path, notCreated)));
    }
    EXPECT_EQ(FilesIn(folder), "0644 8 old.bin\n");
    EXPECT_EQ(ReadFile(folder / "old.bin"), "contents");
}

TEST(RandomData, TheFileMayHaveAnyNameThatEndsInBin)
{
    const TemporaryFolder folder;
    for (const char *path : {".bin", "bruit é €.bin", "a.bin.bin", " .bin", "new\nline.bin"}) {
        EXPECT_TRUE(
            Ended(RunIn(folder, {"-rand", "3", path}), 0, Transcript("banner.txt") + generated("3", path)));
        EXPECT_EQ(fs::file_size(folder / path), 3U);
    }
}

TEST(RandomData, TheLaterOfTwoRequestsForRandomDataIsUsed)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(Ended(RunIn(folder, {"-rand", "3", "a.bin", "--random", "4", "b.bin"}), 0,
                      Transcript("banner.txt") + generated("4", "b.bin")));
    EXPECT_EQ(FilesIn(folder), "0644 4 b.bin\n");
}

} // namespace
