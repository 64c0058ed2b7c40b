// Class Crypto's key-file writers and readers.
#include "src/crypto.h"

#include "keygen/console.h"
#include "src/openssl_owners.h"

#include <QFile>
#include <QFileInfo>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

constexpr size_t digestBufferSize = 512;
constexpr size_t digestSize = 32;

// The format of the encrypted private key file. Named here, because the library's own defaults change with
// its version.
constexpr int saltSize = 8;
constexpr int iterations = 2048;
constexpr int pseudoRandomFunction = NID_hmacWithSHA256;

/// No key file comes near this size, and an endless device must not keep a run from ending.
constexpr size_t largestKeyFile = size_t{1} << 20;

// Modes 0226, 0400 and 0444. The first makes a read-only file of an earlier run writable again.
constexpr QFileDevice::Permissions overwritable = QFileDevice::WriteOwner | QFileDevice::WriteUser |
                                                  QFileDevice::WriteGroup | QFileDevice::WriteOther |
                                                  QFileDevice::ReadOther;
constexpr QFileDevice::Permissions ownerReadable = QFileDevice::ReadOwner | QFileDevice::ReadUser;
constexpr QFileDevice::Permissions readable =
    QFileDevice::ReadOwner | QFileDevice::ReadUser | QFileDevice::ReadGroup | QFileDevice::ReadOther;

const char *charsOf(const unsigned char *bytes)
{
    return reinterpret_cast<const char *>(bytes);
}

/// The name under which the key files' permissions are set: their path read as Latin-1. It is the file's own
/// name when that is ASCII; otherwise it is another one, and the new file keeps the process's default mode.
QString permissionName(const unsigned char *path)
{
    return QString::fromLatin1(charsOf(path));
}

/// One output file: an old one is made writable at once; then it is created or truncated, written, and
/// closed.
class OutputFile {
public:
    OutputFile(const unsigned char *filePath, const QString &nameForPermissions)
        : path(charsOf(filePath)), name(nameForPermissions)
    {
        setPermissions(overwritable);
    }

    /// Creates or truncates the file.
    bool open()
    {
        file.reset(std::fopen(path, "wb"));
        return file != nullptr;
    }

    std::FILE *stream() const { return file.get(); }

    /// Flushes and closes: only now is it known whether all that was written has reached the file.
    bool close()
    {
        std::FILE *const stream = file.release();
        const bool flushed = std::fflush(stream) == 0 && std::ferror(stream) == 0;
        return std::fclose(stream) == 0 && flushed;
    }

    /// Folders and devices keep their own: only a file was ever read-only by this program's doing.
    void setPermissions(QFileDevice::Permissions permissions) const
    {
        if (QFileInfo(name).isFile())
            QFile::setPermissions(name, permissions);
    }

private:
    const char *path;
    QString name;
    FileOwner file;
};

/// The length of a password as key files know it: the library's readers take no more than PEM_BUFSIZE bytes.
int passPhraseLength(const unsigned char *password)
{
    return static_cast<int>(std::min(std::strlen(charsOf(password)), size_t{PEM_BUFSIZE}));
}

bool writeEncryptedKey(std::FILE *file, EVP_PKEY *key, const unsigned char *password,
                       const EVP_CIPHER *cipher)
{
    // Without a password or a cipher anyone could open the file.
    if (key == nullptr || cipher == nullptr || password == nullptr || *password == '\0')
        return false;
    const PrivateKeyInfoOwner info(EVP_PKEY2PKCS8(key));
    AlgorithmOwner algorithm(
        PKCS5_pbe2_set_iv(cipher, iterations, nullptr, saltSize, nullptr, pseudoRandomFunction));
    if (!info || !algorithm)
        return false;
    const EncryptedKeyOwner encrypted(
        PKCS8_set0_pbe(charsOf(password), passPhraseLength(password), info.get(), algorithm.get()));
    if (!encrypted)
        return false;
    algorithm.release(); // the encrypted key owns it
    return PEM_write_PKCS8(file, encrypted.get()) != 0;
}

/// Writes the 32 bytes or so of a hash file and closes it.
bool writeAndClose(OutputFile &file, const unsigned char *bytes, size_t size)
{
    std::fwrite(bytes, 1, size, file.stream());
    return file.close();
}

void printPathError(const char *error, const unsigned char *path)
{
    MessageOut(error, MSG_ERROR);
    MessageOut(TextOf(charsOf(path)), MSG_ERROR);
    MessageOut("\n", MSG_ERROR);
}

FileOwner openForReading(const unsigned char *path)
{
    FileOwner file(std::fopen(charsOf(path), "rb"));
    if (!file)
        printPathError("Error: Reading Device file fails: ", path);
    return file;
}

/// The content of a key file, in memory that is wiped when it is released.
BioOwner contentOf(std::FILE *file)
{
    // The stream's own buffer would keep a copy.
    std::setvbuf(file, nullptr, _IONBF, 0);
    BioOwner content(BIO_new(BIO_s_mem()));
    std::array<char, 4096> chunk = {};
    for (size_t total = 0; content && total < largestKeyFile;) {
        const size_t size = std::fread(chunk.data(), 1, chunk.size(), file);
        if (size == 0)
            break;
        total += size;
        if (BIO_write(content.get(), chunk.data(), static_cast<int>(size)) != static_cast<int>(size))
            content.reset();
    }
    OPENSSL_cleanse(chunk.data(), chunk.size());
    return content;
}

/// A PEM block's name and its bytes, wiped when released.
struct PemBlock {
    PemBlock() = default;
    ~PemBlock()
    {
        OPENSSL_free(name);
        OPENSSL_clear_free(bytes, static_cast<size_t>(size));
    }
    PemBlock(const PemBlock &) = delete;
    PemBlock &operator=(const PemBlock &) = delete;

    /// Reads the first block whose name goes with `kind`, decrypting it where it is encrypted as a whole.
    bool read(BIO *content, const char *kind, pem_password_cb *callback, void *argument)
    {
        return PEM_bytes_read_bio(&bytes, &size, &name, kind, content, callback, argument) == 1;
    }

    char *name = nullptr;
    unsigned char *bytes = nullptr;
    long size = 0;
};

/// Public keys are not encrypted; one that claims to be is not worth a question on the terminal.
int refusePassPhrase(char *, int, int, void *)
{
    return -1;
}

/// The public key that a SubjectPublicKeyInfo encodes, or null. Elliptic-curve keys are decoded as such:
/// newer versions of the library take longer to find a decoder for a key of any kind than to generate one.
KeyOwner decodePublicKey(const unsigned char *encoding, long size)
{
    const unsigned char *cursor = encoding;
    ERR_set_mark();
    EcKeyOwner ec(d2i_EC_PUBKEY(nullptr, &cursor, size));
    KeyOwner key(EVP_PKEY_new());
    if (ec && key && EVP_PKEY_assign_EC_KEY(key.get(), ec.get()) == 1) {
        ec.release(); // the key object owns it
        ERR_clear_last_mark();
        return key;
    }
    ERR_pop_to_mark();
    cursor = encoding;
    return KeyOwner(d2i_PUBKEY(nullptr, &cursor, size));
}

KeyOwner decryptedKey(const X509_SIG *encrypted, void *password)
{
    std::array<char, PEM_BUFSIZE> passPhrase = {};
    const int length = PEM_def_callback(passPhrase.data(), passPhrase.size(), 0, password);
    const PrivateKeyInfoOwner info(length < 0 ? nullptr
                                              : PKCS8_decrypt(encrypted, passPhrase.data(), length));
    OPENSSL_cleanse(passPhrase.data(), passPhrase.size());
    return KeyOwner(info ? EVP_PKCS82PKEY(info.get()) : nullptr);
}

/// The private key in `content`, in any of the kinds that PEM knows, or null. Taken apart block by block,
/// because the library's own reader accepts other kinds from one version to the next. A null `password` makes
/// the library ask on the terminal where one is needed.
KeyOwner readPrivateKey(BIO *content, void *password)
{
    PemBlock block;
    if (content == nullptr || !block.read(content, PEM_STRING_EVP_PKEY, nullptr, password))
        return nullptr;
    const unsigned char *cursor = block.bytes;
    const std::string_view name = block.name;
    if (name == PEM_STRING_PKCS8) {
        const EncryptedKeyOwner encrypted(d2i_X509_SIG(nullptr, &cursor, block.size));
        return encrypted ? decryptedKey(encrypted.get(), password) : nullptr;
    }
    if (name == PEM_STRING_PKCS8INF) {
        const PrivateKeyInfoOwner info(d2i_PKCS8_PRIV_KEY_INFO(nullptr, &cursor, block.size));
        return KeyOwner(info ? EVP_PKCS82PKEY(info.get()) : nullptr);
    }
    if (name == PEM_STRING_ECPRIVATEKEY)
        return KeyOwner(d2i_PrivateKey(EVP_PKEY_EC, nullptr, &cursor, block.size));
    if (name == PEM_STRING_RSA)
        return KeyOwner(d2i_PrivateKey(EVP_PKEY_RSA, nullptr, &cursor, block.size));
    if (name == PEM_STRING_DSA)
        return KeyOwner(d2i_PrivateKey(EVP_PKEY_DSA, nullptr, &cursor, block.size));
    return nullptr;
}

} // namespace

int Crypto::SaveEncPrvKey(const unsigned char *path, EVP_PKEY *key, const unsigned char *password,
                          const EVP_CIPHER *cipher)
{
    OutputFile file(path, permissionName(path));
    if (!file.open()) {
        MessageOut("Error: creating Key File fails\n", MSG_ERROR);
        return -1;
    }
    if (!writeEncryptedKey(file.stream(), key, password, cipher) || !file.close()) {
        MessageOut("Error: writing encrypted private Key fails\n", MSG_ERROR);
        return -1;
    }
    file.setPermissions(ownerReadable);
    return 1;
}

int Crypto::SavePrvKey(const unsigned char *path, EVP_PKEY *key)
{
    FileOwner file(std::fopen(charsOf(path), "wb"));
    if (!file) {
        MessageOut("Error: creating Key File fails\n", MSG_ERROR);
        return -1;
    }
    // No buffer of the C library's keeps a copy of the key.
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    if (key == nullptr || PEM_write_PrivateKey(file.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 0 ||
        std::fclose(file.release()) != 0) {
        MessageOut("Error: writing Key fails\n", MSG_ERROR);
        return -1;
    }
    return 1;
}

int Crypto::SavePubKey(const unsigned char *path, EVP_PKEY *key)
{
    OutputFile file(path, permissionName(path));
    if (!file.open()) {
        MessageOut("Error: creating key file fails\n", MSG_ERROR);
        return -1;
    }
    const bool encoded = key != nullptr && PEM_write_PUBKEY(file.stream(), key) != 0;
    const bool written = file.close() && encoded;
    if (!written)
        MessageOut("Error: writing key fails\n", MSG_ERROR);
    file.setPermissions(readable);
    return written ? 1 : 0;
}

int Crypto::SaveHashPubKey(EVP_PKEY *key, const unsigned char *hashPath)
{
    OutputFile file(hashPath, permissionName(hashPath));
    const BufferOwner digest(static_cast<unsigned char *>(OPENSSL_malloc(digestBufferSize)));
    if (!digest) {
        MessageOut("Error: allocating buffer for PubKey hash fails\n", MSG_ERROR);
        return -1;
    }
    unsigned char *buffer = digest.get();
    size_t length = 0;
    if (GetHashPubKey(key, &buffer, &length) != 1) {
        MessageOut("Error: calculating PubKey hash fails\n", MSG_ERROR);
        return -1;
    }
    // Only now is the old file lost. The message speaks of reading; it is the one that users know for a hash
    // file that cannot be written.
    if (!file.open() || !writeAndClose(file, buffer, digestSize)) {
        printPathError("Error: Reading Device file fails: ", hashPath);
        return -1;
    }
    file.setPermissions(readable);
    return 1;
}

int Crypto::SaveHashTableHash(const unsigned char *data, int length, const unsigned char *path)
{
    OutputFile file(path, TextOf(charsOf(path)));
    if (!file.open() || !writeAndClose(file, data, static_cast<size_t>(length))) {
        printPathError("Error: Creating file fails: ", path);
        return -1;
    }
    file.setPermissions(readable);
    return 1;
}

int Crypto::ReadPubKey(const unsigned char *pemPath, EVP_PKEY **key)
{
    const FileOwner file = openForReading(pemPath);
    if (!file)
        return -1;
    if (key == nullptr) {
        MessageOut("Error: reading public key file fails\n", MSG_ERROR);
        return -1;
    }
    // A file without a public key shows in the next step, which finds none in `*key`.
    PemBlock block;
    const BioOwner content = contentOf(file.get());
    if (!content || !block.read(content.get(), PEM_STRING_PUBLIC, refusePassPhrase, nullptr))
        return 1;
    if (KeyOwner read = decodePublicKey(block.bytes, block.size)) {
        EVP_PKEY_free(*key);
        *key = read.release();
    }
    return 1;
}

int Crypto::ReadEncPrvKey(const unsigned char *path, EVP_PKEY **key, const unsigned char *password)
{
    *key = nullptr;
    const FileOwner file = openForReading(path);
    if (!file)
        return -1;
    // The library's interface takes the password without const; it only reads it.
    *key = readPrivateKey(contentOf(file.get()).get(), const_cast<unsigned char *>(password)).release();
    if (*key == nullptr) {
        MessageOut("Error: reading encrypted private key file fails\n", MSG_ERROR);
        return -1;
    }
    return 1;
}

int Crypto::ReadPrvKey(const unsigned char *path, EVP_PKEY **key)
{
    const FileOwner file = openForReading(path);
    if (!file)
        return -1;
    *key = readPrivateKey(contentOf(file.get()).get(), nullptr).release();
    if (*key == nullptr) {
        MessageOut("Error: reading private key file fails\n", MSG_ERROR);
        return -1;
    }
    return 1;
}
