// What the writers print, return, release and leave on disk when a library call fails.
#include "src/ec_crypto.h"

#include "tests/support/captured_output.h"
#include "tests/support/library_faults.h"
#include "tests/support/library_memory.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

const std::string plainLine = "Error: converting public Key to DER Format fails \n";
const std::string hashError = Error("Error : calculating public Key (DER Format) hash fails\n");
const std::string formerHashError = Error("Error: calculating PubKey hash fails\n");

/// Writing the hash file of a key, with injected faults.
class HashFileUnderFaults : public testing::Test {
protected:
    void expectFailure(const std::string &messages, const Preparation &prepare)
    {
        const auto run = [&] {
            fs::remove(path);
            WriteFile(path, "old");
            fs::permissions(path, fs::perms(0444));
            EC_Crypto engine(prime256v1);
            LibraryFaults faults;
            prepare(faults);
            CapturedOutput errors(2);
            CapturedOutput output;
            EXPECT_EQ(engine.SaveHashPubKey(key.get(), Bytes(path)), -1);
            EXPECT_EQ(output.text(), messages);
            EXPECT_EQ(errors.text(), "");
            opened = faults.calls("fopen") > 0;
        };
        EXPECT_EQ(LeakedBy(run), 0);
    }

    /// Expects the old file to keep its content and mode.
    void expectOldFile()
    {
        EXPECT_FALSE(opened);
        EXPECT_EQ(ModeOf(path), 0444);
        EXPECT_EQ(ReadFile(path), "old");
    }

    const KeyOwner key = FixedKey(prime256v1, 5);
    TemporaryFolder folder;
    const std::string path = folder / "hash.bin";
    bool opened = false;
};

TEST_F(HashFileUnderFaults, TheOldFileIsKeptIfTheBufferCannotBeAllocated)
{
    expectFailure(Error("Error: allocating buffer for PubKey hash fails\n"), Failing("CRYPTO_malloc"));
    expectOldFile();
}

TEST_F(HashFileUnderFaults, TheOldFileIsKeptIfTheEncodingFails)
{
    expectFailure(Error("Error: extracting public key fails\n") + plainLine + formerHashError,
                  Failing("i2d_PUBKEY"));
    expectOldFile();
    expectFailure(Error("Error: creating buffer for DER fromat public key fails\n") + plainLine +
                      formerHashError,
                  Failing("CRYPTO_malloc", 0, 2));
    expectOldFile();
    expectFailure(Error("Error: creating DER fromat public key fails\n") + plainLine + formerHashError,
                  Failing("i2d_PUBKEY", -1, 2));
    expectOldFile();
}

TEST_F(HashFileUnderFaults, TheOldFileIsKeptIfTheDigestFails)
{
    for (const char *function : {"EVP_sha256", "EVP_MD_CTX_new"}) {
        expectFailure(Error("unknown message digest ") + hashError + formerHashError, Failing(function));
        expectOldFile();
    }
    // No file may contain a hash that was never computed.
    for (const char *function :
         {"EVP_MD_CTX_reset", "EVP_DigestInit_ex", "EVP_DigestUpdate", "EVP_DigestFinal_ex"}) {
        SCOPED_TRACE(function);
        expectFailure(hashError + formerHashError, Failing(function));
        expectOldFile();
    }
}

TEST_F(HashFileUnderFaults, TheMessageNamesTheFileIfItCannotBeWritten)
{
    expectFailure(CannotOpen(path), Failing("fopen"));
    EXPECT_EQ(ModeOf(path), 0444);
    EXPECT_EQ(ReadFile(path), "old");
}

TEST_F(HashFileUnderFaults, TheMessageNamesTheFileIfItIsNotWrittenWholeAndTheFileIsReadOnly)
{
    expectFailure(CannotOpen(path), Failing("fflush", EOF));
    EXPECT_EQ(ModeOf(path), 0444);
    expectFailure(CannotOpen(path), Overriding("fclose", EOF));
    EXPECT_EQ(ModeOf(path), 0444);
}

TEST_F(HashFileUnderFaults, TheFileIsWritableWhileItIsOpenAndReadOnlyAfterwards)
{
    WriteFile(path, "old");
    fs::permissions(path, fs::perms(0444));
    EC_Crypto engine(prime256v1);
    std::vector<int> modes;
    LibraryFaults faults;
    for (const char *function : {"CRYPTO_malloc", "fopen", "fwrite", "fflush", "fclose"})
        faults.before(function, [&] { modes.push_back(ModeOf(path)); });
    EXPECT_EQ(engine.SaveHashPubKey(key.get(), Bytes(path)), 1);
    EXPECT_EQ(modes, (std::vector<int>{0226, 0226, 0226, 0226, 0226}));
    EXPECT_EQ(ModeOf(path), 0444);
    EXPECT_EQ(ReadFile(path), Sha256Of(PointOf(key.get())));
    const std::vector<std::string> steps = {
        "i2d_PUBKEY", "i2d_PUBKEY", "EVP_DigestFinal_ex", "fopen", "fwrite", "fflush", "fclose"};
    EXPECT_EQ(faults.callsOf(steps), steps);
}

TEST_F(HashFileUnderFaults, TheMessageNamesTheTableHashFileIfItCannotBeWritten)
{
    const std::string messages = Error("Error: Creating file fails: ") + Error(path) + Error("\n");
    const std::string hash(32, 'h');
    for (const char *function : {"fopen", "fflush", "fclose"}) {
        const auto run = [&] {
            LibraryFaults faults;
            if (std::string(function) == "fopen")
                faults.fail(function);
            else
                faults.overrideResult(function, EOF);
            CapturedOutput output;
            EXPECT_EQ(Crypto().SaveHashTableHash(Bytes(hash), 32, Bytes(path)), -1);
            EXPECT_EQ(output.text(), messages);
        };
        EXPECT_EQ(LeakedBy(run), 0);
    }
    EXPECT_EQ(ModeOf(path), 0444);
}

/// The two PEM writers, with injected faults.
class KeyFileUnderFaults : public testing::Test {
protected:
    /// Replaces an old file of this mode by `write`, and expects the outcome.
    void expectFailure(int oldMode, const std::function<int()> &write, int status, const std::string &message,
                       int newMode, const Preparation &prepare, int filesLeftOpen)
    {
        const auto run = [&] {
            fs::remove(path);
            WriteFile(path, "old");
            fs::permissions(path, fs::perms(oldMode));
            LibraryFaults faults;
            prepare(faults);
            CapturedOutput errors(2);
            CapturedOutput output;
            EXPECT_EQ(write(), status);
            EXPECT_EQ(output.text(), Error(message));
            EXPECT_EQ(errors.text(), "");
        };
        EXPECT_EQ(LeakedBy(run), filesLeftOpen);
        EXPECT_EQ(ModeOf(path), newMode);
    }

    void expectPrivateKeyFailure(const std::string &message, int mode, int filesLeftOpen,
                                 const Preparation &prepare)
    {
        const auto write = [this] {
            return Crypto().SaveEncPrvKey(Bytes(path), key.get(), Bytes("password"), EVP_aes_256_cbc());
        };
        expectFailure(0400, write, -1, message, mode, prepare, filesLeftOpen);
    }

    void expectPublicKeyFailure(int status, const std::string &message, const Preparation &prepare)
    {
        const auto write = [this] { return Crypto().SavePubKey(Bytes(path), key.get()); };
        expectFailure(0444, write, status, message, 0444, prepare, 0);
    }

    const KeyOwner key = FixedKey(prime256v1, 5);
    TemporaryFolder folder;
    const std::string path = folder / "key.pem";
};

TEST_F(KeyFileUnderFaults, ThePrivateKeyFileStaysOpenAndWritableIfTheWriteFails)
{
    for (const char *function :
         {"EVP_PKEY2PKCS8", "PKCS5_pbe2_set_iv", "PKCS8_set0_pbe", "PEM_write_PKCS8"}) {
        SCOPED_TRACE(function);
        expectPrivateKeyFailure("Error: writing encrypted private Key fails\n", 0226, 1, Failing(function));
        EXPECT_EQ(fs::file_size(path), 0u);
    }
    expectPrivateKeyFailure("Error: writing encrypted private Key fails\n", 0226, 1,
                            Overriding("fflush", EOF));
}

TEST_F(KeyFileUnderFaults, APrivateKeyFileThatCannotBeOpenedOrClosedIsReported)
{
    expectPrivateKeyFailure("Error: creating Key File fails\n", 0400, 0, Failing("fopen"));
    expectPrivateKeyFailure("Error: writing encrypted private Key fails\n", 0226, 0,
                            Overriding("fclose", EOF));
}

TEST_F(KeyFileUnderFaults, ThePublicKeyFileBecomesReadOnlyIfTheWriteFails)
{
    expectPublicKeyFailure(-1, "Error: creating key file fails\n", Failing("fopen"));
    expectPublicKeyFailure(0, "Error: writing key fails\n", Failing("PEM_write_PUBKEY"));
    EXPECT_EQ(ReadFile(path), "");
    for (const char *function : {"fflush", "fclose"}) {
        SCOPED_TRACE(function);
        expectPublicKeyFailure(0, "Error: writing key fails\n", Overriding(function, EOF));
    }
}

TEST_F(KeyFileUnderFaults, TheFileIsWritableUntilItIsClosed)
{
    for (const bool isPrivate : {true, false}) {
        fs::remove(path);
        WriteFile(path, "old");
        fs::permissions(path, fs::perms(0444));
        std::vector<int> modes;
        LibraryFaults faults;
        const char *const writer = isPrivate ? "PEM_write_PKCS8" : "PEM_write_PUBKEY";
        const std::vector<std::string> steps = {"fopen", writer, "fflush", "fclose"};
        for (const std::string &function : steps)
            faults.before(function, [&] { modes.push_back(ModeOf(path)); });
        EXPECT_EQ(isPrivate
                      ? Crypto().SaveEncPrvKey(Bytes(path), key.get(), Bytes("password"), EVP_aes_128_cbc())
                      : Crypto().SavePubKey(Bytes(path), key.get()),
                  1);
        EXPECT_EQ(modes, (std::vector<int>{0226, 0226, 0226, 0226}));
        EXPECT_EQ(ModeOf(path), isPrivate ? 0400 : 0444);
        EXPECT_EQ(faults.callsOf(steps), steps);
    }
}

} // namespace
