#include "src/crypto.h"

#include "src/ec_crypto.h"
#include "tests/support/captured_output.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"

#include <gtest/gtest.h>

#include <openssl/objects.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

namespace {

constexpr int prime256v1 = 415;
constexpr int brainpoolP256t1 = 928;

// An object has no members of its own, and is never deleted through a base pointer.
static_assert(sizeof(Crypto) == sizeof(void *));
static_assert(std::is_polymorphic_v<Crypto>);
static_assert(!std::has_virtual_destructor_v<Crypto>);
static_assert(std::is_same_v<decltype(std::declval<Crypto>().KeyGen(nullptr)), int>);
static_assert(AES128_CBC == 0);
static_assert(AES256_CBC == 1);

std::string takeBuffer(unsigned char *buffer, std::size_t size)
{
    const BufferOwner owner(buffer);
    return {reinterpret_cast<const char *>(buffer), size};
}

/// The place of a virtual operation in its class's table, up to an offset that all operations share.
template <typename Member>
std::size_t slotOf(Member operation)
{
    std::size_t place = 0;
    std::memcpy(&place, &operation, sizeof place);
    return place / sizeof(void *);
}

TEST(Crypto, HasItsVirtualOperationsInTheirOrder)
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

/// Whether an engine's construction, the first in its process, reads the configuration file that the library
/// finds through the environment: the file gives an object identifier a name.
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

TEST(CryptoDeathTest, ReadsTheStandardConfigurationFileWhenConstructed)
{
    // A process of its own, in which nothing has read another configuration before.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::_Exit(readsConfiguration() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(Crypto, ReleasesBuffersButNoNullBuffer)
{
    Crypto engine;
    CapturedOutput output;
    EXPECT_EQ(engine.Buffer_Cleanup(nullptr), 0);
    EXPECT_EQ(engine.Buffer_Cleanup(static_cast<unsigned char *>(OPENSSL_malloc(16))), 1);
    EXPECT_EQ(output.text(), "");
}

TEST(Crypto, RefusesTheBinaryForm)
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
        EXPECT_EQ(takeBuffer(buffer, length), EncodingOfPoint(nid, PointOf(key.get())));
        EXPECT_EQ(old, 0x55);
    }
}

TEST(Crypto, EncodesNoMissingKey)
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

/// An engine whose binary form is given by the test.
class BinaryFormGiven : public Crypto {
public:
    BinaryFormGiven(int resultOfCall, std::string binaryForm)
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
    BinaryFormGiven engine(1, "abc");
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

TEST(GetHashPubKey, FailsWithAPlainLineWhenTheBinaryFormFails)
{
    const KeyOwner key = FixedKey(prime256v1, 1);
    for (const int result : {0, -1, 2}) {
        BinaryFormGiven engine(result, "abc");
        std::string buffer(32, '#');
        unsigned char *place = reinterpret_cast<unsigned char *>(buffer.data());
        std::size_t length = 0;
        CapturedOutput output;
        EXPECT_EQ(engine.GetHashPubKey(key.get(), &place, &length), -1);
        EXPECT_EQ(output.text(), "Error: converting public Key to DER Format fails \n");
        EXPECT_EQ(buffer, std::string(32, '#'));
    }
}

TEST(GetHashPubKey, IsRefusedByTheBaseClass)
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
    // Digests taken with another tool.
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
