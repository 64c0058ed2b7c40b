// What the writers print, return, release and leave on disk when a library call fails.
#include "src/ec_crypto.h"

#include "tests/support/captured_output.h"
#include "tests/support/library_faults.h"
#include "tests/support/library_memory.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"

#include <gtest/gtest.h>

#include <openssl/err.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int prime256v1 = 415;

using Preparation = std::function<void(LibraryFaults &)>;

const std::string plainLine = "Error: converting public Key to DER Format fails \n";
const std::string hashError = Error("Error : calculating public Key (DER Format) hash fails\n");
const std::string formerHashError = Error("Error: calculating PubKey hash fails\n");

/// Writing the hash file of a key, with injected faults.
class HashFileUnderFaults : public testing::Test {
protected:
    ~HashFileUnderFaults() override { ERR_clear_error(); }

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
    expectFailure(Error("Error: allocating buffer for PubKey hash fails\n"),
                  [](LibraryFaults &faults) { faults.fail("CRYPTO_malloc"); });
    expectOldFile();
}

TEST_F(HashFileUnderFaults, TheOldFileIsKeptIfTheEncodingFails)
{
    expectFailure(Error("Error: extracting public key fails\n") + plainLine + formerHashError,
                  [](LibraryFaults &faults) { faults.fail("i2d_PUBKEY"); });
    expectOldFile();
    expectFailure(Error("Error: creating buffer for DER fromat public key fails\n") + plainLine +
                      formerHashError,
                  [](LibraryFaults &faults) { faults.fail("CRYPTO_malloc", 0, 2); });
    expectOldFile();
    expectFailure(Error("Error: creating DER fromat public key fails\n") + plainLine + formerHashError,
                  [](LibraryFaults &faults) { faults.fail("i2d_PUBKEY", -1, 2); });
    expectOldFile();
}

TEST_F(HashFileUnderFaults, TheOldFileIsKeptIfTheDigestFails)
{
    for (const char *function : {"EVP_sha256", "EVP_MD_CTX_new"}) {
        expectFailure(Error("unknown message digest ") + hashError + formerHashError,
                      [=](LibraryFaults &faults) { faults.fail(function); });
        expectOldFile();
    }
    // No file may contain a hash that was never computed.
    for (const char *function :
         {"EVP_MD_CTX_reset", "EVP_DigestInit_ex", "EVP_DigestUpdate", "EVP_DigestFinal_ex"}) {
        SCOPED_TRACE(function);
        expectFailure(hashError + formerHashError, [=](LibraryFaults &faults) { faults.fail(function); });
        expectOldFile();
    }
}

TEST_F(HashFileUnderFaults, TheMessageNamesTheFileIfItCannotBeWritten)
{
    expectFailure(CannotOpen(path), [](LibraryFaults &faults) { faults.fail("fopen"); });
    EXPECT_EQ(ModeOf(path), 0444);
    EXPECT_EQ(ReadFile(path), "old");
}

TEST_F(HashFileUnderFaults, TheMessageNamesTheFileIfItIsNotWrittenWholeAndTheFileIsReadOnly)
{
    expectFailure(CannotOpen(path), [](LibraryFaults &faults) { faults.fail("fflush", EOF); });
    EXPECT_EQ(ModeOf(path), 0444);
    expectFailure(CannotOpen(path), [](LibraryFaults &faults) { faults.overrideResult("fclose", EOF); });
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
    EXPECT_EQ(faults.callsOf({"i2d_PUBKEY", "EVP_DigestFinal_ex", "fopen", "fwrite", "fflush", "fclose"}),
              (std::vector<std::string>{"i2d_PUBKEY", "i2d_PUBKEY", "EVP_DigestFinal_ex", "fopen", "fwrite",
                                        "fflush", "fclose"}));
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
    ~KeyFileUnderFaults() override { ERR_clear_error(); }

    void expectPrivateKeyFailure(const std::string &message, int mode, int filesLeftOpen,
                                 const Preparation &prepare)
    {
        const auto run = [&] {
            fs::remove(path);
            WriteFile(path, "old");
            fs::permissions(path, fs::perms(0400));
            LibraryFaults faults;
            prepare(faults);
            CapturedOutput errors(2);
            CapturedOutput output;
            EXPECT_EQ(Crypto().SaveEncPrvKey(Bytes(path), key.get(), Bytes("password"), EVP_aes_256_cbc()),
                      -1);
            EXPECT_EQ(output.text(), Error(message));
            EXPECT_EQ(errors.text(), "");
        };
        EXPECT_EQ(LeakedBy(run), filesLeftOpen);
        EXPECT_EQ(ModeOf(path), mode);
    }

    void expectPublicKeyFailure(int status, const std::string &message, int mode, const Preparation &prepare)
    {
        const auto run = [&] {
            fs::remove(path);
            WriteFile(path, "old");
            fs::permissions(path, fs::perms(0444));
            LibraryFaults faults;
            prepare(faults);
            CapturedOutput errors(2);
            CapturedOutput output;
            EXPECT_EQ(Crypto().SavePubKey(Bytes(path), key.get()), status);
            EXPECT_EQ(output.text(), Error(message));
            EXPECT_EQ(errors.text(), "");
        };
        EXPECT_EQ(LeakedBy(run), 0);
        EXPECT_EQ(ModeOf(path), mode);
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
        expectPrivateKeyFailure("Error: writing encrypted private Key fails\n", 0226, 1,
                                [=](LibraryFaults &faults) { faults.fail(function); });
        EXPECT_EQ(fs::file_size(path), 0u);
    }
    expectPrivateKeyFailure("Error: writing encrypted private Key fails\n", 0226, 1,
                            [](LibraryFaults &faults) { faults.overrideResult("fflush", EOF); });
}

TEST_F(KeyFileUnderFaults, APrivateKeyFileThatCannotBeOpenedOrClosedIsReported)
{
    expectPrivateKeyFailure("Error: creating Key File fails\n", 0400, 0,
                            [](LibraryFaults &faults) { faults.fail("fopen"); });
    expectPrivateKeyFailure("Error: writing encrypted private Key fails\n", 0226, 0,
                            [](LibraryFaults &faults) { faults.overrideResult("fclose", EOF); });
}

TEST_F(KeyFileUnderFaults, ThePublicKeyFileBecomesReadOnlyIfTheWriteFails)
{
    expectPublicKeyFailure(-1, "Error: creating key file fails\n", 0444,
                           [](LibraryFaults &faults) { faults.fail("fopen"); });
    expectPublicKeyFailure(0, "Error: writing key fails\n", 0444,
                           [](LibraryFaults &faults) { faults.fail("PEM_write_PUBKEY"); });
    EXPECT_EQ(ReadFile(path), "");
    for (const char *function : {"fflush", "fclose"}) {
        SCOPED_TRACE(function);
        expectPublicKeyFailure(0, "Error: writing key fails\n", 0444,
                               [=](LibraryFaults &faults) { faults.overrideResult(function, EOF); });
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
        for (const char *function : {"fopen", writer, "fflush", "fclose"})
            faults.before(function, [&] { modes.push_back(ModeOf(path)); });
        EXPECT_EQ(isPrivate
                      ? Crypto().SaveEncPrvKey(Bytes(path), key.get(), Bytes("password"), EVP_aes_128_cbc())
                      : Crypto().SavePubKey(Bytes(path), key.get()),
                  1);
        EXPECT_EQ(modes, (std::vector<int>{0226, 0226, 0226, 0226}));
        EXPECT_EQ(ModeOf(path), isPrivate ? 0400 : 0444);
        EXPECT_EQ(faults.callsOf({"fopen", writer, "fflush", "fclose"}),
                  (std::vector<std::string>{"fopen", writer, "fflush", "fclose"}));
    }
}

} // namespace
