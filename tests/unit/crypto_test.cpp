#include "src/crypto.h"

#include "src/ec_crypto.h"
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

constexpr int prime256v1 = 415;
constexpr int brainpoolP256t1 = 928;

// The class has no data members, and objects are never deleted through a base pointer.
static_assert(sizeof(Crypto) == sizeof(void *));
static_assert(std::is_polymorphic_v<Crypto>);
static_assert(!std::has_virtual_destructor_v<Crypto>);
static_assert(std::is_same_v<decltype(std::declval<Crypto>().KeyGen(nullptr)), int>);
static_assert(AES128_CBC == 0);
static_assert(AES256_CBC == 1);

using Preparation = std::function<void(LibraryFaults &)>;

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

TEST(Crypto, PrintsNothingWhenConstructedAnyNumberOfTimes)
{
    CapturedOutput errors(2);
    CapturedOutput output;
    Crypto first;
    Crypto second;
    EXPECT_EQ(output.text(), "");
    EXPECT_EQ(errors.text(), "");
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
    ERR_clear_error();
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
    Crypto engine;
    CapturedOutput output;
    EXPECT_EQ(engine.Buffer_Cleanup(nullptr), 0);
    EXPECT_EQ(engine.Buffer_Cleanup(static_cast<unsigned char *>(OPENSSL_malloc(16))), 1);
    EXPECT_EQ(output.text(), "");
}

TEST(Crypto, DoesNotSupportTheBinaryForm)
{
    Crypto engine;
    const KeyOwner key = FixedKey(prime256v1, 1);
    unsigned char mark = 0;
    unsigned char *buffer = &mark;
    std::size_t length = 7;
    CapturedOutput output;
    EXPECT_EQ(engine.GetPubKeyBin(key.get(), &buffer, &length), 0);
    EXPECT_EQ(output.text(), Error("Not supported operation\n"));
    EXPECT_EQ(buffer, &mark);
    EXPECT_EQ(length, 7u);
}

TEST(Crypto, EncodesAPublicKeyWithItsNamedCurve)
{
    Crypto engine;
    for (const auto &[nid, size] : {std::pair(prime256v1, 91u), std::pair(brainpoolP256t1, 92u)}) {
        const KeyOwner key = FixedKey(nid, 20);
        unsigned char old = 0x55;
        unsigned char *buffer = &old;
        std::size_t length = 7;
        CapturedOutput output;
        EXPECT_EQ(engine.GetPubKeyDER(key.get(), &buffer, &length), 1);
        EXPECT_EQ(output.text(), "");
        ASSERT_NE(buffer, &old);
        EXPECT_EQ(length, size);
        EXPECT_EQ(TakeBuffer(buffer, length), EncodingOfPoint(nid, PointOf(key.get())));
        EXPECT_EQ(old, 0x55);
    }
}

TEST(Crypto, RefusesToEncodeANullKey)
{
    Crypto engine;
    unsigned char mark = 0;
    unsigned char *buffer = &mark;
    std::size_t length = 7;
    CapturedOutput output;
    EXPECT_EQ(engine.GetPubKeyDER(static_cast<EVP_PKEY *>(nullptr), &buffer, &length), -1);
    EXPECT_EQ(output.text(), Error("Error: extracting public key fails\n"));
    EXPECT_EQ(buffer, &mark);
    EXPECT_EQ(length, 0u);
}

class GetPubKeyDerUnderFaults : public testing::Test {
protected:
    ~GetPubKeyDerUnderFaults() override { ERR_clear_error(); }

    const KeyOwner key = FixedKey(prime256v1, 5);
    unsigned char untouched = 0;
};

TEST_F(GetPubKeyDerUnderFaults, KeepsTheBufferIfTheLengthCannotBeDetermined)
{
    for (const long length : {0L, -1L}) {
        LibraryFaults faults;
        faults.fail("i2d_PUBKEY", length);
        unsigned char *der = &untouched;
        std::size_t size = 12345;
        CapturedOutput output;
        EXPECT_EQ(Crypto().GetPubKeyDER(key.get(), &der, &size), -1);
        EXPECT_EQ(output.text(), Error("Error: extracting public key fails\n"));
        EXPECT_EQ(der, &untouched);
        EXPECT_EQ(size, 0u);
        EXPECT_EQ(faults.calls("CRYPTO_malloc"), 0);
    }
}

TEST_F(GetPubKeyDerUnderFaults, SetsTheBufferToNullIfItsAllocationFails)
{
    LibraryFaults faults;
    faults.fail("CRYPTO_malloc");
    unsigned char *der = &untouched;
    std::size_t size = 12345;
    CapturedOutput output;
    EXPECT_EQ(Crypto().GetPubKeyDER(key.get(), &der, &size), -1);
    EXPECT_EQ(output.text(), Error("Error: creating buffer for DER fromat public key fails\n"));
    EXPECT_EQ(der, nullptr);
    EXPECT_EQ(size, 91u);
    EXPECT_EQ(faults.calls("i2d_PUBKEY"), 1);
}

TEST_F(GetPubKeyDerUnderFaults, ReturnsTheUnfilledBufferIfTheEncodingFails)
{
    for (const long result : {0L, -1L}) {
        const auto run = [&] {
            LibraryFaults faults;
            faults.fail("i2d_PUBKEY", result, 2);
            unsigned char *der = &untouched;
            std::size_t size = 12345;
            CapturedOutput output;
            EXPECT_EQ(Crypto().GetPubKeyDER(key.get(), &der, &size), -1);
            EXPECT_EQ(output.text(), Error("Error: creating DER fromat public key fails\n"));
            ASSERT_NE(der, &untouched);
            EXPECT_NE(der, nullptr);
            EXPECT_EQ(size, 91u);
            EXPECT_EQ(Crypto().Buffer_Cleanup(der), 1);
        };
        EXPECT_EQ(LeakedBy(run), 0);
    }
}

TEST_F(GetPubKeyDerUnderFaults, TheBinaryFormFailsInTheSameWay)
{
    const struct {
        const char *function;
        int call;
        const char *message;
    } cases[] = {
        {"i2d_PUBKEY", 1, "Error: extracting public key fails\n"},
        {"CRYPTO_malloc", 1, "Error: creating buffer for DER fromat public key fails\n"},
        {"i2d_PUBKEY", 2, "Error: creating DER fromat public key fails\n"},
    };
    const std::string path = StoredKeyPath("prime256v1.public.pem");
    for (const auto &[function, call, message] : cases) {
        for (const bool fromFile : {false, true}) {
            const auto run = [&, name = function, number = call, text = message] {
                LibraryFaults faults;
                faults.fail(name, 0, number);
                EC_Crypto engine(prime256v1);
                unsigned char *form = nullptr;
                std::size_t size = 0;
                CapturedOutput output;
                EXPECT_EQ(fromFile ? engine.GetPubKeyBin(Bytes(path), &form, &size)
                                   : engine.GetPubKeyBin(key.get(), &form, &size),
                          -1);
                EXPECT_EQ(output.text(), Error(text));
                OPENSSL_free(form);
            };
            EXPECT_EQ(LeakedBy(run), 0);
        }
    }
}

class GetPubKeyDerOfFile : public testing::Test {
protected:
    ~GetPubKeyDerOfFile() override { ERR_clear_error(); }

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
        EXPECT_EQ(LeakedBy(run), 0);
    }

    TemporaryFolder folder;
};

TEST_F(GetPubKeyDerOfFile, ReturnsTheEncodingInTheFile)
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
        EXPECT_EQ(LeakedBy(run), 0);
    }
}

TEST_F(GetPubKeyDerOfFile, FailsIfTheFileCannotBeOpened)
{
    const std::string missing = folder / "missing.pem";
    expectFailure(missing, CannotOpen(missing) + Error("Error: reading public key fails\n"));
}

TEST_F(GetPubKeyDerOfFile, FailsIfTheFileContainsNoPublicKey)
{
    for (const std::string &content : {std::string(), ReadFile(StoredKeyPath("prime256v1.pem"))}) {
        WriteFile(folder / "key.pem", content);
        expectFailure(folder / "key.pem", Error("Error: extracting public key fails\n"));
    }
}

TEST(Crypto, CalculatesTheSha256OfAnyData)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {std::string("\0", 1), "6e340b9cffb37a989ca544e6bb780a2c78901d3fb33738768511a30617afa01d"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {std::string(1000000, 'a'), "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    Crypto engine;
    for (const auto &[data, digest] : cases) {
        std::string buffer(34, '#');
        unsigned char *place = reinterpret_cast<unsigned char *>(buffer.data());
        std::size_t length = 7;
        CapturedOutput output;
        EXPECT_EQ(engine.CalculateDigest(Bytes(data), data.size(), &place, &length), 1);
        EXPECT_EQ(output.text(), "");
        EXPECT_EQ(length, 32u);
        EXPECT_EQ(place, Bytes(buffer));
        EXPECT_EQ(buffer, FromHex(digest) + "##");
    }
}

TEST(Crypto, DigestsNoMoreThanTheLengthGiven)
{
    Crypto engine;
    std::string buffer(32, '#');
    unsigned char *place = reinterpret_cast<unsigned char *>(buffer.data());
    std::size_t length = 0;
    EXPECT_EQ(engine.CalculateDigest(Bytes("abcdef"), 3, &place, &length), 1);
    EXPECT_EQ(buffer, FromHex("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
}

class CalculateDigestUnderFaults : public testing::Test {
protected:
    ~CalculateDigestUnderFaults() override { ERR_clear_error(); }

    void expectDigest(int status, const std::string &messages, const Preparation &prepare)
    {
        const auto run = [&] {
            LibraryFaults faults;
            prepare(faults);
            std::string buffer(32, '\0');
            auto *digest = reinterpret_cast<unsigned char *>(buffer.data());
            std::size_t size = ~std::size_t{0};
            CapturedOutput output;
            EXPECT_EQ(Crypto().CalculateDigest(Bytes("data"), 4, &digest, &size), status);
            EXPECT_EQ(output.text(), messages);
            EXPECT_EQ(size, 0u);
        };
        EXPECT_EQ(LeakedBy(run), 0);
    }
};

TEST_F(CalculateDigestUnderFaults, FailsIfThereIsNoMethodOrContext)
{
    for (const char *function : {"EVP_sha256", "EVP_MD_CTX_new"})
        expectDigest(-1, Error("unknown message digest "),
                     [=](LibraryFaults &faults) { faults.fail(function); });
}

TEST_F(CalculateDigestUnderFaults, SetsTheLengthToZeroIfAStepFails)
{
    for (const char *function :
         {"EVP_MD_CTX_reset", "EVP_DigestInit_ex", "EVP_DigestUpdate", "EVP_DigestFinal_ex"}) {
        SCOPED_TRACE(function);
        expectDigest(1, "", [=](LibraryFaults &faults) { faults.fail(function); });
    }
}

TEST_F(CalculateDigestUnderFaults, PerformsItsStepsInOrder)
{
    LibraryFaults faults;
    std::string buffer(32, '\0');
    auto *digest = reinterpret_cast<unsigned char *>(buffer.data());
    // The upper half of the length must be written, too.
    std::size_t size = ~std::size_t{0};
    EXPECT_EQ(Crypto().CalculateDigest(Bytes("data"), 4, &digest, &size), 1);
    EXPECT_EQ(size, 32u);
    EXPECT_EQ(faults.callsOf({"EVP_sha256", "EVP_MD_CTX_new", "EVP_MD_CTX_reset", "EVP_DigestInit_ex",
                              "EVP_DigestUpdate", "EVP_DigestFinal_ex"}),
              (std::vector<std::string>{"EVP_sha256", "EVP_MD_CTX_new", "EVP_MD_CTX_reset",
                                        "EVP_DigestInit_ex", "EVP_DigestUpdate", "EVP_DigestFinal_ex"}));
    EXPECT_EQ(buffer, Sha256Of("data"));
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

TEST(GetHashPubKey, HashesTheBinaryFormOfItsOwnClass)
{
    EngineWithBinaryForm engine(1, "abc");
    const KeyOwner key = FixedKey(prime256v1, 1);
    std::string buffer(34, '#');
    unsigned char *place = reinterpret_cast<unsigned char *>(buffer.data());
    std::size_t length = 7;
    CapturedOutput output;
    EXPECT_EQ(engine.GetHashPubKey(key.get(), &place, &length), 1);
    EXPECT_EQ(output.text(), "");
    EXPECT_EQ(engine.askedFor, key.get());
    EXPECT_EQ(length, 32u);
    EXPECT_EQ(buffer, FromHex("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad") + "##");
}

TEST(GetHashPubKey, PrintsAnUncolouredMessageIfTheBinaryFormFails)
{
    const KeyOwner key = FixedKey(prime256v1, 1);
    for (const int result : {0, -1, 2}) {
        EngineWithBinaryForm engine(result, "abc");
        std::string buffer(32, '#');
        unsigned char *place = reinterpret_cast<unsigned char *>(buffer.data());
        std::size_t length = 0;
        CapturedOutput output;
        EXPECT_EQ(engine.GetHashPubKey(key.get(), &place, &length), -1);
        EXPECT_EQ(output.text(), "Error: converting public Key to DER Format fails \n");
        EXPECT_EQ(buffer, std::string(32, '#'));
    }
}

TEST(GetHashPubKey, FailsIfTheDigestFails)
{
    const std::string hashError = Error("Error : calculating public Key (DER Format) hash fails\n");
    const std::pair<const char *, std::string> cases[] = {
        {"EVP_sha256", Error("unknown message digest ") + hashError},
        {"EVP_MD_CTX_new", Error("unknown message digest ") + hashError},
        {"EVP_MD_CTX_reset", hashError},
        {"EVP_DigestInit_ex", hashError},
        {"EVP_DigestUpdate", hashError},
        {"EVP_DigestFinal_ex", hashError},
    };
    for (const auto &[function, messages] : cases) {
        SCOPED_TRACE(function);
        EngineWithBinaryForm engine(1, "abc");
        std::string buffer(32, '#');
        unsigned char *place = reinterpret_cast<unsigned char *>(buffer.data());
        std::size_t length = 7;
        LibraryFaults faults;
        faults.fail(function);
        CapturedOutput output;
        EXPECT_EQ(engine.GetHashPubKey(nullptr, &place, &length), -1);
        EXPECT_EQ(output.text(), messages);
        EXPECT_EQ(length, 0u);
    }
}

TEST(GetHashPubKey, IsNotSupportedByTheBaseClass)
{
    Crypto engine;
    const KeyOwner key = FixedKey(prime256v1, 1);
    std::string buffer(32, '#');
    unsigned char *place = reinterpret_cast<unsigned char *>(buffer.data());
    std::size_t length = 0;
    CapturedOutput output;
    EXPECT_EQ(engine.GetHashPubKey(key.get(), &place, &length), -1);
    EXPECT_EQ(output.text(),
              Error("Not supported operation\n") + "Error: converting public Key to DER Format fails \n");
    EXPECT_EQ(buffer, std::string(32, '#'));
}

TEST(GetHashPubKey, HashesThePointOfAnEllipticCurveKey)
{
    // Digests computed with another tool.
    const std::pair<EC_Crypto, const char *> cases[] = {
        {EC_Crypto(prime256v1), "4b86e7c3666058e52c3297d7793aa8d51c26fe830d0aa38be94b232c1e0db0fc"},
        {EC_Crypto(brainpoolP256t1), "2c1d865d00f297d9949c69266f536246d43fcd2658a539b99e47ca252c3cb564"},
    };
    for (auto [engine, digest] : cases) {
        const std::string name =
            engine.curveNID == prime256v1 ? "prime256v1-public.pem" : "brainpoolP256t1-public.pem";
        EVP_PKEY *key = nullptr;
        ASSERT_EQ(engine.ReadPubKey(Bytes(TestData(name)), &key), 1);
        const KeyOwner owner(key);
        std::string buffer(32, '#');
        unsigned char *place = reinterpret_cast<unsigned char *>(buffer.data());
        std::size_t length = 0;
        EXPECT_EQ(engine.GetHashPubKey(key, &place, &length), 1);
        EXPECT_EQ(length, 32u);
        EXPECT_EQ(buffer, FromHex(digest));
    }
}

} // namespace
