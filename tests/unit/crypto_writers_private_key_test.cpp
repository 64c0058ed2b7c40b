// The private key files: their formats, and which passwords open the encrypted one.
#include "src/crypto.h"

#include "tests/support/captured_output.h"
#include "tests/support/library_faults.h"
#include "tests/support/library_memory.h"
#include "tests/support/private_keys.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"
#include "tests/support/umask.h"
#include "tests/support/written_keys.h"

#include <gtest/gtest.h>

#include <openssl/evp.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

/// The parts of a key file that are random or encrypted.
struct EncryptedKey {
    std::string salt;
    std::string vector;
    std::string ciphertext;
};

/// The encoding with these parts, spelled out byte by byte: PBES2 with PBKDF2 (2048 iterations, HMAC-SHA-256)
/// and AES in CBC mode.
std::string encodingOf(const EncryptedKey &parts, const std::string &cipherDigits)
{
    return FromHex("30 81 EC 30 57 06 09 2A 86 48 86 F7 0D 01 05 0D 30 4A"
                   "30 29 06 09 2A 86 48 86 F7 0D 01 05 0C 30 1C 04 08") +
           parts.salt + FromHex("02 02 08 00 30 0C 06 08 2A 86 48 86 F7 0D 02 09 05 00 30 1D 06 09") +
           FromHex(cipherDigits) + FromHex("04 10") + parts.vector + FromHex("04 81 90") + parts.ciphertext;
}

EncryptedKey partsOf(const std::string &encoding)
{
    return {encoding.substr(35, 8), encoding.substr(76, 16), encoding.substr(95)};
}

/// PrivateKeyInfo with the named curve, the private number and the public point.
std::string privateKeyInfo(int nid, const EVP_PKEY *key)
{
    const std::string header = nid == brainpoolP256t1 ? "30 81 88 02 01 00 30 14 06 07 2A 86 48 CE 3D 02 01"
                                                        "06 09 2B 24 03 03 02 08 01 01 08"
                                                      : "30 81 87 02 01 00 30 13 06 07 2A 86 48 CE 3D 02 01"
                                                        "06 08 2A 86 48 CE 3D 03 01 07";
    return FromHex(header + "04 6D 30 6B 02 01 01 04 20") + NumberOf(key) + FromHex("A1 44 03 42 00 04") +
           PointOf(key);
}

std::string decrypted(const EncryptedKey &parts, const std::string &password, const EVP_CIPHER *cipher)
{
    std::string secret(static_cast<std::size_t>(EVP_CIPHER_key_length(cipher)), '\0');
    EXPECT_EQ(PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()), Bytes(parts.salt),
                                static_cast<int>(parts.salt.size()), 2048, EVP_sha256(),
                                static_cast<int>(secret.size()),
                                reinterpret_cast<unsigned char *>(secret.data())),
              1);
    const Owner<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free> context(EVP_CIPHER_CTX_new());
    EXPECT_EQ(EVP_DecryptInit_ex(context.get(), cipher, nullptr, Bytes(secret), Bytes(parts.vector)), 1);
    std::string plain(parts.ciphertext.size(), '\0');
    auto *const out = reinterpret_cast<unsigned char *>(plain.data());
    int size = 0;
    int rest = 0;
    EXPECT_EQ(EVP_DecryptUpdate(context.get(), out, &size, Bytes(parts.ciphertext),
                                static_cast<int>(parts.ciphertext.size())),
              1);
    EXPECT_EQ(EVP_DecryptFinal_ex(context.get(), out + size, &rest), 1);
    plain.resize(static_cast<std::size_t>(size + rest));
    return plain;
}

class SaveEncPrvKey : public testing::Test {
protected:
    /// The content of the PEM block of a new key file.
    std::string save(const std::string &path, const std::string &password, EVP_PKEY *key,
                     const EVP_CIPHER *cipher = EVP_aes_256_cbc())
    {
        CapturedOutput output;
        EXPECT_EQ(Crypto().SaveEncPrvKey(Bytes(path), key, Bytes(password), cipher), 1);
        EXPECT_EQ(output.text(), "");
        return ContentOfPemFile("ENCRYPTED PRIVATE KEY", ReadFile(path));
    }

    /// Expects that a private key that cannot be written leaves no key that can be opened.
    void expectFailure(const std::string &path, EVP_PKEY *key, const unsigned char *password,
                       const EVP_CIPHER *cipher)
    {
        CapturedOutput errors(2);
        CapturedOutput output;
        EXPECT_EQ(Crypto().SaveEncPrvKey(Bytes(path), key, password, cipher), -1);
        EXPECT_EQ(output.text(), Error("Error: writing encrypted private Key fails\n"));
        EXPECT_EQ(errors.text(), "");
    }

    TemporaryFolder folder;
};

TEST_F(SaveEncPrvKey, EncryptsWithTheCipherAndTheFixedParameters)
{
    const struct {
        const EVP_CIPHER *cipher;
        const char *digits;
    } ciphers[] = {
        {EVP_aes_128_cbc(), "60 86 48 01 65 03 04 01 02"},
        {EVP_aes_256_cbc(), "60 86 48 01 65 03 04 01 2A"},
    };
    for (const int nid : {prime256v1, brainpoolP256t1}) {
        const KeyOwner key = FixedKey(nid, 20);
        for (const auto &[cipher, digits] : ciphers) {
            const std::string encoding = save(folder / "private.pem", "pässwörd", key.get(), cipher);
            ASSERT_EQ(encoding.size(), 239u);
            const EncryptedKey parts = partsOf(encoding);
            EXPECT_EQ(encoding, encodingOf(parts, digits));
            EXPECT_EQ(decrypted(parts, "pässwörd", cipher), privateKeyInfo(nid, key.get()));
        }
    }
}

TEST_F(SaveEncPrvKey, UsesANewSaltAndInitialisationVectorForEachFile)
{
    const KeyOwner key = FixedKey(prime256v1, 20);
    const EncryptedKey first = partsOf(save(folder / "first.pem", "password", key.get()));
    const EncryptedKey second = partsOf(save(folder / "second.pem", "password", key.get()));
    EXPECT_NE(first.salt, second.salt);
    EXPECT_NE(first.vector, second.vector);
    EXPECT_NE(first.ciphertext, second.ciphertext);
}

TEST_F(SaveEncPrvKey, WritesAFileThatOpensWithThePassword)
{
    std::string longest;
    for (int i = 0; i < 1023; ++i)
        longest += "€";
    ASSERT_EQ(longest.size(), 3069u);
    const KeyOwner key = FixedKey(brainpoolP256t1, 20);
    for (const std::string &password :
         {std::string("x"), std::string("correct horse"), std::string("päss ☂"), std::string(1022, 'a'),
          std::string(1023, 'a'), std::string(1024, 'a'), std::string(1025, 'a'), longest}) {
        save(folder / "private.pem", password, key.get());
        const KeyOwner again = OpenedKey(folder / "private.pem", password);
        ASSERT_NE(again, nullptr) << password.size();
        EXPECT_EQ(NumberOf(again.get()), NumberOf(key.get()));
        EXPECT_EQ(PointOf(again.get()), PointOf(key.get()));
    }
}

TEST_F(SaveEncPrvKey, WritesAFileThatOpensWithNoOtherPassword)
{
    const KeyOwner key = FixedKey(prime256v1, 20);
    save(folder / "private.pem", "password", key.get());
    for (const char *password : {"", "passwor", "passwordd", "Password", "password ", "pass"})
        EXPECT_EQ(OpenedKey(folder / "private.pem", password), nullptr) << password;
}

// The library's readers use no more of a password.
TEST_F(SaveEncPrvKey, UsesTheFirst1024BytesOfAPassword)
{
    const std::string stem(1022, 'a');
    const KeyOwner key = FixedKey(prime256v1, 20);
    for (const std::string &password : {stem + "b", stem + "bc", stem + "bcd", stem + "bcdefghi"}) {
        const EncryptedKey parts = partsOf(save(folder / "private.pem", password, key.get()));
        EXPECT_EQ(decrypted(parts, password.substr(0, 1024), EVP_aes_256_cbc()),
                  privateKeyInfo(prime256v1, key.get()));
        EXPECT_EQ(OpenedKey(folder / "private.pem", stem + "d"), nullptr);
    }
    EXPECT_NE(OpenedKey(folder / "private.pem", stem + "bc"), nullptr);
    EXPECT_NE(OpenedKey(folder / "private.pem", stem + "bcx"), nullptr);
    EXPECT_EQ(OpenedKey(folder / "private.pem", stem + "bx"), nullptr);
    EXPECT_EQ(OpenedKey(folder / "private.pem", stem + "b"), nullptr);
}

TEST_F(SaveEncPrvKey, WritesNoKeyWithoutAPassword)
{
    const KeyOwner key = FixedKey(prime256v1, 20);
    const UmaskInForce inForce(0027);
    for (const char *password : {static_cast<const char *>(nullptr), ""}) {
        const std::string path = folder / "private.pem";
        fs::remove(path);
        expectFailure(path, key.get(), reinterpret_cast<const unsigned char *>(password), EVP_aes_256_cbc());
        EXPECT_EQ(ReadFile(path), "");
        EXPECT_EQ(ModeOf(path), 0640);
    }
}

TEST_F(SaveEncPrvKey, WritesNothingWithoutAKeyOrACipher)
{
    const KeyOwner key = FixedKey(prime256v1, 20);
    expectFailure(folder / "no key.pem", nullptr, Bytes("password"), EVP_aes_256_cbc());
    EXPECT_EQ(ReadFile(folder / "no key.pem"), "");
    expectFailure(folder / "no cipher.pem", key.get(), Bytes("password"), nullptr);
    EXPECT_EQ(ReadFile(folder / "no cipher.pem"), "");
}

class SavePrvKey : public testing::Test {
protected:
    void expectFailure(const std::string &file, EVP_PKEY *key, const std::string &message)
    {
        CapturedOutput errors(2);
        CapturedOutput output;
        EXPECT_EQ(Crypto().SavePrvKey(Bytes(file), key), -1);
        EXPECT_EQ(output.text(), Error(message));
        EXPECT_EQ(errors.text(), "");
    }

    TemporaryFolder folder;
    const std::string path = folder / "private.pem";
};

TEST_F(SavePrvKey, WritesTheUnencryptedKeyAsOtherToolsDo)
{
    for (const char *name : {"rsa2048.pem", "prime256v1.pem", "brainpoolP256t1.pem"}) {
        const KeyOwner key = StoredKey(name);
        CapturedOutput output;
        EXPECT_EQ(Crypto().SavePrvKey(Bytes(path), key.get()), 1);
        EXPECT_EQ(output.text(), "");
        EXPECT_EQ(ReadFile(path), ReadFile(StoredKeyPath(name)));
    }
}

TEST_F(SavePrvKey, CreatesTheFileWithTheDefaultMode)
{
    const KeyOwner key = FixedKey(prime256v1, 5);
    for (const int mask : {022, 077}) {
        fs::remove(path);
        const UmaskInForce inForce(mask);
        EXPECT_EQ(Crypto().SavePrvKey(Bytes(path), key.get()), 1);
        EXPECT_EQ(ModeOf(path), 0666 & ~mask);
    }
    fs::permissions(path, fs::perms(0620));
    EXPECT_EQ(Crypto().SavePrvKey(Bytes(path), key.get()), 1);
    EXPECT_EQ(ModeOf(path), 0620);
}

TEST_F(SavePrvKey, FailsIfTheFileCannotBeCreated)
{
    const KeyOwner key = FixedKey(prime256v1, 5);
    expectFailure(folder / "missing/private.pem", key.get(), "Error: creating Key File fails\n");
    expectFailure(folder.path().string(), key.get(), "Error: creating Key File fails\n");
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST_F(SavePrvKey, FailsIfTheKeyCannotBeWritten)
{
    const KeyOwner key = FixedKey(prime256v1, 5);
    expectFailure(path, nullptr, "Error: writing Key fails\n");
    expectFailure("/dev/full", key.get(), "Error: writing Key fails\n");
    const auto run = [&] {
        LibraryFaults faults;
        faults.fail("PEM_write_PrivateKey");
        expectFailure(path, key.get(), "Error: writing Key fails\n");
        faults.overrideResult("fclose", EOF);
        expectFailure(path, key.get(), "Error: writing Key fails\n");
    };
    EXPECT_EQ(LeakedBy(run), 0);
}

TEST_F(SavePrvKey, LeavesNoCopyOfTheKeyInABuffer)
{
    const KeyOwner key = FixedKey(prime256v1, 5);
    const std::vector<std::string> steps = {"fopen", "setvbuf(none)", "PEM_write_PrivateKey", "fclose"};
    const auto run = [&] {
        LibraryFaults faults;
        EXPECT_EQ(Crypto().SavePrvKey(Bytes(path), key.get()), 1);
        EXPECT_EQ(faults.callsOf(steps), steps);
    };
    EXPECT_EQ(LeakedBy(run), 0);
}

} // namespace
