#include "src/ec_crypto.h"

#include "tests/support/captured_output.h"
#include "tests/support/private_keys.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"

#include <gtest/gtest.h>

#include <openssl/bn.h>
#include <openssl/dsa.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/obj_mac.h>
#include <openssl/pem.h>

#include <climits>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <ostream>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int prime256v1 = 415;
constexpr int brainpoolP256t1 = 928;

static_assert(prime256v1 == NID_X9_62_prime256v1);
static_assert(brainpoolP256t1 == NID_brainpoolP256t1);
static_assert(std::is_convertible_v<EC_Crypto *, Crypto *>);
static_assert(!std::is_convertible_v<int, EC_Crypto>);
static_assert(!std::has_virtual_destructor_v<EC_Crypto>);
static_assert(std::is_same_v<decltype(EC_Crypto::curveNID), int>);

TEST(EcCrypto, HasNoCurveByDefault)
{
    CapturedOutput output;
    EXPECT_EQ(EC_Crypto().curveNID, 0);
    EXPECT_EQ(output.text(), "");
}

TEST(EcCrypto, AcceptsAnyCurveAtConstructionAndPrintsNothing)
{
    CapturedOutput output;
    for (const int nid : {prime256v1, brainpoolP256t1, 0, 1, -1, INT_MIN, INT_MAX})
        EXPECT_EQ(EC_Crypto(nid).curveNID, nid);
    EXPECT_EQ(output.text(), "");
}

struct Selection {
    int nid;
    int status;
    std::string message;
};

const std::vector<Selection> selections = {
    {brainpoolP256t1, 1, Info("brainpoolP256t1 curve is selected.\n")},
    {prime256v1, 1, Info("Prime256v1 curve is selected. \n")},
    {0, -1, Error("Unsupported curve NID!\n")},
    {-1, -1, Error("Unsupported curve NID!\n")},
    {414, -1, Error("Unsupported curve NID!\n")},
    {416, -1, Error("Unsupported curve NID!\n")},
    {927, -1, Error("Unsupported curve NID!\n")},
    {929, -1, Error("Unsupported curve NID!\n")},
    {NID_secp384r1, -1, Error("Unsupported curve NID!\n")},
};

TEST(SetCurveNID, StoresAnyCurveButSupportsOnlyTwo)
{
    for (const Selection &selection : selections) {
        EC_Crypto engine(7);
        CapturedOutput output;
        EXPECT_EQ(engine.SetCurveNID(selection.nid), selection.status);
        EXPECT_EQ(output.text(), selection.message);
        EXPECT_EQ(engine.curveNID, selection.nid);
    }
}

TEST(SetCurveNID, FlushesItsMessage)
{
    for (const Selection &selection : selections) {
        EC_Crypto engine;
        CapturedOutput output;
        engine.SetCurveNID(selection.nid);
        EXPECT_EQ(output.flushedText(), selection.message);
    }
}

TEST(SetCurveNID, ReplacesTheCurveEachTime)
{
    EC_Crypto engine;
    CapturedOutput output;
    EXPECT_EQ(engine.SetCurveNID(prime256v1), 1);
    EXPECT_EQ(engine.SetCurveNID(prime256v1), 1);
    EXPECT_EQ(engine.SetCurveNID(brainpoolP256t1), 1);
    EXPECT_EQ(engine.curveNID, brainpoolP256t1);
    EXPECT_EQ(output.text(), Info("Prime256v1 curve is selected. \n") +
                                 Info("Prime256v1 curve is selected. \n") +
                                 Info("brainpoolP256t1 curve is selected.\n"));
}

KeyOwner generatedKey(int nid)
{
    EVP_PKEY *key = nullptr;
    CapturedOutput errors(2);
    CapturedOutput output;
    EXPECT_EQ(EC_Crypto(nid).KeyGen(&key), 1);
    EXPECT_EQ(output.text(), "");
    EXPECT_EQ(errors.text(), "");
    return KeyOwner(key);
}

TEST(EcKeyGen, MakesAValidKeyThatNamesItsCurve)
{
    for (const int nid : {prime256v1, brainpoolP256t1}) {
        const KeyOwner key = generatedKey(nid);
        ASSERT_NE(key, nullptr);
        EXPECT_EQ(EVP_PKEY_base_id(key.get()), EVP_PKEY_EC);
        const EcKeyOwner ec(EVP_PKEY_get1_EC_KEY(key.get()));
        ASSERT_NE(ec, nullptr);
        EXPECT_EQ(EC_GROUP_get_curve_name(EC_KEY_get0_group(ec.get())), nid);
        EXPECT_EQ(EC_GROUP_get_asn1_flag(EC_KEY_get0_group(ec.get())), OPENSSL_EC_NAMED_CURVE);
        EXPECT_EQ(EC_KEY_get_conv_form(ec.get()), POINT_CONVERSION_UNCOMPRESSED);
        EXPECT_EQ(EC_KEY_check_key(ec.get()), 1);
    }
}

TEST(EcKeyGen, MakesADifferentKeyEachTime)
{
    std::set<std::string> numbers;
    for (int i = 0; i < 20; ++i)
        numbers.insert(NumberOf(generatedKey(i % 2 == 0 ? prime256v1 : brainpoolP256t1).get()));
    EXPECT_EQ(numbers.size(), 20u);
}

TEST(EcKeyGen, TheKeyObjectHoldsTheOnlyReferenceToTheCurveKey)
{
    KeyOwner key = generatedKey(prime256v1);
    const ReleaseWatch watch(key.get());
    EXPECT_FALSE(watch.released());
    key.reset();
    EXPECT_TRUE(watch.released());
}

TEST(EcKeyGen, ReleasesEverythingExceptTheKeyObject)
{
    const int before = LiveCurveKeys();
    KeyOwner key = generatedKey(prime256v1);
    EXPECT_GT(LiveCurveKeys(), before);
    key.reset();
    EXPECT_EQ(LiveCurveKeys(), before);
}

TEST(EcKeyGen, FailsOnAnInvalidCurveAndPrintsNothing)
{
    for (const int nid : {0, -1, NID_sha256, INT_MAX}) {
        const KeyOwner old = FixedKey(prime256v1, 7);
        EVP_PKEY *key = old.get();
        CapturedOutput errors(2);
        CapturedOutput output;
        EXPECT_EQ(EC_Crypto(nid).KeyGen(&key), 0);
        EXPECT_EQ(output.text(), "");
        EXPECT_EQ(errors.text(), "");
        EXPECT_EQ(key, old.get());
    }
    ERR_clear_error();
}

TEST(EcKeyGen, FailsIfThePointerToTheKeyIsNull)
{
    CapturedOutput errors(2);
    CapturedOutput output;
    EXPECT_EQ(EC_Crypto(prime256v1).KeyGen(nullptr), 0);
    EXPECT_EQ(output.text(), "");
    EXPECT_EQ(errors.text(), "");
}

/// GenerateKeys with paths in a temporary directory.
class EcGenerateKeys : public testing::Test {
protected:
    ~EcGenerateKeys() override { ERR_clear_error(); }

    int generate(EC_Crypto &engine, CIHERTYPE cipher, const std::string &password = "password")
    {
        CapturedOutput errors(2);
        CapturedOutput output;
        const int status = engine.GenerateKeys(Bytes(privatePath), Bytes(publicPath), Bytes(hashPath),
                                               Bytes(password), cipher);
        flushed = output.flushedText();
        printed = output.text();
        EXPECT_EQ(errors.text(), "");
        return status;
    }

    void expectFailure(EC_Crypto &engine, const std::string &messages, CIHERTYPE cipher = AES256_CBC,
                       const std::string &password = "password")
    {
        EXPECT_EQ(generate(engine, cipher, password), -1);
        EXPECT_EQ(printed, messages);
    }

    /// Expects three correct files that belong to one new key on the curve.
    void expectFiles(int nid, const char *password, const EVP_CIPHER *cipher)
    {
        EXPECT_EQ(ModeOf(privatePath), 0400);
        EXPECT_EQ(ModeOf(publicPath), 0444);
        EXPECT_EQ(ModeOf(hashPath), 0444);
        const KeyOwner key = opened(password);
        ASSERT_NE(key, nullptr);
        const std::string encoding = EncodingOfPoint(nid, PointOf(key.get()));
        EXPECT_EQ(ReadFile(publicPath), PemFile("PUBLIC KEY", encoding));
        EXPECT_EQ(ReadFile(hashPath), Sha256Of(encoding.substr(nid == brainpoolP256t1 ? 28 : 27)));
        EXPECT_EQ(ReadFile(hashPath).size(), 32u);

        const std::string encrypted = ContentOfPemFile("ENCRYPTED PRIVATE KEY", ReadFile(privatePath));
        const unsigned char *cursor = Bytes(encrypted);
        const EncryptedKeyOwner parsed(d2i_X509_SIG(nullptr, &cursor, static_cast<long>(encrypted.size())));
        ASSERT_NE(parsed, nullptr);
        // The cipher's identifier precedes its initialisation vector.
        const std::string identifier = FromHex(cipher == EVP_aes_256_cbc() ? "60864801650304012A0410"
                                                                           : "60864801650304010204"
                                                                             "10");
        EXPECT_EQ(encrypted.substr(65, identifier.size()), identifier);
    }

    KeyOwner opened(const char *password)
    {
        const FileOwner file(std::fopen(privatePath.c_str(), "rb"));
        std::string copy = password;
        return KeyOwner(PEM_read_PrivateKey(file.get(), nullptr, nullptr, copy.data()));
    }

    void expectNoFiles() { EXPECT_TRUE(fs::is_empty(folder.path())); }

    TemporaryFolder folder;
    std::string privatePath = folder / "private.pem";
    std::string publicPath = folder / "public.pem";
    std::string hashPath = folder / "hash.bin";
    std::string printed;
    std::string flushed;
};

const std::string aes256Line = Info("AES_256_cbc algorithm is selected for private key encryption\n");
const std::string aes128Line = Info("AES_128_cbc algorithm is selected for private key encryption\n");
const std::string primeLine = Info("Generating Prime256v1 keys... \n");
const std::string brainpoolLine = Info("Generating brainpoolP256t1 keys... \n");
const std::string privateLine = Info("Private key PEM file created \n");
const std::string publicLine = Info("Public key PEM file created \n");
const std::string hashLine = Info("public key hash file created \n");

TEST_F(EcGenerateKeys, WritesThreeFilesForEachCurveAndCipher)
{
    const struct {
        int nid;
        std::string curveLine;
        CIHERTYPE type;
        const EVP_CIPHER *cipher;
        std::string cipherLine;
    } cases[] = {
        {prime256v1, primeLine, AES256_CBC, EVP_aes_256_cbc(), aes256Line},
        {prime256v1, primeLine, AES128_CBC, EVP_aes_128_cbc(), aes128Line},
        {brainpoolP256t1, brainpoolLine, AES256_CBC, EVP_aes_256_cbc(), aes256Line},
        {brainpoolP256t1, brainpoolLine, AES128_CBC, EVP_aes_128_cbc(), aes128Line},
    };
    std::set<std::string> hashes;
    for (const auto &expected : cases) {
        EC_Crypto engine(expected.nid);
        // Each run replaces the read-only files of the previous one.
        EXPECT_EQ(generate(engine, expected.type), 1);
        EXPECT_EQ(printed, expected.cipherLine + expected.curveLine + privateLine + publicLine + hashLine);
        EXPECT_EQ(flushed, printed);
        expectFiles(expected.nid, "password", expected.cipher);
        hashes.insert(ReadFile(hashPath));
    }
    EXPECT_EQ(hashes.size(), 4u);
}

TEST_F(EcGenerateKeys, EncryptsTheKeyUnderTheUnchangedPassword)
{
    EC_Crypto engine(prime256v1);
    EXPECT_EQ(generate(engine, AES256_CBC, " pässwörd ☂ "), 1);
    expectFiles(prime256v1, " pässwörd ☂ ", EVP_aes_256_cbc());
    EXPECT_EQ(opened("pässwörd ☂"), nullptr);
}

TEST_F(EcGenerateKeys, RefusesAnUnknownCipherInPlainColour)
{
    for (const int type : {2, -1, 256}) {
        EC_Crypto engine(prime256v1);
        expectFailure(engine, Info("Unsupported algorithm selected for private key encryption\n"),
                      static_cast<CIHERTYPE>(type));
        EXPECT_NE(flushed, printed);
        expectNoFiles();
    }
    // The curve is not checked.
    EC_Crypto engine;
    expectFailure(engine, Info("Unsupported algorithm selected for private key encryption\n"),
                  static_cast<CIHERTYPE>(2));
}

TEST_F(EcGenerateKeys, RefusesOtherCurvesAfterTheMessageAboutTheCipher)
{
    for (const int nid : {0, 1, -1, 414, 416, 927, 929, NID_secp384r1}) {
        EC_Crypto engine(nid);
        expectFailure(engine, aes256Line + Error("Unsupported curve NID!\n"));
        EXPECT_EQ(flushed, printed);
        expectFailure(engine, aes128Line + Error("Unsupported curve NID!\n"), AES128_CBC);
        EXPECT_EQ(flushed, printed);
        expectNoFiles();
    }
}

TEST_F(EcGenerateKeys, StopsIfThePrivateKeyFileCannotBeCreated)
{
    privatePath = folder / "missing/private.pem";
    EC_Crypto engine(prime256v1);
    expectFailure(engine, aes256Line + primeLine + Error("Error: creating Key File fails\n") +
                              Error("Error occured while creating PEM file!\n"));
    expectNoFiles();
}

TEST_F(EcGenerateKeys, StopsIfThePrivateKeyCannotBeWritten)
{
    EC_Crypto engine(brainpoolP256t1);
    const std::string messages = Error("Error: writing encrypted private Key fails\n") +
                                 Error("Error occured while creating PEM file!\n");
    expectFailure(engine, aes128Line + brainpoolLine + messages, AES128_CBC, "");
    EXPECT_EQ(ReadFile(privatePath), "");
    EXPECT_FALSE(fs::exists(publicPath));
    EXPECT_FALSE(fs::exists(hashPath));

    privatePath = "/dev/full";
    expectFailure(engine, aes128Line + brainpoolLine + messages, AES128_CBC);
    EXPECT_FALSE(fs::exists(publicPath));
    EXPECT_FALSE(fs::exists(hashPath));
}

TEST_F(EcGenerateKeys, StopsIfThePublicKeyFileFailsAndKeepsThePrivateKey)
{
    const std::string summary = Error("Error occured while creating public key PEM file!\n");
    EC_Crypto engine(prime256v1);
    publicPath = folder / "missing/public.pem";
    expectFailure(engine,
                  aes256Line + primeLine + privateLine + Error("Error: creating key file fails\n") + summary);
    EXPECT_EQ(ModeOf(privatePath), 0400);
    EXPECT_NE(opened("password"), nullptr);
    EXPECT_FALSE(fs::exists(hashPath));

    publicPath = "/dev/full";
    expectFailure(engine,
                  aes256Line + primeLine + privateLine + Error("Error: writing key fails\n") + summary);
    EXPECT_NE(opened("password"), nullptr);
    EXPECT_FALSE(fs::exists(hashPath));
}

TEST_F(EcGenerateKeys, StopsIfTheHashFileFailsAndKeepsBothKeys)
{
    hashPath = folder / "missing/hash.bin";
    EC_Crypto engine(prime256v1);
    expectFailure(engine, aes256Line + primeLine + privateLine + publicLine + CannotOpen(hashPath) +
                              Error("Error occured while creating public key hash file!\n"));
    EXPECT_EQ(ModeOf(privatePath), 0400);
    EXPECT_EQ(ModeOf(publicPath), 0444);
    const KeyOwner key = opened("password");
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(ReadFile(publicPath), PemFile("PUBLIC KEY", EncodingOfPoint(prime256v1, PointOf(key.get()))));
}

/// An engine whose virtual functions the test supplies.
class EngineWithOperations : public EC_Crypto {
public:
    using EC_Crypto::EC_Crypto;
    using EC_Crypto::GetPubKeyBin;

    int KeyGen(EVP_PKEY **key) override { return keyGen(key); }
    int GetPubKeyBin(EVP_PKEY *key, unsigned char **out, size_t *outLen) override
    {
        return formFails ? 0 : EC_Crypto::GetPubKeyBin(key, out, outLen);
    }

    std::function<int(EVP_PKEY **)> keyGen = [this](EVP_PKEY **key) { return EC_Crypto::KeyGen(key); };
    bool formFails = false;
};

TEST_F(EcGenerateKeys, StopsIfKeyGenDoesNotReturnOne)
{
    for (const int status : {0, -1, 2}) {
        EngineWithOperations engine(prime256v1);
        engine.keyGen = [status](EVP_PKEY **key) {
            EXPECT_EQ(*key, nullptr);
            return status;
        };
        expectFailure(engine, aes256Line + primeLine + Error("Error occured while generating Keypair! \n"));
        EXPECT_NE(flushed, printed);
        expectNoFiles();
    }
}

TEST_F(EcGenerateKeys, UsesAndReleasesTheKeyOfKeyGen)
{
    KeyOwner given = FixedKey(prime256v1, 20);
    const ReleaseWatch watch(given.get());
    const std::string point = PointOf(given.get());
    EngineWithOperations engine(prime256v1);
    engine.keyGen = [&given](EVP_PKEY **key) {
        *key = given.release();
        return 1;
    };
    EXPECT_EQ(generate(engine, AES256_CBC), 1);
    EXPECT_EQ(ReadFile(publicPath), PemFile("PUBLIC KEY", EncodingOfPoint(prime256v1, point)));
    EXPECT_TRUE(watch.released());
}

TEST_F(EcGenerateKeys, ReleasesTheKeyIfAFileFails)
{
    for (std::string *const path : {&privatePath, &publicPath, &hashPath}) {
        const std::string good = std::exchange(*path, folder / "missing/file");
        KeyOwner given = FixedKey(prime256v1, 20);
        const ReleaseWatch watch(given.get());
        EngineWithOperations engine(prime256v1);
        engine.keyGen = [&given](EVP_PKEY **key) {
            *key = given.release();
            return 1;
        };
        EXPECT_EQ(generate(engine, AES256_CBC), -1);
        EXPECT_TRUE(watch.released());
        *path = good;
    }
}

TEST_F(EcGenerateKeys, FlushesBeforeAndAfterKeyGen)
{
    EngineWithOperations engine(prime256v1);
    CapturedOutput output;
    std::string beforeKeyGen;
    engine.keyGen = [&](EVP_PKEY **key) {
        beforeKeyGen = output.flushedText();
        std::fputs("key", stdout);
        return engine.EC_Crypto::KeyGen(key);
    };
    privatePath = folder / "missing/private.pem";
    EXPECT_EQ(engine.GenerateKeys(Bytes(privatePath), Bytes(publicPath), Bytes(hashPath), Bytes("password"),
                                  AES256_CBC),
              -1);
    EXPECT_EQ(beforeKeyGen, aes256Line + primeLine);
    const std::string afterKeyGen = output.flushedText();
    EXPECT_EQ(afterKeyGen.substr(0, beforeKeyGen.size() + 3), beforeKeyGen + "key");
}

TEST_F(EcGenerateKeys, ReportsAHashThatCannotBeComputed)
{
    EngineWithOperations engine(prime256v1);
    engine.formFails = true;
    expectFailure(engine, aes256Line + primeLine + privateLine + publicLine +
                              "Error: converting public Key to DER Format fails \n" +
                              Error("Error: calculating PubKey hash fails\n") +
                              Error("Error occured while creating public key hash file!\n"));
    EXPECT_FALSE(fs::exists(hashPath));
}

TEST_F(EcGenerateKeys, AcceptsNonAsciiPaths)
{
    privatePath = folder / "clé privée.pem";
    publicPath = folder / "clé publique.pem";
    hashPath = folder / "clé ☂.bin";
    EC_Crypto engine(prime256v1);
    EXPECT_EQ(generate(engine, AES256_CBC), 1);
    EXPECT_EQ(printed, aes256Line + primeLine + privateLine + publicLine + hashLine);
    const KeyOwner key = opened("password");
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(ReadFile(hashPath), Sha256Of(PointOf(key.get())));
}

/// One of the three ways of getting the binary form of a public key.
struct BinaryForm {
    const char *name;
    int (*get)(EC_Crypto &engine, const std::string &path, unsigned char **out, size_t *outLen);
};

std::ostream &operator<<(std::ostream &stream, const BinaryForm &form)
{
    return stream << form.name;
}

int fromKey(EC_Crypto &engine, const std::string &path, unsigned char **out, size_t *outLen)
{
    EVP_PKEY *key = nullptr;
    EXPECT_EQ(engine.ReadPubKey(Bytes(path), &key), 1);
    const KeyOwner owner(key);
    return engine.GetPubKeyBin(key, out, outLen);
}

int fromPath(EC_Crypto &engine, const std::string &path, unsigned char **out, size_t *outLen)
{
    return engine.GetPubKeyBin(Bytes(path), out, outLen);
}

int fromFile(EC_Crypto &engine, const std::string &path, unsigned char **out, size_t *outLen)
{
    return engine.GetPubKeyBinFromFile(Bytes(path), out, outLen);
}

const BinaryForm keyForm = {"OfAKey", fromKey};
const BinaryForm pathForm = {"OfAPath", fromPath};
const BinaryForm fileForm = {"OfAFile", fromFile};

class EcGetPubKeyBin : public testing::TestWithParam<BinaryForm> {
protected:
    ~EcGetPubKeyBin() override { ERR_clear_error(); }

    std::string binaryForm(int engineCurve, const std::string &path)
    {
        EC_Crypto engine(engineCurve);
        unsigned char old = 0x55;
        unsigned char *buffer = &old;
        std::size_t length = 7;
        CapturedOutput output;
        EXPECT_EQ(GetParam().get(engine, path, &buffer, &length), 1);
        EXPECT_EQ(output.text(), "");
        EXPECT_EQ(old, 0x55);
        EXPECT_NE(buffer, &old);
        return buffer == &old ? "" : TakeBuffer(buffer, length);
    }

    std::string keyFile(int nid, const EVP_PKEY *key)
    {
        WriteFile(folder / "key.pem", PemFile("PUBLIC KEY", EncodingOfPoint(nid, PointOf(key))));
        return folder / "key.pem";
    }

    TemporaryFolder folder;
};

class EcGetPubKeyBinOfFile : public EcGetPubKeyBin {
protected:
    /// Expects the failure, and no buffer to be returned.
    void expectFailure(const std::string &path, const std::string &messages)
    {
        EC_Crypto engine(prime256v1);
        unsigned char mark = 0;
        unsigned char *buffer = &mark;
        std::size_t length = 7;
        CapturedOutput errors(2);
        CapturedOutput output;
        EXPECT_EQ(GetParam().get(engine, path, &buffer, &length), -1);
        EXPECT_EQ(output.text(), messages);
        EXPECT_EQ(errors.text(), "");
        EXPECT_EQ(buffer, &mark);
    }
};

INSTANTIATE_TEST_SUITE_P(Forms, EcGetPubKeyBin, testing::Values(keyForm, pathForm, fileForm),
                         testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Forms, EcGetPubKeyBinOfFile, testing::Values(pathForm, fileForm),
                         testing::PrintToStringParamName());

TEST_P(EcGetPubKeyBin, TheBinaryFormIsThePointWithoutAHeader)
{
    EXPECT_EQ(binaryForm(prime256v1, TestData("prime256v1-public.pem")),
              FromHex("a2359c52a56bdc3a76f3e89ae8501aaccb1c3123bd5cfe7116abaa74c63447d5"
                      "21c2eed4facaf62c31f518f232e787ace4d4aa0c2fbaabc17c6dcdfb56e1e478"));
    EXPECT_EQ(binaryForm(brainpoolP256t1, TestData("brainpoolP256t1-public.pem")),
              FromHex("a72a79fc3a5232d9e922025afc7782e0731ba0bbca899e12b3754084ae25ff70"
                      "55f87730bf6f6539f31460972544ec1dad33637874dc7f1c7d36e9e37694e40d"));
}

TEST_P(EcGetPubKeyBin, LeadingZeroBytesAreKept)
{
    for (const int nid : {prime256v1, brainpoolP256t1}) {
        bool zeroInX = false;
        bool zeroInY = false;
        for (unsigned long number = 1; !zeroInX || !zeroInY; ++number) {
            const KeyOwner key = FixedKey(nid, number);
            const std::string point = PointOf(key.get());
            if (point[0] != 0 && point[32] != 0)
                continue;
            zeroInX = zeroInX || point[0] == 0;
            zeroInY = zeroInY || point[32] == 0;
            const std::string form = binaryForm(nid, keyFile(nid, key.get()));
            EXPECT_EQ(form.size(), 64u);
            EXPECT_EQ(form, point);
        }
    }
}

TEST_P(EcGetPubKeyBin, TheHeaderOfTheEnginesCurveIsRemoved)
{
    const KeyOwner prime = FixedKey(prime256v1, 20);
    const KeyOwner brainpool = FixedKey(brainpoolP256t1, 20);
    for (const int nid : {prime256v1, 0, 1, 927, 929}) {
        EXPECT_EQ(binaryForm(nid, keyFile(brainpoolP256t1, brainpool.get())),
                  "\x04" + PointOf(brainpool.get()));
        EXPECT_EQ(binaryForm(nid, keyFile(prime256v1, prime.get())), PointOf(prime.get()));
    }
    EXPECT_EQ(binaryForm(brainpoolP256t1, keyFile(prime256v1, prime.get())), PointOf(prime.get()).substr(1));
}

TEST_P(EcGetPubKeyBin, AsMuchIsRemovedFromKeysOfOtherTypes)
{
    const std::string file = ReadFile(TestData("rsa2048-public.pem"));
    const std::string encoding = ContentOfPemFile("PUBLIC KEY", file);
    ASSERT_EQ(encoding.size(), 294u);
    EXPECT_EQ(binaryForm(prime256v1, TestData("rsa2048-public.pem")), encoding.substr(27));
    EXPECT_EQ(binaryForm(brainpoolP256t1, TestData("rsa2048-public.pem")), encoding.substr(28));
}

TEST_P(EcGetPubKeyBinOfFile, TheKeyThatWasReadIsReleased)
{
    const std::string path = TestData("prime256v1-public.pem");
    const int before = LiveCurveKeys();
    {
        EVP_PKEY *key = nullptr;
        ASSERT_EQ(EC_Crypto(prime256v1).ReadPubKey(Bytes(path), &key), 1);
        const KeyOwner owner(key);
        ASSERT_GT(LiveCurveKeys(), before);
    }
    ASSERT_EQ(LiveCurveKeys(), before);
    binaryForm(prime256v1, path);
    EXPECT_EQ(LiveCurveKeys(), before);
}

TEST_P(EcGetPubKeyBinOfFile, AMissingFileIsAFailure)
{
    for (const char *name : {"missing.pem", "missing/public.pem", "absent é.pem"}) {
        const std::string path = folder / name;
        expectFailure(path, CannotOpen(path) + Error("Error: reading public key fails \n"));
    }
}

TEST_P(EcGetPubKeyBinOfFile, AFileWithoutAPublicKeyIsAFailure)
{
    const std::string message = Error("Error: extracting public key fails\n");
    WriteFile(folder / "empty.pem", "");
    expectFailure(folder / "empty.pem", message);
    WriteFile(folder / "garbage.pem", "-----BEGIN PUBLIC KEY-----\ngarbage\n");
    expectFailure(folder / "garbage.pem", message);
    fs::create_directory(folder / "folder.pem");
    expectFailure(folder / "folder.pem", message);
    expectFailure(TestData("certificate.pem"), message);
    expectFailure("/dev/zero", message);
}

TEST(EcGetPubKeyBinOfKey, ANullKeyIsAFailure)
{
    EC_Crypto engine(prime256v1);
    unsigned char mark = 0;
    unsigned char *buffer = &mark;
    std::size_t length = 7;
    CapturedOutput output;
    EXPECT_EQ(engine.GetPubKeyBin(static_cast<EVP_PKEY *>(nullptr), &buffer, &length), -1);
    EXPECT_EQ(output.text(), Error("Error: extracting public key fails\n"));
    EXPECT_EQ(buffer, &mark);
    EXPECT_EQ(length, 0u);
}

/// A DSA key without parameters. Its encoding of `size` bytes may be shorter than the header of any curve.
KeyOwner shortKey(std::size_t size)
{
    // The size of the encoding without the bytes of the public number.
    constexpr std::size_t frame = 18;
    const std::string number(size - frame, '\x05');
    const Owner<DSA, DSA_free> dsa(DSA_new());
    DSA_set0_key(dsa.get(), BN_bin2bn(Bytes(number), static_cast<int>(number.size()), nullptr), nullptr);
    KeyOwner key(EVP_PKEY_new());
    EVP_PKEY_set1_DSA(key.get(), dsa.get());
    EXPECT_EQ(i2d_PUBKEY(key.get(), nullptr), static_cast<int>(size));
    return key;
}

TEST(EcGetPubKeyBinOfKey, AnEncodingShorterThanTheHeaderIsRefused)
{
    const std::pair<int, std::size_t> cases[] = {
        {prime256v1, 19}, {prime256v1, 26}, {0, 26}, {brainpoolP256t1, 19}, {brainpoolP256t1, 27}};
    for (const auto &[nid, size] : cases) {
        const KeyOwner key = shortKey(size);
        EC_Crypto engine(nid);
        unsigned char *buffer = nullptr;
        std::size_t length = 0;
        CapturedOutput output;
        EXPECT_EQ(engine.GetPubKeyBin(key.get(), &buffer, &length), -1);
        EXPECT_EQ(output.text(), Error("Error: extracting public key fails\n"));
        EXPECT_EQ(engine.Buffer_Cleanup(buffer), 1);
    }
}

TEST(EcGetPubKeyBinOfKey, TheBinaryFormIsEmptyIfTheEncodingIsAsLongAsTheHeader)
{
    for (const auto &[nid, size] : {std::pair(prime256v1, 27), std::pair(brainpoolP256t1, 28)}) {
        const KeyOwner key = shortKey(static_cast<std::size_t>(size));
        EC_Crypto engine(nid);
        unsigned char *buffer = nullptr;
        std::size_t length = 7;
        EXPECT_EQ(engine.GetPubKeyBin(key.get(), &buffer, &length), 1);
        EXPECT_EQ(TakeBuffer(buffer, length), "");
    }
}

TEST_P(EcGetPubKeyBinOfFile, AFileWithATooShortEncodingIsRefused)
{
    // A DSA key without parameters, whose number is 5.
    const std::string encoding = FromHex("30 11 30 09 06 07 2A 86 48 CE 38 04 01 03 04 00 02 01 05");
    ASSERT_EQ(encoding.size(), 19u);
    WriteFile(folder / "short.pem", PemFile("PUBLIC KEY", encoding));
    for (const int nid : {prime256v1, brainpoolP256t1}) {
        EC_Crypto engine(nid);
        unsigned char *buffer = nullptr;
        std::size_t length = 0;
        CapturedOutput output;
        EXPECT_EQ(GetParam().get(engine, folder / "short.pem", &buffer, &length), -1);
        EXPECT_EQ(output.text(), Error("Error: extracting public key fails\n"));
        OPENSSL_free(buffer);
    }
}

TEST(EncodingHeaderSize, DependsOnlyOnTheCurve)
{
    EXPECT_EQ(EC_Crypto::EncodingHeaderSize(brainpoolP256t1), 28u);
    for (const int nid : {prime256v1, 0, -1, 927, 929})
        EXPECT_EQ(EC_Crypto::EncodingHeaderSize(nid), 27u);
    for (const int nid : {prime256v1, brainpoolP256t1})
        EXPECT_EQ(EncodingOfPoint(nid, "").size(), EC_Crypto::EncodingHeaderSize(nid));
}

TEST(BnCopy, ReversesTheOrderOfTheBytes)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"\x01", "\x01"},
        {"\x01\x02", "\x02\x01"},
        {"\x01\x02\x03", "\x03\x02\x01"},
        {"0123456789abcdef", "fedcba9876543210"},
    };
    for (const auto &[source, reversed] : cases) {
        std::string destination = std::string(source.size(), '#') + "##";
        bn_Copy(reinterpret_cast<unsigned char *>(destination.data()), Bytes(source), source.size());
        EXPECT_EQ(destination, reversed + "##");
    }
}

TEST(BnCopy, CopiesNoMoreThanTheGivenLength)
{
    std::string destination = "####";
    bn_Copy(reinterpret_cast<unsigned char *>(destination.data()), Bytes("abcdef"), 3);
    EXPECT_EQ(destination, "cba#");
    bn_Copy(reinterpret_cast<unsigned char *>(destination.data()), Bytes("abcdef"), 0);
    EXPECT_EQ(destination, "cba#");
}

} // namespace
