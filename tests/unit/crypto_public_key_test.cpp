// Reading public key files.
#include "src/crypto.h"

#include "tests/support/captured_output.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"

#include <gtest/gtest.h>

#include <openssl/err.h>
#include <openssl/pem.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr int prime256v1 = 415;
constexpr int brainpoolP256t1 = 928;

class ReadPubKey : public testing::Test {
protected:
    ~ReadPubKey() override { ERR_clear_error(); }

    int read(const std::string &path, EVP_PKEY **key)
    {
        CapturedOutput errors(2);
        CapturedOutput output;
        const int status = Crypto().ReadPubKey(Bytes(path), key);
        printed = output.text();
        EXPECT_EQ(errors.text(), "");
        return status;
    }

    KeyOwner readKey(const std::string &path)
    {
        EVP_PKEY *key = nullptr;
        EXPECT_EQ(read(path, &key), 1);
        EXPECT_EQ(printed, "");
        return KeyOwner(key);
    }

    /// The file counts as read, but gives no key.
    void expectNoKey(const std::string &path)
    {
        EXPECT_EQ(readKey(path), nullptr) << path;

        const KeyOwner old = FixedKey(prime256v1, 7);
        const ReleaseWatch watch(old.get());
        EVP_PKEY *key = old.get();
        EXPECT_EQ(read(path, &key), 1);
        EXPECT_EQ(printed, "");
        EXPECT_EQ(key, old.get());
        EXPECT_FALSE(watch.released());
    }

    std::string file(const std::string &name, const std::string &content)
    {
        WriteFile(folder / name, content);
        return folder / name;
    }

    static std::string publicKeyFile(int nid, unsigned long number)
    {
        return PemFile("PUBLIC KEY", EncodingOfPoint(nid, PointOf(FixedKey(nid, number).get())));
    }

    TemporaryFolder folder;
    std::string printed;
};

TEST_F(ReadPubKey, ReadsKeysMadeWithAnotherTool)
{
    EXPECT_EQ(PointOf(readKey(TestData("prime256v1-public.pem")).get()),
              FromHex("a2359c52a56bdc3a76f3e89ae8501aaccb1c3123bd5cfe7116abaa74c63447d5"
                      "21c2eed4facaf62c31f518f232e787ace4d4aa0c2fbaabc17c6dcdfb56e1e478"));
    EXPECT_EQ(PointOf(readKey(TestData("brainpoolP256t1-public.pem")).get()),
              FromHex("a72a79fc3a5232d9e922025afc7782e0731ba0bbca899e12b3754084ae25ff70"
                      "55f87730bf6f6539f31460972544ec1dad33637874dc7f1c7d36e9e37694e40d"));
    EXPECT_EQ(EVP_PKEY_bits(readKey(TestData("rsa2048-public.pem")).get()), 2048);
}

TEST_F(ReadPubKey, TakesTheFirstPublicKeyAfterAnythingElse)
{
    const std::string content = "a note\n" + ReadFile(TestData("certificate.pem")) +
                                publicKeyFile(brainpoolP256t1, 5) + publicKeyFile(prime256v1, 6);
    EXPECT_EQ(PointOf(readKey(file("several.pem", content)).get()),
              PointOf(FixedKey(brainpoolP256t1, 5).get()));
}

TEST_F(ReadPubKey, ReadsAKeyAfterAMuchLongerText)
{
    const std::string path = file("long.pem", std::string(500000, '\n') + publicKeyFile(prime256v1, 5));
    EXPECT_EQ(PointOf(readKey(path).get()), PointOf(FixedKey(prime256v1, 5).get()));
}

TEST_F(ReadPubKey, ReadsAPathThatIsNotAscii)
{
    const std::string path = file("clé ☂.pem", publicKeyFile(prime256v1, 5));
    EXPECT_NE(readKey(path), nullptr);
}

TEST_F(ReadPubKey, ReplacesAndReleasesTheKeyThatWasThere)
{
    KeyOwner old = FixedKey(prime256v1, 7);
    const ReleaseWatch watch(old.get());
    EVP_PKEY *key = old.release();
    EXPECT_EQ(read(file("new.pem", publicKeyFile(brainpoolP256t1, 5)), &key), 1);
    const KeyOwner owner(key);
    EXPECT_TRUE(watch.released());
    EXPECT_EQ(PointOf(key), PointOf(FixedKey(brainpoolP256t1, 5).get()));
}

TEST_F(ReadPubKey, FailsWhereThereIsNoFile)
{
    const KeyOwner old = FixedKey(prime256v1, 7);
    for (const char *name : {"missing.pem", "missing/public.pem", "absent é.pem"}) {
        EVP_PKEY *key = old.get();
        EXPECT_EQ(read(folder / name, &key), -1);
        EXPECT_EQ(printed, Error("Error: Reading Device file fails: ") + Error(folder / name) + Error("\n"));
        EXPECT_EQ(key, old.get());
    }
}

TEST_F(ReadPubKey, FailsWithoutAPlaceForTheKey)
{
    EXPECT_EQ(read(TestData("prime256v1-public.pem"), nullptr), -1);
    EXPECT_EQ(printed, Error("Error: reading public key file fails\n"));
    // The file is asked for first.
    EXPECT_EQ(read(folder / "missing.pem", nullptr), -1);
    EXPECT_EQ(printed,
              Error("Error: Reading Device file fails: ") + Error(folder / "missing.pem") + Error("\n"));
}

TEST_F(ReadPubKey, CountsAFileWithoutAPublicKeyAsRead)
{
    const std::string good = publicKeyFile(prime256v1, 5);
    const std::string encoding = ContentOfPemFile("PUBLIC KEY", good);
    const std::pair<const char *, std::string> cases[] = {
        {"empty", ""},
        {"text", "no key\n"},
        {"zeros", std::string(1000, '\0')},
        {"cut off in the block", good.substr(0, good.size() / 2)},
        {"cut off in the last line", good.substr(0, good.size() - 10)},
        {"not base64", "-----BEGIN PUBLIC KEY-----\n!!!!\n-----END PUBLIC KEY-----\n"},
        {"without content", "-----BEGIN PUBLIC KEY-----\n-----END PUBLIC KEY-----\n"},
        {"another end", "-----BEGIN PUBLIC KEY-----\n" + good.substr(27, 128) + "\n-----END KEY-----\n"},
        {"no encoding", PemFile("PUBLIC KEY", "no encoding at all")},
        {"short encoding", PemFile("PUBLIC KEY", encoding.substr(0, 60))},
        {"another label", PemFile("PRIVATE KEY", encoding)},
        {"other letters", PemFile("Public Key", encoding)},
        {"bare encoding", encoding},
        {"off the curve", PemFile("PUBLIC KEY", EncodingOfPoint(prime256v1, std::string(64, '\1')))},
        {"certificate", ReadFile(TestData("certificate.pem"))},
    };
    for (const auto &[name, content] : cases)
        expectNoKey(file(name, content));
}

TEST_F(ReadPubKey, TakesNoPublicKeyFromAPrivateKeyFile)
{
    const KeyOwner key = FixedKey(prime256v1, 5);
    ASSERT_EQ(Crypto().SaveEncPrvKey(Bytes(folder / "encrypted.pem"), key.get(), Bytes("password"),
                                     EVP_aes_256_cbc()),
              1);
    expectNoKey(folder / "encrypted.pem");
    ASSERT_EQ(Crypto().SavePrvKey(Bytes(folder / "plain.pem"), key.get()), 1);
    expectNoKey(folder / "plain.pem");
}

TEST_F(ReadPubKey, AsksForNoPasswordOfAnEncryptedPublicKey)
{
    const FileOwner stream(std::fopen((folder / "encrypted.pem").c_str(), "wb"));
    const KeyOwner key = FixedKey(prime256v1, 5);
    std::string password = "password";
    ASSERT_EQ(PEM_ASN1_write(reinterpret_cast<i2d_of_void *>(i2d_PUBKEY), "PUBLIC KEY", stream.get(),
                             key.get(), EVP_aes_128_cbc(), reinterpret_cast<unsigned char *>(password.data()),
                             8, nullptr, nullptr),
              1);
    ASSERT_EQ(std::fflush(stream.get()), 0);
    ASSERT_NE(ReadFile(folder / "encrypted.pem").find("Proc-Type: 4,ENCRYPTED"), std::string::npos);
    expectNoKey(folder / "encrypted.pem");
}

TEST_F(ReadPubKey, ComesToAnEndWhereverThePathLeads)
{
    fs::create_directory(folder / "folder.pem");
    expectNoKey(folder / "folder.pem");
    expectNoKey("/dev/null");
    expectNoKey("/dev/zero");
}

} // namespace
