#include "keygen/key_paths.h"

#include "keygen/run_settings.h"
#include "tests/support/captured_output.h"
#include "tests/support/child_run.h"
#include "tests/support/fresh_settings.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(DefaultNames, TheThreeFilesHaveDefaultNames)
{
    EXPECT_STREQ(defaultPublicKeyName, "publicKey.pem");
    EXPECT_STREQ(defaultPrivateKeyName, "privateKey.pem");
    EXPECT_STREQ(defaultHashName, "publicKeyhash.bin");
}

TEST(ModifyPath, TruncatesThePathAfterTheLastSlash)
{
    EXPECT_EQ(ModifyPath("a/b/name"), "a/b/");
    EXPECT_EQ(ModifyPath("/name"), "/");
    EXPECT_EQ(ModifyPath("a//name"), "a//");
    EXPECT_EQ(ModifyPath("./name"), "./");
    EXPECT_EQ(ModifyPath(QString::fromUtf8("clés/privée.pem")), QString::fromUtf8("clés/"));
}

TEST(ModifyPath, ReturnsADirectoryUnchanged)
{
    EXPECT_EQ(ModifyPath("a/b/"), "a/b/");
    EXPECT_EQ(ModifyPath("/"), "/");
    EXPECT_EQ(ModifyPath("a//"), "a//");
}

TEST(ModifyPath, ReturnsNothingForABareNameOrAnEmptyPath)
{
    EXPECT_EQ(ModifyPath("name"), "");
    EXPECT_EQ(ModifyPath("a\\b"), "");
    EXPECT_EQ(ModifyPath(""), "");
    EXPECT_EQ(ModifyPath(QString()), "");
}

TEST(ModifyPath, HandlesLongPaths)
{
    const QString folder = QString("folder/").repeated(20000);
    EXPECT_EQ(ModifyPath(folder + QString(100000, 'n')), folder);
    EXPECT_EQ(ModifyPath(QString(100000, 'n')), "");
}

class KeyPaths : public FreshSettings {
protected:
    /// The settings after these paths were completed.
    static std::string completed(const char *folder, const char *publicKey, const char *privateKey,
                                 const char *hash)
    {
        set(folder, publicKey, privateKey, hash);
        CapturedOutput output;
        CompleteKeyPaths();
        EXPECT_EQ(output.text(), "");
        return ChangedSettings();
    }

    static std::string paths(const std::string &publicKey, const std::string &privateKey,
                             const std::string &hash)
    {
        return "publicKeyPath=\"" + publicKey + "\"\nprivateKeyPath=\"" + privateKey + "\"\nhashPath=\"" +
               hash + "\"\n";
    }

    static std::string pathsUnder(const std::string &folder, const std::string &publicKey,
                                  const std::string &privateKey, const std::string &hash)
    {
        return paths(publicKey, privateKey, hash) + "absolutePath=\"" + folder + "\"\n";
    }

    static void expectError(const char *folder, const char *publicKey, const char *privateKey,
                            const char *hash, const std::string &output)
    {
        set(folder, publicKey, privateKey, hash);
        const ChildRun run = RunInChild(CompleteKeyPaths);
        EXPECT_FALSE(run.returned);
        EXPECT_EQ(run.output, output);
        EXPECT_EQ(run.errors, "");
        EXPECT_EQ(run.status, 1);
    }

private:
    static void set(const char *folder, const char *publicKey, const char *privateKey, const char *hash)
    {
        ResetSettings();
        absolutePath = folder;
        publicKeyPath = publicKey;
        privateKeyPath = privateKey;
        hashPath = hash;
    }
};

// Without a base directory

TEST_F(KeyPaths, KeyGenerationIsDisabledIfNoPathIsGiven)
{
    EXPECT_EQ(completed("", "", "", ""), "isKeyGeneration=false\n");
}

TEST_F(KeyPaths, OtherPathsFollowTheHashPath)
{
    EXPECT_EQ(completed("", "", "", "h/"),
              paths("h/publicKey.pem", "h/privateKey.pem", "h/publicKeyhash.bin"));
    EXPECT_EQ(completed("", "", "", "h/x.bin"), paths("h/publicKey.pem", "h/privateKey.pem", "h/x.bin"));
    EXPECT_EQ(completed("", "", "", "x.bin"), paths("publicKey.pem", "privateKey.pem", "x.bin"));
    EXPECT_EQ(completed("", "", "", "/x"), paths("/publicKey.pem", "/privateKey.pem", "/x"));
    EXPECT_EQ(completed("", "", "", "/"), paths("/publicKey.pem", "/privateKey.pem", "/publicKeyhash.bin"));
}

TEST_F(KeyPaths, OtherPathsFollowThePrivateKeyPath)
{
    EXPECT_EQ(completed("", "", "k/", ""),
              paths("k/publicKey.pem", "k/privateKey.pem", "k/publicKeyhash.bin"));
    EXPECT_EQ(completed("", "", "k/x.pem", ""), paths("k/publicKey.pem", "k/x.pem", "k/publicKeyhash.bin"));
    EXPECT_EQ(completed("", "", "x.pem", ""), paths("publicKey.pem", "x.pem", "publicKeyhash.bin"));
}

TEST_F(KeyPaths, ThePublicKeyPathFollowsThePrivateKeyPathIfAHashPathIsGiven)
{
    EXPECT_EQ(completed("", "", "k/", "h/x.bin"), paths("k/publicKey.pem", "k/privateKey.pem", "h/x.bin"));
    EXPECT_EQ(completed("", "", "k/x.pem", "h/"), paths("k/publicKey.pem", "k/x.pem", "h/"));
}

TEST_F(KeyPaths, OtherPathsFollowThePublicKeyPath)
{
    EXPECT_EQ(completed("", "a/pub.pem", "", ""),
              paths("a/pub.pem", "a/privateKey.pem", "a/publicKeyhash.bin"));
    EXPECT_EQ(completed("", "a/", "", ""),
              paths("a/publicKey.pem", "a/privateKey.pem", "a/publicKeyhash.bin"));
    EXPECT_EQ(completed("", "pub.pem", "", ""), paths("pub.pem", "privateKey.pem", "publicKeyhash.bin"));
}

TEST_F(KeyPaths, AMissingPathFollowsThePublicKeyPathIfAnotherIsGiven)
{
    EXPECT_EQ(completed("", "p/", "k/", ""), paths("p/publicKey.pem", "k/", "p/publicKeyhash.bin"));
    EXPECT_EQ(completed("", "p/", "k/x.pem", ""), paths("p/publicKey.pem", "k/x.pem", "p/publicKeyhash.bin"));
    EXPECT_EQ(completed("", "p/", "", "h/"), paths("p/publicKey.pem", "p/privateKey.pem", "h/"));
    EXPECT_EQ(completed("", "p/x.pem", "", "h/x.bin"), paths("p/x.pem", "p/privateKey.pem", "h/x.bin"));
}

TEST_F(KeyPaths, ThePathsAreNotChangedIfAllThreeAreGiven)
{
    EXPECT_EQ(completed("", "x/", "y/", "z/"), paths("x/", "y/", "z/"));
    EXPECT_EQ(completed("", "p.pem", "k.pem", "h.bin"), paths("p.pem", "k.pem", "h.bin"));
}

TEST_F(KeyPaths, KeyGenerationIsEnabledIfSomePathsAreGiven)
{
    for (const auto &given : {&publicKeyPath, &privateKeyPath, &hashPath}) {
        ResetSettings();
        isKeyGeneration = false;
        *given = "a/";
        CompleteKeyPaths();
        EXPECT_TRUE(isKeyGeneration);
    }
}

TEST_F(KeyPaths, KeyGenerationIsNotChangedIfAllPathsAreGiven)
{
    publicKeyPath = privateKeyPath = hashPath = "a/";
    isKeyGeneration = false;
    CompleteKeyPaths();
    EXPECT_FALSE(isKeyGeneration);
}

// Under a base directory

TEST_F(KeyPaths, MissingPathsGetTheDefaultNamesInTheBaseDirectory)
{
    EXPECT_EQ(completed("/data/", "", "", ""),
              pathsUnder("/data/", "/data/publicKey.pem", "/data/privateKey.pem", "/data/publicKeyhash.bin"));
    EXPECT_EQ(completed("out", "", "", ""),
              pathsUnder("out/", "out/publicKey.pem", "out/privateKey.pem", "out/publicKeyhash.bin"));
    EXPECT_EQ(completed("/", "", "", ""),
              pathsUnder("/", "/publicKey.pem", "/privateKey.pem", "/publicKeyhash.bin"));
    EXPECT_EQ(completed("out//", "", "", ""),
              pathsUnder("out//", "out//publicKey.pem", "out//privateKey.pem", "out//publicKeyhash.bin"));
}

TEST_F(KeyPaths, GivenPathsAreAppendedToTheBaseDirectory)
{
    EXPECT_EQ(completed("out", "keys/", "", ""),
              pathsUnder("out/", "out/keys/publicKey.pem", "out/privateKey.pem", "out/publicKeyhash.bin"));
    EXPECT_EQ(completed("out", "p.pem", "", ""),
              pathsUnder("out/", "out/p.pem", "out/privateKey.pem", "out/publicKeyhash.bin"));
    EXPECT_EQ(completed("out", "p/a.pem", "k/b.pem", "h/c.bin"),
              pathsUnder("out/", "out/p/a.pem", "out/k/b.pem", "out/h/c.bin"));
    EXPECT_EQ(completed("out", "p/", "k/", "h/"),
              pathsUnder("out/", "out/p/publicKey.pem", "out/k/privateKey.pem", "out/h/publicKeyhash.bin"));
    EXPECT_EQ(completed("out", "../p", "./k", "h"), pathsUnder("out/", "out/../p", "out/./k", "out/h"));
}

TEST_F(KeyPaths, KeyGenerationIsNotChangedUnderABaseDirectory)
{
    absolutePath = "out";
    isKeyGeneration = false;
    CompleteKeyPaths();
    EXPECT_FALSE(isKeyGeneration);
}

const std::string publicError =
    Error("Error: Absolute path for public Key is not accepted when command '-abs' is used\t");
const std::string privateError =
    Error("Error: Absolute path for private Key is not accepted when command '-abs' is used\t");
const std::string hashError =
    Error("Error: Absolute path for public Key Hash is not accepted when command '-abs' is used\t");

TEST_F(KeyPaths, ThePathsMayNotBeAbsoluteUnderABaseDirectory)
{
    expectError("out", "/tmp/p.pem", "", "", publicError + Info("/tmp/\n"));
    expectError("out", "", "/tmp/k.pem", "", privateError + Info("/tmp/\n"));
    expectError("out", "", "", "/tmp/h.bin", hashError + Info("/tmp/\n"));
    expectError("out", "/p.pem", "", "", publicError + Info("/\n"));
    expectError("/tmp", "", "/tmp/", "", privateError + Info("/tmp/\n"));
    expectError("out", "", "", "//tmp//a", hashError + Info("//tmp//\n"));
}

TEST_F(KeyPaths, ThePathsAreCheckedInOrder)
{
    expectError("out", "/a/p", "/b/k", "/c/h", publicError + Info("/a/\n"));
    expectError("out", "p", "/b/k", "/c/h", privateError + Info("/b/\n"));
    expectError("out", "p", "k/", "/c/h", hashError + Info("/c/\n"));
}

TEST_F(KeyPaths, LongNamesAreKept)
{
    const std::string name(100000, 'n');
    EXPECT_EQ(completed("", name.c_str(), "", ""), paths(name, "privateKey.pem", "publicKeyhash.bin"));
    EXPECT_EQ(completed("o", (name + "/").c_str(), "", ""),
              pathsUnder("o/", "o/" + name + "/publicKey.pem", "o/privateKey.pem", "o/publicKeyhash.bin"));
}

} // namespace
