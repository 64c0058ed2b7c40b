#include "src/crypto.h"

#include "tests/support/captured_output.h"
#include "tests/support/child_run.h"
#include "tests/support/library_faults.h"
#include "tests/support/library_memory.h"
#include "tests/support/password_questions.h"
#include "tests/support/private_keys.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"

#include <gtest/gtest.h>

#include <openssl/pem.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace {

const std::string decryptionError = Error("Error: reading encrypted private key file fails\n");
const std::string readingError = Error("Error: reading private key file fails\n");

class StoredKeys : public testing::Test {
protected:
    /// Writes `content` to a file and returns its path.
    std::string file(const std::string &content)
    {
        const std::string path = folder / "key.pem";
        fs::remove(path);
        WriteFile(path, content);
        return path;
    }

    TemporaryFolder folder;
};

void expectSameKey(EVP_PKEY *key, EVP_PKEY *expected)
{
    ASSERT_NE(key, nullptr);
    const TemporaryFolder folder;
    EXPECT_EQ(Crypto().SavePrvKey(Bytes(folder / "key.pem"), key), 1);
    EXPECT_EQ(Crypto().SavePrvKey(Bytes(folder / "expected.pem"), expected), 1);
    EXPECT_EQ(ReadFile(folder / "key.pem"), ReadFile(folder / "expected.pem"));
}

class ReadEncPrvKey : public StoredKeys {
protected:
    void expectKey(const std::string &path, const std::string &password, EVP_PKEY *expected)
    {
        SCOPED_TRACE(path);
        const PasswordQuestions questions;
        EVP_PKEY *key = nullptr;
        CapturedOutput errors(2);
        CapturedOutput output;
        EXPECT_EQ(Crypto().ReadEncPrvKey(Bytes(path), &key, Bytes(password)), 1);
        const KeyOwner owner(key);
        EXPECT_EQ(output.text(), "");
        EXPECT_EQ(errors.text(), "");
        expectSameKey(key, expected);
        EXPECT_EQ(questions.count(), 0);
    }

    void expectNoKey(const std::string &path, const std::string &password, const std::string &messages)
    {
        SCOPED_TRACE(path);
        const auto run = [&] {
            const PasswordQuestions questions(storedPassword);
            const KeyOwner old = FixedKey(prime256v1, 7);
            EVP_PKEY *key = old.get();
            CapturedOutput errors(2);
            CapturedOutput output;
            EXPECT_EQ(Crypto().ReadEncPrvKey(Bytes(path), &key, Bytes(password)), -1);
            EXPECT_EQ(key, nullptr);
            EXPECT_EQ(output.text(), messages);
            EXPECT_EQ(errors.text(), "");
            EXPECT_EQ(questions.count(), 0);
        };
        EXPECT_EQ(LeakedBy(run), 0);
    }
};

TEST_F(ReadEncPrvKey, ReadsEveryFormThatTheOpensslToolWrites)
{
    for (const std::string &name : storedNames) {
        const KeyOwner expected = StoredKey(name + ".pem");
        for (const auto &[form, encrypted] : storedForms)
            expectKey(StoredKeyPath(name + "." + form), storedPassword, expected.get());
    }
}

TEST_F(ReadEncPrvKey, ReadsTheKeyAfterABlockOfParameters)
{
    const KeyOwner expected = StoredKey("prime256v1.parameters-first.pem");
    expectKey(StoredKeyPath("prime256v1.parameters-first.pem"), storedPassword, expected.get());
}

TEST_F(ReadEncPrvKey, ReadsWhatTheEngineWrites)
{
    for (const std::string &name : storedNames) {
        const KeyOwner key = StoredKey(name + ".pem");
        for (const EVP_CIPHER *cipher : {EVP_aes_128_cbc(), EVP_aes_256_cbc()}) {
            const std::string path = folder / "key.pem";
            const std::string password = "pass \xE2\x82\xAC word";
            ASSERT_EQ(Crypto().SaveEncPrvKey(Bytes(path), key.get(), Bytes(password), cipher), 1);
            expectKey(path, password, key.get());
        }
        ASSERT_EQ(Crypto().SavePrvKey(Bytes(folder / "plain.pem"), key.get()), 1);
        expectKey(folder / "plain.pem", "", key.get());
    }
}

TEST_F(ReadEncPrvKey, OpensNoKeyWithAnotherPassword)
{
    for (const std::string &name : storedNames) {
        for (const auto &[form, encrypted] : storedForms) {
            if (!encrypted)
                continue;
            for (const char *password : {"correct horsf", "correct hors", "correct horse ", ""})
                expectNoKey(StoredKeyPath(name + "." + form), password, decryptionError);
        }
    }
}

TEST_F(ReadEncPrvKey, SetsTheKeyToNullBeforeOpeningTheFile)
{
    const std::string missing = folder / "missing é.pem";
    expectNoKey(missing, storedPassword, CannotOpen(missing));
}

TEST_F(ReadEncPrvKey, FailsIfTheFileContainsNoPrivateKey)
{
    const std::string encrypted = ReadFile(StoredKeyPath("prime256v1.aes256.pem"));
    const std::string traditional = ReadFile(StoredKeyPath("rsa2048.traditional.aes128.pem"));
    const std::string plain = ReadFile(StoredKeyPath("prime256v1.pem"));
    const std::string elliptic =
        ContentOfPemFile("EC PRIVATE KEY", ReadFile(StoredKeyPath("prime256v1.traditional.pem")));
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"empty", ""},
        {"no block", "no key here\n"},
        {"zero bytes", std::string(4096, '\0')},
        {"truncated", encrypted.substr(0, encrypted.size() / 2)},
        {"without its last line", encrypted.substr(0, encrypted.rfind("-----END"))},
        {"truncated traditional", traditional.substr(0, traditional.size() / 2)},
        {"truncated plain", plain.substr(0, plain.size() / 2)},
        {"public key", ReadFile(StoredKeyPath("prime256v1.public.pem"))},
        {"certificate", ReadFile(TestData("certificate.pem"))},
        {"encrypted nonsense", PemFile("ENCRYPTED PRIVATE KEY", "nonsense")},
        {"plain nonsense", PemFile("PRIVATE KEY", "nonsense")},
        {"elliptic nonsense", PemFile("EC PRIVATE KEY", "nonsense")},
        {"rsa nonsense", PemFile("RSA PRIVATE KEY", "nonsense")},
        {"dsa nonsense", PemFile("DSA PRIVATE KEY", "nonsense")},
        {"key of another kind than its label", PemFile("RSA PRIVATE KEY", elliptic)},
        {"unknown kind", PemFile("ODD PRIVATE KEY", elliptic)},
        {"kind without a form of its own", PemFile("X25519 PRIVATE KEY", elliptic)},
        {"label in other letters", PemFile("ec private key", elliptic)},
        {"bare encoding", elliptic},
    };
    for (const auto &[name, content] : cases) {
        SCOPED_TRACE(name);
        expectNoKey(file(content), storedPassword, decryptionError);
    }
}

TEST_F(ReadEncPrvKey, ReadsKeysOfOtherTypes)
{
    // Ed25519, the example of RFC 8410.
    const std::string encoding = FromHex(
        "302E020100300506032B657004220420D4EE72DBF913584AD5B6D8F1F769F8AD3AFE7C28CBF1D4FBE097A88F44755842");
    EVP_PKEY *key = nullptr;
    ASSERT_EQ(Crypto().ReadEncPrvKey(Bytes(file(PemFile("PRIVATE KEY", encoding))), &key, Bytes("x")), 1);
    const KeyOwner owner(key);
    EXPECT_EQ(EVP_PKEY_id(key), EVP_PKEY_ED25519);
}

TEST_F(ReadEncPrvKey, TerminatesOnPathsToSpecialFiles)
{
    expectNoKey(folder.path().string(), storedPassword, decryptionError);
    expectNoKey("/dev/null", storedPassword, decryptionError);
    expectNoKey("/dev/zero", storedPassword, decryptionError);
    expectNoKey("/dev/urandom", storedPassword, decryptionError);
}

TEST_F(ReadEncPrvKey, FailsIfAnyStepFails)
{
    const std::string path = StoredKeyPath("prime256v1.aes256.pem");
    for (const char *function :
         {"BIO_new_fp", "PEM_bytes_read_bio_secmem", "PKCS8_decrypt", "EVP_PKCS82PKEY"}) {
        SCOPED_TRACE(function);
        const auto run = [&] {
            LibraryFaults faults;
            faults.fail(function);
            EVP_PKEY *key = nullptr;
            CapturedOutput output;
            EXPECT_EQ(Crypto().ReadEncPrvKey(Bytes(path), &key, Bytes(storedPassword)), -1);
            EXPECT_EQ(output.text(), decryptionError);
            EXPECT_EQ(key, nullptr);
        };
        EXPECT_EQ(LeakedBy(run), 0);
    }
}

/// The first line of content, and the end of the last one: the part of it that a new line leaves in a buffer.
std::pair<std::string, std::string> firstAndLastOf(const std::string &text)
{
    const std::size_t headers = text.find("\n\n");
    const std::size_t first = headers != std::string::npos ? headers + 2 : text.find('\n') + 1;
    const std::string end = text.substr(0, text.rfind("-----END"));
    const std::size_t last = end.rfind('\n', end.size() - 2) + 1;
    return {text.substr(first, 24), end.substr(last + std::strlen("-----END EC PRIVATE KEY-----") + 1)};
}

TEST_F(ReadEncPrvKey, WipesTheTextOfTheFileAndThePassword)
{
    for (const auto &[form, encrypted] : storedForms) {
        SCOPED_TRACE(form);
        const std::string path = StoredKeyPath("prime256v1." + form);
        const std::string text = ReadFile(path);
        const auto [first, last] = firstAndLastOf(text);
        for (const std::string &secret : {first, last}) {
            ASSERT_GT(secret.size(), 5u);
            ReleasedMemory memory;
            memory.searchFor(secret);
            std::vector<std::string> wiped;
            LibraryFaults faults;
            faults.replace<decltype(OPENSSL_cleanse)>("OPENSSL_cleanse", [&](void *bytes, std::size_t size) {
                wiped.emplace_back(static_cast<const char *>(bytes), size);
                std::memset(bytes, 0, size);
            });
            EVP_PKEY *key = nullptr;
            ASSERT_EQ(Crypto().ReadEncPrvKey(Bytes(path), &key, Bytes(storedPassword)), 1);
            EVP_PKEY_free(key);
            EXPECT_TRUE(memory.sawReleases());
            EXPECT_FALSE(memory.containedTheSecret());
            // The decoded block, which is the key itself if the file is not encrypted.
            EXPECT_EQ(faults.calls("CRYPTO_secure_clear_free"), 1);

            const bool engineHasPassword = form == "aes128.pem" || form == "aes256.pem";
            ASSERT_EQ(wiped.size(), engineHasPassword ? 2u : 1u);
            EXPECT_EQ(wiped.back().substr(0, text.size()), text);
            if (engineHasPassword) {
                EXPECT_EQ(wiped.front().substr(0, storedPassword.size()), storedPassword);
            }
        }
    }
}

class ReadPrvKey : public StoredKeys {
protected:
    int read(const std::string &path, EVP_PKEY **key)
    {
        CapturedOutput errors(2);
        CapturedOutput output;
        const int status = Crypto().ReadPrvKey(Bytes(path), key);
        printed = output.text();
        EXPECT_EQ(errors.text(), "");
        return status;
    }

    std::string printed;
};

TEST_F(ReadPrvKey, ReadsUnencryptedKeysWithoutAskingForAPassword)
{
    const PasswordQuestions questions(storedPassword);
    for (const std::string &name : storedNames) {
        const KeyOwner expected = StoredKey(name + ".pem");
        for (const char *form : {".pem", ".traditional.pem"}) {
            EVP_PKEY *key = nullptr;
            EXPECT_EQ(read(StoredKeyPath(name + form), &key), 1);
            const KeyOwner owner(key);
            EXPECT_EQ(printed, "");
            expectSameKey(key, expected.get());
        }
    }
    EXPECT_EQ(questions.count(), 0);
}

TEST_F(ReadPrvKey, AsksForThePasswordOfAnEncryptedKeyOnTheTerminal)
{
    for (const auto &[form, encrypted] : storedForms) {
        if (!encrypted)
            continue;
        SCOPED_TRACE(form);
        const KeyOwner expected = StoredKey("prime256v1.pem");
        const std::string path = StoredKeyPath("prime256v1." + form);
        {
            const PasswordQuestions questions(storedPassword);
            EVP_PKEY *key = nullptr;
            EXPECT_EQ(read(path, &key), 1);
            const KeyOwner owner(key);
            expectSameKey(key, expected.get());
            EXPECT_EQ(questions.count(), 1);
        }
        const PasswordQuestions questions("wrong horse");
        EVP_PKEY *key = expected.get();
        EXPECT_EQ(read(path, &key), -1);
        EXPECT_EQ(key, nullptr);
        EXPECT_EQ(printed, readingError);
        EXPECT_EQ(questions.count(), 1);
    }
}

TEST_F(ReadPrvKey, KeepsTheKeyIfTheFileCannotBeOpened)
{
    const KeyOwner old = FixedKey(prime256v1, 7);
    EVP_PKEY *key = old.get();
    const std::string missing = folder / "missing é.pem";
    EXPECT_EQ(read(missing, &key), -1);
    EXPECT_EQ(key, old.get());
    EXPECT_EQ(printed, CannotOpen(missing));
}

TEST_F(ReadPrvKey, FailsIfTheFileContainsNoPrivateKey)
{
    const PasswordQuestions questions(storedPassword);
    const std::string plain = ReadFile(StoredKeyPath("prime256v1.pem"));
    for (const std::string &content :
         {std::string(), plain.substr(0, plain.size() / 2), ReadFile(StoredKeyPath("rsa2048.public.pem")),
          ReadFile(TestData("certificate.pem"))}) {
        const KeyOwner old = FixedKey(prime256v1, 7);
        EVP_PKEY *key = old.get();
        EXPECT_EQ(read(file(content), &key), -1);
        EXPECT_EQ(key, nullptr);
        EXPECT_EQ(printed, readingError);
    }
    EXPECT_EQ(questions.count(), 0);
}

class ReadPubKey : public testing::Test {
protected:
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

    /// Expects the file to count as read without giving a key.
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

TEST_F(ReadPubKey, ReadsTheFirstPublicKeyAfterAnyOtherContent)
{
    const std::string content = "a note\n" + ReadFile(TestData("certificate.pem")) +
                                publicKeyFile(brainpoolP256t1, 5) + publicKeyFile(prime256v1, 6);
    EXPECT_EQ(PointOf(readKey(file("plusieurs clés ☂.pem", content)).get()),
              PointOf(FixedKey(brainpoolP256t1, 5).get()));
}

TEST_F(ReadPubKey, ReplacesAndReleasesThePreviousKey)
{
    KeyOwner old = FixedKey(prime256v1, 7);
    const ReleaseWatch watch(old.get());
    EVP_PKEY *key = old.release();
    EXPECT_EQ(read(file("new.pem", publicKeyFile(brainpoolP256t1, 5)), &key), 1);
    const KeyOwner owner(key);
    EXPECT_TRUE(watch.released());
    EXPECT_EQ(PointOf(key), PointOf(FixedKey(brainpoolP256t1, 5).get()));
}

TEST_F(ReadPubKey, FailsIfThereIsNoFile)
{
    const KeyOwner old = FixedKey(prime256v1, 7);
    for (const char *name : {"missing.pem", "missing/public.pem", "absent é.pem"}) {
        EVP_PKEY *key = old.get();
        EXPECT_EQ(read(folder / name, &key), -1);
        EXPECT_EQ(printed, CannotOpen(folder / name));
        EXPECT_EQ(key, old.get());
    }
}

TEST_F(ReadPubKey, FailsIfThePointerToTheKeyIsNull)
{
    EXPECT_EQ(read(TestData("prime256v1-public.pem"), nullptr), -1);
    EXPECT_EQ(printed, Error("Error: reading public key file fails\n"));
    // The file is checked first.
    EXPECT_EQ(read(folder / "missing.pem", nullptr), -1);
    EXPECT_EQ(printed, CannotOpen(folder / "missing.pem"));
}

TEST_F(ReadPubKey, SucceedsOnAFileWithoutAPublicKey)
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

TEST_F(ReadPubKey, ReadsNoPublicKeyFromAPrivateKeyFile)
{
    const KeyOwner key = FixedKey(prime256v1, 5);
    ASSERT_EQ(Crypto().SaveEncPrvKey(Bytes(folder / "encrypted.pem"), key.get(), Bytes("password"),
                                     EVP_aes_256_cbc()),
              1);
    expectNoKey(folder / "encrypted.pem");
    ASSERT_EQ(Crypto().SavePrvKey(Bytes(folder / "plain.pem"), key.get()), 1);
    expectNoKey(folder / "plain.pem");
}

TEST_F(ReadPubKey, DoesNotAskForThePasswordOfAnEncryptedPublicKey)
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

TEST_F(ReadPubKey, TerminatesOnPathsToSpecialFiles)
{
    fs::create_directory(folder / "folder.pem");
    expectNoKey(folder / "folder.pem");
    expectNoKey("/dev/null");
    expectNoKey("/dev/zero");
    expectNoKey("/dev/urandom");
}

TEST_F(ReadPubKey, ReturnsNoKeyIfTheLibraryFails)
{
    for (const char *function : {"BIO_new_fp", "PEM_bytes_read_bio_secmem"}) {
        SCOPED_TRACE(function);
        const auto run = [&] {
            LibraryFaults faults;
            faults.fail(function);
            EVP_PKEY *read = nullptr;
            CapturedOutput output;
            EXPECT_EQ(Crypto().ReadPubKey(Bytes(StoredKeyPath("prime256v1.public.pem")), &read), 1);
            EXPECT_EQ(read, nullptr);
            EXPECT_EQ(output.text(), "");
        };
        EXPECT_EQ(LeakedBy(run), 0);
    }
}

TEST_F(ReadPubKey, FallsBackToTheSlowerWayOfReadingAnEllipticCurveKey)
{
    for (const char *function : {"EVP_PKEY_new", "EVP_PKEY_assign"}) {
        SCOPED_TRACE(function);
        const auto run = [&] {
            LibraryFaults faults;
            faults.fail(function);
            EVP_PKEY *read = nullptr;
            EXPECT_EQ(Crypto().ReadPubKey(Bytes(StoredKeyPath("prime256v1.public.pem")), &read), 1);
            const KeyOwner owner(read);
            ASSERT_NE(read, nullptr);
            EXPECT_EQ(PointOf(read), PointOf(StoredKey("prime256v1.pem").get()));
        };
        EXPECT_EQ(LeakedBy(run), 0);
    }
}

/// A reader, with a file of the type that it reads.
struct Reader {
    const char *name;
    int (*read)(const std::string &path, EVP_PKEY **key);
    const char *file;
};

std::ostream &operator<<(std::ostream &stream, const Reader &reader)
{
    return stream << reader.name;
}

const std::array<Reader, 3> readers = {{
    {"ReadPubKey",
     [](const std::string &path, EVP_PKEY **key) { return Crypto().ReadPubKey(Bytes(path), key); },
     "prime256v1.public.pem"},
    {"ReadEncPrvKey",
     [](const std::string &path, EVP_PKEY **key) {
         return Crypto().ReadEncPrvKey(Bytes(path), key, Bytes(storedPassword));
     },
     "prime256v1.aes256.pem"},
    {"ReadPrvKey",
     [](const std::string &path, EVP_PKEY **key) { return Crypto().ReadPrvKey(Bytes(path), key); },
     "prime256v1.pem"},
}};

/// Any of the readers, with a file that contains other text or that is read from a pipe.
class EachReader : public testing::TestWithParam<Reader> {
protected:
    /// What the reader returns and prints for the file at `path`.
    std::string outcome(const std::string &path) const
    {
        EVP_PKEY *key = nullptr;
        CapturedOutput output;
        const int status = GetParam().read(path, &key);
        const KeyOwner owner(key);
        if (key == nullptr)
            return "no key";
        return status == 1 && output.text().empty() && PointOf(key) == point ? "the key" : "another outcome";
    }

    void expectKeyIn(const std::string &content)
    {
        WriteFile(folder / "key.pem", content);
        EXPECT_EQ(outcome(folder / "key.pem"), "the key");
    }

    void expectNoKeyIn(const std::string &content)
    {
        WriteFile(folder / "key.pem", content);
        EXPECT_EQ(outcome(folder / "key.pem"), "no key");
    }

    std::string makePipe()
    {
        std::string path = folder / "pipe";
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        return path;
    }

    const std::string keyFile = ReadFile(StoredKeyPath(GetParam().file));
    const std::string point = PointOf(StoredKey("prime256v1.pem").get());
    TemporaryFolder folder;
};

INSTANTIATE_TEST_SUITE_P(Readers, EachReader, testing::ValuesIn(readers), testing::PrintToStringParamName());

TEST_P(EachReader, TheKeyIsFoundAfterMuchOtherText)
{
    std::string lines;
    for (int i = 0; i < 100000; ++i)
        lines += "one more line of a long note\n";
    expectKeyIn(lines + keyFile);
    expectKeyIn(std::string(3 << 20, '#') + "\n" + keyFile);
}

TEST_P(EachReader, AtMost16MebibytesOfAFileAreRead)
{
    constexpr std::size_t limit = 16 << 20;
    std::string note(limit - keyFile.size() - 1, '#');
    note += '\n';
    expectKeyIn(note + keyFile);
    expectNoKeyIn("#" + note + keyFile);
}

TEST_P(EachReader, NoReaderWaitsForDataAfterTheKeyInAPipe)
{
    const std::string path = makePipe();
    // This end stays open.
    const int pipe = open(path.c_str(), O_RDWR | O_CLOEXEC);
    for (const std::string &before : {std::string(), std::string(5000, '\n')}) {
        const std::string content = before + keyFile;
        ASSERT_EQ(write(pipe, content.data(), content.size()), static_cast<ssize_t>(content.size()));
        const ChildRun run =
            RunInChild([&] { std::fputs(outcome(path).c_str(), stdout); }, {.timeoutMilliseconds = 60000});
        EXPECT_EQ(run.output, "the key");
    }
    close(pipe);
}

TEST_P(EachReader, AKeyThatArrivesInPiecesIsRead)
{
    const std::string path = makePipe();
    std::thread writer([&] {
        const int pipe = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        for (std::size_t i = 0; i < keyFile.size(); i += 7) {
            const std::string piece = keyFile.substr(i, 7);
            if (write(pipe, piece.data(), piece.size()) == -1)
                break;
        }
        close(pipe);
    });
    EXPECT_EQ(outcome(path), "the key");
    writer.join();
}

/// Writes `beginning`, and then `piece` repeatedly, into a pipe from a separate process, until the reader
/// closes it.
class EndlessWriter {
public:
    EndlessWriter(const std::string &path, const std::string &beginning, const std::string &piece)
        : total(static_cast<size_t *>(
              mmap(nullptr, sizeof(size_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))),
          process(fork())
    {
        if (process != 0)
            return;
        std::signal(SIGPIPE, SIG_DFL);
        const int pipe = open(path.c_str(), O_WRONLY);
        std::string content = beginning;
        do {
            content += piece;
        } while (content.size() < 65536);
        ssize_t written = write(pipe, content.data(), content.size());
        content.erase(0, beginning.size());
        while (written != -1) {
            *total += static_cast<size_t>(written);
            written = write(pipe, content.data(), content.size() / piece.size() * piece.size());
        }
        _exit(1);
    }
    ~EndlessWriter()
    {
        int status = 0;
        EXPECT_EQ(waitpid(process, &status, 0), process);
        EXPECT_TRUE(WIFSIGNALED(status));
        // This includes the bytes that are still in the pipe.
        EXPECT_LE(*total, size_t{17} << 20);
        munmap(total, sizeof *total);
    }
    EndlessWriter(const EndlessWriter &) = delete;
    EndlessWriter &operator=(const EndlessWriter &) = delete;

private:
    size_t *total; // bytes written, shared with the writing process
    pid_t process;
};

TEST_P(EachReader, EveryReaderStopsOnEndlessText)
{
    const std::string path = makePipe();
    const std::string label = keyFile.substr(0, keyFile.find('\n') + 1);
    const std::string line = std::string(64, 'A') + "\n";
    const std::pair<std::string, std::string> cases[] = {
        {"", "A"},
        {"", line},
        {label, "A"},
        {label, line},
        // The library reads lines in pieces of this size, and sees only the first byte of each.
        {"", "A" + std::string(253, '\0')}};
    for (const auto &[beginning, piece] : cases) {
        SCOPED_TRACE(beginning + piece);
        const EndlessWriter writer(path, beginning, piece);
        EXPECT_EQ(outcome(path), "no key");
    }
}

TEST_P(EachReader, EveryReaderReleasesItsBlocksOfTheSecureHeap)
{
    const ChildRun run = RunInChild([&] {
        if (CRYPTO_secure_malloc_init(65536, 16) == 0)
            std::fputs("no secure heap, ", stdout);
        std::fputs(outcome(StoredKeyPath(GetParam().file)).c_str(), stdout);
        std::printf(", %zu bytes left", CRYPTO_secure_used());
    });
    EXPECT_EQ(run.output, "the key, 0 bytes left");
}

} // namespace
