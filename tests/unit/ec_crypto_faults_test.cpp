// What a generation prints, returns, releases and wipes when a library call fails.
#include "src/ec_crypto.h"

#include "tests/support/captured_output.h"
#include "tests/support/library_faults.h"
#include "tests/support/library_memory.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"
#include "tests/support/written_keys.h"

#include <gtest/gtest.h>

#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/x509.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace {

// Some versions of the library do not declare the key to encode const.
#if OPENSSL_VERSION_NUMBER >= 0x30000000L
using PrivateKey = const EVP_PKEY;
#else
using PrivateKey = EVP_PKEY;
#endif

/// Fills the library's error queue as a failing function does.
void raise()
{
    ERR_put_error(ERR_LIB_EC, 1, ERR_R_INTERNAL_ERROR, "file", 1);
}

class EcKeyGenUnderFaults : public testing::Test {
protected:
    void generate(const Preparation &prepare)
    {
        const KeyOwner old = FixedKey(prime256v1, 7);
        EVP_PKEY *key = old.get();
        CapturedOutput errorOutput(2);
        CapturedOutput output;
        LibraryFaults faults;
        prepare(faults);
        status = EC_Crypto(prime256v1).KeyGen(&key);
        EXPECT_EQ(output.text(), "");
        errors = errorOutput.text();
        EXPECT_EQ(key == old.get(), status != 1);
        if (key != old.get())
            EVP_PKEY_free(key);
    }

    void expectFailure(const Preparation &prepare)
    {
        EXPECT_EQ(LeakedBy([&] {
                      generate(prepare);
                      EXPECT_EQ(status, 0);
                  }),
                  0);
    }

    int status = 0;
    std::string errors;
};

/// The steps of a generation, in order.
const std::vector<std::string> steps = {
    "EVP_PKEY_CTX_new_id",  "EVP_PKEY_paramgen_init", setCurveFunction,   "EVP_PKEY_paramgen",
    "EVP_PKEY_CTX_new",     "EVP_PKEY_keygen_init",   "EVP_PKEY_keygen",  "EVP_PKEY_get1_EC_KEY",
    "EC_KEY_set_asn1_flag", "EVP_PKEY_assign",        "EC_KEY_check_key",
};

TEST_F(EcKeyGenUnderFaults, PerformsItsStepsInOrder)
{
    LibraryFaults faults;
    EVP_PKEY *key = nullptr;
    ASSERT_EQ(EC_Crypto(prime256v1).KeyGen(&key), 1);
    EVP_PKEY_free(key);
    EXPECT_EQ(faults.callsOf(steps), steps);
}

TEST_F(EcKeyGenUnderFaults, ReturnsZeroAndPrintsNothingIfAStepFails)
{
    for (const std::string &step : steps) {
        if (step == "EVP_PKEY_keygen" || step == "EC_KEY_set_asn1_flag")
            continue;
        SCOPED_TRACE(step);
        expectFailure([&](LibraryFaults &faults) {
            faults.before(step, raise);
            faults.fail(step);
        });
        EXPECT_EQ(errors, "");
    }
#if OPENSSL_VERSION_NUMBER >= 0x30000000L
    expectFailure(Failing("OSSL_LIB_CTX_get0_global_default"));
    EXPECT_EQ(errors, "");
#endif
}

TEST_F(EcKeyGenUnderFaults, PrintsTheErrorsOfTheLibraryIfTheGenerationItselfFails)
{
    for (const long result : {0L, -1L, 2L}) {
        expectFailure([=](LibraryFaults &faults) {
            faults.before("EVP_PKEY_keygen", raise);
            faults.fail("EVP_PKEY_keygen", result);
        });
        EXPECT_NE(errors.find(":error:"), std::string::npos) << errors;
        EXPECT_EQ(errors.find('\n'), errors.size() - 1);
        // A key that the failed generation returns nevertheless is not used either.
        expectFailure([=](LibraryFaults &faults) {
            faults.before("EVP_PKEY_keygen", raise);
            faults.overrideResult("EVP_PKEY_keygen", result);
        });
        EXPECT_EQ(errors.find('\n'), errors.size() - 1);
    }
    expectFailure(Failing("EVP_PKEY_keygen", 1));
}

TEST_F(EcKeyGenUnderFaults, TreatsOnlyZeroAsAFailureBeforeTheGeneration)
{
    for (const char *step :
         {"EVP_PKEY_paramgen_init", setCurveFunction, "EVP_PKEY_paramgen", "EVP_PKEY_keygen_init"}) {
        SCOPED_TRACE(step);
        for (const long result : {-1L, -2L, 2L}) {
            generate(Overriding(step, result));
            EXPECT_EQ(status, 1);
            EXPECT_EQ(errors, "");
        }
    }
}

TEST_F(EcKeyGenUnderFaults, ReturnsZeroUnlessTheCheckReturnsOne)
{
    for (const long result : {0L, -1L, 2L}) {
        expectFailure(Failing("EC_KEY_check_key", result));
        EXPECT_EQ(errors, "");
    }
}

TEST_F(EcKeyGenUnderFaults, UsesAContextForTheKeyTypeIfThereAreNoParameters)
{
    LibraryFaults faults;
    faults.fail("EVP_PKEY_paramgen", -1);
    EVP_PKEY *key = nullptr;
    const CapturedOutput errorOutput(2);
    // Without a curve the generation fails.
    EXPECT_EQ(EC_Crypto(prime256v1).KeyGen(&key), 0);
    EXPECT_EQ(faults.calls("ERR_print_errors_fp"), 1);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(faults.callsOf({"EVP_PKEY_CTX_new_id", "EVP_PKEY_CTX_new", "EVP_PKEY_keygen"}),
              (std::vector<std::string>{"EVP_PKEY_CTX_new_id", "EVP_PKEY_CTX_new_id", "EVP_PKEY_keygen"}));
}

TEST_F(EcKeyGenUnderFaults, ReturnsZeroIfTheSecondContextCannotBeCreated)
{
    expectFailure([](LibraryFaults &faults) {
        faults.fail("EVP_PKEY_paramgen", -1);
        faults.fail("EVP_PKEY_CTX_new_id", 0, 2);
    });
    EXPECT_EQ(errors, "");
}

TEST_F(EcKeyGenUnderFaults, SetsTheNamedCurveFlagAndTheRightKeyTypes)
{
    LibraryFaults faults;
    std::vector<int> flags;
    faults.replace<decltype(EC_KEY_set_asn1_flag)>("EC_KEY_set_asn1_flag", [&](EC_KEY *ec, int flag) {
        flags.push_back(flag);
        EC_KEY_set_asn1_flag(ec, flag);
    });
    std::vector<int> kinds;
    faults.replace<decltype(EVP_PKEY_CTX_new_id)>("EVP_PKEY_CTX_new_id", [&](int kind, ENGINE *engine) {
        kinds.push_back(kind);
        return kind == EVP_PKEY_EC ? EVP_PKEY_CTX_new_id(kind, engine) : nullptr;
    });
    EVP_PKEY *key = nullptr;
    EXPECT_EQ(EC_Crypto(prime256v1).KeyGen(&key), 1);
    const KeyOwner owner(key);
    EXPECT_EQ(Crypto().KeyGen(&key), 0);
    EXPECT_EQ(flags, (std::vector<int>{OPENSSL_EC_NAMED_CURVE}));
    EXPECT_EQ(kinds, (std::vector<int>{EVP_PKEY_EC, EVP_PKEY_RSA}));
}

const std::string aes256Line = Info("AES_256_cbc algorithm is selected for private key encryption\n");
const std::string primeLine = Info("Generating Prime256v1 keys... \n");
const std::string privateLine = Info("Private key PEM file created \n");
const std::string publicLine = Info("Public key PEM file created \n");
const std::string keyPairError = Error("Error occured while generating Keypair! \n");
const std::string privateError = Error("Error occured while creating PEM file!\n");
const std::string publicError = Error("Error occured while creating public key PEM file!\n");
const std::string hashError = Error("Error occured while creating public key hash file!\n");

/// The private number of a new key, read directly after the library has generated it.
std::string privateNumberOf(EVP_PKEY *key)
{
    std::string bytes(32, '\0');
    auto *const start = reinterpret_cast<unsigned char *>(bytes.data());
#if OPENSSL_VERSION_NUMBER >= 0x30000000L
    BIGNUM *number = nullptr;
    EXPECT_EQ(EVP_PKEY_get_bn_param(key, "priv", &number), 1);
    EXPECT_EQ(BN_bn2binpad(number, start, 32), 32);
    BN_clear_free(number);
#else
    EXPECT_EQ(BN_bn2binpad(EC_KEY_get0_private_key(EVP_PKEY_get0_EC_KEY(key)), start, 32), 32);
#endif
    return bytes;
}

/// A generation and its three files, with injected faults.
class EcGenerateKeysUnderFaults : public testing::Test {
protected:
    /// Makes `memory` search released blocks for the private number of the pair, from its generation on.
    static void searchForTheNewNumber(LibraryFaults &faults, ReleasedMemory &memory)
    {
        faults.replace<decltype(EVP_PKEY_keygen)>("EVP_PKEY_keygen",
                                                  [&memory](EVP_PKEY_CTX *context, EVP_PKEY **key) {
                                                      const int status = EVP_PKEY_keygen(context, key);
                                                      memory.searchFor(privateNumberOf(*key));
                                                      return status;
                                                  });
        // The library itself releases a block that contains the number here.
        faults.replace<decltype(EVP_PKEY2PKCS8)>("EVP_PKEY2PKCS8", [&memory](PrivateKey *key) {
            PKCS8_PRIV_KEY_INFO *info = nullptr;
            memory.withoutSearching([&] { info = EVP_PKEY2PKCS8(key); });
            return info;
        });
    }

    /// Expects the failure after these messages. Everything must be released except files that intentionally
    /// stay open, and the private number must be wiped from all released memory.
    void expectFailure(const std::string &messages, const Preparation &prepare, int filesLeftOpen = 0)
    {
        const auto run = [&] {
            for (const std::string &path : {privatePath, publicPath, hashPath})
                fs::remove(path);
            ReleasedMemory memory;
            LibraryFaults faults;
            searchForTheNewNumber(faults, memory);
            prepare(faults);
            CapturedOutput errors(2);
            CapturedOutput output;
            EXPECT_EQ(EC_Crypto(prime256v1)
                          .GenerateKeys(Bytes(privatePath), Bytes(publicPath), Bytes(hashPath),
                                        Bytes("password"), AES256_CBC),
                      -1);
            EXPECT_EQ(output.text(), aes256Line + primeLine + messages);
            EXPECT_EQ(errors.text(), "");
            EXPECT_TRUE(memory.sawReleases());
            EXPECT_FALSE(memory.containedTheSecret());
        };
        EXPECT_EQ(LeakedBy(run), filesLeftOpen);
    }

    void expectFiles(bool privateFile, bool publicFile, bool hashFile)
    {
        EXPECT_EQ(fs::exists(privatePath), privateFile);
        EXPECT_EQ(fs::exists(publicPath), publicFile);
        EXPECT_EQ(fs::exists(hashPath), hashFile);
    }

    TemporaryFolder folder;
    const std::string privatePath = folder / "private.pem";
    const std::string publicPath = folder / "public.pem";
    const std::string hashPath = folder / "hash.bin";
};

TEST_F(EcGenerateKeysUnderFaults, LeavesNoFileAndNoSecretIfTheNewKeyFails)
{
    for (const char *function : {"EVP_PKEY_get1_EC_KEY", "EVP_PKEY_assign", "EC_KEY_check_key"}) {
        SCOPED_TRACE(function);
        expectFailure(keyPairError, Failing(function));
        expectFiles(false, false, false);
    }
}

TEST_F(EcGenerateKeysUnderFaults, LeavesNoOtherFileIfThePrivateKeyFileFails)
{
    const std::string writingError = Error("Error: writing encrypted private Key fails\n") + privateError;
    expectFailure(Error("Error: creating Key File fails\n") + privateError, Failing("fopen"));
    expectFiles(false, false, false);
    for (const char *function :
         {"EVP_PKEY2PKCS8", "PKCS5_pbe2_set_iv", "PKCS8_set0_pbe", "PEM_write_PKCS8"}) {
        SCOPED_TRACE(function);
        expectFailure(writingError, Failing(function), 1);
        expectFiles(true, false, false);
        EXPECT_EQ(fs::file_size(privatePath), 0u);
    }
    expectFailure(writingError, Overriding("fflush", EOF), 1);
    expectFiles(true, false, false);
    expectFailure(writingError, Overriding("fclose", EOF));
    expectFiles(true, false, false);
}

TEST_F(EcGenerateKeysUnderFaults, KeepsThePrivateKeyIfThePublicKeyFileFails)
{
    expectFailure(privateLine + Error("Error: creating key file fails\n") + publicError,
                  Failing("fopen", 0, 2));
    expectFiles(true, false, false);
    for (const Preparation &prepare : {Failing("PEM_write_PUBKEY"), Overriding("fclose", EOF, 2)}) {
        expectFailure(privateLine + Error("Error: writing key fails\n") + publicError, prepare);
        expectFiles(true, true, false);
        EXPECT_EQ(ModeOf(privatePath), 0400);
        EXPECT_EQ(ModeOf(publicPath), 0444);
        EXPECT_TRUE(OpensPrivateKey(privatePath, "password"));
    }
}

TEST_F(EcGenerateKeysUnderFaults, KeepsBothKeysIfTheHashFileFails)
{
    const std::string digestError = Error("Error : calculating public Key (DER Format) hash fails\n") +
                                    Error("Error: calculating PubKey hash fails\n") + hashError;
    const std::pair<Preparation, std::string> cases[] = {
        {Failing("CRYPTO_malloc"), Error("Error: allocating buffer for PubKey hash fails\n") + hashError},
        {Failing("EVP_MD_CTX_new"), Error("unknown message digest ") + digestError},
        {Failing("EVP_DigestUpdate"), digestError},
        {Failing("fopen", 0, 3), CannotOpen(hashPath) + hashError},
    };
    for (const auto &[prepare, messages] : cases) {
        expectFailure(privateLine + publicLine + messages, prepare);
        expectFiles(true, true, false);
        EXPECT_EQ(ModeOf(privatePath), 0400);
        EXPECT_EQ(ModeOf(publicPath), 0444);
        EXPECT_EQ(PointOfPrivateKey(privatePath, "password"), PointOfPublicKey(publicPath));
    }
}

TEST_F(EcGenerateKeysUnderFaults, WipesTheSecretIfTheGenerationSucceeds)
{
    const auto run = [&] {
        ReleasedMemory memory;
        LibraryFaults faults;
        searchForTheNewNumber(faults, memory);
        EXPECT_EQ(EC_Crypto(brainpoolP256t1)
                      .GenerateKeys(Bytes(privatePath), Bytes(publicPath), Bytes(hashPath), Bytes("password"),
                                    AES128_CBC),
                  1);
        EXPECT_FALSE(memory.containedTheSecret());
    };
    CapturedOutput output;
    EXPECT_EQ(LeakedBy(run), 0);
}

TEST_F(EcGenerateKeysUnderFaults, FlushesStandardOutputBetweenTheSteps)
{
    CapturedOutput output;
    LibraryFaults faults;
    std::string seenAtGeneration;
    faults.before("EVP_PKEY_keygen", [&] { seenAtGeneration = output.flushedText(); });
    EXPECT_EQ(EC_Crypto(prime256v1)
                  .GenerateKeys(Bytes(privatePath), Bytes(publicPath), Bytes(hashPath), Bytes("password"),
                                AES256_CBC),
              1);
    EXPECT_EQ(seenAtGeneration, aes256Line + primeLine);
    const std::vector<std::string> order = {"fflush(stdout)", "EVP_PKEY_keygen", "EC_KEY_check_key",
                                            "fflush(stdout)", "PEM_write_PKCS8", "PEM_write_PUBKEY",
                                            "EVP_sha256",     "fflush(stdout)"};
    EXPECT_EQ(faults.callsOf(order), order);
    EXPECT_EQ(faults.calls("fopen"), faults.calls("fclose"));
}

} // namespace
