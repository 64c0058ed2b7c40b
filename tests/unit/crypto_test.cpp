#include "src/crypto.h"

#include "src/ec_crypto.h"
#include "tests/support/buffer_call.h"
#include "tests/support/captured_output.h"
#include "tests/support/library_faults.h"
#include "tests/support/library_memory.h"
#include "tests/support/private_keys.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"

#include <gtest/gtest.h>

#include <openssl/err.h>
#include <openssl/objects.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

// The class has no data members, and objects are never deleted through a base pointer.
static_assert(sizeof(Crypto) == sizeof(void *));
static_assert(std::is_polymorphic_v<Crypto>);
static_assert(!std::has_virtual_destructor_v<Crypto>);
static_assert(std::is_same_v<decltype(std::declval<Crypto>().KeyGen(nullptr)), int>);
static_assert(AES128_CBC == 0);
static_assert(AES256_CBC == 1);

/// The slot of a virtual function in its class's table, up to an offset that all functions share.
template <typename Member>
std::size_t slotOf(Member operation)
{
    std::size_t place = 0;
    std::memcpy(&place, &operation, sizeof place);
    return place / sizeof(void *);
}

TEST(Crypto, DeclaresTheVirtualFunctionsInOrder)
{
    const std::size_t first = slotOf(&Crypto::KeyGen);
    EXPECT_EQ(slotOf(&Crypto::sign), first + 1);
    EXPECT_EQ(slotOf(&Crypto::GetPubKeyBin), first + 2);
}

TEST(Crypto, InitialisesTheLibraryInFourStepsAtEachConstruction)
{
    LibraryFaults faults;
    std::vector<std::uint64_t> options;
    faults.replace<decltype(OPENSSL_init_crypto)>(
        "OPENSSL_init_crypto", [&](std::uint64_t option, const OPENSSL_INIT_SETTINGS *settings) {
            options.push_back(option);
            EXPECT_EQ(settings, nullptr);
            return 0;
        });
    CapturedOutput errors(2);
    CapturedOutput output;
    const std::vector<std::uint64_t> steps = {OPENSSL_INIT_LOAD_CRYPTO_STRINGS,
                                              OPENSSL_INIT_ADD_ALL_CIPHERS | OPENSSL_INIT_ADD_ALL_DIGESTS,
                                              OPENSSL_INIT_ADD_ALL_DIGESTS, OPENSSL_INIT_LOAD_CONFIG};
    const Crypto plain;
    EXPECT_EQ(options, steps);
    options.clear();
    const EC_Crypto elliptic(prime256v1);
    EXPECT_EQ(options, steps);
    options.clear();
    const EC_Crypto withoutCurve;
    EXPECT_EQ(options, steps);
    EXPECT_EQ(output.text(), "");
    EXPECT_EQ(errors.text(), "");
}

void raise(int library)
{
    ERR_put_error(library, 1, ERR_R_INTERNAL_ERROR, "file", 1);
}

TEST(Crypto, KeepsErrorsFromBeforeTheConstructionAndNoOthers)
{
    for (const int before : {0, 1, 2}) {
        for (int i = 0; i < before; ++i)
            raise(ERR_LIB_EC);
        LibraryFaults faults;
        faults.replace<decltype(OPENSSL_init_crypto)>("OPENSSL_init_crypto",
                                                      [&](std::uint64_t, const OPENSSL_INIT_SETTINGS *) {
                                                          raise(ERR_LIB_CONF);
                                                          return 0;
                                                      });
        const Crypto engine;
        EXPECT_EQ(faults.calls("OPENSSL_init_crypto"), 4);
        for (int i = 0; i < before; ++i)
            EXPECT_EQ(ERR_GET_LIB(ERR_get_error()), ERR_LIB_EC);
        EXPECT_EQ(ERR_get_error(), 0u);
    }
}

/// Whether `setUp`, which initialises the library in its process, leaves errors in the queue if the
/// configuration file is broken.
bool leavesErrorsOfTheConfiguration(const std::function<void()> &setUp)
{
    const TemporaryFolder folder;
    WriteFile(folder / "library.cnf", "config_diagnostics = 1\n"
                                      "openssl_conf = setup\n"
                                      "[setup]\n"
                                      "alg_section = missing\n");
    setenv("OPENSSL_CONF", (folder / "library.cnf").c_str(), 1);
    setUp();
    return ERR_peek_error() != 0;
}

TEST(CryptoDeathTest, ABrokenConfigurationFileLeavesNoErrors)
{
    // New processes, so that no other configuration has been read before.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto library = [] { OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, nullptr); };
    EXPECT_EXIT(std::_Exit(leavesErrorsOfTheConfiguration(library) ? 1 : 0), testing::ExitedWithCode(1), "");
    const auto engine = [] { const Crypto constructed; };
    EXPECT_EXIT(std::_Exit(leavesErrorsOfTheConfiguration(engine) ? 1 : 0), testing::ExitedWithCode(0), "");
}

/// Whether constructing an engine, the first in its process, reads the configuration file that the
/// environment names: the file gives a name to an object identifier.
bool readsConfiguration()
{
    const TemporaryFolder folder;
    WriteFile(folder / "library.cnf", "openssl_conf = setup\n"
                                      "[setup]\n"
                                      "oid_section = names\n"
                                      "[names]\n"
                                      "nameOfThisTest = 1.2.3.4.5.6.7.8\n");
    setenv("OPENSSL_CONF", (folder / "library.cnf").c_str(), 1);
    Crypto engine;
    return OBJ_sn2nid("nameOfThisTest") != NID_undef;
}

TEST(CryptoDeathTest, TheConstructorReadsTheStandardConfigurationFile)
{
    // A new process, so that no other configuration has been read before.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::_Exit(readsConfiguration() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(Crypto, ReleasesABufferAndRefusesANullPointer)
{
    const auto run = [] {
        Crypto engine;
        CapturedOutput output;
        EXPECT_EQ(engine.Buffer_Cleanup(nullptr), 0);
        EXPECT_EQ(engine.Buffer_Cleanup(static_cast<unsigned char *>(OPENSSL_malloc(16))), 1);
        EXPECT_EQ(output.text(), "");
    };
    EXPECT_EQ(LeakedBy(run), 0);
}

TEST(Crypto, DoesNotSupportTheBinaryForm)
{
    const KeyOwner key = FixedKey(prime256v1, 1);
    const BufferCall call([&](unsigned char **form, std::size_t *size) {
        return Crypto().GetPubKeyBin(key.get(), form, size);
    });
    EXPECT_EQ(call.status, 0);
    EXPECT_EQ(call.printed, Error("Not supported operation\n"));
    EXPECT_TRUE(call.isUntouched());
}

BufferCall encodingOf(EVP_PKEY *key)
{
    return BufferCall(
        [=](unsigned char **der, std::size_t *size) { return Crypto().GetPubKeyDER(key, der, size); });
}

TEST(GetPubKeyDer, EncodesAPublicKeyWithItsNamedCurve)
{
    for (const int nid : {prime256v1, brainpoolP256t1}) {
        const KeyOwner key = FixedKey(nid, 20);
        const BufferCall call = encodingOf(key.get());
        EXPECT_EQ(call.status, 1);
        EXPECT_EQ(call.printed, "");
        EXPECT_EQ(call.bytes(), EncodingOfPoint(nid, PointOf(key.get())));
    }
}

TEST(GetPubKeyDer, RefusesToEncodeANullKey)
{
    const BufferCall call = encodingOf(nullptr);
    EXPECT_EQ(call.status, -1);
    EXPECT_EQ(call.printed, Error("Error: extracting public key fails\n"));
    EXPECT_FALSE(call.returnsBuffer());
    EXPECT_EQ(call.size, 0u);
}

TEST(GetPubKeyDer, KeepsTheBufferIfTheLengthCannotBeDetermined)
{
    const KeyOwner key = FixedKey(prime256v1, 5);
    for (const long length : {0L, -1L}) {
        LibraryFaults faults;
        faults.fail("i2d_PUBKEY", length);
        const BufferCall call = encodingOf(key.get());
        EXPECT_EQ(call.status, -1);
        EXPECT_EQ(call.printed, Error("Error: extracting public key fails\n"));
        EXPECT_FALSE(call.returnsBuffer());
        EXPECT_EQ(call.size, 0u);
        EXPECT_EQ(faults.calls("CRYPTO_malloc"), 0);
    }
}

TEST(GetPubKeyDer, SetsTheBufferToNullIfItsAllocationFails)
{
    const KeyOwner key = FixedKey(prime256v1, 5);
    LibraryFaults faults;
    faults.fail("CRYPTO_malloc");
    const BufferCall call = encodingOf(key.get());
    EXPECT_EQ(call.status, -1);
    EXPECT_EQ(call.printed, Error("Error: creating buffer for DER fromat public key fails\n"));
    EXPECT_EQ(call.buffer, nullptr);
    EXPECT_EQ(call.size, 91u);
    EXPECT_EQ(faults.calls("i2d_PUBKEY"), 1);
}

TEST(GetPubKeyDer, ReturnsTheUnfilledBufferIfTheEncodingFails)
{
    const KeyOwner key = FixedKey(prime256v1, 5);
    for (const long result : {0L, -1L}) {
        const auto run = [&] {
            LibraryFaults faults;
            faults.fail("i2d_PUBKEY", result, 2);
            const BufferCall call = encodingOf(key.get());
            EXPECT_EQ(call.status, -1);
            EXPECT_EQ(call.printed, Error("Error: creating DER fromat public key fails\n"));
            EXPECT_TRUE(call.returnsBuffer());
            EXPECT_NE(call.buffer, nullptr);
            EXPECT_EQ(call.size, 91u);
        };
        EXPECT_EQ(LeakedBy(run), 0);
    }
}

TEST(GetPubKeyDer, TheBinaryFormFailsInTheSameWay)
{
    const std::pair<Preparation, const char *> cases[] = {
        {Failing("i2d_PUBKEY"), "Error: extracting public key fails\n"},
        {Failing("CRYPTO_malloc"), "Error: creating buffer for DER fromat public key fails\n"},
        {Failing("i2d_PUBKEY", 0, 2), "Error: creating DER fromat public key fails\n"},
    };
    const KeyOwner key = FixedKey(prime256v1, 5);
    const std::string path = StoredKeyPath("prime256v1.public.pem");
    for (const auto &[prepare, message] : cases) {
        for (const bool fromFile : {false, true}) {
            const auto run = [&, &request = prepare, text = message] {
                LibraryFaults faults;
                request(faults);
                const BufferCall call([&](unsigned char **form, std::size_t *size) {
                    EC_Crypto engine(prime256v1);
                    return fromFile ? engine.GetPubKeyBin(Bytes(path), form, size)
                                    : engine.GetPubKeyBin(key.get(), form, size);
                });
                EXPECT_EQ(call.status, -1);
                EXPECT_EQ(call.printed, Error(text));
            };
            EXPECT_EQ(LeakedBy(run), 0);
        }
    }
}

BufferCall encodingIn(const std::string &path)
{
    return BufferCall([&](unsigned char **der, std::size_t *size) {
        return Crypto().GetPubKeyDER(Bytes(path), der, size);
    });
}

void expectNoEncodingIn(const std::string &path, const std::string &messages)
{
    const auto run = [&] {
        const BufferCall call = encodingIn(path);
        EXPECT_EQ(call.status, -1);
        EXPECT_EQ(call.printed, messages);
        EXPECT_FALSE(call.returnsBuffer());
    };
    EXPECT_EQ(LeakedBy(run), 0);
}

TEST(GetPubKeyDerOfFile, ReturnsTheEncodingInTheFile)
{
    for (const std::string &name : storedNames) {
        const std::string path = StoredKeyPath(name + ".public.pem");
        const auto run = [&] {
            const BufferCall call = encodingIn(path);
            EXPECT_EQ(call.status, 1);
            EXPECT_EQ(call.printed, "");
            EXPECT_EQ(call.bytes(), ContentOfPemFile("PUBLIC KEY", ReadFile(path)));
        };
        EXPECT_EQ(LeakedBy(run), 0);
    }
}

TEST(GetPubKeyDerOfFile, FailsIfTheFileCannotBeOpened)
{
    const TemporaryFolder folder;
    const std::string missing = folder / "missing.pem";
    expectNoEncodingIn(missing, CannotOpen(missing) + Error("Error: reading public key fails\n"));
}

TEST(GetPubKeyDerOfFile, FailsIfTheFileContainsNoPublicKey)
{
    for (const std::string &path : {std::string("/dev/null"), StoredKeyPath("prime256v1.pem")})
        expectNoEncodingIn(path, Error("Error: extracting public key fails\n"));
}

/// The outcome of a call that calculates a digest in a buffer of the caller's.
struct DigestCall {
    explicit DigestCall(const std::function<int(unsigned char **digest, std::size_t *size)> &call)
    {
        auto *const begin = reinterpret_cast<unsigned char *>(buffer.data());
        unsigned char *place = begin;
        CapturedOutput output;
        status = call(&place, &size);
        printed = output.text();
        EXPECT_EQ(place, begin);
    }

    std::string buffer = std::string(34, '#');
    // The upper half must be written, too.
    std::size_t size = ~std::size_t{0};
    std::string printed;
    int status;
};

DigestCall digestOf(const std::string &data, std::size_t size)
{
    return DigestCall([&](unsigned char **digest, std::size_t *digestSize) {
        return Crypto().CalculateDigest(Bytes(data), size, digest, digestSize);
    });
}

TEST(CalculateDigest, CalculatesTheSha256OfAnyData)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {std::string("\0", 1), "6e340b9cffb37a989ca544e6bb780a2c78901d3fb33738768511a30617afa01d"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {std::string(1000000, 'a'), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    for (const auto &[data, digest] : cases) {
        const DigestCall call = digestOf(data, data.size());
        EXPECT_EQ(call.status, 1);
        EXPECT_EQ(call.printed, "");
        EXPECT_EQ(call.size, 32u);
        EXPECT_EQ(call.buffer, FromHex(digest) + "##");
    }
}

TEST(CalculateDigest, DigestsNoMoreThanTheLengthGiven)
{
    EXPECT_EQ(digestOf("abcdef", 3).buffer,
              FromHex("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad") + "##");
}

void expectNoDigest(int status, const std::string &messages, const Preparation &prepare)
{
    const auto run = [&] {
        LibraryFaults faults;
        prepare(faults);
        const DigestCall call = digestOf("data", 4);
        EXPECT_EQ(call.status, status);
        EXPECT_EQ(call.printed, messages);
        EXPECT_EQ(call.size, 0u);
    };
    EXPECT_EQ(LeakedBy(run), 0);
}

TEST(CalculateDigest, FailsIfThereIsNoMethodOrContext)
{
    for (const char *function : {"EVP_sha256", "EVP_MD_CTX_new"})
        expectNoDigest(-1, Error("unknown message digest "), Failing(function));
}

TEST(CalculateDigest, SetsTheLengthToZeroIfAStepFails)
{
    for (const char *function :
         {"EVP_MD_CTX_reset", "EVP_DigestInit_ex", "EVP_DigestUpdate", "EVP_DigestFinal_ex"}) {
        SCOPED_TRACE(function);
        expectNoDigest(1, "", Failing(function));
    }
}

TEST(CalculateDigest, PerformsItsStepsInOrder)
{
    LibraryFaults faults;
    digestOf("data", 4);
    const std::vector<std::string> steps = {"EVP_sha256",        "EVP_MD_CTX_new",   "EVP_MD_CTX_reset",
                                            "EVP_DigestInit_ex", "EVP_DigestUpdate", "EVP_DigestFinal_ex"};
    EXPECT_EQ(faults.callsOf(steps), steps);
}

/// An engine whose binary form the test supplies.
class EngineWithBinaryForm : public Crypto {
public:
    EngineWithBinaryForm(int resultOfCall, std::string binaryForm)
        : result(resultOfCall), form(std::move(binaryForm))
    {
    }

    int GetPubKeyBin(EVP_PKEY *key, unsigned char **out, size_t *outlen) override
    {
        askedFor = key;
        *out = static_cast<unsigned char *>(OPENSSL_memdup(form.data(), form.size()));
        *outlen = form.size();
        return result;
    }

    EVP_PKEY *askedFor = nullptr;

private:
    int result;
    std::string form;
};

DigestCall hashOf(EngineWithBinaryForm &engine, EVP_PKEY *key)
{
    return DigestCall(
        [&](unsigned char **digest, std::size_t *size) { return engine.GetHashPubKey(key, digest, size); });
}

TEST(GetHashPubKey, HashesTheBinaryFormOfItsOwnClass)
{
    EngineWithBinaryForm engine(1, "abc");
    const KeyOwner key = FixedKey(prime256v1, 1);
    const DigestCall call = hashOf(engine, key.get());
    EXPECT_EQ(call.status, 1);
    EXPECT_EQ(call.printed, "");
    EXPECT_EQ(engine.askedFor, key.get());
    EXPECT_EQ(call.size, 32u);
    EXPECT_EQ(call.buffer,
              FromHex("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad") + "##");
}

TEST(GetHashPubKey, PrintsAnUncolouredMessageIfTheBinaryFormFails)
{
    for (const int result : {0, -1, 2}) {
        EngineWithBinaryForm engine(result, "abc");
        const DigestCall call = hashOf(engine, nullptr);
        EXPECT_EQ(call.status, -1);
        EXPECT_EQ(call.printed, "Error: converting public Key to DER Format fails \n");
        EXPECT_EQ(call.buffer, std::string(34, '#'));
    }
}

TEST(GetHashPubKey, FailsIfTheDigestFails)
{
    const std::string hashError = Error("Error : calculating public Key (DER Format) hash fails\n");
    const std::pair<const char *, std::string> cases[] = {
        {"EVP_MD_CTX_new", Error("unknown message digest ") + hashError},
        {"EVP_DigestUpdate", hashError},
    };
    for (const auto &[function, messages] : cases) {
        SCOPED_TRACE(function);
        EngineWithBinaryForm engine(1, "abc");
        LibraryFaults faults;
        faults.fail(function);
        const DigestCall call = hashOf(engine, nullptr);
        EXPECT_EQ(call.status, -1);
        EXPECT_EQ(call.printed, messages);
        EXPECT_EQ(call.size, 0u);
    }
}

} // namespace
