#include "keygen/output_folders.h"

#include "keygen/run_settings.h"
#include "tests/support/captured_output.h"
#include "tests/support/child_run.h"
#include "tests/support/fresh_settings.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>

#include <unistd.h>

namespace {

namespace fs = std::filesystem;

const std::string again = Reprompt("(y/n)");

std::string question(const std::string &folder)
{
    return Info(folder + "\n") +
           Reprompt("Warning: File path does not exist. Do you want to create it?\n(y/n)");
}

/// Child processes work in a temporary directory, so that relative paths are printed in full.
void enter(const TemporaryFolder &folder)
{
    if (chdir(folder.path().c_str()) != 0)
        std::abort();
}

class DirectoryOfAFile : public testing::Test {
protected:
    /// What CreateDirectoryPath prints about `path`, followed by its result, with these answers.
    std::string outcome(const std::string &path, const std::string &answers = "")
    {
        const ChildRun run = RunInChild(
            [&] {
                enter(folder);
                const bool made = CreateDirectoryPath(QString::fromStdString(path));
                std::fputs(made ? "true" : "false", stdout);
            },
            {.input = answers});
        EXPECT_TRUE(run.returned);
        EXPECT_EQ(run.errors, "");
        return run.output;
    }

    bool isFolder(const std::string &name) const { return fs::is_directory(folder / name); }

    TemporaryFolder folder;
};

TEST_F(DirectoryOfAFile, NoDirectoryIsNeededForAnExistingFile)
{
    WriteFile(folder / "key.pem", "");
    EXPECT_EQ(outcome("key.pem"), "true");
    EXPECT_EQ(outcome(folder / "key.pem"), "true");
}

TEST_F(DirectoryOfAFile, NoDirectoryIsNeededForAnExistingDirectory)
{
    fs::create_directory(folder / "out");
    EXPECT_EQ(outcome("out"), "true");
    EXPECT_EQ(outcome("out/"), "true");
}

TEST_F(DirectoryOfAFile, NoDirectoryIsCreatedIfOnlyTheFileIsMissing)
{
    fs::create_directories(folder / "a/b");
    EXPECT_EQ(outcome("a/b/c.pem"), "true");
    EXPECT_EQ(outcome(folder / "a/b/c.pem"), "true");
    EXPECT_EQ(outcome("./c.pem"), "true");
    EXPECT_FALSE(fs::exists(folder / "a/b/c.pem"));
}

TEST_F(DirectoryOfAFile, TheDirectoryIsCreatedWithItsParents)
{
    EXPECT_EQ(outcome("a/b/c.pem", "y\n"), question("a/b") + "true");
    EXPECT_TRUE(isFolder("a/b"));
    EXPECT_FALSE(fs::exists(folder / "a/b/c.pem"));
    const std::string absolute = folder / "x/y/z";
    EXPECT_EQ(outcome(absolute + "/c.pem", "Y\n"), question(absolute) + "true");
    EXPECT_TRUE(isFolder("x/y/z"));
}

TEST_F(DirectoryOfAFile, TheDirectoryIsCreatedWithTheDefaultMode)
{
    const mode_t mask = umask(027);
    outcome("a/b/c.pem", "y\n");
    umask(mask);
    EXPECT_EQ(ModeOf(folder / "a"), 0750);
    EXPECT_EQ(ModeOf(folder / "a/b"), 0750);
}

TEST_F(DirectoryOfAFile, TheDirectoryIsNotCreatedIfTheUserDeclines)
{
    EXPECT_EQ(outcome("a/b/c.pem", "n\n"), question("a/b") + "false");
    EXPECT_EQ(outcome("a/b/c.pem", "N\n"), question("a/b") + "false");
    EXPECT_FALSE(fs::exists(folder / "a"));
}

TEST_F(DirectoryOfAFile, TheQuestionIsRepeatedUntilTheAnswerIsOneOfFour)
{
    EXPECT_EQ(outcome("a/c", "x\nyes\nY\n"), question("a") + again + again + "true");
    EXPECT_EQ(outcome("b/c", "no No YES ny yn 1 y"),
              question("b") + again + again + again + again + again + again + "true");
    EXPECT_EQ(outcome("d/c", "\xC3\xBF\n\nn\n"), question("d") + again + "false");
}

TEST_F(DirectoryOfAFile, AnswersMayBeWordsOnOneLineOrOnSeveral)
{
    for (const char *answers : {"x yes Y\n", "x\nyes\nY\n", "  x\n\n\tyes Y", "x yes\r\nY\r\n"}) {
        fs::remove_all(folder / "a");
        EXPECT_EQ(outcome("a/c.pem", answers), question("a") + again + again + "true");
    }
}

TEST_F(DirectoryOfAFile, FurtherWordsAreLeftToTheNextQuestion)
{
    const ChildRun run = RunInChild(
        [&] {
            enter(folder);
            CreateDirectoryPath("a/c.pem");
            CreateDirectoryPath("b/c.pem");
        },
        {.input = "y x n"});
    EXPECT_EQ(run.output, question("a") + question("b") + again);
    EXPECT_TRUE(isFolder("a"));
    EXPECT_FALSE(isFolder("b"));
}

TEST_F(DirectoryOfAFile, TheQuestionIsRepeatedSlowlyAndForeverAtTheEndOfInput)
{
    const ChildRun run = RunInChild(
        [&] {
            enter(folder);
            CreateDirectoryPath("a/c.pem");
        },
        {.input = "x\n", .timeoutMilliseconds = 400});
    EXPECT_EQ(run.signal, SIGALRM);
    ASSERT_EQ(run.output.substr(0, question("a").size()), question("a"));
    std::string repeats = run.output.substr(question("a").size());
    EXPECT_EQ(repeats.size() % again.size(), 0U);
    const std::size_t count = repeats.size() / again.size();
    // The first repetition is for the x, then there is one for each pause. A slow machine prints fewer.
    EXPECT_GE(count, 2U);
    EXPECT_LE(count, 10U);
    EXPECT_FALSE(fs::exists(folder / "a"));
}

TEST_F(DirectoryOfAFile, TheDirectoryCannotBeCreatedIfAFileIsInTheWay)
{
    WriteFile(folder / "file", "");
    EXPECT_EQ(outcome("file/b/c.pem", "y\n"), question("file/b") + "false");
    EXPECT_EQ(outcome("file/c.pem", "y\n"), question("file") + "false");
    EXPECT_EQ(ReadFile(folder / "file"), "");
}

TEST_F(DirectoryOfAFile, ABareNameIsCreatedAsADirectory)
{
    EXPECT_EQ(outcome("out", "y\n"), question("out") + "true");
    EXPECT_TRUE(isFolder("out"));
}

TEST_F(DirectoryOfAFile, TheParentIsCreatedForAPathWithATrailingSlash)
{
    EXPECT_EQ(outcome("a/b/", "y\n"), question("a/") + "true");
    EXPECT_TRUE(isFolder("a"));
    EXPECT_FALSE(fs::exists(folder / "a/b"));
    // Without its last component the path is empty, which is the working directory.
    EXPECT_EQ(outcome("out/"), "true");
    EXPECT_FALSE(fs::exists(folder / "out"));
}

TEST_F(DirectoryOfAFile, AnEmptyPathIsTheWorkingDirectory)
{
    EXPECT_EQ(outcome(""), "true");
}

TEST_F(DirectoryOfAFile, DoubledSlashesAreKept)
{
    EXPECT_EQ(outcome("a//b//c.pem", "y\n"), question("a//b/") + "true");
    EXPECT_TRUE(isFolder("a/b"));
}

// No directory can have such a long path, and no part of it is created.
TEST_F(DirectoryOfAFile, TheDirectoryCannotBeCreatedUnderAPathOfMoreThan32KiB)
{
    const std::string longFolder = "a/" + std::string(70000, 'n');
    EXPECT_EQ(outcome(longFolder + "/c.pem", "y\n"), question(longFolder) + "false");
    const std::string longName = std::string(70000, 'n');
    EXPECT_EQ(outcome("b/" + longName, "n\n"), question("b") + "false");
    EXPECT_FALSE(fs::exists(folder / "b"));
}

TEST_F(DirectoryOfAFile, TheDirectoryMayHaveANonAsciiName)
{
    EXPECT_EQ(outcome("clés/privée.pem", "y\n"), question("clés") + "true");
    EXPECT_TRUE(isFolder("clés"));
}

TEST_F(DirectoryOfAFile, ThePathOfTheCallerIsNotChanged)
{
    const QString path = QString::fromStdString(folder / "key.pem");
    EXPECT_TRUE(CreateDirectoryPath(path));
    EXPECT_EQ(path.toStdString(), folder / "key.pem");
}

class OutputFolders : public FreshSettings {
protected:
    ChildRun create(const std::string &answers = "")
    {
        return RunInChild(
            [&] {
                enter(folder);
                CreateOutputFolders();
            },
            {.input = answers});
    }

    /// Expects every answer to be read, every directory to be created, and only `output` to be printed.
    void expectCreated(const std::string &answers, const std::string &output)
    {
        const ChildRun run = create(answers);
        EXPECT_TRUE(run.returned);
        EXPECT_EQ(run.output, output);
        EXPECT_EQ(run.errors, "");
    }

    void expectError(const std::string &answers, const std::string &output)
    {
        const ChildRun run = create(answers);
        EXPECT_FALSE(run.returned);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.output, output);
        EXPECT_EQ(run.errors, "");
    }

    static std::string failure(const std::string &path)
    {
        return Error("Error: Creating file path has failed\n") + Info(path + "\n") +
               Error("Please make sure you have entered the correct path.\n");
    }

    static std::string hashFailure(const std::string &path)
    {
        return Error("Error: creating file path has failed\n") + Info(path + "\n") +
               Error("please make sure you have entered the correct path.\n");
    }

    static void setPaths(const char *publicKey, const char *privateKey, const char *hash)
    {
        publicKeyPath = publicKey;
        privateKeyPath = privateKey;
        hashPath = hash;
    }

    bool isFolder(const std::string &name) const { return fs::is_directory(folder / name); }

    TemporaryFolder folder;
};

TEST_F(OutputFolders, BareNamesNeedNoDirectory)
{
    setPaths("p.pem", "k.pem", "h.bin");
    expectCreated("", "");
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST_F(OutputFolders, TheBaseDirectoryIsCreatedWithoutAQuestion)
{
    absolutePath = "out/";
    setPaths("out/p.pem", "out/k.pem", "out/h.bin");
    expectCreated("", "");
    EXPECT_TRUE(isFolder("out"));
    expectCreated("", "");
}

TEST_F(OutputFolders, TheUserIsAskedIfTheParentOfTheBaseDirectoryIsMissing)
{
    absolutePath = "a/b/";
    setPaths("a/b/p.pem", "a/b/k.pem", "a/b/h.bin");
    expectCreated("y\n", question("a/b"));
    EXPECT_TRUE(isFolder("a/b"));
}

TEST_F(OutputFolders, ABaseDirectoryIsNotCreatedIfAFileIsInItsPlace)
{
    WriteFile(folder / "out", "");
    absolutePath = "out/";
    setPaths("out/p.pem", "out/k.pem", "out/h.bin");
    expectError("y\n", question("out") + failure("out/p.pem"));
}

TEST_F(OutputFolders, TheUserIsAskedForPublicKeyThenPrivateKeyThenHash)
{
    setPaths("p/p.pem", "k/k.pem", "h/h.bin");
    expectCreated("y y y", question("p") + question("k") + question("h"));
    EXPECT_TRUE(isFolder("p"));
    EXPECT_TRUE(isFolder("k"));
    EXPECT_TRUE(isFolder("h"));
}

TEST_F(OutputFolders, TheRunEndsIfTheUserDeclines)
{
    setPaths("p/p.pem", "k/k.pem", "h/h.bin");
    expectError("n", question("p") + failure("p/p.pem"));
    expectError("y n", question("p") + question("k") + failure("k/k.pem"));
    expectError("y n", question("k") + question("h") + hashFailure("h/h.bin"));
    expectError("n", question("h") + hashFailure("h/h.bin"));
}

TEST_F(OutputFolders, TheRunEndsIfADirectoryCannotBeCreated)
{
    WriteFile(folder / "file", "");
    setPaths("file/p.pem", "k.pem", "h.bin");
    expectError("y", question("file") + failure("file/p.pem"));
    setPaths("p.pem", "file/k.pem", "h.bin");
    expectError("y", question("file") + failure("file/k.pem"));
    setPaths("p.pem", "k.pem", "file/h.bin");
    expectError("y", question("file") + hashFailure("file/h.bin"));
}

class NumberedNames : public FreshSettings {
protected:
    static void expectNames(int index, const char *privateKey, const char *publicKey, const char *hash)
    {
        const KeyFiles files = NumberedKeyFiles(index);
        EXPECT_EQ(files.privateKey, privateKey);
        EXPECT_EQ(files.publicKey, publicKey);
        EXPECT_EQ(files.hash, hash);
    }

    static void setPaths(const char *privateKey, const char *publicKey, const char *hash)
    {
        privateKeyPath = privateKey;
        publicKeyPath = publicKey;
        hashPath = hash;
    }
};

TEST_F(NumberedNames, TwoDigitsAreInsertedBeforeTheExtension)
{
    setPaths("privateKey.pem", "publicKey.pem", "publicKeyhash.bin");
    expectNames(0, "privateKey00.pem", "publicKey00.pem", "publicKeyHash00.bin");
    expectNames(1, "privateKey01.pem", "publicKey01.pem", "publicKeyHash01.bin");
    expectNames(7, "privateKey07.pem", "publicKey07.pem", "publicKeyHash07.bin");
}

TEST_F(NumberedNames, HashIsCapitalisedInTheWholeHashPath)
{
    setPaths("/hashes/privateKey.pem", "/hashes/publicKey.pem", "/base/hashes/publicKeyhash.bin");
    expectNames(3, "/hashes/privateKey03.pem", "/hashes/publicKey03.pem", "/base/Hashes/publicKeyHash03.bin");
    setPaths("k.pem", "p.pem", "hash/HASH/Hash/hashhash.bin");
    expectNames(0, "k00.pem", "p00.pem", "Hash/HASH/Hash/HashHash00.bin");
}

TEST_F(NumberedNames, TheDigitsAreInsertedBeforeTheLastFourCharactersOfAnyPath)
{
    setPaths("private", "p.x", "out/hash");
    expectNames(5, "pri05vate", "05p.x", "out/05Hash");
    setPaths("four", "five5", "a/b");
    expectNames(5, "05four", "f05ive5", "05a/b");
    setPaths("a.key.pem", "keys.d/x", "h.json");
    expectNames(2, "a.key02.pem", "keys02.d/x", "h.02json");
}

TEST_F(NumberedNames, TheDigitsAreInsertedAtTheStartOfAShorterPath)
{
    setPaths("abc", "a", "");
    expectNames(7, "07abc", "07a", "07");
}

// The digits are inserted first, so they can split the word.
TEST_F(NumberedNames, TheDigitsAreInsertedBeforeHashIsCapitalised)
{
    setPaths("k.pem", "p.pem", "xhashes");
    expectNames(4, "k04.pem", "p04.pem", "xha04shes");
}

TEST_F(NumberedNames, ThePathsOfTheRunAreNotChanged)
{
    setPaths("k.pem", "p.pem", "hash.bin");
    NumberedKeyFiles(3);
    EXPECT_EQ(privateKeyPath, "k.pem");
    EXPECT_EQ(publicKeyPath, "p.pem");
    EXPECT_EQ(hashPath, "hash.bin");
}

} // namespace
