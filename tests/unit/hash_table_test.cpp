#include "keygen/hash_table.h"

#include "keygen/run_settings.h"
#include "tests/support/fresh_settings.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace {

std::string hex(const std::string &bytes)
{
    return QByteArray::fromStdString(bytes).toHex().toStdString();
}

std::string hexDigest(const unsigned char *digest)
{
    return hex(std::string(reinterpret_cast<const char *>(digest), 32));
}

std::string hexSha256(const std::string &text)
{
    return hex(sha256(reinterpret_cast<const unsigned char *>(text.data()), static_cast<int>(text.size())));
}

TEST(Sha256, ReturnsTheRawDigestOfKnownTexts)
{
    EXPECT_EQ(hexSha256(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(hexSha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(hexSha256("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
              "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    EXPECT_EQ(hexSha256(std::string(1000000, 'a')),
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(Sha256, ReadsZeroBytesAndStopsAtTheGivenLength)
{
    EXPECT_EQ(hexSha256(std::string(1, '\0')),
              "6e340b9cffb37a989ca544e6bb780a2c78901d3fb33738768511a30617afa01d");
    const std::array<unsigned char, 4> text = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(hex(sha256(text.data(), 3)), hexSha256("abc"));
}

/// Tables of eight keys: byte j of key i is 65i + j. Bytes after a key in its buffer must be ignored.
class HashTable : public FreshSettings {
protected:
    HashTable()
    {
        for (std::size_t i = 0; i < keys.size(); ++i) {
            for (std::size_t j = 0; j < keys[i].size(); ++j)
                keys[i][j] = j < publicPointSize ? static_cast<unsigned char>(65 * i + j) : 0xEE;
            pubKeysTable[i] = keys[i].data();
        }
    }

    ~HashTable() override
    {
        for (const unsigned char *digest : newPubKeysHashTable)
            delete[] digest;
        delete[] tableHashValue;
    }

    static std::array<std::string, 8> hashes()
    {
        createHashTable();
        std::array<std::string, 8> texts;
        for (std::size_t i = 0; i < texts.size(); ++i)
            texts[i] = hexDigest(newPubKeysHashTable[i]);
        return texts;
    }

    static std::string tableHash()
    {
        createHashTable();
        calculateTableHashValue();
        return hexDigest(tableHashValue);
    }

private:
    std::array<std::array<unsigned char, 70>, 8> keys;
};

TEST(HashTableSizes, TheSizesAreThoseOfAPointAndOfARecord)
{
    EXPECT_EQ(publicPointSize, 64U);
    EXPECT_EQ(hashRecordSize, 68U);
}

// The digests were computed with another implementation: SHA-256 of 01 00 00 00, or 02 00 00 00, and the key.

TEST_F(HashTable, EachKeyIsHashedAfterTheIdentifierOfPrime256v1)
{
    EXPECT_EQ(hashes(), (std::array<std::string, 8>{
                            "9df11e7829e0b7406fd51b28863063c5b74dcf559b80e19f49dca252379ea866",
                            "95ad4df80595c8c5f43003052a1671ef73c2244b1f01270635e4520f2e10be46",
                            "e98e965fbfece3bf555bd4bf4664840fa8d43c09f57b871d5dfb8c65fb8bb826",
                            "ece6f654def2d88896c67bc735bd7e1d3755cf6883172398ebf5484c54f09a1e",
                            "65569a0cf0a29cfeef6f7b4d01f702a0f01a60e1a47222d76ed866f8ec57e642",
                            "50816d1259a4f3838c4fbd478ced8aad5f05b8461d6450076dfa7445a9e727cf",
                            "12271edc9a67719982b74490f5fb78cd025139823667774a6d6a500588ed771f",
                            "845ce13d42c702a5671bdb0f487f44118832c84449e6ca7aed62c401f4339d1c"}));
}

TEST_F(HashTable, EachKeyIsHashedAfterTheIdentifierOfBrainpoolP256t1)
{
    brainpoolP256t1 = true;
    EXPECT_EQ(hashes(), (std::array<std::string, 8>{
                            "95a1be9e6962fc98d20913af899ccd1fb07669340385a443314ee31299181e0e",
                            "9b82244e87ac670d9714b090f78d97192d6987fc85362385068fd58f406a920d",
                            "91d18c115b484cbee98928f538fb38ff2e23261e9892d7f0ce9352887606b0cf",
                            "4322d2aabf467473ffe591e73a4455f0efc6ffb58829d13efdcf947493e11b72",
                            "30e84b4dc054ed0716025a4fcbc3aba1059a023e3c4c13be9fa17db87784282e",
                            "5cb3a320b5c6d4cb0e7cb03e44f6128129ccf1acc28f519df72e72419210365e",
                            "7aa9d9ddc8308bc0dcb9a4601ae274269ea5fda506882f2d22a9eb0592c4bb62",
                            "bd78ee976a9963a4b3288e5237c111609e5e8ccc1ea3e0e15404d8b8d5f0623f"}));
}

TEST_F(HashTable, AllEightEntriesAreFilledForAPacketOfOne)
{
    numberKeys = 8;
    const std::array<std::string, 8> ofEight = hashes();
    for (const unsigned char *digest : newPubKeysHashTable)
        delete[] digest;
    numberKeys = 1;
    EXPECT_EQ(hashes(), ofEight);
}

TEST_F(HashTable, TheWholeTableIsHashedForAPacketOfEight)
{
    numberKeys = 8;
    EXPECT_EQ(tableHash(), "542aa83a869e7105352cb780e120a6e414205b17b777707cb153a593f80bf5f8");
}

TEST_F(HashTable, TheWholeTableIsHashedForAPacketOfEightOnBrainpoolP256t1)
{
    numberKeys = 8;
    brainpoolP256t1 = true;
    EXPECT_EQ(tableHash(), "f8cefb045fb3d8e1451157a710335195fcd9a872a8768a28a1ef0e1b1dfd61ea");
}

TEST_F(HashTable, OnlyTheFirstEntryIsHashedForAPacketOfOne)
{
    numberKeys = 1;
    EXPECT_EQ(tableHash(), "766f69a85787abb315a4c09494c1f6d49f5d814998531d2fe2dd8d77259250a2");
}

class TableHashFile : public FreshSettings {
protected:
    static std::string pathFor(const char *path)
    {
        hashPath = path;
        return TableHashPath().toStdString();
    }
};

TEST_F(TableHashFile, TheFileIsNamedAfterTheHashFile)
{
    EXPECT_EQ(pathFor("publicKeyhash.bin"), "publicKeysHashHashes.bin");
    EXPECT_EQ(pathFor("/out/hash/publicKeyhash.bin"), "/out/hash/publicKeysHashHashes.bin");
    EXPECT_EQ(pathFor("my-publicKeyhash-file"), "my-publicKeysHashHashes-file");
}

TEST_F(TableHashFile, TheNameIsAlsoReplacedInDirectories)
{
    EXPECT_EQ(pathFor("/publicKeyhash/publicKeyhashpublicKeyhash.bin"),
              "/publicKeysHashHashes/publicKeysHashHashespublicKeysHashHashes.bin");
}

TEST_F(TableHashFile, TheFileIsTheHashFileItselfIfThatHasAnotherName)
{
    EXPECT_EQ(pathFor("out/h.bin"), "out/h.bin");
    EXPECT_EQ(pathFor("out/publickeyhash.bin"), "out/publickeyhash.bin");
    EXPECT_EQ(pathFor("out/publicKeyHash.bin"), "out/publicKeyHash.bin");
}

TEST_F(TableHashFile, ThePathOfTheHashFileIsNotChanged)
{
    pathFor("publicKeyhash.bin");
    EXPECT_EQ(hashPath, "publicKeyhash.bin");
}

} // namespace
