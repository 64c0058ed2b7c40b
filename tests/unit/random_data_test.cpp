#include "keygen/random_data.h"

#include "keygen/run_settings.h"
#include "src/ec_crypto.h"
#include "tests/support/captured_output.h"
#include "tests/support/child_run.h"
#include "tests/support/fresh_settings.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

class RandomData : public FreshSettings {
protected:
    ChildRun generate(int size, const std::string &path)
    {
        randSize = size;
        randPath = QString::fromStdString(path);
        return RunInChild([] {
            EC_Crypto engine;
            GenerateRandomData(engine);
        });
    }

    static std::string announcement(const std::string &size, const std::string &path)
    {
        return Title("\nRandom Data Generation : \n") + Info("    Size        : " + size + " Bytes\n") +
               Info("    Output path : " + path + "\n");
    }

    static std::string success(const std::string &path)
    {
        return Success("\nRandom data generated successfully : " + path + "\n");
    }

    void expectFailure(const ChildRun &run, const std::string &size, const std::string &path)
    {
        EXPECT_FALSE(run.returned);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.output, announcement(size, path) + Error("Failed to create output file : " + path) +
                                  Error("\nFailed to create random data file : " + path));
        EXPECT_EQ(run.errors, "");
    }

    TemporaryFolder folder;
};

TEST_F(RandomData, WritesAFileOfTheRequestedSize)
{
    const std::string path = folder / "données.bin";
    for (const int size : {16, 1, 100000}) {
        std::filesystem::remove(path);
        const ChildRun run = generate(size, path);
        EXPECT_TRUE(run.returned);
        EXPECT_EQ(run.output, announcement(std::to_string(size), path) + success(path));
        EXPECT_EQ(run.errors, "");
        EXPECT_EQ(std::filesystem::file_size(path), static_cast<std::uintmax_t>(size));
    }
}

TEST_F(RandomData, LeavesAnEmptyFileForASizeOfZero)
{
    const std::string path = folder / "empty.bin";
    const ChildRun run = generate(0, path);
    EXPECT_TRUE(run.returned);
    EXPECT_EQ(run.output, announcement("0", path) + success(path));
    EXPECT_EQ(std::filesystem::file_size(path), 0U);
}

TEST_F(RandomData, ReportsThatAFileIsOverwritten)
{
    const std::string path = folder / "old.bin";
    WriteFile(path, std::string(100, 'x'));
    const ChildRun run = generate(16, path);
    EXPECT_TRUE(run.returned);
    EXPECT_EQ(run.output, announcement("16", path) +
                              Reprompt("The file " + path + " already exists, it will be overwritten") +
                              success(path));
    EXPECT_EQ(ReadFile(path).size(), 16U);
    EXPECT_EQ(ReadFile(path).find("xx"), std::string::npos);
}

TEST_F(RandomData, CreatesNoDirectory)
{
    const std::string path = folder / "missing/data.bin";
    expectFailure(generate(16, path), "16", path);
    EXPECT_FALSE(std::filesystem::exists(folder / "missing"));
}

TEST_F(RandomData, RefusesANegativeSizeAndChangesNoFile)
{
    const std::string path = folder / "kept.bin";
    WriteFile(path, "kept");
    expectFailure(generate(-1, path), "-1", path);
    EXPECT_EQ(ReadFile(path), "kept");
    expectFailure(generate(-2147483647 - 1, path), "-2147483648", path);
}

} // namespace
