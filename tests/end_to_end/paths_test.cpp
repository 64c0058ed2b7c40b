#include "tests/support/captured_output.h"
#include "tests/support/transcript.h"
#include "tests/support/user_run.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;
using Arguments = std::vector<std::string>;

struct Paths {
    std::string privateKey;
    std::string publicKey;
    std::string hash;
};

std::string pairOutput(const Paths &paths)
{
    return Transcript("banner.txt") + Info("Prime256v1 curve is selected. \n") +
           Info("AES_256_cbc algorithm is selected for private key encryption\n") +
           Info("Generating Prime256v1 keys... \n") + Info("Private key PEM file created \n") +
           Info("Public key PEM file created \n") + Info("public key hash file created \n") +
           Success("Keys generated successfully.\n") + Info("+ public key:      ") +
           Info(paths.publicKey + "\n") + Info("+ private key:     ") + Info(paths.privateKey + "\n") +
           Info("+ public hash key: ") + Info(paths.hash + "\n");
}

/// Runs in a directory that contains the directories a, b, c and out/a, and expects the pair in `paths` and
/// nowhere else. "@" in arguments and paths stands for the working directory.
void expectPair(Arguments arguments, Paths paths)
{
    const TemporaryFolder folder;
    for (const char *name : {"a", "b", "c", "out/a"})
        fs::create_directories(folder.path() / name);
    const auto placed = [&](std::string text) {
        if (const std::size_t at = text.find('@'); at != std::string::npos)
            text.replace(at, 1, folder.path().string());
        return text;
    };
    for (std::string &argument : arguments)
        argument = placed(argument);
    paths = {placed(paths.privateKey), placed(paths.publicKey), placed(paths.hash)};
    arguments.insert(arguments.begin(), {"-pwd", "password"});

    EXPECT_TRUE(Ended(RunIn(folder, arguments), 0, pairOutput(paths))) << testing::PrintToString(arguments);
    const auto inFolder = [&](const std::string &path) { return (folder.path() / path).string(); };
    EXPECT_EQ(ModeOf(inFolder(paths.privateKey)), 0400);
    EXPECT_EQ(ModeOf(inFolder(paths.publicKey)), 0444);
    EXPECT_EQ(ModeOf(inFolder(paths.hash)), 0444);
    for (const std::string &path : {paths.privateKey, paths.publicKey, paths.hash})
        fs::remove(inFolder(path));
    EXPECT_EQ(FilesIn(folder), "a/\nb/\nc/\nout/\nout/a/\n") << testing::PrintToString(arguments);
}

TEST(Paths, MissingPathsGetDefaultNamesUnderABaseDirectory)
{
    for (const char *base : {"out", "out/"})
        expectPair({"-abs", base}, {"out/privateKey.pem", "out/publicKey.pem", "out/publicKeyhash.bin"});
    expectPair({"-abs", "@/out"}, {"@/out/privateKey.pem", "@/out/publicKey.pem", "@/out/publicKeyhash.bin"});
    expectPair({"-abs", "@/out/"},
               {"@/out/privateKey.pem", "@/out/publicKey.pem", "@/out/publicKeyhash.bin"});
    expectPair({"-abs", "."}, {"./privateKey.pem", "./publicKey.pem", "./publicKeyhash.bin"});
}

TEST(Paths, PathsAreRelativeToTheBaseDirectory)
{
    expectPair({"-abs", "out", "-pubk", "a/"},
               {"out/privateKey.pem", "out/a/publicKey.pem", "out/publicKeyhash.bin"});
    expectPair({"-abs", "out", "-pubk", "p.pem"},
               {"out/privateKey.pem", "out/p.pem", "out/publicKeyhash.bin"});
    expectPair({"-abs", "out", "-prvk", "a/"},
               {"out/a/privateKey.pem", "out/publicKey.pem", "out/publicKeyhash.bin"});
    expectPair({"-abs", "out", "-hash", "a/"},
               {"out/privateKey.pem", "out/publicKey.pem", "out/a/publicKeyhash.bin"});
    expectPair({"-hash", "h.bin", "-prvk", "../a/k.pem", "-pubk", "a/p.pem", "-abs", "out"},
               {"out/../a/k.pem", "out/a/p.pem", "out/h.bin"});
}

TEST(Paths, OtherPathsAreDerivedFromTheHashPath)
{
    expectPair({"-hash", "c/"}, {"c/privateKey.pem", "c/publicKey.pem", "c/publicKeyhash.bin"});
    expectPair({"-hash", "c/h.bin"}, {"c/privateKey.pem", "c/publicKey.pem", "c/h.bin"});
    expectPair({"-hash", "h.bin"}, {"privateKey.pem", "publicKey.pem", "h.bin"});
}

TEST(Paths, OtherPathsAreDerivedFromThePrivateKeyPath)
{
    expectPair({"-prvk", "b/"}, {"b/privateKey.pem", "b/publicKey.pem", "b/publicKeyhash.bin"});
    expectPair({"-prvk", "b/k.pem"}, {"b/k.pem", "b/publicKey.pem", "b/publicKeyhash.bin"});
    expectPair({"-prvk", "@/b/k.pem"}, {"@/b/k.pem", "@/b/publicKey.pem", "@/b/publicKeyhash.bin"});
    expectPair({"-prvk", "b/", "-hash", "c/h.bin"}, {"b/privateKey.pem", "b/publicKey.pem", "c/h.bin"});
    expectPair({"-prvk", "k.pem", "-hash", "h.bin"}, {"k.pem", "publicKey.pem", "h.bin"});
}

TEST(Paths, OtherPathsAreDerivedFromThePublicKeyPath)
{
    expectPair({"-pubk", "a/p.pem"}, {"a/privateKey.pem", "a/p.pem", "a/publicKeyhash.bin"});
    expectPair({"-PUBK", "a/"}, {"a/privateKey.pem", "a/publicKey.pem", "a/publicKeyhash.bin"});
    expectPair({"-pubk", "p.pem"}, {"privateKey.pem", "p.pem", "publicKeyhash.bin"});
    expectPair({"-pubk", "a/", "-prvk", "b/k.pem"}, {"b/k.pem", "a/publicKey.pem", "a/publicKeyhash.bin"});
    expectPair({"-pubk", "a/", "-hash", "c/h.bin"}, {"a/privateKey.pem", "a/publicKey.pem", "c/h.bin"});
}

TEST(Paths, PathsAreUsedUnchangedIfAllThreeAreGiven)
{
    expectPair({"-pubk", "a/1.pem", "-prvk", "b/2.pem", "-hash", "c/3.bin"},
               {"b/2.pem", "a/1.pem", "c/3.bin"});
    expectPair({"-pubk", "1", "-prvk", "2", "-hash", "3"}, {"2", "1", "3"});
}

TEST(Paths, PathsMayBeGivenWithTheLongOptions)
{
    expectPair({"--public-key", "a/1.pem", "--Private-Key", "b/2.pem"},
               {"b/2.pem", "a/1.pem", "a/publicKeyhash.bin"});
    expectPair({"--absolute-path", "out", "--public-key-hash", "h.bin"},
               {"out/privateKey.pem", "out/publicKey.pem", "out/publicKeyhash.bin"});
}

TEST(Paths, TheLaterOfTwoPathsIsUsed)
{
    expectPair({"-pubk", "a/1.pem", "-pubk", "b/2.pem"},
               {"b/privateKey.pem", "b/2.pem", "b/publicKeyhash.bin"});
    expectPair({"-abs", "out/a", "-abs", "out"},
               {"out/privateKey.pem", "out/publicKey.pem", "out/publicKeyhash.bin"});
}

/// A directory is not a file name: only the path that determines the directory, or that is below a base
/// directory, gets a default name.
void expectFailure(const Arguments &paths, const std::string &messages, const std::string &files)
{
    const TemporaryFolder folder;
    for (const char *name : {"a", "b", "c"})
        fs::create_directories(folder.path() / name);
    Arguments arguments = {"-pwd", "password"};
    arguments.insert(arguments.end(), paths.begin(), paths.end());
    EXPECT_TRUE(Ended(RunIn(folder, arguments), 0,
                      Transcript("banner.txt") + Info("Prime256v1 curve is selected. \n") +
                          Info("AES_256_cbc algorithm is selected for private key encryption\n") +
                          Info("Generating Prime256v1 keys... \n") + messages +
                          Error("Error: An error occured while generating key files\n")));
    EXPECT_EQ(FilesIn(folder), files);
}

TEST(Paths, PathsThatDoNotDetermineTheDirectoryGetNoDefaultName)
{
    const std::string noPrivateKey =
        Error("Error: creating Key File fails\n") + Error("Error occured while creating PEM file!\n");
    const std::string noHash = Info("Private key PEM file created \n") +
                               Info("Public key PEM file created \n") +
                               Error("Error: Reading Device file fails: ") + Error("c/") + Error("\n") +
                               Error("Error occured while creating public key hash file!\n");
    expectFailure({"-pubk", "a/", "-prvk", "b/"}, noPrivateKey, "a/\nb/\nc/\n");
    expectFailure({"-pubk", "a/", "-hash", "c/"}, noHash,
                  "a/\n0400 399 a/privateKey.pem\n0444 178 a/publicKey.pem\nb/\nc/\n");
    expectFailure({"-prvk", "b/", "-hash", "c/"}, noHash,
                  "a/\nb/\n0400 399 b/privateKey.pem\n0444 178 b/publicKey.pem\nc/\n");
    expectFailure({"-pubk", "a/", "-prvk", "b/", "-hash", "c/"}, noPrivateKey, "a/\nb/\nc/\n");
    expectFailure({"-pubk", "a/", "-prvk", "b/k.pem", "-hash", "c/h.bin"},
                  Info("Private key PEM file created \n") + Error("Error: creating key file fails\n") +
                      Error("Error occured while creating public key PEM file!\n"),
                  "a/\nb/\n0400 399 b/k.pem\nc/\n");
}

TEST(Paths, NoKeysAreMadeWithoutAPath)
{
    const TemporaryFolder folder;
    for (const Arguments &arguments : {Arguments{"-pwd", "password"},
                                       {"-pe", "aes128"},
                                       {"-pwd", "password", "-pubk", "", "-abs", ""},
                                       {"-pubk", "-prvk", "-hash", "-abs"},
                                       {"-n", "1", "-ecc", "1"},
                                       {"-pubk", "p.pem", "-pubk"}})
        EXPECT_TRUE(Ended(RunIn(folder, arguments), 0, Transcript("banner.txt")));
    EXPECT_EQ(FilesIn(folder), "");
}

} // namespace
