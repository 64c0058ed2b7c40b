// Signatures of the base class: with RSA keys, and with stored keys of either type.
#include "src/ec_crypto.h"

#include "tests/support/captured_output.h"
#include "tests/support/library_faults.h"
#include "tests/support/library_memory.h"
#include "tests/support/password_questions.h"
#include "tests/support/private_keys.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"

#include <gtest/gtest.h>

#include <openssl/err.h>
#include <openssl/obj_mac.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int prime256v1 = 415;

const std::string readingLine = Info("Reading Private Key File... \n");
const std::string rsaSuccessLines =
    Info("signature generated\n") + Info("signature verification: ") + Success("SUCCESS \n");
const std::string ecSuccessLines =
    Info("ECDSA signature generated.\n") + Info("Signature verification: ") + Success("SUCCESS \n");
const std::string failLines =
    Info("signature generated\n") + Info("signature verification: ") + Error("FAIL \n");
const std::string decryptionError = Error("Error: reading encrypted private key file fails\n");
const std::string readingError = Error("Error: reading private key file fails\n");
const std::string signingError = Error("Error: signing fails \n");

/// Each test starts and ends with an empty error queue.
class StoredKeys : public testing::Test {
protected:
    ~StoredKeys() override { ERR_clear_error(); }

    TemporaryFolder folder;
};

const std::string digest = Sha256Of("message");

class RsaSign : public StoredKeys {
protected:
    int sign(EVP_PKEY *signer, const unsigned char *data, std::size_t size)
    {
        signature = &untouched;
        signatureSize = 12345;
        CapturedOutput errors(2);
        CapturedOutput output;
        const int status = Crypto().sign(data, size, &signature, &signatureSize, signer);
        printed = output.text();
        EXPECT_EQ(errors.text(), "");
        return status;
    }

    int sign() { return sign(key.get(), Bytes(digest), digest.size()); }

    std::string take()
    {
        if (signature == &untouched)
            return "untouched";
        return TakeBuffer(std::exchange(signature, &untouched), signatureSize);
    }

    void expectNoSignature(EVP_PKEY *signer, const unsigned char *data, std::size_t size,
                           const std::string &message)
    {
        EXPECT_EQ(sign(signer, data, size), -1);
        EXPECT_EQ(printed, Error(message));
        EXPECT_EQ(signature, &untouched);
        EXPECT_EQ(signatureSize, 12345u);
    }

    /// Signs with injected faults, and expects this outcome and no leak.
    void expectOutcome(int status, const std::string &messages,
                       const std::function<void(LibraryFaults &)> &prepare)
    {
        const auto run = [&] {
            LibraryFaults faults;
            prepare(faults);
            EXPECT_EQ(sign(), status);
            EXPECT_EQ(printed, messages);
            EXPECT_EQ(signature == &untouched, status == -1);
            EXPECT_EQ(signatureSize, status == -1 ? 12345u : 256u);
            take();
        };
        EXPECT_EQ(LeakedBy(run), 0);
    }

    const KeyOwner key = StoredKey("rsa2048.pem");
    unsigned char untouched = 0;
    unsigned char *signature = nullptr;
    std::size_t signatureSize = 0;
    std::string printed;
};

TEST_F(RsaSign, MakesASignatureThatTheOpensslToolVerifies)
{
    EXPECT_EQ(sign(), 1);
    EXPECT_EQ(printed, rsaSuccessLines);
    ASSERT_EQ(signatureSize, 256u);
    const std::string first = take();
    EXPECT_TRUE(OpensslAcceptsRsa(key.get(), "message", first));
    EXPECT_FALSE(OpensslAcceptsRsa(key.get(), "massage", first));
    // PKCS#1 v1.5 signatures are deterministic.
    EXPECT_EQ(sign(), 1);
    EXPECT_EQ(take(), first);
}

TEST_F(RsaSign, VerifiesTheSignatureItself)
{
    LibraryFaults faults;
    EXPECT_EQ(sign(), 1);
    take();
    EXPECT_EQ(faults.lastResult("EVP_PKEY_verify"), 1);
    EXPECT_EQ(
        faults.callsOf({"EVP_PKEY_CTX_new", "EVP_PKEY_sign_init", "EVP_PKEY_sign", "CRYPTO_malloc",
                        "EVP_PKEY_verify_init", "EVP_PKEY_verify"}),
        (std::vector<std::string>{"EVP_PKEY_CTX_new", "EVP_PKEY_sign_init", "EVP_PKEY_sign", "CRYPTO_malloc",
                                  "EVP_PKEY_sign", "EVP_PKEY_verify_init", "EVP_PKEY_verify"}));
}

TEST_F(RsaSign, ChecksTheDataAfterAllocatingTheBuffer)
{
    const auto run = [&] {
        expectNoSignature(key.get(), nullptr, digest.size(), "Error: unvalid hash pointer \n");
        LibraryFaults faults;
        faults.fail("CRYPTO_malloc");
        expectNoSignature(key.get(), nullptr, digest.size(), "Error: allocating signature buffer fails\n");
    };
    EXPECT_EQ(LeakedBy(run), 0);
}

TEST_F(RsaSign, EachStepFailsWithItsOwnMessage)
{
    const struct {
        const char *function;
        long result;
        int call;
        const char *message;
    } cases[] = {
        {"EVP_PKEY_CTX_new", 0, 1, "Error: creating signing context fails\n"},
        {"EVP_PKEY_sign_init", 0, 1, "Error: signing init fails\n"},
        {"EVP_PKEY_sign_init", -2, 1, "Error: signing init fails\n"},
        {setPaddingFunction, 0, 1, "Error: RSA padding fails\n"},
        {setPaddingFunction, -1, 1, "Error: RSA padding fails\n"},
        {setDigestFunction, 0, 1, "Error: setting hash algo fails\n"},
        {setDigestFunction, -1, 1, "Error: setting hash algo fails\n"},
        {"EVP_PKEY_sign", 0, 1, "Error: determining signing buffer length fails\n"},
        {"EVP_PKEY_sign", -1, 1, "Error: determining signing buffer length fails\n"},
        {"CRYPTO_malloc", 0, 1, "Error: allocating signature buffer fails\n"},
        {"EVP_PKEY_sign", 0, 2, "Error: creating signature fails\n"},
        {"EVP_PKEY_sign", -1, 2, "Error: creating signature fails\n"},
    };
    for (const auto &[function, result, call, message] : cases) {
        SCOPED_TRACE(std::string(function) + " " + std::to_string(result));
        expectOutcome(-1, Error(message),
                      [&, name = function, value = result, number = call](LibraryFaults &faults) {
                          faults.fail(name, value, number);
                      });
    }
}

TEST_F(RsaSign, FailsWithAKeyThatCannotSign)
{
    const KeyOwner elliptic = FixedKey(prime256v1, 5);
    expectNoSignature(elliptic.get(), Bytes(digest), digest.size(), "Error: RSA padding fails\n");
    expectNoSignature(nullptr, Bytes(digest), digest.size(), "Error: creating signing context fails\n");
    const KeyOwner publicKey = PublicHalf(key.get());
    expectNoSignature(publicKey.get(), Bytes(digest), digest.size(), "Error: creating signature fails\n");
}

TEST_F(RsaSign, SignsOnlyDigestsOf32Bytes)
{
    for (const std::size_t size : {0u, 20u, 31u, 33u, 64u}) {
        const std::string data(size, 'x');
        expectNoSignature(key.get(), Bytes(data), size, "Error: creating signature fails\n");
    }
}

TEST_F(RsaSign, ReportsASignatureThatDoesNotVerify)
{
    expectOutcome(0, failLines, [](LibraryFaults &faults) { faults.overrideResult("EVP_PKEY_verify", 0); });

    LibraryFaults faults;
    faults.before("EVP_PKEY_verify", [&] { signature[100] ^= 1; });
    EXPECT_EQ(sign(), 0);
    EXPECT_EQ(printed, failLines);
    ASSERT_EQ(signatureSize, 256u);
    EXPECT_EQ(faults.lastResult("EVP_PKEY_verify"), 0);
    EXPECT_FALSE(OpensslAcceptsRsa(key.get(), "message", take()));
}

TEST_F(RsaSign, CountsAVerificationErrorAsSuccess)
{
    for (const long result : {-1L, -2L, 2L})
        expectOutcome(1, rsaSuccessLines,
                      [=](LibraryFaults &faults) { faults.overrideResult("EVP_PKEY_verify", result); });
    expectOutcome(1, rsaSuccessLines, [](LibraryFaults &faults) {
        faults.fail("EVP_PKEY_verify_init", 0);
        faults.fail("EVP_PKEY_verify", -1);
    });
}

class GenerateSignature : public StoredKeys {
protected:
    int generate(Crypto &engine, const std::string &path, const std::string &data,
                 const std::string &password = storedPassword)
    {
        signature = &untouched;
        size = 12345;
        const PasswordQuestions questions(storedPassword);
        CapturedOutput errors(2);
        CapturedOutput output;
        const int status = engine.GenerateSignature(Bytes(data), data.size(), Bytes(path), Bytes(password),
                                                    &signature, &size);
        printed = output.text();
        EXPECT_EQ(errors.text(), "");
        EXPECT_EQ(questions.count(), 0);
        return status;
    }

    std::string take() { return TakeBuffer(std::exchange(signature, &untouched), size); }

    void expectFailure(
        const std::string &path, const std::string &password, const std::string &messages,
        const std::function<void(LibraryFaults &)> &prepare = [](LibraryFaults &) {})
    {
        for (const bool elliptic : {false, true}) {
            const auto run = [&] {
                Crypto rsaEngine;
                EC_Crypto ecEngine(prime256v1);
                Crypto &engine = elliptic ? ecEngine : rsaEngine;
                LibraryFaults faults;
                prepare(faults);
                EXPECT_EQ(generate(engine, path, "data", password), -1);
                EXPECT_EQ(printed, readingLine + messages);
                EXPECT_EQ(signature, &untouched);
                EXPECT_EQ(size, 12345u);
                EXPECT_EQ(faults.calls("fflush(stdout)"), 0);
            };
            EXPECT_EQ(LeakedBy(run), 0);
        }
    }

    unsigned char untouched = 0;
    unsigned char *signature = nullptr;
    std::size_t size = 0;
    std::string printed;
};

TEST_F(GenerateSignature, SignsWithKeysMadeByTheOpensslTool)
{
    const std::string data("data\0with a zero byte", 21);
    for (const std::string &name : storedNames) {
        const KeyOwner key = StoredKey(name + ".pem");
        const bool elliptic = name != "rsa2048";
        for (const auto &each : storedForms) {
            const std::string path = StoredKeyPath(name + "." + each.first);
            SCOPED_TRACE(path);
            std::string made;
            const auto run = [&] {
                Crypto rsaEngine;
                EC_Crypto ecEngine;
                Crypto &engine = elliptic ? ecEngine : rsaEngine;
                EXPECT_EQ(generate(engine, path, data), 1);
                EXPECT_EQ(printed, readingLine + (elliptic ? ecSuccessLines : rsaSuccessLines));
                EXPECT_EQ(size, elliptic ? 64u : 256u);
                made = take();
            };
            EXPECT_EQ(LeakedBy(run), 0);
            EXPECT_TRUE(elliptic ? OpensslAcceptsEcdsa(key.get(), Sha256Of(data), EncodedSignature(made))
                                 : OpensslAcceptsRsa(key.get(), data, made));
        }
    }
}

TEST_F(GenerateSignature, SignsWithKeysMadeByTheEngine)
{
    const std::string path = folder / "private.pem";
    for (const int nid : {NID_X9_62_prime256v1, NID_brainpoolP256t1}) {
        EC_Crypto engine(nid);
        CapturedOutput output;
        ASSERT_EQ(engine.GenerateKeys(Bytes(path), Bytes(folder / "public.pem"), Bytes(folder / "hash.bin"),
                                      Bytes("password"), AES256_CBC),
                  1);
        output.text();
        EXPECT_EQ(generate(engine, path, "data", "password"), 1);
        EXPECT_EQ(printed, readingLine + ecSuccessLines);
        EVP_PKEY *key = nullptr;
        ASSERT_EQ(engine.ReadPubKey(Bytes(folder / "public.pem"), &key), 1);
        const KeyOwner owner(key);
        EXPECT_TRUE(OpensslAcceptsEcdsa(key, Sha256Of("data"), EncodedSignature(take())));
    }
}

TEST_F(GenerateSignature, SignsDataOfAnyLength)
{
    const KeyOwner key = StoredKey("prime256v1.pem");
    EC_Crypto engine;
    for (const std::size_t length : {0u, 1000000u}) {
        std::string data(length, '\0');
        if (length > 0)
            data.back() = 'x';
        EXPECT_EQ(generate(engine, StoredKeyPath("prime256v1.aes256.pem"), data), 1);
        EXPECT_TRUE(OpensslAcceptsEcdsa(key.get(), Sha256Of(data), EncodedSignature(take())));
    }
}

TEST_F(GenerateSignature, FailsIfTheKeyCannotBeRead)
{
    const std::string missing = folder / "missing.pem";
    expectFailure(missing, storedPassword, CannotOpen(missing) + readingError);
    expectFailure(StoredKeyPath("prime256v1.aes256.pem"), "wrong horse", decryptionError + readingError);
    expectFailure(StoredKeyPath("prime256v1.public.pem"), storedPassword, decryptionError + readingError);
}

TEST_F(GenerateSignature, FailsWithAKeyOfTheOtherType)
{
    Crypto rsaEngine;
    EXPECT_EQ(generate(rsaEngine, StoredKeyPath("prime256v1.aes256.pem"), "data"), -1);
    EXPECT_EQ(printed, readingLine + Error("Error: RSA padding fails\n") + signingError);
    EC_Crypto ecEngine;
    EXPECT_EQ(generate(ecEngine, StoredKeyPath("rsa2048.aes256.pem"), "data"), -1);
    EXPECT_EQ(printed,
              readingLine + Error("Error: determining signing buffer length fails \n") + signingError);
}

TEST_F(GenerateSignature, FailsIfAnAllocationFails)
{
    const struct {
        int call;
        std::string messages;
    } cases[] = {
        {1, Error("Error: allocating signature buffer fails \n")},
        {2, Error("Error: allocating signature buffer fails\n") + signingError},
    };
    for (const auto &[call, messages] : cases) {
        const auto run = [&, number = call, expected = messages] {
            Crypto engine;
            LibraryFaults faults;
            faults.fail("CRYPTO_malloc", 0, number);
            EXPECT_EQ(generate(engine, StoredKeyPath("rsa2048.aes256.pem"), "data"), -1);
            EXPECT_EQ(printed, readingLine + expected);
            EXPECT_EQ(signature, &untouched);
            EXPECT_EQ(size, 12345u);
        };
        EXPECT_EQ(LeakedBy(run), 0);
    }
}

TEST_F(GenerateSignature, FailsButReturnsASignatureThatDoesNotVerify)
{
    const auto run = [&] {
        Crypto engine;
        LibraryFaults faults;
        faults.overrideResult("EVP_PKEY_verify", 0);
        EXPECT_EQ(generate(engine, StoredKeyPath("rsa2048.aes256.pem"), "data"), -1);
        EXPECT_EQ(printed, readingLine + failLines + signingError);
        ASSERT_EQ(size, 256u);
        take();
        EXPECT_EQ(faults.calls("fflush(stdout)"), 0);
    };
    EXPECT_EQ(LeakedBy(run), 0);
}

TEST_F(GenerateSignature, SignsOnlyACompleteDigest)
{
    const std::pair<const char *, std::string> cases[] = {
        {"EVP_sha256", Error("unknown message digest ")},
        {"EVP_MD_CTX_new", Error("unknown message digest ")},
        {"EVP_MD_CTX_reset", ""},
        {"EVP_DigestInit_ex", ""},
        {"EVP_DigestUpdate", ""},
        {"EVP_DigestFinal_ex", ""},
    };
    const auto fail = [](const char *function) {
        return [=](LibraryFaults &faults) { faults.fail(function); };
    };
    for (const auto &[function, message] : cases) {
        SCOPED_TRACE(function);
        expectFailure(StoredKeyPath("prime256v1.aes256.pem"), storedPassword, message + signingError,
                      fail(function));
        expectFailure(StoredKeyPath("rsa2048.aes256.pem"), storedPassword, message + signingError,
                      fail(function));
    }
    for (const unsigned int wrongLength : {0u, 20u, 31u, 33u}) {
        expectFailure(StoredKeyPath("prime256v1.aes256.pem"), storedPassword, signingError,
                      [=](LibraryFaults &faults) {
                          faults.replace<decltype(EVP_DigestFinal_ex)>(
                              "EVP_DigestFinal_ex",
                              [=](EVP_MD_CTX *context, unsigned char *digestBytes, unsigned int *length) {
                                  const int status = EVP_DigestFinal_ex(context, digestBytes, length);
                                  *length = wrongLength;
                                  return status;
                              });
                      });
    }
}

/// An engine that records what it is asked to sign.
class RecordingEngine : public EC_Crypto {
public:
    int sign(const unsigned char *data, size_t len, unsigned char **sig, size_t *siglen,
             EVP_PKEY *key) override
    {
        signedData.assign(reinterpret_cast<const char *>(data), len);
        point = PointOf(key);
        *siglen = 3;
        place = sig;
        return status;
    }

    int status = 1;
    std::string signedData;
    std::string point;
    unsigned char **place = nullptr;
};

TEST_F(GenerateSignature, SignsThe32BytesOfTheDigestWithTheEnginesOwnOperation)
{
    const KeyOwner key = StoredKey("prime256v1.pem");
    RecordingEngine engine;
    for (const int status : {1, 0, -1, 2}) {
        engine.status = status;
        LibraryFaults faults;
        EXPECT_EQ(generate(engine, StoredKeyPath("prime256v1.aes128.pem"), "data"), status == 1 ? 1 : -1);
        EXPECT_EQ(printed, readingLine + (status == 1 ? "" : signingError));
        EXPECT_EQ(engine.signedData, Sha256Of("data"));
        EXPECT_EQ(engine.point, PointOf(key.get()));
        EXPECT_EQ(engine.place, &signature);
        EXPECT_EQ(size, 3u);
        EXPECT_EQ(faults.calls("fflush(stdout)"), status == 1 ? 1 : 0);
    }
}

TEST_F(GenerateSignature, FlushesItsMessages)
{
    CapturedOutput output;
    EXPECT_EQ(Crypto().GenerateSignature(Bytes("data"), 4, Bytes(StoredKeyPath("rsa2048.aes256.pem")),
                                         Bytes(storedPassword), &signature, &size),
              1);
    EXPECT_EQ(output.flushedText(), readingLine + rsaSuccessLines);
    take();
}

} // namespace
