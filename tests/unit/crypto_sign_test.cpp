// Stored keys: reading them back, and signing with them.
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
#include <openssl/pem.h>

#include <cstdio>
#include <cstring>
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

std::string openErrors(const std::string &path)
{
    return Error("Error: Reading Device file fails: ") + Error(path) + Error("\n");
}

/// Every test starts and ends with an empty error queue.
class StoredKeys : public testing::Test {
protected:
    ~StoredKeys() override { ERR_clear_error(); }

    /// Writes `content` to a file of its own and returns the path.
    std::string file(const std::string &content)
    {
        const std::string path = folder / "key.pem";
        fs::remove(path);
        WriteFile(path, content);
        return path;
    }

    TemporaryFolder folder;
};

/// Every form that a private key file may have; the second part tells whether it is encrypted.
const std::vector<std::pair<std::string, bool>> forms = {
    {"pem", false},
    {"aes128.pem", true},
    {"aes256.pem", true},
    {"traditional.pem", false},
    {"traditional.aes128.pem", true},
    {"traditional.aes256.pem", true},
};

const std::vector<std::string> storedNames = {"rsa2048", "prime256v1", "brainpoolP256t1"};

void expectSameKey(EVP_PKEY *key, EVP_PKEY *expected)
{
    ASSERT_NE(key, nullptr);
    const TemporaryFolder folder;
    EXPECT_EQ(Crypto().SavePrvKey(Bytes(folder / "key.pem"), key), 1);
    EXPECT_EQ(Crypto().SavePrvKey(Bytes(folder / "expected.pem"), expected), 1);
    EXPECT_EQ(ReadFile(folder / "key.pem"), ReadFile(folder / "expected.pem"));
}

class ReadEncPrvKey : public StoredKeys {
protected:
    void expectKey(const std::string &path, const std::string &password, EVP_PKEY *expected)
    {
        SCOPED_TRACE(path);
        const PasswordQuestions questions;
        EVP_PKEY *key = nullptr;
        CapturedOutput errors(2);
        CapturedOutput output;
        EXPECT_EQ(Crypto().ReadEncPrvKey(Bytes(path), &key, Bytes(password)), 1);
        const KeyOwner owner(key);
        EXPECT_EQ(output.text(), "");
        EXPECT_EQ(errors.text(), "");
        expectSameKey(key, expected);
        EXPECT_EQ(questions.count(), 0);
    }

    void expectNoKey(const std::string &path, const std::string &password, const std::string &messages)
    {
        SCOPED_TRACE(path);
        const auto run = [&] {
            const PasswordQuestions questions(storedPassword);
            const KeyOwner old = FixedKey(prime256v1, 7);
            EVP_PKEY *key = old.get();
            CapturedOutput errors(2);
            CapturedOutput output;
            EXPECT_EQ(Crypto().ReadEncPrvKey(Bytes(path), &key, Bytes(password)), -1);
            EXPECT_EQ(key, nullptr);
            EXPECT_EQ(output.text(), messages);
            EXPECT_EQ(errors.text(), "");
            EXPECT_EQ(questions.count(), 0);
        };
        EXPECT_EQ(LeftBehindBy(run), 0);
    }
};

TEST_F(ReadEncPrvKey, ReadsEveryFormThatTheOpensslToolWrites)
{
    for (const std::string &name : storedNames) {
        const KeyOwner expected = StoredKey(name + ".pem");
        for (const auto &[form, encrypted] : forms)
            expectKey(StoredKeyPath(name + "." + form), storedPassword, expected.get());
    }
}

TEST_F(ReadEncPrvKey, ReadsTheKeyBehindABlockOfParameters)
{
    const KeyOwner expected = StoredKey("prime256v1.parameters-first.pem");
    expectKey(StoredKeyPath("prime256v1.parameters-first.pem"), storedPassword, expected.get());
}

TEST_F(ReadEncPrvKey, ReadsWhatTheEngineWrites)
{
    for (const std::string &name : storedNames) {
        const KeyOwner key = StoredKey(name + ".pem");
        for (const EVP_CIPHER *cipher : {EVP_aes_128_cbc(), EVP_aes_256_cbc()}) {
            const std::string path = folder / "key.pem";
            const std::string password = "pass \xE2\x82\xAC word";
            ASSERT_EQ(Crypto().SaveEncPrvKey(Bytes(path), key.get(), Bytes(password), cipher), 1);
            expectKey(path, password, key.get());
        }
        ASSERT_EQ(Crypto().SavePrvKey(Bytes(folder / "plain.pem"), key.get()), 1);
        expectKey(folder / "plain.pem", "", key.get());
    }
}

TEST_F(ReadEncPrvKey, OpensNothingWithAnotherPassword)
{
    for (const std::string &name : storedNames) {
        for (const auto &[form, encrypted] : forms) {
            if (!encrypted)
                continue;
            for (const char *password : {"correct horsf", "correct hors", "correct horse ", ""})
                expectNoKey(StoredKeyPath(name + "." + form), password, decryptionError);
        }
    }
}

TEST_F(ReadEncPrvKey, SetsTheKeyToNullBeforeItOpensTheFile)
{
    const std::string missing = folder / "missing é.pem";
    expectNoKey(missing, storedPassword, openErrors(missing));
}

TEST_F(ReadEncPrvKey, FailsOnFilesWithoutAPrivateKey)
{
    const std::string encrypted = ReadFile(StoredKeyPath("prime256v1.aes256.pem"));
    const std::string traditional = ReadFile(StoredKeyPath("rsa2048.traditional.aes128.pem"));
    const std::string plain = ReadFile(StoredKeyPath("prime256v1.pem"));
    const std::string elliptic =
        ContentOfPemFile("EC PRIVATE KEY", ReadFile(StoredKeyPath("prime256v1.traditional.pem")));
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"empty", ""},
        {"no block", "no key here\n"},
        {"zero bytes", std::string(4096, '\0')},
        {"truncated", encrypted.substr(0, encrypted.size() / 2)},
        {"without its last line", encrypted.substr(0, encrypted.rfind("-----END"))},
        {"truncated traditional", traditional.substr(0, traditional.size() / 2)},
        {"truncated plain", plain.substr(0, plain.size() / 2)},
        {"public key", ReadFile(StoredKeyPath("prime256v1.public.pem"))},
        {"certificate", ReadFile(TestData("certificate.pem"))},
        {"encrypted nonsense", PemFile("ENCRYPTED PRIVATE KEY", "nonsense")},
        {"plain nonsense", PemFile("PRIVATE KEY", "nonsense")},
        {"elliptic nonsense", PemFile("EC PRIVATE KEY", "nonsense")},
        {"rsa nonsense", PemFile("RSA PRIVATE KEY", "nonsense")},
        {"dsa nonsense", PemFile("DSA PRIVATE KEY", "nonsense")},
        {"key of another kind than its label", PemFile("RSA PRIVATE KEY", elliptic)},
        {"unknown kind", PemFile("ODD PRIVATE KEY", elliptic)},
        {"kind without a form of its own", PemFile("X25519 PRIVATE KEY", elliptic)},
        {"label in other letters", PemFile("ec private key", elliptic)},
        {"bare encoding", elliptic},
    };
    for (const auto &[name, content] : cases) {
        SCOPED_TRACE(name);
        expectNoKey(file(content), storedPassword, decryptionError);
    }
}

TEST_F(ReadEncPrvKey, ReadsKeysOfOtherKinds)
{
    // Ed25519, the example of RFC 8410.
    const std::string encoding = FromHex(
        "302E020100300506032B657004220420D4EE72DBF913584AD5B6D8F1F769F8AD3AFE7C28CBF1D4FBE097A88F44755842");
    EVP_PKEY *key = nullptr;
    ASSERT_EQ(Crypto().ReadEncPrvKey(Bytes(file(PemFile("PRIVATE KEY", encoding))), &key, Bytes("x")), 1);
    const KeyOwner owner(key);
    EXPECT_EQ(EVP_PKEY_id(key), EVP_PKEY_ED25519);
}

TEST_F(ReadEncPrvKey, ComesToAnEndWhereverThePathLeads)
{
    expectNoKey(folder.path().string(), storedPassword, decryptionError);
    expectNoKey("/dev/null", storedPassword, decryptionError);
    expectNoKey("/dev/zero", storedPassword, decryptionError);
}

TEST_F(ReadEncPrvKey, FailsAtEachStep)
{
    const std::string path = StoredKeyPath("prime256v1.aes256.pem");
    for (const char *function :
         {"BIO_new", "BIO_write", "PEM_bytes_read_bio", "PKCS8_decrypt", "EVP_PKCS82PKEY"}) {
        SCOPED_TRACE(function);
        const auto run = [&] {
            LibraryFaults faults;
            faults.fail(function);
            EVP_PKEY *key = nullptr;
            CapturedOutput output;
            EXPECT_EQ(Crypto().ReadEncPrvKey(Bytes(path), &key, Bytes(storedPassword)), -1);
            EXPECT_EQ(output.text(), decryptionError);
            EXPECT_EQ(key, nullptr);
        };
        EXPECT_EQ(LeftBehindBy(run), 0);
    }
}

TEST_F(ReadEncPrvKey, WipesTheFilesTextAndThePassword)
{
    for (const auto &[form, encrypted] : forms) {
        SCOPED_TRACE(form);
        const std::string text = ReadFile(StoredKeyPath("prime256v1." + form));
        ReleasedMemory memory;
        // The start of the first line of content: the library's own buffer for lines holds but the last ones.
        const std::size_t headers = text.find("\n\n");
        memory.lookFor(text.substr(headers != std::string::npos ? headers + 2 : text.find('\n') + 1, 24));
        std::vector<std::string> wiped;
        LibraryFaults faults;
        faults.replace<decltype(OPENSSL_cleanse)>("OPENSSL_cleanse", [&](void *bytes, std::size_t size) {
            wiped.emplace_back(static_cast<const char *>(bytes), size);
            std::memset(bytes, 0, size);
        });
        EVP_PKEY *key = nullptr;
        ASSERT_EQ(
            Crypto().ReadEncPrvKey(Bytes(StoredKeyPath("prime256v1." + form)), &key, Bytes(storedPassword)),
            1);
        EVP_PKEY_free(key);
        EXPECT_TRUE(memory.sawReleases());
        EXPECT_FALSE(memory.heldTheSecret());
        // The decoded block, which is the key itself where the file is not encrypted.
        EXPECT_EQ(faults.calls("CRYPTO_clear_free"), 1);

        ASSERT_GE(wiped.size(), 1u);
        EXPECT_EQ(wiped[0].substr(0, text.size()), text);
        const bool engineHasPassword = form == "aes128.pem" || form == "aes256.pem";
        ASSERT_EQ(wiped.size(), engineHasPassword ? 2u : 1u);
        if (engineHasPassword) {
            EXPECT_EQ(wiped[1].substr(0, storedPassword.size()), storedPassword);
        }
    }
}

class ReadPrvKey : public StoredKeys {
protected:
    int read(const std::string &path, EVP_PKEY **key)
    {
        CapturedOutput errors(2);
        CapturedOutput output;
        const int status = Crypto().ReadPrvKey(Bytes(path), key);
        printed = output.text();
        EXPECT_EQ(errors.text(), "");
        return status;
    }

    std::string printed;
};

TEST_F(ReadPrvKey, ReadsUnencryptedKeysWithoutAQuestion)
{
    const PasswordQuestions questions(storedPassword);
    for (const std::string &name : storedNames) {
        const KeyOwner expected = StoredKey(name + ".pem");
        for (const char *form : {".pem", ".traditional.pem"}) {
            EVP_PKEY *key = nullptr;
            EXPECT_EQ(read(StoredKeyPath(name + form), &key), 1);
            const KeyOwner owner(key);
            EXPECT_EQ(printed, "");
            expectSameKey(key, expected.get());
        }
    }
    EXPECT_EQ(questions.count(), 0);
}

TEST_F(ReadPrvKey, AsksForThePasswordOfAnEncryptedKeyOnTheTerminal)
{
    for (const auto &[form, encrypted] : forms) {
        if (!encrypted)
            continue;
        SCOPED_TRACE(form);
        const KeyOwner expected = StoredKey("prime256v1.pem");
        const std::string path = StoredKeyPath("prime256v1." + form);
        {
            const PasswordQuestions questions(storedPassword);
            EVP_PKEY *key = nullptr;
            EXPECT_EQ(read(path, &key), 1);
            const KeyOwner owner(key);
            expectSameKey(key, expected.get());
            EXPECT_EQ(questions.count(), 1);
        }
        const PasswordQuestions questions("wrong horse");
        EVP_PKEY *key = expected.get();
        EXPECT_EQ(read(path, &key), -1);
        EXPECT_EQ(key, nullptr);
        EXPECT_EQ(printed, readingError);
        EXPECT_EQ(questions.count(), 1);
    }
}

TEST_F(ReadPrvKey, LeavesTheKeyAsItWasWhereTheFileCannotBeOpened)
{
    const KeyOwner old = FixedKey(prime256v1, 7);
    EVP_PKEY *key = old.get();
    const std::string missing = folder / "missing é.pem";
    EXPECT_EQ(read(missing, &key), -1);
    EXPECT_EQ(key, old.get());
    EXPECT_EQ(printed, openErrors(missing));
}

TEST_F(ReadPrvKey, FailsOnFilesWithoutAPrivateKey)
{
    const PasswordQuestions questions(storedPassword);
    const std::string plain = ReadFile(StoredKeyPath("prime256v1.pem"));
    for (const std::string &content :
         {std::string(), plain.substr(0, plain.size() / 2), ReadFile(StoredKeyPath("rsa2048.public.pem")),
          ReadFile(TestData("certificate.pem"))}) {
        const KeyOwner old = FixedKey(prime256v1, 7);
        EVP_PKEY *key = old.get();
        EXPECT_EQ(read(file(content), &key), -1);
        EXPECT_EQ(key, nullptr);
        EXPECT_EQ(printed, readingError);
    }
    EXPECT_EQ(questions.count(), 0);
}

class GetPubKeyDerOfFile : public StoredKeys {
protected:
    void expectFailure(const std::string &path, const std::string &messages)
    {
        const auto run = [&] {
            unsigned char untouched = 0;
            unsigned char *der = &untouched;
            std::size_t size = 12345;
            CapturedOutput errors(2);
            CapturedOutput output;
            EXPECT_EQ(Crypto().GetPubKeyDER(Bytes(path), &der, &size), -1);
            EXPECT_EQ(output.text(), messages);
            EXPECT_EQ(errors.text(), "");
            EXPECT_EQ(der, &untouched);
        };
        EXPECT_EQ(LeftBehindBy(run), 0);
    }
};

TEST_F(GetPubKeyDerOfFile, IsTheEncodingInTheFile)
{
    for (const std::string &name : storedNames) {
        const std::string path = StoredKeyPath(name + ".public.pem");
        const auto run = [&] {
            unsigned char *der = nullptr;
            std::size_t size = 0;
            CapturedOutput output;
            EXPECT_EQ(Crypto().GetPubKeyDER(Bytes(path), &der, &size), 1);
            EXPECT_EQ(output.text(), "");
            EXPECT_EQ(TakeBuffer(der, size), ContentOfPemFile("PUBLIC KEY", ReadFile(path)));
        };
        EXPECT_EQ(LeftBehindBy(run), 0);
    }
}

TEST_F(GetPubKeyDerOfFile, FailsWhereTheFileCannotBeOpened)
{
    const std::string missing = folder / "missing.pem";
    expectFailure(missing, openErrors(missing) + Error("Error: reading public key fails\n"));
}

TEST_F(GetPubKeyDerOfFile, FailsWhereTheFileHoldsNoPublicKey)
{
    for (const std::string &content : {std::string(), ReadFile(StoredKeyPath("prime256v1.pem"))})
        expectFailure(file(content), Error("Error: extracting public key fails\n"));
}

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

    /// Signs under faults and expects this outcome, and nothing left behind.
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
        EXPECT_EQ(LeftBehindBy(run), 0);
    }

    const KeyOwner key = StoredKey("rsa2048.pem");
    unsigned char untouched = 0;
    unsigned char *signature = nullptr;
    std::size_t signatureSize = 0;
    std::string printed;
};

TEST_F(RsaSign, MakesASignatureThatVerifiesElsewhere)
{
    EXPECT_EQ(sign(), 1);
    EXPECT_EQ(printed, rsaSuccessLines);
    ASSERT_EQ(signatureSize, 256u);
    const std::string first = take();
    EXPECT_TRUE(OpensslAcceptsRsa(key.get(), "message", first));
    EXPECT_FALSE(OpensslAcceptsRsa(key.get(), "massage", first));
    // This kind of signature has nothing random in it.
    EXPECT_EQ(sign(), 1);
    EXPECT_EQ(take(), first);
}

TEST_F(RsaSign, VerifiesInEarnestWithTheSamePaddingAndDigest)
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

TEST_F(RsaSign, TestsTheDataOnlyAfterItHasTheBuffer)
{
    const auto run = [&] {
        expectNoSignature(key.get(), nullptr, digest.size(), "Error: unvalid hash pointer \n");
        LibraryFaults faults;
        faults.fail("CRYPTO_malloc");
        expectNoSignature(key.get(), nullptr, digest.size(), "Error: allocating signature buffer fails\n");
    };
    EXPECT_EQ(LeftBehindBy(run), 0);
}

TEST_F(RsaSign, FailsAtEachStepWithItsOwnMessage)
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

TEST_F(RsaSign, FailsOnWhatCannotSign)
{
    const KeyOwner elliptic = FixedKey(prime256v1, 5);
    expectNoSignature(elliptic.get(), Bytes(digest), digest.size(), "Error: RSA padding fails\n");
    expectNoSignature(nullptr, Bytes(digest), digest.size(), "Error: creating signing context fails\n");
    const KeyOwner publicKey = PublicHalf(key.get());
    expectNoSignature(publicKey.get(), Bytes(digest), digest.size(), "Error: creating signature fails\n");
}

TEST_F(RsaSign, SignsDigestsOf32BytesOnly)
{
    for (const std::size_t size : {0u, 20u, 31u, 33u, 64u}) {
        const std::string data(size, 'x');
        expectNoSignature(key.get(), Bytes(data), size, "Error: creating signature fails\n");
    }
}

TEST_F(RsaSign, ReportsASignatureThatDoesNotVerify)
{
    expectOutcome(0, failLines, [](LibraryFaults &faults) { faults.spoil("EVP_PKEY_verify", 0); });

    const KeyOwner other = StoredKey("rsa2048.pem");
    LibraryFaults faults;
    faults.before("EVP_PKEY_verify", [&] { signature[100] ^= 1; });
    EXPECT_EQ(sign(), 0);
    EXPECT_EQ(printed, failLines);
    ASSERT_EQ(signatureSize, 256u);
    EXPECT_EQ(faults.lastResult("EVP_PKEY_verify"), 0);
    EXPECT_FALSE(OpensslAcceptsRsa(key.get(), "message", take()));
}

TEST_F(RsaSign, CountsAVerificationThatCannotBeMadeAsSuccess)
{
    for (const long result : {-1L, -2L, 2L})
        expectOutcome(1, rsaSuccessLines,
                      [=](LibraryFaults &faults) { faults.spoil("EVP_PKEY_verify", result); });
    expectOutcome(1, rsaSuccessLines, [](LibraryFaults &faults) {
        faults.fail("EVP_PKEY_verify_init", 0);
        faults.fail("EVP_PKEY_verify", -1);
    });
}

TEST_F(RsaSign, LeavesTheKeyToItsOwner)
{
    EXPECT_EQ(LeftBehindBy([&] {
                  EXPECT_EQ(sign(), 1);
                  take();
              }),
              0);
    EXPECT_EQ(EVP_PKEY_bits(key.get()), 2048);
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

    void expectFailure(const std::string &path, const std::string &password, const std::string &messages)
    {
        for (const bool elliptic : {false, true}) {
            const auto run = [&] {
                Crypto rsaEngine;
                EC_Crypto ecEngine(prime256v1);
                Crypto &engine = elliptic ? ecEngine : rsaEngine;
                LibraryFaults faults;
                EXPECT_EQ(generate(engine, path, "data", password), -1);
                EXPECT_EQ(printed, readingLine + messages);
                EXPECT_EQ(signature, &untouched);
                EXPECT_EQ(size, 12345u);
                EXPECT_EQ(faults.calls("fflush(stdout)"), 0);
            };
            EXPECT_EQ(LeftBehindBy(run), 0);
        }
    }

    unsigned char untouched = 0;
    unsigned char *signature = nullptr;
    std::size_t size = 0;
    std::string printed;
};

TEST_F(GenerateSignature, SignsWithKeysOfTheOpensslTool)
{
    const std::string data("data\0with a zero byte", 21);
    for (const std::string &name : storedNames) {
        const KeyOwner key = StoredKey(name + ".pem");
        const bool elliptic = name != "rsa2048";
        Crypto rsaEngine;
        EC_Crypto ecEngine;
        for (const auto &[form, encrypted] : forms) {
            SCOPED_TRACE(name + "." + form);
            Crypto &engine = elliptic ? ecEngine : rsaEngine;
            EXPECT_EQ(generate(engine, StoredKeyPath(name + "." + form), data), 1);
            EXPECT_EQ(printed, readingLine + (elliptic ? ecSuccessLines : rsaSuccessLines));
            ASSERT_EQ(size, elliptic ? 64u : 256u);
            const std::string made = take();
            EXPECT_TRUE(elliptic ? OpensslAcceptsEcdsa(key.get(), Sha256Of(data), EncodedSignature(made))
                                 : OpensslAcceptsRsa(key.get(), data, made));
        }
    }
}

TEST_F(GenerateSignature, SignsWithKeysOfThisEngine)
{
    const std::string path = folder / "private.pem";
    for (const int nid : {NID_X9_62_prime256v1, NID_brainpoolP256t1}) {
        for (const CIHERTYPE cipher : {AES128_CBC, AES256_CBC}) {
            EC_Crypto engine(nid);
            CapturedOutput output;
            ASSERT_EQ(engine.GenerateKeys(Bytes(path), Bytes(folder / "public.pem"),
                                          Bytes(folder / "hash.bin"), Bytes("password"), cipher),
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
    const KeyOwner rsa = StoredKey("rsa2048.pem");
    for (const EVP_CIPHER *cipher : {EVP_aes_128_cbc(), EVP_aes_256_cbc()}) {
        Crypto engine;
        ASSERT_EQ(engine.SaveEncPrvKey(Bytes(path), rsa.get(), Bytes("password"), cipher), 1);
        EXPECT_EQ(generate(engine, path, "data", "password"), 1);
        EXPECT_TRUE(OpensslAcceptsRsa(rsa.get(), "data", take()));
    }
}

TEST_F(GenerateSignature, SignsDataOfAnyLength)
{
    const KeyOwner key = StoredKey("prime256v1.pem");
    EC_Crypto engine;
    for (const std::size_t length : {0u, 1u, 64u, 1000000u}) {
        std::string data(length, '\0');
        if (length > 0)
            data.back() = 'x';
        EXPECT_EQ(generate(engine, StoredKeyPath("prime256v1.aes256.pem"), data), 1);
        EXPECT_TRUE(OpensslAcceptsEcdsa(key.get(), Sha256Of(data), EncodedSignature(take())));
    }
}

TEST_F(GenerateSignature, FailsWithAWrongPassword)
{
    for (const std::string &name : storedNames) {
        for (const auto &[form, encrypted] : forms) {
            if (encrypted)
                expectFailure(StoredKeyPath(name + "." + form), "wrong horse",
                              decryptionError + readingError);
        }
    }
}

TEST_F(GenerateSignature, FailsWhereThereIsNoFile)
{
    const std::string missing = folder / "missing.pem";
    expectFailure(missing, storedPassword, openErrors(missing) + readingError);
}

TEST_F(GenerateSignature, FailsOnFilesWithoutAPrivateKey)
{
    const std::string encrypted = ReadFile(StoredKeyPath("prime256v1.aes256.pem"));
    for (const std::string &content :
         {std::string(), ReadFile(StoredKeyPath("prime256v1.public.pem")),
          ReadFile(TestData("certificate.pem")), encrypted.substr(0, encrypted.size() / 2)})
        expectFailure(file(content), storedPassword, decryptionError + readingError);
}

TEST_F(GenerateSignature, FailsWithAKeyOfTheOtherKind)
{
    Crypto rsaEngine;
    EXPECT_EQ(generate(rsaEngine, StoredKeyPath("prime256v1.aes256.pem"), "data"), -1);
    EXPECT_EQ(printed, readingLine + Error("Error: RSA padding fails\n") + signingError);
    EC_Crypto ecEngine;
    EXPECT_EQ(generate(ecEngine, StoredKeyPath("rsa2048.aes256.pem"), "data"), -1);
    EXPECT_EQ(printed,
              readingLine + Error("Error: determining signing buffer length fails \n") + signingError);
}

TEST_F(GenerateSignature, FailsWithoutMemory)
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
        EXPECT_EQ(LeftBehindBy(run), 0);
    }
}

TEST_F(GenerateSignature, FailsOverASignatureThatDoesNotVerifyButHandsItOut)
{
    const auto run = [&] {
        Crypto engine;
        LibraryFaults faults;
        faults.spoil("EVP_PKEY_verify", 0);
        EXPECT_EQ(generate(engine, StoredKeyPath("rsa2048.aes256.pem"), "data"), -1);
        EXPECT_EQ(printed, readingLine + failLines + signingError);
        ASSERT_EQ(size, 256u);
        take();
        EXPECT_EQ(faults.calls("fflush(stdout)"), 0);
    };
    EXPECT_EQ(LeftBehindBy(run), 0);
}

TEST_F(GenerateSignature, DoesNotAskWhetherTheDigestWasMade)
{
    Crypto engine;
    LibraryFaults faults;
    faults.fail("EVP_sha256");
    EXPECT_EQ(generate(engine, StoredKeyPath("rsa2048.aes256.pem"), "data"), -1);
    EXPECT_EQ(printed, readingLine + Error("unknown message digest ") +
                           Error("Error: creating signature fails\n") + signingError);
}

/// An engine that notes what it is given to sign.
class NotingEngine : public EC_Crypto {
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

TEST_F(GenerateSignature, SignsThe32BytesOfTheDigestInTheEnginesOwnWay)
{
    const KeyOwner key = StoredKey("prime256v1.pem");
    NotingEngine engine;
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

TEST_F(GenerateSignature, LeavesNothingBehind)
{
    for (const std::string &name : storedNames) {
        const auto run = [&] {
            Crypto rsaEngine;
            EC_Crypto ecEngine;
            Crypto &engine = name == "rsa2048" ? rsaEngine : ecEngine;
            EXPECT_EQ(generate(engine, StoredKeyPath(name + ".aes256.pem"), "data"), 1);
            take();
        };
        EXPECT_EQ(LeftBehindBy(run), 0);
    }
}

} // namespace
