// What the four writers of key and hash files have in common, and the formats of the public files.
#include "src/crypto.h"

#include "src/ec_crypto.h"
#include "tests/support/captured_output.h"
#include "tests/support/sanitizer.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"
#include "tests/support/umask.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <ostream>
#include <string>
#include <utility>

namespace fs = std::filesystem;

namespace {

const std::string tableHash = FromHex("00 01 02 0A 0D 1B 7F 80 FF 00 00 00 00 00 00 00"
                                      "10 11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 00");

/// The three messages that name a path.
std::string pathError(const std::string &text, const std::string &path)
{
    return Error(text) + Error(path) + Error("\n");
}

/// During its lifetime no file can be opened, not even by root. Open files stay open.
class NoMoreFiles {
public:
    NoMoreFiles()
    {
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit none = {0, before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoMoreFiles() { setrlimit(RLIMIT_NOFILE, &before); }
    NoMoreFiles(const NoMoreFiles &) = delete;
    NoMoreFiles &operator=(const NoMoreFiles &) = delete;

private:
    rlimit before = {};
};

/// One of the engine's file writers, with the outcomes in which the writers differ.
struct Writer {
    const char *name;
    int (*write)(const std::string &path);
    int mode;
    std::string (*cannotCreate)(const std::string &path);
    std::string (*cannotWrite)(const std::string &path);
    int statusOfFailedWrite;
    /// Whether a file is complete and correct.
    bool (*isComplete)(const std::string &file);
    bool namesPathsInUtf8;
};

std::ostream &operator<<(std::ostream &stream, const Writer &writer)
{
    return stream << writer.name;
}

KeyOwner key()
{
    return FixedKey(prime256v1, 20);
}

int writePrivateKey(const std::string &path)
{
    return Crypto().SaveEncPrvKey(Bytes(path), key().get(), Bytes("password"), EVP_aes_256_cbc());
}

int writePublicKey(const std::string &path)
{
    return Crypto().SavePubKey(Bytes(path), key().get());
}

int writeHash(const std::string &path)
{
    return EC_Crypto(prime256v1).SaveHashPubKey(key().get(), Bytes(path));
}

int writeTableHash(const std::string &path)
{
    return Crypto().SaveHashTableHash(Bytes(tableHash), 32, Bytes(path));
}

const std::array<Writer, 4> writers = {{
    {"SaveEncPrvKey", writePrivateKey, 0400,
     [](const std::string &) { return Error("Error: creating Key File fails\n"); },
     [](const std::string &) { return Error("Error: writing encrypted private Key fails\n"); }, -1,
     [](const std::string &file) { return ContentOfPemFile("ENCRYPTED PRIVATE KEY", file).size() == 239; },
     false},
    {"SavePubKey", writePublicKey, 0444,
     [](const std::string &) { return Error("Error: creating key file fails\n"); },
     [](const std::string &) { return Error("Error: writing key fails\n"); }, 0,
     [](const std::string &file) {
         return file == PemFile("PUBLIC KEY", EncodingOfPoint(prime256v1, PointOf(key().get())));
     },
     false},
    {"SaveHashPubKey", writeHash, 0444,
     [](const std::string &path) { return pathError("Error: Reading Device file fails: ", path); },
     [](const std::string &path) { return pathError("Error: Reading Device file fails: ", path); }, -1,
     [](const std::string &file) { return file == Sha256Of(PointOf(key().get())); }, false},
    {"SaveHashTableHash", writeTableHash, 0444,
     [](const std::string &path) { return pathError("Error: Creating file fails: ", path); },
     [](const std::string &path) { return pathError("Error: Creating file fails: ", path); }, -1,
     [](const std::string &file) { return file == tableHash; }, true},
}};

class EachWriter : public testing::TestWithParam<Writer> {
protected:
    /// Writes to `path` and checks the outcome.
    void expectWritten(const std::string &path)
    {
        CapturedOutput output;
        EXPECT_EQ(writer.write(path), 1);
        EXPECT_EQ(output.text(), "");
        EXPECT_TRUE(writer.isComplete(ReadFile(path)));
    }

    void expectNotCreated(const std::string &path)
    {
        CapturedOutput output;
        EXPECT_EQ(writer.write(path), -1);
        EXPECT_EQ(output.text(), writer.cannotCreate(path));
    }

    const Writer &writer = GetParam();
    TemporaryFolder folder;
};

INSTANTIATE_TEST_SUITE_P(Files, EachWriter, testing::ValuesIn(writers), testing::PrintToStringParamName());

TEST_P(EachWriter, ANewFileIsReadOnlyWithAnyUmask)
{
    for (const int mask : {0000, 0022, 0077, 0777}) {
        const UmaskInForce inForce(mask);
        const std::string path = folder / std::to_string(mask);
        CapturedOutput output;
        EXPECT_EQ(writer.write(path), 1);
        EXPECT_EQ(output.text(), "");
        EXPECT_EQ(ModeOf(path), writer.mode);
    }
}

TEST_P(EachWriter, TheWholeFileIsWrittenAndLaterOverwritten)
{
    const std::string path = folder / "file";
    expectWritten(path);
    expectWritten(path);
    EXPECT_EQ(ModeOf(path), writer.mode);
}

TEST_P(EachWriter, ALongerOldFileIsTruncated)
{
    const std::string path = folder / "file";
    WriteFile(path, std::string(5000, '#'));
    fs::permissions(path, fs::perms(0755));
    expectWritten(path);
    EXPECT_EQ(ModeOf(path), writer.mode);
}

TEST_P(EachWriter, TheModeOfAnOldFileThatCannotBeOpenedIsRestored)
{
    if (underSanitizers)
        GTEST_SKIP() << "a sanitizer inspects objects through a file descriptor of its own";
    const std::string path = folder / "file";
    WriteFile(path, "old");
    for (const int mode : {0400, 0444, 0640, 07751, 0000}) {
        ASSERT_EQ(chmod(path.c_str(), static_cast<mode_t>(mode)), 0);
        CapturedOutput output;
        {
            const NoMoreFiles noMoreFiles;
            EXPECT_EQ(writer.write(path), -1);
        }
        EXPECT_EQ(output.text(), writer.cannotCreate(path));
        EXPECT_EQ(ModeOf(path), mode);
    }
    fs::permissions(path, fs::perms(0600));
    EXPECT_EQ(ReadFile(path), "old");
}

// The name under which the mode is set may belong to another file.
TEST_P(EachWriter, TheModeOfAFileWithTheLatin1NameIsRestored)
{
    const std::string otherPath = folder / "clÃ©/file";
    fs::create_directory(folder / "clÃ©");
    WriteFile(otherPath, "other");
    fs::permissions(otherPath, fs::perms(0640));
    expectNotCreated(folder / "clé/file");
    EXPECT_EQ(ModeOf(otherPath), 0640);
}

TEST_P(EachWriter, AMissingDirectoryIsAFailure)
{
    expectNotCreated(folder / "dossier absent é ☂/clé.bin");
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

TEST_P(EachWriter, ADirectoryInPlaceOfTheFileIsAFailureAndIsNotChanged)
{
    const std::string path = folder / "file";
    fs::create_directory(path);
    fs::permissions(path, fs::perms(0750));
    expectNotCreated(path);
    EXPECT_EQ(ModeOf(path), 0750);
}

TEST_P(EachWriter, ALinkIntoAMissingDirectoryIsAFailure)
{
    const std::string path = folder / "file";
    fs::create_symlink(folder / "missing/file", path);
    expectNotCreated(path);
    EXPECT_TRUE(fs::is_symlink(path));
}

TEST_P(EachWriter, TheTargetOfALinkIsWritten)
{
    for (const bool exists : {false, true}) {
        const std::string target = folder / (exists ? "old" : "new");
        if (exists)
            WriteFile(target, std::string(5000, '#'));
        const std::string path = target + " link";
        fs::create_symlink(target, path);
        expectWritten(path);
        EXPECT_TRUE(fs::is_symlink(path));
        EXPECT_TRUE(writer.isComplete(ReadFile(target)));
        EXPECT_EQ(ModeOf(target), writer.mode);
    }
}

TEST_P(EachWriter, APipeIsWrittenAndItsModeIsKept)
{
    const std::string path = folder / "pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    fs::permissions(path, fs::perms(0640));
    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_NE(reader, -1);
    CapturedOutput output;
    EXPECT_EQ(writer.write(path), 1);
    EXPECT_EQ(output.text(), "");
    EXPECT_EQ(ModeOf(path), 0640);
    std::string content(4096, '\0');
    const ssize_t size = read(reader, content.data(), content.size());
    close(reader);
    ASSERT_GE(size, 0);
    EXPECT_TRUE(writer.isComplete(content.substr(0, static_cast<std::size_t>(size))));
}

TEST_P(EachWriter, AFullDeviceIsReportedAndItsModeIsKept)
{
    const int mode = ModeOf("/dev/full");
    CapturedOutput output;
    EXPECT_EQ(writer.write("/dev/full"), writer.statusOfFailedWrite);
    EXPECT_EQ(output.text(), writer.cannotWrite("/dev/full"));
    EXPECT_EQ(ModeOf("/dev/full"), mode);
}

// The bytes of a path are the file's name. Except for the table hash file, however, the mode is set under the
// name that the bytes spell in Latin-1.
TEST_P(EachWriter, TheModeIsSetUnderTheLatin1Name)
{
    const UmaskInForce inForce(0027);
    const std::string path = folder / "clé.bin";
    expectWritten(path);
    EXPECT_EQ(ModeOf(path), writer.namesPathsInUtf8 ? writer.mode : 0640);
}

TEST_P(EachWriter, AnotherFileWithTheLatin1NameGetsTheMode)
{
    const std::string path = folder / "clé.bin";
    const std::string otherPath = folder / "clÃ©.bin";
    WriteFile(otherPath, "other");
    fs::permissions(otherPath, fs::perms(0640));
    expectWritten(path);
    EXPECT_EQ(ModeOf(otherPath), writer.namesPathsInUtf8 ? 0640 : writer.mode);
    fs::permissions(otherPath, fs::perms(0600));
    EXPECT_EQ(ReadFile(otherPath), "other");
}

TEST(SavePubKey, WritesTheNamedCurveAndTheUncompressedPoint)
{
    const TemporaryFolder folder;
    for (const int nid : {prime256v1, brainpoolP256t1}) {
        const KeyOwner written = FixedKey(nid, 300);
        const std::string path = folder / std::to_string(nid);
        EXPECT_EQ(Crypto().SavePubKey(Bytes(path), written.get()), 1);
        EXPECT_EQ(ReadFile(path), PemFile("PUBLIC KEY", EncodingOfPoint(nid, PointOf(written.get()))));
    }
}

TEST(SavePubKey, RewritesAFileOfAnotherToolWithTheSameBytes)
{
    const TemporaryFolder folder;
    for (const char *name : {"prime256v1-public.pem", "brainpoolP256t1-public.pem", "rsa2048-public.pem"}) {
        EVP_PKEY *read = nullptr;
        ASSERT_EQ(Crypto().ReadPubKey(Bytes(TestData(name)), &read), 1);
        const KeyOwner owner(read);
        EXPECT_EQ(Crypto().SavePubKey(Bytes(folder / name), read), 1);
        EXPECT_EQ(ReadFile(folder / name), ReadFile(TestData(name)));
    }
}

TEST(SavePubKey, LeavesAnEmptyReadOnlyFileIfThereIsNoKey)
{
    const TemporaryFolder folder;
    const std::string path = folder / "public.pem";
    // First a new file, then an old one.
    for (int run = 0; run < 2; ++run) {
        CapturedOutput output;
        EXPECT_EQ(Crypto().SavePubKey(Bytes(path), nullptr), 0);
        EXPECT_EQ(output.text(), Error("Error: writing key fails\n"));
        EXPECT_EQ(ModeOf(path), 0444);
        EXPECT_EQ(ReadFile(path), "");
        EXPECT_EQ(Crypto().SavePubKey(Bytes(path), key().get()), 1);
    }
}

TEST(SaveHashPubKey, WritesTheHashOfTheBinaryForm)
{
    const TemporaryFolder folder;
    // Digests computed with another tool.
    const std::pair<int, const char *> cases[] = {
        {prime256v1, "4b86e7c3666058e52c3297d7793aa8d51c26fe830d0aa38be94b232c1e0db0fc"},
        {brainpoolP256t1, "2c1d865d00f297d9949c69266f536246d43fcd2658a539b99e47ca252c3cb564"},
    };
    for (const auto &[nid, digest] : cases) {
        EC_Crypto engine(nid);
        EVP_PKEY *read = nullptr;
        const std::string name = nid == prime256v1 ? "prime256v1-public.pem" : "brainpoolP256t1-public.pem";
        ASSERT_EQ(engine.ReadPubKey(Bytes(TestData(name)), &read), 1);
        const KeyOwner owner(read);
        const std::string path = folder / std::to_string(nid);
        EXPECT_EQ(engine.SaveHashPubKey(read, Bytes(path)), 1);
        EXPECT_EQ(ReadFile(path), FromHex(digest));
    }
}

TEST(SaveHashTableHash, WritesTheRequestedNumberOfBytes)
{
    const TemporaryFolder folder;
    for (const int length : {0, 1, 31, 32}) {
        const std::string path = folder / std::to_string(length);
        EXPECT_EQ(Crypto().SaveHashTableHash(Bytes(tableHash), length, Bytes(path)), 1);
        EXPECT_EQ(ReadFile(path), tableHash.substr(0, static_cast<std::size_t>(length)));
    }
    const std::string large(100000, '\xA5');
    EXPECT_EQ(Crypto().SaveHashTableHash(Bytes(large), 100000, Bytes(folder / "large")), 1);
    EXPECT_EQ(ReadFile(folder / "large"), large);
}

} // namespace
