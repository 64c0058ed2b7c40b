#include "src/crypto.h"

#include "tests/support/captured_output.h"
#include "tests/support/child_run.h"
#include "tests/support/library_faults.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"
#include "tests/support/umask.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <array>
#include <climits>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

class GenerateRandom : public testing::Test {
protected:
    int generate(int size, const std::string &path)
    {
        CapturedOutput output;
        const int status = engine.generateRandom(size, Bytes(path));
        printed = output.text();
        return status;
    }

    void expectFailure(int size, const std::string &path, const std::string &message)
    {
        EXPECT_EQ(generate(size, path), -1);
        EXPECT_EQ(printed, message);
    }

    static std::string notice(const std::string &path)
    {
        return Reprompt("The file " + path + " already exists, it will be overwritten");
    }

    static std::string cannotCreate(const std::string &path)
    {
        return Error("Failed to create output file : " + path);
    }

    Crypto engine;
    TemporaryFolder folder;
    std::string printed;
};

/// Whether the bytes are distributed as random ones are: all values occur, and none far more often than the
/// others. The probability that a sound generator fails this is negligible.
testing::AssertionResult looksRandom(const std::string &bytes)
{
    std::array<double, 256> counts = {};
    for (const char byte : bytes)
        ++counts[static_cast<unsigned char>(byte)];
    const double expected = static_cast<double>(bytes.size()) / 256;
    double chiSquare = 0;
    for (std::size_t value = 0; value < counts.size(); ++value) {
        if (counts[value] == 0)
            return testing::AssertionFailure() << "no byte has the value " << value;
        chiSquare += (counts[value] - expected) * (counts[value] - expected) / expected;
    }
    // 255 on average, with a standard deviation of 23.
    if (chiSquare < 80 || chiSquare > 600)
        return testing::AssertionFailure() << "chi-square is " << chiSquare;
    return testing::AssertionSuccess();
}

TEST_F(GenerateRandom, WritesExactlyTheRequestedNumberOfBytes)
{
    for (const int size : {0, 1, 16, 4095, 4096, 4097, 8192, 100000}) {
        const std::string path = folder / std::to_string(size);
        EXPECT_EQ(generate(size, path), 0);
        EXPECT_EQ(printed, "");
        EXPECT_EQ(ReadFile(path).size(), static_cast<std::size_t>(size));
    }
}

TEST_F(GenerateRandom, DistributesAllByteValuesOverTheWholeFile)
{
    ASSERT_EQ(generate(3 * 65536, folder / "random.bin"), 0);
    const std::string bytes = ReadFile(folder / "random.bin");
    for (std::size_t third = 0; third < 3; ++third)
        EXPECT_TRUE(looksRandom(bytes.substr(third * 65536, 65536)));
}

TEST_F(GenerateRandom, RepeatsNoBlockOfTheFile)
{
    ASSERT_EQ(generate(100001, folder / "random.bin"), 0);
    const std::string bytes = ReadFile(folder / "random.bin");
    std::set<std::string> pieces;
    for (std::size_t i = 0; i + 8 <= bytes.size(); ++i)
        pieces.insert(bytes.substr(i, 8));
    EXPECT_EQ(pieces.size(), bytes.size() - 7);
}

TEST_F(GenerateRandom, GeneratesEveryByteOfTheFile)
{
    // The files are not read until all are written, so that nothing else fills the memory into which the next
    // bytes are generated.
    const int runs = 8;
    for (int run = 0; run < runs; ++run)
        ASSERT_EQ(generate(9000, folder / std::to_string(run)), 0);
    const std::string first = ReadFile(folder / "0");
    std::vector<bool> changed(first.size());
    for (int run = 1; run < runs; ++run) {
        const std::string next = ReadFile(folder / std::to_string(run));
        for (std::size_t i = 0; i < first.size(); ++i)
            changed[i] = changed[i] || next[i] != first[i];
    }
    for (std::size_t i = 0; i < changed.size(); ++i)
        EXPECT_TRUE(changed[i]) << "byte " << i << " is always the same";
}

TEST_F(GenerateRandom, AnnouncesAnOldFileAndReplacesIt)
{
    const std::string path = folder / "random.bin";
    WriteFile(path, std::string(1000, '#'));
    EXPECT_EQ(generate(16, path), 0);
    EXPECT_EQ(printed, notice(path));
    const std::string first = ReadFile(path);
    EXPECT_EQ(first.size(), 16u);
    EXPECT_EQ(first.find("####"), std::string::npos);

    EXPECT_EQ(generate(16, path), 0);
    EXPECT_EQ(printed, notice(path));
    const std::string second = ReadFile(path);
    EXPECT_EQ(second.size(), 16u);
    EXPECT_NE(second, first);
}

TEST_F(GenerateRandom, TruncatesAnOldFileForASizeOfZero)
{
    const std::string path = folder / "random.bin";
    WriteFile(path, "old");
    EXPECT_EQ(generate(0, path), 0);
    EXPECT_EQ(printed, notice(path));
    EXPECT_EQ(ReadFile(path), "");
}

TEST_F(GenerateRandom, CreatesTheFileWithTheDefaultMode)
{
    for (const int mask : {0022, 0077, 0137}) {
        const UmaskInForce inForce(mask);
        const std::string path = folder / std::to_string(mask);
        EXPECT_EQ(generate(16, path), 0);
        EXPECT_EQ(ModeOf(path), 0666 & ~mask);
    }
}

TEST_F(GenerateRandom, KeepsTheModeOfAnOldFile)
{
    const std::string path = folder / "random.bin";
    WriteFile(path, "old");
    fs::permissions(path, fs::perms(0642));
    EXPECT_EQ(generate(16, path), 0);
    EXPECT_EQ(ModeOf(path), 0642);
}

TEST_F(GenerateRandom, ReadsThePathAsUtf8)
{
    const std::string path = folder / "zufällig ☂.bin";
    EXPECT_EQ(generate(16, path), 0);
    EXPECT_EQ(fs::file_size(path), 16u);
    EXPECT_EQ(generate(17, path), 0);
    EXPECT_EQ(printed, notice(path));
    EXPECT_EQ(fs::file_size(path), 17u);
}

TEST_F(GenerateRandom, FailsIfTheFileCannotBeCreated)
{
    const std::string missing = folder / "missing/random.bin";
    expectFailure(16, missing, cannotCreate(missing));
    EXPECT_FALSE(fs::exists(folder / "missing"));

    const std::string inPlace = folder / "folder.bin";
    fs::create_directory(inPlace);
    expectFailure(16, inPlace, notice(inPlace) + cannotCreate(inPlace));

    const std::string dangling = folder / "link.bin";
    fs::create_symlink(folder / "missing/target", dangling);
    expectFailure(16, dangling, cannotCreate(dangling));
}

TEST_F(GenerateRandom, CreatesTheTargetOfADanglingLink)
{
    const std::string link = folder / "link.bin";
    fs::create_symlink(folder / "target.bin", link);
    EXPECT_EQ(generate(16, link), 0);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(fs::file_size(folder / "target.bin"), 16u);
}

TEST_F(GenerateRandom, FailsIfTheBytesDoNotFitIntoTheFile)
{
    const int mode = ModeOf("/dev/full");
    expectFailure(16, "/dev/full", notice("/dev/full") + Error("Error while writing in file : /dev/full"));
    EXPECT_EQ(ModeOf("/dev/full"), mode);
}

TEST_F(GenerateRandom, ChangesNoFileIfTheSizeIsNegative)
{
    const std::string path = folder / "random.bin";
    for (const int size : {-1, INT_MIN}) {
        expectFailure(size, path, cannotCreate(path));
        EXPECT_FALSE(fs::exists(path));
    }
    WriteFile(path, "old");
    expectFailure(-1, path, cannotCreate(path));
    EXPECT_EQ(ReadFile(path), "old");
}

TEST_F(GenerateRandom, ChangesNoFileIfTheSystemHasNoRandomBytes)
{
    const std::string path = folder / "random.bin";
    for (const int size : {1, 4096}) {
        LibraryFaults faults;
        faults.fail("getentropy", -1);
        expectFailure(size, path, cannotCreate(path));
        EXPECT_FALSE(fs::exists(path));
    }
    WriteFile(path, "old");
    // The application library requests 32 values at a time, the engine 4096.
    constexpr int callsOfABlock = 4096 / 32;
    for (int block = 0; block < 3; ++block) {
        LibraryFaults faults;
        faults.fail("getentropy", -1, block * callsOfABlock + 1);
        expectFailure(3 * 4096, path, cannotCreate(path));
        EXPECT_LE(faults.calls("getentropy"), (block + 1) * callsOfABlock);
    }
    EXPECT_EQ(ReadFile(path), "old");
}

TEST_F(GenerateRandom, FailsIfASingleByteIsNotGenerated)
{
    for (const int missing : {0, 1, 4095, 4096, 4999}) {
        LibraryFaults faults;
        int drawn = 0;
        faults.replace<int(void *, std::size_t)>("getentropy", [&](void *buffer, std::size_t size) {
            for (auto *value = static_cast<unsigned char *>(buffer); size >= 8; value += 8, size -= 8) {
                // A generated byte may be zero; it must not be mistaken for a missing one.
                if (drawn++ != missing)
                    value[7] = 0x80;
            }
            return 0;
        });
        const std::string path = folder / std::to_string(missing);
        expectFailure(5000, path, cannotCreate(path));
        drawn = 5000;
        EXPECT_EQ(generate(5000, path), 0);
        EXPECT_EQ(ReadFile(path), std::string(5000, '\0'));
    }
}

TEST(RandomByte, AByteThatWasNotGeneratedIsNeverReturned)
{
    const ChildRun run = RunInChild([] {
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_CORE, &none);
        LibraryFaults faults;
        faults.fail("getentropy", -1);
        std::printf("%d", randomByte());
    });
    EXPECT_EQ(run.signal, SIGABRT);
    EXPECT_EQ(run.output, "");
}

TEST(RandomByte, AllValuesOccurEquallyOften)
{
    std::string bytes;
    for (int i = 0; i < 65536; ++i)
        bytes += static_cast<char>(randomByte());
    EXPECT_TRUE(looksRandom(bytes));
}

} // namespace
