#include "keygen/key_generation.h"

#include "keygen/run_settings.h"
#include "src/ec_crypto.h"
#include "tests/support/captured_output.h"
#include "tests/support/child_run.h"
#include "tests/support/fresh_settings.h"
#include "tests/support/library_faults.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/written_keys.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

const std::string pairFailure = Error("Error: An error occured while generating key files\n");
const std::string privateKeyFailure = Error("Error: creating Key File fails\n") +
                                      Error("Error occured while creating PEM file!\n") + pairFailure;
const std::string noKeyInFile = Error("Error: extracting public key fails\n");

std::string prime(const std::string &cipher = "256")
{
    return Info("AES_" + cipher + "_cbc algorithm is selected for private key encryption\n") +
           Info("Generating Prime256v1 keys... \n");
}

std::string brainpool(const std::string &cipher = "256")
{
    return Info("AES_" + cipher + "_cbc algorithm is selected for private key encryption\n") +
           Info("Generating brainpoolP256t1 keys... \n");
}

const std::string filesCreated = Info("Private key PEM file created \n") +
                                 Info("Public key PEM file created \n") +
                                 Info("public key hash file created \n");

std::string report(const std::string &privateKey, const std::string &publicKey, const std::string &hash)
{
    return Info("+ public key:      ") + Info(publicKey + "\n") + Info("+ private key:     ") +
           Info(privateKey + "\n") + Info("+ public hash key: ") + Info(hash + "\n");
}

std::string numbered(const std::string &name, int index, const std::string &extension)
{
    return name + "0" + std::to_string(index) + extension;
}

std::string packetReport(int index)
{
    return Success("Keys packet " + std::to_string(index) + " generated successfully.\n") +
           report(numbered("privateKey", index, ".pem"), numbered("publicKey", index, ".pem"),
                  numbered("publicKeyHash", index, ".bin")) +
           Info(std::string(60, '-') + "\n");
}

std::string tableReport(const std::string &path)
{
    return Success("Hash of table of Hash of {algorithm + public Key} file generated successfully.\n") +
           Info("+ Hash Hash: ") + Info(path + "\n");
}

const std::string tableMissing = Error("Error: Hash hashes file path does not exist\n");

/// Runs the key generation in a child process whose working directory is the test's temporary one.
class KeyGeneration : public FreshSettings {
protected:
    KeyGeneration()
    {
        privateKeyPath = "privateKey.pem";
        publicKeyPath = "publicKey.pem";
        hashPath = "publicKeyhash.bin";
        password = "good pass";
    }

    ChildRun generate()
    {
        return RunInChild([&] {
            if (chdir(folder.path().c_str()) != 0)
                std::abort();
            EC_Crypto engine;
            GenerateKeyFiles(engine);
        });
    }

    void expectOutput(const std::string &output)
    {
        const ChildRun run = generate();
        EXPECT_TRUE(run.returned);
        EXPECT_EQ(run.output, output);
        EXPECT_EQ(run.errors, "");
    }

    void expectError(const std::string &output)
    {
        const ChildRun run = generate();
        EXPECT_FALSE(run.returned);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.output, output);
        EXPECT_EQ(run.errors, "");
    }

    static void requestPacket(int pairs)
    {
        isKeyNumberCommand = true;
        numberKeys = pairs;
        for (int i = 0; i < pairs; ++i)
            passwordTable.append("password " + QString::number(i));
    }

    TemporaryFolder folder;
};

TEST_F(KeyGeneration, ReportsOnePair)
{
    expectOutput(Info("Prime256v1 curve is selected. \n") + prime() + filesCreated +
                 Success("Keys generated successfully.\n") +
                 report("privateKey.pem", "publicKey.pem", "publicKeyhash.bin"));
    EXPECT_TRUE(OpensPrivateKey(folder / "privateKey.pem", "good pass"));
    EXPECT_FALSE(OpensPrivateKey(folder / "privateKey.pem", "bad pass"));
    EXPECT_EQ(ReadFile(folder / "publicKeyhash.bin").size(), 32U);
    EXPECT_FALSE(fs::exists(folder / "publicKeysHashHashes.bin"));
}

TEST_F(KeyGeneration, SelectsTheCurveAndTheCipher)
{
    brainpoolP256t1 = true;
    aes128 = true;
    expectOutput(Info("brainpoolP256t1 curve is selected.\n") + brainpool("128") + filesCreated +
                 Success("Keys generated successfully.\n") +
                 report("privateKey.pem", "publicKey.pem", "publicKeyhash.bin"));
}

TEST_F(KeyGeneration, PassesTheNumberOfTheCurveToTheEngine)
{
    const auto selected = [&](bool brainpoolCurve) {
        brainpoolP256t1 = brainpoolCurve;
        fs::create_directories(folder / "privateKey.pem");
        return RunInChild([&] {
                   if (chdir(folder.path().c_str()) != 0)
                       std::abort();
                   EC_Crypto engine;
                   GenerateKeyFiles(engine);
                   std::printf("%d", engine.curveNID);
               })
            .output;
    };
    EXPECT_EQ(selected(false),
              Info("Prime256v1 curve is selected. \n") + prime() + privateKeyFailure + "415");
    EXPECT_EQ(selected(true),
              Info("brainpoolP256t1 curve is selected.\n") + brainpool() + privateKeyFailure + "928");
}

TEST_F(KeyGeneration, UsesTheSinglePasswordSettingForOnePair)
{
    passwordTable = {"from the table"};
    password = QString::fromUtf8("clé €");
    generate();
    EXPECT_TRUE(OpensPrivateKey(folder / "privateKey.pem", "clé €"));
}

TEST_F(KeyGeneration, CreatesTheDirectoriesBeforeItSelectsTheCurve)
{
    publicKeyPath = "missing/publicKey.pem";
    const ChildRun run = RunInChild(
        [&] {
            if (chdir(folder.path().c_str()) != 0)
                std::abort();
            EC_Crypto engine;
            GenerateKeyFiles(engine);
        },
        {.input = "n"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output,
              Info("missing\n") +
                  Reprompt("Warning: File path does not exist. Do you want to create it?\n(y/n)") +
                  Error("Error: Creating file path has failed\n") + Info("missing/publicKey.pem\n") +
                  Error("Please make sure you have entered the correct path.\n"));
}

TEST_F(KeyGeneration, ReportsAFailedPairAndContinues)
{
    fs::create_directory(folder / "privateKey.pem");
    expectOutput(Info("Prime256v1 curve is selected. \n") + prime() + privateKeyFailure);
    EXPECT_FALSE(fs::exists(folder / "publicKey.pem"));
}

// A path is truncated at its zero character when the file is opened, so no file exists under the full name.
TEST_F(KeyGeneration, EndsTheRunIfAFileIsMissingAfterThePairWasGenerated)
{
    const std::string generated = Info("Prime256v1 curve is selected. \n") + prime() + filesCreated;
    const QString missing = QString(QChar(0)) + "x";
    const auto errorsAside = [&] { // the application library may warn of such a path
        const ChildRun run = generate();
        EXPECT_FALSE(run.returned);
        EXPECT_EQ(run.status, 1);
        return run.output;
    };
    hashPath += missing;
    EXPECT_EQ(errorsAside(), generated + Error("Error: public hash key file path does not exist\n"));
    publicKeyPath += missing;
    EXPECT_EQ(errorsAside(), generated + Error("Error: public key file path does not exist\n"));
    privateKeyPath += missing;
    EXPECT_EQ(errorsAside(), generated + Error("Error: private key file path does not exist\n"));
}

class PacketGeneration : public KeyGeneration {
protected:
    /// Makes the generation of pair `index` fail.
    void blockPair(int index) { fs::create_directory(folder / numbered("privateKey", index, ".pem")); }

    void blockAllPairs()
    {
        for (int i = 0; i < packetSize; ++i)
            blockPair(i);
    }

    std::string tableHash()
    {
        return QByteArray::fromStdString(ReadFile(folder / "publicKeysHashHashes.bin")).toHex().toStdString();
    }
};

TEST_F(PacketGeneration, ReportsEachPairAndTheTable)
{
    requestPacket(8);
    std::string output = Info("Prime256v1 curve is selected. \n");
    for (int i = 0; i < 8; ++i)
        output += prime() + filesCreated + packetReport(i);
    expectOutput(output + tableReport("publicKeysHashHashes.bin"));
    EXPECT_EQ(ReadFile(folder / "publicKeysHashHashes.bin").size(), 32U);
    EXPECT_EQ(ModeOf(folder / "publicKeysHashHashes.bin"), 0444);
}

TEST_F(PacketGeneration, UsesThePasswordsInOrder)
{
    requestPacket(8);
    generate();
    for (int i = 0; i < 8; ++i)
        EXPECT_TRUE(
            OpensPrivateKey(folder / numbered("privateKey", i, ".pem"), "password " + std::to_string(i)))
            << i;
}

TEST_F(PacketGeneration, APacketMayHaveOnePair)
{
    requestPacket(1);
    password = "unused";
    expectOutput(Info("Prime256v1 curve is selected. \n") + prime() + filesCreated + packetReport(0) +
                 tableReport("publicKeysHashHashes.bin"));
    EXPECT_TRUE(OpensPrivateKey(folder / "privateKey00.pem", "password 0"));
    EXPECT_FALSE(fs::exists(folder / "privateKey01.pem"));
}

TEST_F(PacketGeneration, WritesNoPrivateKeyIfThePasswordIsMissing)
{
    isKeyNumberCommand = true;
    password = "unused";
    expectOutput(Info("Prime256v1 curve is selected. \n") + prime() +
                 Error("Error: writing encrypted private Key fails\n") +
                 Error("Error occured while creating PEM file!\n") + pairFailure +
                 CannotOpen("publicKey00.pem") + Error("Error: reading public key fails \n") +
                 tableReport("publicKeysHashHashes.bin"));
}

TEST_F(PacketGeneration, ReportsAFailedPairAndContinuesWithTheOthers)
{
    requestPacket(8);
    blockPair(2);
    std::string output = Info("Prime256v1 curve is selected. \n");
    for (int i = 0; i < 8; ++i)
        output += prime() + (i != 2 ? filesCreated + packetReport(i)
                                    : privateKeyFailure + CannotOpen("publicKey02.pem") +
                                          Error("Error: reading public key fails \n"));
    expectOutput(output + tableReport("publicKeysHashHashes.bin"));
}

TEST_F(PacketGeneration, EndsTheRunIfTheTableHashCannotBeWritten)
{
    requestPacket(1);
    // The hash of the pair is written to a different directory than that of the table.
    hashPath = "publicKeyhash/publicKeyhash.bin";
    fs::create_directory(folder / "publicKeyhash");
    fs::create_directory(folder / "publicKeyHash");
    expectError(Info("Prime256v1 curve is selected. \n") + prime() + filesCreated +
                Success("Keys packet 0 generated successfully.\n") +
                report("privateKey00.pem", "publicKey00.pem", "publicKeyHash/publicKeyHash00.bin") +
                Info(std::string(60, '-') + "\n") + Error("Error: Creating file fails: ") +
                Error("publicKeysHashHashes/publicKeysHashHashes.bin") + Error("\n") + tableMissing);
}

TEST_F(PacketGeneration, EndsTheRunIfADirectoryIsInPlaceOfTheTableHash)
{
    requestPacket(1);
    fs::create_directory(folder / "publicKeysHashHashes.bin");
    expectError(Info("Prime256v1 curve is selected. \n") + prime() + filesCreated + packetReport(0) +
                Error("Error: Creating file fails: ") + Error("publicKeysHashHashes.bin") + Error("\n") +
                tableMissing);
}

TEST_F(PacketGeneration, LeavesZerosInTheTableForPairsWithoutAPublicKey)
{
    requestPacket(8);
    blockAllPairs();
    const ChildRun run = generate();
    EXPECT_TRUE(run.returned);
    EXPECT_EQ(tableHash(), "cf7084800c1a64f391f6e24ef6f60f7bdc690665f2b055fae91a6271b874d13d");
}

/// The directories in the temporary one that a run locks, and whether it opens a file while they are
/// unlocked.
class LockedDirectories : public PacketGeneration {
protected:
    LockedDirectories()
    {
        for (const char *name : {"private", "public", "hash", "Hash", "p", "00p", "01p"})
            fs::create_directory(folder / name);
        privateKeyPath = "private/privateKey.pem";
        publicKeyPath = "public/publicKey.pem";
        hashPath = "hash/publicKeyhash.bin";
    }

    std::string lockedByARun()
    {
        return RunInChild([&] {
                   fs::current_path(folder.path());
                   std::string locked;
                   {
                       const CapturedOutput output;
                       LibraryFaults faults;
                       faults.before(
                           "fopen", [&] { locked += lockedNow() + "\n"; }, LibraryFaults::everyCall);
                       EC_Crypto engine;
                       GenerateKeyFiles(engine);
                   }
                   std::printf("%s%s", locked.c_str(), lockedNow().c_str());
               })
            .output;
    }

private:
    static std::string lockedNow()
    {
        std::string names;
        for (const char *name : {"private", "public", "hash", "Hash", ".", "p", "00p", "01p"}) {
            const int descriptor = open(name, O_RDONLY | O_CLOEXEC);
            if (flock(descriptor, LOCK_EX | LOCK_NB) == -1)
                names += std::string(names.empty() ? "" : " ") + name;
            close(descriptor);
        }
        return names;
    }
};

TEST_F(LockedDirectories, TheDirectoriesOfOnePairAreLockedUntilItsLastFileIsWritten)
{
    EXPECT_EQ(lockedByARun(), "private public hash\n"
                              "private public hash\n"
                              "private public hash\n");
}

TEST_F(LockedDirectories, TheDirectoriesOfThePairsAndOfTheTableHashAreLockedForAPacket)
{
    requestPacket(1);
    // The three files of the pair, its public key again, and the hash of the table.
    EXPECT_EQ(lockedByARun(), "private public hash Hash\n"
                              "private public hash Hash\n"
                              "private public hash Hash\n"
                              "private public hash Hash\n"
                              "private public hash Hash\n");
}

// In a short path the number comes first, so the directory is different for each pair.
TEST_F(LockedDirectories, TheDirectoriesOfEachPairAreLockedForAPacket)
{
    publicKeyPath = "p/k";
    requestPacket(2);
    std::string calls;
    for (int i = 0; i < 2 * 4 + 1; ++i)
        calls += "private hash Hash 00p 01p\n";
    EXPECT_EQ(lockedByARun(), calls);
}

// Public key files of an earlier run, left by a pair that fails instead of replacing them. Each key was made,
// and the hash of the table computed from its encoding, with another tool. A table entry is the encoding
// without its first 27 bytes (28 on brainpoolP256t1), followed by the bytes that moving these left at the end
// of the buffer, then zeros up to 64 bytes.

std::string pem(const char *base64)
{
    return std::string("-----BEGIN PUBLIC KEY-----\n") + base64 + "-----END PUBLIC KEY-----\n";
}

const std::string ed25519Key = pem("MCowBQYDK2VwAyEAvM7mAi2mtmLghZc1zAUV4zNYnopPYSJSWMs4hWR17tA=\n");
const std::string rsaKey = pem("MIGfMA0GCSqGSIb3DQEBAQUAA4GNADCBiQKBgQCkcR/ymMWWnvXK163osDIv3fzI\n"
                               "36JACVXShQzdZ/ArNpZ7sqMnNIBEOHOt7SUlivTGba+45+X6zOYtjMk1uM3fFfzN\n"
                               "E+MqA9sPVCjOu+CpGJuImvT4WYsE9lPyioUNSKNukPh+ZkqPVfTzY1Aa40z28DNM\n"
                               "7doQu42IFGzasMQYVwIDAQAB\n");
const std::string primeKey = pem("MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEcb8KXM1rYCAwoypj4+y4hs2OaAD6\n"
                                 "yLtRRhbHURdznw+/SYnMu1Wq1o6ruCMW4RtUSg2wx84XCCY/zftl52sGvA==\n");
const std::string brainpoolKey = pem("MFowFAYHKoZIzj0CAQYJKyQDAwIIAQEIA0IABJUw+t9u2RymhsSNTTBxN3jymC8W\n"
                                     "C8mOet/+UbkhrKO9iCOZGYonTsvN4el27cPM6g1EfgFy8DZXXWKi66WmsxM=\n");
const std::string p384Key = pem("MHYwEAYHKoZIzj0CAQYFK4EEACIDYgAEzbyhcDfpUix5FPFjcDMzNFgOYJuK2tv4\n"
                                "p+frKv2xjMLvX63j4u2DbNKLSDpwAdamMbYRJMHbqS2oP0CyL8rup/KIX2RmRmEC\n"
                                "2DE6lJFxErZYQpGdMivMwtJSCOEIdghd\n");
// 19 bytes, less than the part that is removed: a DSA key of value 5 without parameters.
const std::string shortKey = pem("MBEwCQYHKoZIzjgEAQMEAAIBBQ==\n");

class StalePublicKey : public PacketGeneration {
protected:
    /// Expects the table hash, and `messages` after the failure of each pair, with `key` in all eight files.
    void expectTable(const std::string &key, const std::string &messages, const std::string &hash)
    {
        requestPacket(8);
        blockAllPairs();
        for (int i = 0; i < 8; ++i)
            WriteFile(folder / numbered("publicKey", i, ".pem"), key);
        std::string output = brainpoolP256t1 ? Info("brainpoolP256t1 curve is selected.\n")
                                             : Info("Prime256v1 curve is selected. \n");
        for (int i = 0; i < 8; ++i)
            output += (brainpoolP256t1 ? brainpool() : prime()) + privateKeyFailure + messages;
        expectOutput(output + tableReport("publicKeysHashHashes.bin"));
        EXPECT_EQ(tableHash(), hash);
    }
};

TEST_F(StalePublicKey, AStalePublicKeyMayBeOnPrime256v1InARunOnPrime256v1)
{
    expectTable(primeKey, "", "9cf4a93bee2d1c4a0f8f41ce9364405d90c375580fd01cb9b00731b9925de012");
}

TEST_F(StalePublicKey, AStalePublicKeyMayBeOnBrainpoolP256t1InARunOnPrime256v1)
{
    expectTable(brainpoolKey, "", "40f6556c269eb76a47d048961d873a27f122dfc58595ecc34525637dca0eb663");
}

TEST_F(StalePublicKey, AStalePublicKeyMayBeOnSecP384R1InARunOnPrime256v1)
{
    expectTable(p384Key, "", "b9e00b3e376f8e588c92e919c4b87cc476368a4bd175727ef9deafb037b96693");
}

TEST_F(StalePublicKey, AStalePublicKeyMayBeAnEd25519KeyInARunOnPrime256v1)
{
    expectTable(ed25519Key, "", "b7c73342ffc54b6327c423711cdd4d0fe75f2aa8b9bc3f03d821b4ae695470f2");
}

TEST_F(StalePublicKey, AStalePublicKeyMayBeAnRsaKeyInARunOnPrime256v1)
{
    expectTable(rsaKey, "", "14c81af3e3e87b66834de93e7c465c38fe6249928aad01c3703014f27de555fb");
}

TEST_F(StalePublicKey, AStalePublicKeyMayHaveATooShortEncodingInARunOnPrime256v1)
{
    expectTable(shortKey, noKeyInFile, "cf7084800c1a64f391f6e24ef6f60f7bdc690665f2b055fae91a6271b874d13d");
}

TEST_F(StalePublicKey, AStalePublicKeyMayBeOnPrime256v1InARunOnBrainpoolP256t1)
{
    brainpoolP256t1 = true;
    expectTable(primeKey, "", "aeecf03e6a3bc886e31a9958c56e863af99895bdec13222bd1e62060615f5fbb");
}

TEST_F(StalePublicKey, AStalePublicKeyMayBeOnBrainpoolP256t1InARunOnBrainpoolP256t1)
{
    brainpoolP256t1 = true;
    expectTable(brainpoolKey, "", "2d69f2fc4c437bf80efeb4f5bcb909e6b395bb9d9b42b11b9611e959493d9dc0");
}

TEST_F(StalePublicKey, AStalePublicKeyMayBeOnSecP384R1InARunOnBrainpoolP256t1)
{
    brainpoolP256t1 = true;
    expectTable(p384Key, "", "79f09fffa75fb027b42752ddb5da6c8751f7a7d21063582ce88e61a0fc739660");
}

TEST_F(StalePublicKey, AStalePublicKeyMayBeAnEd25519KeyInARunOnBrainpoolP256t1)
{
    brainpoolP256t1 = true;
    expectTable(ed25519Key, "", "37441a5ca675604cf3d4974d193b04dac20f9fa51f3cef47b6d8ee395bb9cd1b");
}

TEST_F(StalePublicKey, AStalePublicKeyMayBeAnRsaKeyInARunOnBrainpoolP256t1)
{
    brainpoolP256t1 = true;
    expectTable(rsaKey, "", "83897922ff6b71679c392fe7791ebf64798b78849112f85b23029592f1c93084");
}

TEST_F(StalePublicKey, AStalePublicKeyMayHaveATooShortEncodingInARunOnBrainpoolP256t1)
{
    brainpoolP256t1 = true;
    expectTable(shortKey, noKeyInFile, "8d2b1cf74ecb214ce8ae0a21d0d8f5619e15524bbb1a502b503005f40c1d0241");
}

TEST_F(StalePublicKey, AStalePublicKeyMayBeAnEmptyFile)
{
    expectTable("", noKeyInFile, "cf7084800c1a64f391f6e24ef6f60f7bdc690665f2b055fae91a6271b874d13d");
}

TEST_F(StalePublicKey, AStalePublicKeyMayBeAFileWithoutAKey)
{
    expectTable("no key", noKeyInFile, "cf7084800c1a64f391f6e24ef6f60f7bdc690665f2b055fae91a6271b874d13d");
}

TEST_F(StalePublicKey, AStalePublicKeyIsHashedAtItsPlaceInTheTable)
{
    requestPacket(8);
    blockAllPairs();
    const std::string keys[] = {primeKey, ed25519Key, rsaKey, brainpoolKey, p384Key, shortKey, "", "no key"};
    for (int i = 0; i < 8; ++i)
        WriteFile(folder / numbered("publicKey", i, ".pem"), keys[i]);
    generate();
    EXPECT_EQ(tableHash(), "1b855292234387c123983122a51edfd178044d43051581e90f4529cd7c396ac8");
}

} // namespace
