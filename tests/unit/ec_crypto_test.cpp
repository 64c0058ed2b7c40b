#include "src/ec_crypto.h"

#include "tests/support/buffer_call.h"
#include "tests/support/captured_output.h"
#include "tests/support/library_memory.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"
#include "tests/support/written_keys.h"

#include <gtest/gtest.h>

#include <openssl/bn.h>
#include <openssl/dsa.h>
#include <openssl/ec.h>
#include <openssl/obj_mac.h>
#include <openssl/x509.h>

#include <climits>
#include <filesystem>
#include <functional>
#include <ostream>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace {

static_assert(prime256v1 == NID_X9_62_prime256v1);
static_assert(brainpoolP256t1 == NID_brainpoolP256t1);
static_assert(std::is_convertible_v<EC_Crypto *, Crypto *>);
static_assert(!std::is_convertible_v<int, EC_Crypto>);
static_assert(!std::has_virtual_destructor_v<EC_Crypto>);
static_assert(std::is_same_v<decltype(EC_Crypto::curveNID), int>);

TEST(EcCrypto, AcceptsAnyCurveAtConstructionAndPrintsNothing)
{
    CapturedOutput output;
    EXPECT_EQ(EC_Crypto().curveNID, 0);
    for (const int nid : {prime256v1, brainpoolP256t1, 0, 1, -1, INT_MIN, INT_MAX})
        EXPECT_EQ(EC_Crypto(nid).curveNID, nid);
    EXPECT_EQ(output.text(), "");
}

TEST(SetCurveNID, StoresAnyCurveButSupportsOnlyTwoAndFlushesItsMessage)
{
    std::vector<std::tuple<int, int, std::string>> cases = {
        {brainpoolP256t1, 1, Info("brainpoolP256t1 curve is selected.\n")},
        {prime256v1, 1, Info("Prime256v1 curve is selected. \n")},
    };
    for (const int nid : {0, -1, 414, 416, 927, 929, NID_secp384r1})
        cases.emplace_back(nid, -1, Error("Unsupported curve NID!\n"));
    EC_Crypto engine(7);
    for (const auto &[nid, status, message] : cases) {
        CapturedOutput output;
        EXPECT_EQ(engine.SetCurveNID(nid), status);
        EXPECT_EQ(output.flushedText(), message);
        EXPECT_EQ(output.text(), message);
        EXPECT_EQ(engine.curveNID, nid);
    }
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

TEST(EcKeyGen, ReleasesEverythingExceptTheKeyObject)
{
    EXPECT_EQ(LeakedBy([] { generatedKey(prime256v1); }), 0);
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
    int generate(EC_Crypto &engine, CIHERTYPE cipher)
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

    /// Expects the failure, and no files.
    void expectFailure(EC_Crypto &engine, const std::string &messages, CIHERTYPE cipher = AES256_CBC)
    {
        EXPECT_EQ(generate(engine, cipher), -1);
        EXPECT_EQ(printed, messages);
        EXPECT_TRUE(fs::is_empty(folder.path()));
    }

    /// Expects three correct files that belong to one new key on the curve.
    void expectFiles(int nid, const std::string &cipher)
    {
        EXPECT_EQ(ModeOf(privatePath), 0400);
        EXPECT_EQ(ModeOf(publicPath), 0444);
        EXPECT_EQ(ModeOf(hashPath), 0444);
        const std::string point = PointOfPrivateKey(privatePath, password);
        EXPECT_EQ(ReadFile(publicPath), PemFile("PUBLIC KEY", EncodingOfPoint(nid, point)));
        EXPECT_EQ(ReadFile(hashPath), Sha256Of(point));
        EXPECT_EQ(CipherOf(privatePath), cipher);
    }

    TemporaryFolder folder;
    const std::string privatePath = folder / "private.pem";
    const std::string publicPath = folder / "public.pem";
    const std::string hashPath = folder / "hash.bin";
    const std::string password = " pässwörd ☂ ";
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
    const std::tuple<CIHERTYPE, std::string, std::string> ciphers[] = {
        {AES256_CBC, "AES-256-CBC", aes256Line}, {AES128_CBC, "AES-128-CBC", aes128Line}};
    const std::pair<int, std::string> curves[] = {{prime256v1, primeLine}, {brainpoolP256t1, brainpoolLine}};
    std::set<std::string> hashes;
    for (const auto &[nid, curveLine] : curves) {
        for (const auto &[type, name, cipherLine] : ciphers) {
            EC_Crypto engine(nid);
            // Each run replaces the read-only files of the previous one.
            EXPECT_EQ(generate(engine, type), 1);
            EXPECT_EQ(printed, cipherLine + curveLine + privateLine + publicLine + hashLine);
            EXPECT_EQ(flushed, printed);
            expectFiles(nid, name);
            hashes.insert(ReadFile(hashPath));
        }
    }
    EXPECT_EQ(hashes.size(), 4u);
}

TEST_F(EcGenerateKeys, RefusesAnUnknownCipherInPlainColourOnAnyCurve)
{
    for (const int nid : {prime256v1, 0}) {
        for (const int type : {2, -1, 256}) {
            EC_Crypto engine(nid);
            expectFailure(engine, Info("Unsupported algorithm selected for private key encryption\n"),
                          static_cast<CIHERTYPE>(type));
            EXPECT_EQ(flushed, "");
        }
    }
}

TEST_F(EcGenerateKeys, RefusesOtherCurvesAfterTheMessageAboutTheCipher)
{
    for (const int nid : {0, 1, -1, 414, 416, 927, 929, NID_secp384r1}) {
        EC_Crypto engine(nid);
        expectFailure(engine, aes256Line + Error("Unsupported curve NID!\n"));
        EXPECT_EQ(flushed, printed);
        expectFailure(engine, aes128Line + Error("Unsupported curve NID!\n"), AES128_CBC);
        EXPECT_EQ(flushed, printed);
    }
}

/// An engine with a test's KeyGen.
class EngineWithKeyGen : public EC_Crypto {
public:
    explicit EngineWithKeyGen(std::function<int(EVP_PKEY **)> function)
        : EC_Crypto(prime256v1), keyGen(std::move(function))
    {
    }

    int KeyGen(EVP_PKEY **key) override { return keyGen(key); }

private:
    std::function<int(EVP_PKEY **)> keyGen;
};

TEST_F(EcGenerateKeys, StopsIfKeyGenDoesNotReturnOne)
{
    for (const int status : {0, -1, 2}) {
        EngineWithKeyGen engine([status](EVP_PKEY **key) {
            EXPECT_EQ(*key, nullptr);
            return status;
        });
        expectFailure(engine, aes256Line + primeLine + Error("Error occured while generating Keypair! \n"));
        EXPECT_EQ(flushed, aes256Line + primeLine);
    }
}

TEST_F(EcGenerateKeys, UsesAndReleasesTheKeyOfKeyGen)
{
    KeyOwner given = FixedKey(prime256v1, 20);
    const ReleaseWatch watch(given.get());
    const std::string point = PointOf(given.get());
    EngineWithKeyGen engine([&given](EVP_PKEY **key) {
        *key = given.release();
        return 1;
    });
    EXPECT_EQ(generate(engine, AES256_CBC), 1);
    EXPECT_EQ(ReadFile(publicPath), PemFile("PUBLIC KEY", EncodingOfPoint(prime256v1, point)));
    EXPECT_TRUE(watch.released());
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
    BufferCall call(int engineCurve, const std::string &path) const
    {
        return BufferCall([&](unsigned char **form, std::size_t *size) {
            EC_Crypto engine(engineCurve);
            return GetParam().get(engine, path, form, size);
        });
    }

    std::string binaryForm(int engineCurve, const std::string &path) const
    {
        const BufferCall result = call(engineCurve, path);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.printed, "");
        return result.bytes();
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
        const BufferCall result = call(prime256v1, path);
        EXPECT_EQ(result.status, -1);
        EXPECT_EQ(result.printed, messages);
        EXPECT_FALSE(result.returnsBuffer());
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
            EXPECT_EQ(binaryForm(nid, keyFile(nid, key.get())), point);
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
    EXPECT_EQ(LeakedBy([&] { binaryForm(prime256v1, TestData("prime256v1-public.pem")); }), 0);
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

BufferCall binaryFormOf(EVP_PKEY *key, int nid)
{
    return BufferCall([=](unsigned char **form, std::size_t *size) {
        return EC_Crypto(nid).GetPubKeyBin(key, form, size);
    });
}

TEST(EcGetPubKeyBinOfKey, ANullKeyIsAFailure)
{
    const BufferCall call = binaryFormOf(nullptr, prime256v1);
    EXPECT_EQ(call.status, -1);
    EXPECT_EQ(call.printed, Error("Error: extracting public key fails\n"));
    EXPECT_FALSE(call.returnsBuffer());
    EXPECT_EQ(call.size, 0u);
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
        const BufferCall call = binaryFormOf(key.get(), nid);
        EXPECT_EQ(call.status, -1);
        EXPECT_EQ(call.printed, Error("Error: extracting public key fails\n"));
        EXPECT_TRUE(call.returnsBuffer());
    }
}

TEST(EcGetPubKeyBinOfKey, TheBinaryFormIsEmptyIfTheEncodingIsAsLongAsTheHeader)
{
    for (const auto &[nid, size] : {std::pair(prime256v1, 27), std::pair(brainpoolP256t1, 28)}) {
        const KeyOwner key = shortKey(static_cast<std::size_t>(size));
        const BufferCall call = binaryFormOf(key.get(), nid);
        EXPECT_EQ(call.status, 1);
        EXPECT_EQ(call.bytes(), "");
    }
}

TEST_P(EcGetPubKeyBinOfFile, AFileWithATooShortEncodingIsRefused)
{
    // A DSA key without parameters, whose number is 5.
    const std::string encoding = FromHex("30 11 30 09 06 07 2A 86 48 CE 38 04 01 03 04 00 02 01 05");
    WriteFile(folder / "short.pem", PemFile("PUBLIC KEY", encoding));
    for (const int nid : {prime256v1, brainpoolP256t1}) {
        const BufferCall result = call(nid, folder / "short.pem");
        EXPECT_EQ(result.status, -1);
        EXPECT_EQ(result.printed, Error("Error: extracting public key fails\n"));
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
