// RSA keys: generation and files.
#include "src/ec_crypto.h"

#include "tests/support/buffer_call.h"
#include "tests/support/captured_output.h"
#include "tests/support/library_faults.h"
#include "tests/support/library_memory.h"
#include "tests/support/private_keys.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;

namespace {

const std::string okLine = Info("RSA key ok \n");

/// Adds an error to the library's queue.
void raise(int library, int reason, int function = 0x7B)
{
    static_cast<void>(function); // newer versions have no function codes
    ERR_put_error(library, function, reason, "file", 1);
}

/// Makes every generation return `key`, because generating a new one takes a second, and makes it report
/// `status`.
void substituteGeneratedKey(LibraryFaults &faults, EVP_PKEY *key, int status = 1)
{
    faults.replace<decltype(EVP_PKEY_keygen)>("EVP_PKEY_keygen",
                                              [key, status](EVP_PKEY_CTX *, EVP_PKEY **place) {
                                                  EVP_PKEY_up_ref(key);
                                                  *place = key;
                                                  return status;
                                              });
}

/// KeyGen with a generation that returns a stored key, and with the faults that a test adds.
class RsaKeyGen : public testing::Test {
protected:
    void generate(const Preparation &prepare)
    {
        EVP_PKEY *key = old.get();
        CapturedOutput errorOutput(2);
        CapturedOutput output;
        LibraryFaults faults;
        prepare(faults);
        status = Crypto().KeyGen(&key);
        printed = output.text();
        errors = errorOutput.text();
        queuePrints = faults.calls("ERR_print_errors") + faults.calls("ERR_print_errors_fp");
        generatedKey = key;
        if (key != old.get())
            EVP_PKEY_free(key);
    }

    /// Generates with injected faults, and expects this outcome and no leak.
    void expect(int expected, const std::string &messages, const Preparation &prepare)
    {
        const auto run = [&] {
            generate(prepare);
            EXPECT_EQ(status, expected);
            EXPECT_EQ(generatedKey, expected == 1 ? stored.get() : old.get());
            EXPECT_EQ(printed, messages);
        };
        EXPECT_EQ(LeakedBy(run), 0);
    }

    /// Expects standard error to contain the error that the test raised, and nothing else, after `prints`
    /// calls that print the queue.
    void expectThePrintedError(int prints = 1)
    {
        EXPECT_NE(errors.find(":a reason of the tests:"), std::string::npos) << errors;
        EXPECT_EQ(errors.find('\n'), errors.size() - 1);
        EXPECT_EQ(queuePrints, prints);
    }

    const KeyOwner stored = StoredKey("rsa2048.pem");
    const Preparation returnsTheStoredKey = [this](LibraryFaults &faults) {
        substituteGeneratedKey(faults, stored.get());
    };
    const KeyOwner old = FixedKey(prime256v1, 7);
    int status = 0;
    std::string printed;
    std::string errors;
    int queuePrints = 0;
    const EVP_PKEY *generatedKey = nullptr;
};

// Reason codes that no version of the library uses, and the texts that the tests register for them.
constexpr int longReason = 3901;
constexpr int reasonOfTen = 3902;
constexpr int reasonOfEleven = 3903;
constexpr int shortReason = 3904;
constexpr int unknownReason = 3905;

void registerReasons()
{
    static std::array<ERR_STRING_DATA, 5> names = {{{ERR_PACK(0, 0, longReason), "a reason of the tests"},
                                                    {ERR_PACK(0, 0, reasonOfTen), "0123456789"},
                                                    {ERR_PACK(0, 0, reasonOfEleven), "0123456789X"},
                                                    {ERR_PACK(0, 0, shortReason), "short"},
                                                    {0, nullptr}}};
    static const int loaded = ERR_load_strings(ERR_LIB_RSA, names.data());
    ASSERT_EQ(loaded, 1);
}

TEST_F(RsaKeyGen, SetsUpTheGenerationAndChecksTheKey)
{
    expect(1, okLine, returnsTheStoredKey);
    EXPECT_EQ(errors, "");

    LibraryFaults faults;
    substituteGeneratedKey(faults, stored.get());
    EVP_PKEY *key = nullptr;
    CapturedOutput output;
    EXPECT_EQ(Crypto().KeyGen(&key), 1);
    const KeyOwner owner(key);
    const std::vector<std::string> steps = {"EVP_PKEY_CTX_new_id",  "EVP_PKEY_keygen_init",
                                            setModulusSizeFunction, "EVP_PKEY_keygen",
                                            "BIO_new_fp",           "RSA_check_key"};
    EXPECT_EQ(faults.callsOf(steps), steps);
}

TEST_F(RsaKeyGen, ReturnsZeroIfTheSetupFails)
{
    registerReasons();
    const auto expectZero = [&](const std::string &function, const Preparation &failure) {
        SCOPED_TRACE(function);
        expect(0, "", [&](LibraryFaults &faults) {
            faults.before(function, [] { raise(ERR_LIB_RSA, longReason); });
            failure(faults);
        });
        EXPECT_EQ(errors, "");
    };
    expectZero("EVP_PKEY_CTX_new_id", Failing("EVP_PKEY_CTX_new_id"));
    for (const char *step : {"EVP_PKEY_keygen_init", setModulusSizeFunction}) {
        for (const long result : {0L, -1L})
            expectZero(step, Overriding(step, result));
    }
#if OPENSSL_VERSION_NUMBER >= 0x30000000L
    expectZero("OSSL_LIB_CTX_get0_global_default", Failing("OSSL_LIB_CTX_get0_global_default"));
#endif
}

TEST_F(RsaKeyGen, PrintsTheErrorsOfAFailedGenerationAndReturnsMinusOne)
{
    registerReasons();
    for (const long result : {0L, -1L, 2L}) {
        expect(-1, "", [&](LibraryFaults &faults) {
            faults.before("EVP_PKEY_keygen", [] { raise(ERR_LIB_RSA, longReason); });
            faults.fail("EVP_PKEY_keygen", result);
        });
        // The queue is printed after the failed generation, and again, empty, by the check of the key.
        expectThePrintedError(2);
    }
    // A generation that reports success without returning a key fails, too.
    expect(-1, "", Failing("EVP_PKEY_keygen", 1));
}

TEST_F(RsaKeyGen, ChecksTheKeyEvenIfTheGenerationReportsFailure)
{
    registerReasons();
    for (const int result : {0, -1, 2}) {
        expect(1, okLine, [&](LibraryFaults &faults) {
            substituteGeneratedKey(faults, stored.get(), result);
            faults.before("EVP_PKEY_keygen", [] { raise(ERR_LIB_RSA, longReason); });
        });
        expectThePrintedError();
    }
}

TEST_F(RsaKeyGen, TreatsEarlierErrorsAsErrorsOfTheKey)
{
    // OpenSSL 1.1.1 itself clears the queue when it is initialised for the first time.
    const Crypto setUp;
    registerReasons();
    raise(ERR_LIB_CONF, 1);
    raise(ERR_LIB_RSA, longReason);
    generate(returnsTheStoredKey);
    EXPECT_EQ(status, -1);
    EXPECT_EQ(generatedKey, old.get());
    EXPECT_EQ(printed, okLine);
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 2) << errors;
    EXPECT_LT(errors.find("configuration file routines"), errors.find(":a reason of the tests:")) << errors;
    EXPECT_EQ(queuePrints, 1);
    EXPECT_EQ(ERR_peek_error(), 0u);

    generate(returnsTheStoredKey);
    EXPECT_EQ(status, 1);
}

TEST_F(RsaKeyGen, FailsIfThePointerToTheKeyIsNull)
{
    CapturedOutput errorOutput(2);
    CapturedOutput output;
    LibraryFaults faults;
    EXPECT_EQ(Crypto().KeyGen(nullptr), -1);
    EXPECT_EQ(output.text(), "");
    EXPECT_EQ(errorOutput.text(), "");
    EXPECT_EQ(faults.calls("EVP_PKEY_CTX_new_id"), 0);
}

TEST_F(RsaKeyGen, FailsIfTheKeyIsNotAnRsaKey)
{
    const KeyOwner elliptic = FixedKey(prime256v1, 8);
    expect(-1, "", [&](LibraryFaults &faults) { substituteGeneratedKey(faults, elliptic.get()); });
    expect(-1, "", [&](LibraryFaults &faults) {
        substituteGeneratedKey(faults, stored.get());
        faults.fail("EVP_PKEY_get1_RSA");
    });
}

TEST_F(RsaKeyGen, DependsOnTheResultOfTheCheckAndOnTheQueue)
{
    const struct {
        long checked;
        bool queued;
        int status;
        std::string messages;
    } cases[] = {
        {1, true, -1, okLine}, {-1, false, -1, ""}, {-1, true, -1, ""}, {2, false, 1, ""},
        {2, true, -1, ""},     {-2, false, 1, ""},  {-2, true, -1, ""},
    };
    registerReasons();
    for (const auto &each : cases) {
        for (const bool hasChannel : {true, false}) {
            SCOPED_TRACE(std::to_string(each.checked) + (each.queued ? " with an error" : "") +
                         (hasChannel ? "" : " without a channel"));
            expect(each.status, each.messages, [&](LibraryFaults &faults) {
                substituteGeneratedKey(faults, stored.get());
                if (!hasChannel)
                    faults.fail("BIO_new_fp");
                if (each.queued)
                    faults.before("RSA_check_key", [] { raise(ERR_LIB_RSA, longReason); });
                faults.fail("RSA_check_key", each.checked);
            });
            if (each.queued && hasChannel)
                expectThePrintedError();
            else
                EXPECT_EQ(errors, "");
        }
    }
}

/// The check finds the key inconsistent, for the reasons that `raiseAll` adds to the queue.
class RsaKeyGenWithAnInconsistentKey : public RsaKeyGen {
protected:
    RsaKeyGenWithAnInconsistentKey() { registerReasons(); }

    void expectMessages(const std::string &messages, const std::function<void()> &raiseAll)
    {
        generate([&](LibraryFaults &faults) {
            substituteGeneratedKey(faults, stored.get());
            faults.before("RSA_check_key", raiseAll);
            faults.fail("RSA_check_key", 0);
        });
        EXPECT_EQ(status, -1);
        EXPECT_EQ(printed, messages);
        EXPECT_EQ(errors, "");
        EXPECT_EQ(queuePrints, 0);
    }

    static std::string keyError(const std::string &reason)
    {
        return Error("RSA key error: ") + Error(reason);
    }
};

TEST_F(RsaKeyGenWithAnInconsistentKey, SkipsTheFirstTenCharactersOfEachReason)
{
    expectMessages("", [] {});
    expectMessages(keyError("f the tests"), [] { raise(ERR_LIB_RSA, longReason); });
    expectMessages(keyError("X"), [] { raise(ERR_LIB_RSA, reasonOfEleven); });
    expectMessages(keyError(""), [] { raise(ERR_LIB_RSA, reasonOfTen); });
    expectMessages(keyError(""), [] { raise(ERR_LIB_RSA, shortReason); });
    expectMessages(keyError(""), [] { raise(ERR_LIB_RSA, unknownReason); });
}

TEST_F(RsaKeyGenWithAnInconsistentKey, PrintsTheOldestErrorFirstAndRemovesEachFromTheQueue)
{
    expectMessages(keyError("f the tests") + keyError("X") + keyError(""), [] {
        raise(ERR_LIB_RSA, longReason);
        raise(ERR_LIB_RSA, reasonOfEleven);
        raise(ERR_LIB_RSA, shortReason);
    });
    EXPECT_EQ(ERR_peek_error(), 0u);
}

TEST_F(RsaKeyGenWithAnInconsistentKey, StopsAtAnErrorFromAnotherSource)
{
    const auto stopsAt = [&](int library, int reason, int function) {
        expectMessages(keyError("X"), [=] {
            raise(ERR_LIB_RSA, reasonOfEleven);
            raise(library, reason, function);
            raise(ERR_LIB_RSA, longReason);
        });
        EXPECT_EQ(ERR_GET_LIB(ERR_peek_error()), library);
        EXPECT_EQ(ERR_GET_REASON(ERR_get_error()), reason);
        EXPECT_EQ(ERR_GET_REASON(ERR_get_error()), longReason);
        EXPECT_EQ(ERR_get_error(), 0u);
    };
    stopsAt(ERR_LIB_EC, longReason, 0x7B);
    stopsAt(ERR_LIB_BN, longReason, 0x7B);
    stopsAt(ERR_LIB_RSA, ERR_R_MALLOC_FAILURE, 0x7B);
#if OPENSSL_VERSION_NUMBER < 0x30000000L
    stopsAt(ERR_LIB_RSA, longReason, 0x7A);
    stopsAt(ERR_LIB_RSA, longReason, 0x7C);
#endif
}

TEST_F(RsaKeyGenWithAnInconsistentKey, DoesNotLeakAndWipesTheSecret)
{
    const auto run = [&] {
        ReleasedMemory memory;
        generate([&](LibraryFaults &faults) {
            faults.replace<decltype(EVP_PKEY_keygen)>("EVP_PKEY_keygen", [&](EVP_PKEY_CTX *, EVP_PKEY **key) {
                *key = StoredKey("rsa2048.pem").release();
                const RsaOwner rsa(EVP_PKEY_get1_RSA(*key));
                const BIGNUM *const p = RSA_get0_p(rsa.get());
                std::string prime(static_cast<std::size_t>(BN_num_bytes(p)), '\0');
                BN_bn2bin(p, reinterpret_cast<unsigned char *>(prime.data()));
                memory.searchFor(prime);
                return 1;
            });
            faults.fail("RSA_check_key", 0);
        });
        EXPECT_EQ(status, -1);
        EXPECT_TRUE(memory.sawReleases());
        EXPECT_FALSE(memory.containedTheSecret());
    };
    EXPECT_EQ(LeakedBy(run), 0);
}

TEST_F(RsaKeyGenWithAnInconsistentKey, DetectsAWrongPrivateExponent)
{
    const RsaOwner good(EVP_PKEY_get1_RSA(stored.get()));
    const RsaOwner bad(RSA_new());
    BIGNUM *const d = BN_dup(RSA_get0_d(good.get()));
    BN_add_word(d, 2);
    RSA_set0_key(bad.get(), BN_dup(RSA_get0_n(good.get())), BN_dup(RSA_get0_e(good.get())), d);
    RSA_set0_factors(bad.get(), BN_dup(RSA_get0_p(good.get())), BN_dup(RSA_get0_q(good.get())));
    const KeyOwner key(EVP_PKEY_new());
    EVP_PKEY_set1_RSA(key.get(), bad.get());
    generate([&](LibraryFaults &faults) { substituteGeneratedKey(faults, key.get()); });
    EXPECT_EQ(status, -1);
#if OPENSSL_VERSION_NUMBER >= 0x30000000L
    EXPECT_EQ(printed, keyError("ngruent to 1"));
#else
    // In these versions the check itself has a different function code.
    EXPECT_EQ(printed, "");
#endif
    EXPECT_EQ(errors, "");
}

const std::string aes256Line = Info("AES_256_cbc algorithm is selected for private key encription\n");
const std::string aes128Line = Info("AES_128_cbc algorithm is selected for private key encription\n");
const std::string generatingLine = Error("Generating RSA private key... \n");
const std::string savingLine = Info("Saving RSA private key...\n");
const std::string privateLine = Info("Private key PEM file created\n");
const std::string publicLine = Info("Public key PEM file created\n");
const std::string refusalLines = Error("Not supported operation\n") +
                                 "Error: converting public Key to DER Format fails \n" +
                                 Error("Error: calculating PubKey hash fails\n");
const std::string doneLine = Info("Key generation done\n");
/// Everything that a successful run prints after the line about the cipher.
const std::string successLines =
    generatingLine + okLine + savingLine + privateLine + publicLine + refusalLines + doneLine;

/// GenerateKeys in a temporary directory, with a generation that returns a stored key.
class RsaGenerateKeys : public testing::Test {
protected:
    int generate(CIHERTYPE cipher)
    {
        CapturedOutput errorOutput(2);
        CapturedOutput output;
        const int status = Crypto().GenerateKeys(Bytes(privatePath), Bytes(publicPath), Bytes(hashPath),
                                                 Bytes(storedPassword), cipher);
        flushed = output.flushedText();
        printed = output.text();
        EXPECT_EQ(errorOutput.text(), "");
        return status;
    }

    void expectFailure(const std::string &messages, const Preparation &prepare, int filesLeftOpen = 0)
    {
        const auto run = [&] {
            LibraryFaults faults;
            substituteGeneratedKey(faults, stored.get());
            prepare(faults);
            EXPECT_EQ(generate(AES256_CBC), -1);
            EXPECT_EQ(printed, aes256Line + generatingLine + messages);
        };
        EXPECT_EQ(LeakedBy(run), filesLeftOpen);
    }

    const KeyOwner stored = StoredKey("rsa2048.pem");
    TemporaryFolder folder;
    std::string privatePath = folder / "private.pem";
    std::string publicPath = folder / "public.pem";
    std::string hashPath = folder / "hash.bin";
    std::string printed;
    std::string flushed;
};

TEST_F(RsaGenerateKeys, WritesBothKeyFilesAndNoHashFile)
{
    const std::pair<CIHERTYPE, std::string> cases[] = {{AES256_CBC, aes256Line}, {AES128_CBC, aes128Line}};
    for (const auto &[cipher, cipherLine] : cases) {
        LibraryFaults faults;
        substituteGeneratedKey(faults, stored.get());
        EXPECT_EQ(generate(cipher), 1);
        EXPECT_EQ(printed, cipherLine + successLines);
        EXPECT_EQ(flushed, printed);
        EXPECT_FALSE(fs::exists(hashPath));
        EXPECT_EQ(ModeOf(privatePath), 0400);
        EXPECT_EQ(ModeOf(publicPath), 0444);
        EXPECT_EQ(ReadFile(publicPath), ReadFile(StoredKeyPath("rsa2048.public.pem")));
        EXPECT_EQ(OutputOfOpenssl({"pkey", "-in", privatePath, "-passin", "pass:" + storedPassword}),
                  ReadFile(StoredKeyPath("rsa2048.pem")));
        EXPECT_THAT(OutputOfOpenssl({"asn1parse", "-in", privatePath}),
                    HasSubstr(cipher == AES256_CBC ? ":aes-256-cbc\n" : ":aes-128-cbc\n"));
    }
}

TEST_F(RsaGenerateKeys, RefusesAnUnknownCipherInPlainColour)
{
    for (const int cipher : {2, -1, 256}) {
        LibraryFaults faults;
        EXPECT_EQ(generate(static_cast<CIHERTYPE>(cipher)), -1);
        EXPECT_EQ(printed, Info("Unsupported algorithm selected for private key encription\n"));
        EXPECT_EQ(faults.calls("EVP_PKEY_CTX_new_id"), 0);
        EXPECT_TRUE(fs::is_empty(folder.path()));
    }
}

TEST_F(RsaGenerateKeys, FlushesBeforeAndAfterTheGenerationAndAtTheEnd)
{
    CapturedOutput output;
    std::string seenAtGeneration;
    LibraryFaults faults;
    substituteGeneratedKey(faults, stored.get());
    faults.before("EVP_PKEY_keygen", [&] { seenAtGeneration = output.flushedText(); });
    EXPECT_EQ(Crypto().GenerateKeys(Bytes(privatePath), Bytes(publicPath), Bytes(hashPath),
                                    Bytes(storedPassword), AES256_CBC),
              1);
    EXPECT_EQ(seenAtGeneration, aes256Line + generatingLine);
    const std::vector<std::string> order = {"fflush(stdout)",  "EVP_PKEY_keygen",  "fflush(stdout)",
                                            "PEM_write_PKCS8", "PEM_write_PUBKEY", "fflush(stdout)"};
    EXPECT_EQ(faults.callsOf(order), order);
}

TEST_F(RsaGenerateKeys, GeneratesTheKeyOfItsOwnClass)
{
    EC_Crypto engine(prime256v1);
    CapturedOutput output;
    EXPECT_EQ(engine.Crypto::GenerateKeys(Bytes(privatePath), Bytes(publicPath), Bytes(hashPath),
                                          Bytes(storedPassword), AES128_CBC),
              1);
    EXPECT_EQ(output.text(), aes128Line + generatingLine + savingLine + privateLine + publicLine + doneLine);
    const std::string encoding = ContentOfPemFile("PUBLIC KEY", ReadFile(publicPath));
    ASSERT_EQ(encoding.size(), 91u);
    EXPECT_EQ(ReadFile(hashPath), Sha256Of(encoding.substr(27)));
}

TEST_F(RsaGenerateKeys, StopsIfTheGenerationFails)
{
    const std::string message = Error("Error: fail occured while generating RSA private key\n");
    expectFailure(message, Failing("EVP_PKEY_keygen"));
    expectFailure(message, Failing("EVP_PKEY_keygen_init"));
    expectFailure(message, Failing("RSA_check_key"));
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST_F(RsaGenerateKeys, StopsIfThePrivateKeyFileFails)
{
    const std::string before = okLine + savingLine;
    const std::string after = Error("Error: creating PEM file fails\n");
    expectFailure(before + Error("Error: creating Key File fails\n") + after, Failing("fopen"));
    EXPECT_TRUE(fs::is_empty(folder.path()));
    expectFailure(before + Error("Error: writing encrypted private Key fails\n") + after,
                  Failing("PEM_write_PKCS8"), 1);
    // The second of the two runs made it writable, and no longer readable, so only its size can be checked.
    EXPECT_EQ(fs::file_size(privatePath), 0u);
    EXPECT_FALSE(fs::exists(publicPath));
}

TEST_F(RsaGenerateKeys, StopsIfThePublicKeyFileFailsAndKeepsThePrivateKey)
{
    const std::string before = okLine + savingLine + privateLine;
    const std::string after = Error("Error: creating Pubkey.pem fails\n");
    expectFailure(before + Error("Error: creating key file fails\n") + after, Failing("fopen", 0, 2));
    EXPECT_FALSE(fs::exists(publicPath));
    expectFailure(before + Error("Error: writing key fails\n") + after, Failing("PEM_write_PUBKEY"));
    EXPECT_EQ(ModeOf(publicPath), 0444);
    EXPECT_TRUE(fs::exists(privatePath));
    EXPECT_FALSE(fs::exists(hashPath));
}

// The only test that really generates an RSA key.
TEST_F(RsaGenerateKeys, MakesAKeyOf4096BitsThatOtherToolsOpenAndWhoseSignaturesTheyVerify)
{
    EXPECT_EQ(generate(AES256_CBC), 1);
    EXPECT_EQ(printed, aes256Line + successLines);
    EXPECT_THAT(OutputOfOpenssl({"rsa", "-in", privatePath, "-passin", "pass:" + storedPassword, "-noout",
                                 "-check", "-text"}),
                AllOf(HasSubstr("(4096 bit"), HasSubstr("\npublicExponent: 65537 (0x10001)\n"),
                      HasSubstr("RSA key ok\n")));

    const BufferCall signature([&](unsigned char **bytes, std::size_t *size) {
        return Crypto().GenerateSignature(Bytes("data"), 4, Bytes(privatePath), Bytes(storedPassword), bytes,
                                          size);
    });
    EXPECT_EQ(signature.status, 1);
    EXPECT_EQ(signature.size, 512u);
    EVP_PKEY *key = nullptr;
    ASSERT_EQ(Crypto().ReadPubKey(Bytes(publicPath), &key), 1);
    const KeyOwner owner(key);
    EXPECT_TRUE(OpensslAcceptsRsa(key, "data", signature.bytes()));
}

} // namespace
