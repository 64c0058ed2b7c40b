// Signatures of the base class: with RSA keys, and with stored keys of either type.
#include "src/ec_crypto.h"

#include "tests/support/buffer_call.h"
#include "tests/support/captured_output.h"
#include "tests/support/library_faults.h"
#include "tests/support/library_memory.h"
#include "tests/support/password_questions.h"
#include "tests/support/private_keys.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

namespace {

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

const std::string digest = Sha256Of("message");

class RsaSign : public testing::Test {
protected:
    static BufferCall sign(EVP_PKEY *signer, const unsigned char *data, std::size_t size)
    {
        return BufferCall([&](unsigned char **signature, std::size_t *signatureSize) {
            return Crypto().sign(data, size, signature, signatureSize, signer);
        });
    }

    BufferCall sign() const { return sign(key.get(), Bytes(digest), digest.size()); }

    static void expectNoSignature(EVP_PKEY *signer, const unsigned char *data, std::size_t size,
                                  const std::string &message)
    {
        const BufferCall call = sign(signer, data, size);
        EXPECT_EQ(call.status, -1);
        EXPECT_EQ(call.printed, Error(message));
        EXPECT_TRUE(call.isUntouched());
    }

    /// Signs with injected faults, and expects this outcome and no leak.
    void expectOutcome(int status, const std::string &messages, const Preparation &prepare) const
    {
        const auto run = [&] {
            LibraryFaults faults;
            prepare(faults);
            const BufferCall call = sign();
            EXPECT_EQ(call.status, status);
            EXPECT_EQ(call.printed, messages);
            EXPECT_EQ(call.isUntouched(), status == -1);
            EXPECT_TRUE(status == -1 || call.size == 256);
        };
        EXPECT_EQ(LeakedBy(run), 0);
    }

    const KeyOwner key = StoredKey("rsa2048.pem");
};

TEST_F(RsaSign, MakesASignatureThatTheOpensslToolVerifies)
{
    LibraryFaults faults;
    const BufferCall call = sign();
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.printed, rsaSuccessLines);
    ASSERT_EQ(call.size, 256u);
    EXPECT_TRUE(OpensslAcceptsRsa(key.get(), "message", call.bytes()));
    EXPECT_FALSE(OpensslAcceptsRsa(key.get(), "massage", call.bytes()));
    const std::vector<std::string> steps = {"EVP_PKEY_CTX_new", "EVP_PKEY_sign_init", "EVP_PKEY_sign",
                                            "CRYPTO_malloc",    "EVP_PKEY_sign",      "EVP_PKEY_verify_init",
                                            "EVP_PKEY_verify"};
    EXPECT_EQ(faults.callsOf(steps), steps);
    EXPECT_EQ(faults.lastResult("EVP_PKEY_verify"), 1);
    // PKCS#1 v1.5 signatures are deterministic.
    EXPECT_EQ(sign().bytes(), call.bytes());
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
        expectOutcome(-1, Error(message), Failing(function, result, call));
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
    expectOutcome(0, failLines, Overriding("EVP_PKEY_verify", 0));

    LibraryFaults faults;
    const BufferCall call([&](unsigned char **signature, std::size_t *size) {
        faults.before("EVP_PKEY_verify", [=] { (*signature)[100] ^= 1; });
        return Crypto().sign(Bytes(digest), digest.size(), signature, size, key.get());
    });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.printed, failLines);
    ASSERT_EQ(call.size, 256u);
    EXPECT_EQ(faults.lastResult("EVP_PKEY_verify"), 0);
    EXPECT_FALSE(OpensslAcceptsRsa(key.get(), "message", call.bytes()));
}

TEST_F(RsaSign, CountsAVerificationErrorAsSuccess)
{
    for (const long result : {-1L, -2L, 2L})
        expectOutcome(1, rsaSuccessLines, Overriding("EVP_PKEY_verify", result));
    expectOutcome(1, rsaSuccessLines, [](LibraryFaults &faults) {
        faults.fail("EVP_PKEY_verify_init", 0);
        faults.fail("EVP_PKEY_verify", -1);
    });
}

BufferCall generatedSignature(Crypto &engine, const std::string &path, const std::string &data,
                              const std::string &password = storedPassword)
{
    return BufferCall([&](unsigned char **signature, std::size_t *size) {
        const PasswordQuestions questions(storedPassword);
        const int status =
            engine.GenerateSignature(Bytes(data), data.size(), Bytes(path), Bytes(password), signature, size);
        EXPECT_EQ(questions.count(), 0);
        return status;
    });
}

/// Expects the failure, and no signature, of engines of both types.
void expectNoSignature(
    const std::string &path, const std::string &password, const std::string &messages,
    const Preparation &prepare = [](LibraryFaults &) {})
{
    Crypto rsaEngine;
    EC_Crypto ecEngine;
    for (Crypto *const engine : {&rsaEngine, static_cast<Crypto *>(&ecEngine)}) {
        const auto run = [&] {
            LibraryFaults faults;
            prepare(faults);
            const BufferCall call = generatedSignature(*engine, path, "data", password);
            EXPECT_EQ(call.status, -1);
            EXPECT_EQ(call.printed, readingLine + messages);
            EXPECT_EQ(call.flushed, "");
            EXPECT_TRUE(call.isUntouched());
        };
        EXPECT_EQ(LeakedBy(run), 0);
    }
}

const std::string rsaKeyPath = StoredKeyPath("rsa2048.aes256.pem");
const std::string ecKeyPath = StoredKeyPath("prime256v1.aes256.pem");

TEST(GenerateSignature, SignsWithKeysMadeByTheOpensslTool)
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
                const BufferCall call = generatedSignature(elliptic ? ecEngine : rsaEngine, path, data);
                EXPECT_EQ(call.status, 1);
                EXPECT_EQ(call.printed, readingLine + (elliptic ? ecSuccessLines : rsaSuccessLines));
                EXPECT_EQ(call.flushed, call.printed);
                EXPECT_EQ(call.size, elliptic ? 64u : 256u);
                made = call.bytes();
            };
            EXPECT_EQ(LeakedBy(run), 0);
            EXPECT_TRUE(elliptic ? OpensslAcceptsEcdsa(key.get(), Sha256Of(data), EncodedSignature(made))
                                 : OpensslAcceptsRsa(key.get(), data, made));
        }
    }
}

TEST(GenerateSignature, SignsWithKeysMadeByTheEngine)
{
    const TemporaryFolder folder;
    const std::string path = folder / "private.pem";
    const std::string publicPath = folder / "public.pem";
    for (const int nid : {prime256v1, brainpoolP256t1}) {
        EC_Crypto engine(nid);
        CapturedOutput output;
        ASSERT_EQ(engine.GenerateKeys(Bytes(path), Bytes(publicPath), Bytes(folder / "hash.bin"),
                                      Bytes("password"), AES256_CBC),
                  1);
        output.text();
        const BufferCall call = generatedSignature(engine, path, "data", "password");
        EXPECT_EQ(call.status, 1);
        EVP_PKEY *key = nullptr;
        ASSERT_EQ(engine.ReadPubKey(Bytes(publicPath), &key), 1);
        const KeyOwner owner(key);
        EXPECT_TRUE(OpensslAcceptsEcdsa(key, Sha256Of("data"), EncodedSignature(call.bytes())));
    }
}

TEST(GenerateSignature, SignsDataOfAnyLength)
{
    const KeyOwner key = StoredKey("prime256v1.pem");
    EC_Crypto engine;
    for (const std::string &data : {std::string(), std::string(999999, '\0') + "x"}) {
        const BufferCall call = generatedSignature(engine, ecKeyPath, data);
        EXPECT_EQ(call.status, 1);
        EXPECT_TRUE(OpensslAcceptsEcdsa(key.get(), Sha256Of(data), EncodedSignature(call.bytes())));
    }
}

TEST(GenerateSignature, FailsIfTheKeyCannotBeRead)
{
    const TemporaryFolder folder;
    const std::string missing = folder / "missing.pem";
    expectNoSignature(missing, storedPassword, CannotOpen(missing) + readingError);
    expectNoSignature(ecKeyPath, "wrong horse", decryptionError + readingError);
    expectNoSignature(StoredKeyPath("prime256v1.public.pem"), storedPassword, decryptionError + readingError);
}

TEST(GenerateSignature, FailsWithAKeyOfTheOtherType)
{
    Crypto rsaEngine;
    const BufferCall rsa = generatedSignature(rsaEngine, ecKeyPath, "data");
    EXPECT_EQ(rsa.status, -1);
    EXPECT_EQ(rsa.printed, readingLine + Error("Error: RSA padding fails\n") + signingError);
    EC_Crypto ecEngine;
    const BufferCall ec = generatedSignature(ecEngine, rsaKeyPath, "data");
    EXPECT_EQ(ec.status, -1);
    EXPECT_EQ(ec.printed,
              readingLine + Error("Error: determining signing buffer length fails \n") + signingError);
}

TEST(GenerateSignature, FailsIfAnAllocationFails)
{
    expectNoSignature(rsaKeyPath, storedPassword, Error("Error: allocating signature buffer fails \n"),
                      Failing("CRYPTO_malloc"));
    const auto run = [] {
        Crypto engine;
        LibraryFaults faults;
        faults.fail("CRYPTO_malloc", 0, 2);
        const BufferCall call = generatedSignature(engine, rsaKeyPath, "data");
        EXPECT_EQ(call.status, -1);
        EXPECT_EQ(call.printed,
                  readingLine + Error("Error: allocating signature buffer fails\n") + signingError);
        EXPECT_TRUE(call.isUntouched());
    };
    EXPECT_EQ(LeakedBy(run), 0);
}

TEST(GenerateSignature, FailsButReturnsASignatureThatDoesNotVerify)
{
    const auto run = [] {
        Crypto engine;
        LibraryFaults faults;
        faults.overrideResult("EVP_PKEY_verify", 0);
        const BufferCall call = generatedSignature(engine, rsaKeyPath, "data");
        EXPECT_EQ(call.status, -1);
        EXPECT_EQ(call.printed, readingLine + failLines + signingError);
        EXPECT_EQ(call.flushed, "");
        EXPECT_TRUE(call.returnsBuffer());
        EXPECT_EQ(call.size, 256u);
    };
    EXPECT_EQ(LeakedBy(run), 0);
}

TEST(GenerateSignature, SignsOnlyACompleteDigest)
{
    for (const char *function : {"EVP_sha256", "EVP_MD_CTX_new"}) {
        SCOPED_TRACE(function);
        expectNoSignature(ecKeyPath, storedPassword, Error("unknown message digest ") + signingError,
                          Failing(function));
    }
    for (const char *function :
         {"EVP_MD_CTX_reset", "EVP_DigestInit_ex", "EVP_DigestUpdate", "EVP_DigestFinal_ex"}) {
        SCOPED_TRACE(function);
        expectNoSignature(ecKeyPath, storedPassword, signingError, Failing(function));
    }
    for (const unsigned int wrongLength : {0u, 20u, 31u, 33u}) {
        SCOPED_TRACE(wrongLength);
        expectNoSignature(ecKeyPath, storedPassword, signingError, [=](LibraryFaults &faults) {
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

TEST(GenerateSignature, SignsThe32BytesOfTheDigestWithTheEnginesOwnOperation)
{
    const KeyOwner key = StoredKey("prime256v1.pem");
    RecordingEngine engine;
    for (const int status : {1, 0, -1, 2}) {
        engine.status = status;
        const BufferCall call = generatedSignature(engine, ecKeyPath, "data");
        EXPECT_EQ(call.status, status == 1 ? 1 : -1);
        EXPECT_EQ(call.printed, readingLine + (status == 1 ? "" : signingError));
        EXPECT_EQ(call.flushed, status == 1 ? call.printed : "");
        EXPECT_EQ(engine.signedData, Sha256Of("data"));
        EXPECT_EQ(engine.point, PointOf(key.get()));
        EXPECT_EQ(engine.place, &call.buffer);
        EXPECT_EQ(call.size, 3u);
    }
}

} // namespace
