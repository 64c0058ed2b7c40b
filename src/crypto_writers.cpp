// Class Crypto's key-file writers.
#include "src/crypto.h"

#include "keygen/console.h"
#include "src/engine_helpers.h"
#include "src/held_signals.h"
#include "src/openssl_owners.h"
#include "src/text_of.h"

#include <QByteArray>
#include <QFile>
#include <QFileInfo>

#include <openssl/pem.h>
#include <openssl/pkcs12.h>

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>

namespace {

// The format of the encrypted private key file. Set here, because the library's defaults change from version
// to version.
constexpr int saltSize = 8;
constexpr int iterations = 2048;
constexpr int pseudoRandomFunction = NID_hmacWithSHA256;

// Modes 0226, 0400 and 0444. The first makes a read-only file of an earlier run writable again.
constexpr QFileDevice::Permissions overwritable = QFileDevice::WriteOwner | QFileDevice::WriteUser |
                                                  QFileDevice::WriteGroup | QFileDevice::WriteOther |
                                                  QFileDevice::ReadOther;
constexpr QFileDevice::Permissions ownerReadable = QFileDevice::ReadOwner | QFileDevice::ReadUser;
constexpr QFileDevice::Permissions readable =
    QFileDevice::ReadOwner | QFileDevice::ReadUser | QFileDevice::ReadGroup | QFileDevice::ReadOther;

/// The name used to set a key file's permissions: its path read as Latin-1. If the path is ASCII, that is the
/// file's own name; otherwise it is another name, and a new file keeps the process's default mode.
QString permissionName(const unsigned char *path)
{
    return QString::fromLatin1(CharsOf(path));
}

/// One output file: an old file is made writable at once; then the file is created or truncated, written, and
/// closed. A file that was made writable but could not be opened gets its mode back. Signals are blocked
/// until the end, so that an interrupted run leaves the old file or the new one.
class OutputFile {
public:
    OutputFile(const unsigned char *filePath, const QString &nameForPermissions)
        : path(CharsOf(filePath)), name(nameForPermissions), nativeName(QFile::encodeName(name)),
          heldSignals(path), formerMode(mode())
    {
        setPermissions(overwritable);
    }
    ~OutputFile()
    {
        if (formerMode && !opened)
            chmod(nativeName.constData(), *formerMode);
    }
    OutputFile(const OutputFile &) = delete;
    OutputFile &operator=(const OutputFile &) = delete;

    /// Creates or truncates the file.
    bool open()
    {
        file.reset(std::fopen(path, "wb"));
        opened = file != nullptr;
        return opened;
    }

    std::FILE *stream() const { return file.get(); }

    bool flush() const { return std::fflush(stream()) == 0 && std::ferror(stream()) == 0; }

    bool close() { return std::fclose(file.release()) == 0; }

    /// Flushing and closing show whether everything written has reached the file.
    bool flushAndClose()
    {
        const bool flushed = flush();
        return close() && flushed;
    }

    /// The stream stays open until the process ends.
    void leaveOpen() { file.release(); }

    /// Folders and devices keep their permissions: the program makes only files read-only.
    void setPermissions(QFileDevice::Permissions permissions) const
    {
        if (QFileInfo(name).isFile())
            QFile::setPermissions(name, permissions);
    }

private:
    /// All mode bits of an old file, including those that QFileDevice::Permissions has no names for.
    std::optional<mode_t> mode() const
    {
        struct stat found = {};
        if (!QFileInfo(name).isFile() || stat(nativeName.constData(), &found) != 0)
            return std::nullopt;
        return found.st_mode & ~static_cast<mode_t>(S_IFMT);
    }

    const char *path;
    QString name;
    QByteArray nativeName;
    HeldSignals heldSignals;
    std::optional<mode_t> formerMode;
    FileOwner file;
    bool opened = false;
};

/// How many bytes of a password are used: the library's readers take no more than PEM_BUFSIZE.
int passPhraseLength(const unsigned char *password)
{
    return static_cast<int>(std::min(std::strlen(CharsOf(password)), size_t{PEM_BUFSIZE}));
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
        PKCS8_set0_pbe(CharsOf(password), passPhraseLength(password), info.get(), algorithm.get()));
    if (!encrypted)
        return false;
    algorithm.release(); // the encrypted key owns it
    return PEM_write_PKCS8(file, encrypted.get()) != 0;
}

/// Writes a hash file and closes it. Once the file is open, it ends read-only, even if writing fails.
bool writeHash(OutputFile &file, const unsigned char *bytes, size_t size)
{
    if (!file.open())
        return false;
    std::fwrite(bytes, 1, size, file.stream());
    const bool written = file.flushAndClose();
    file.setPermissions(readable);
    return written;
}

} // namespace

int Crypto::SaveEncPrvKey(const unsigned char *path, EVP_PKEY *key, const unsigned char *password,
                          const EVP_CIPHER *cipher)
{
    OutputFile file(path, permissionName(path));
    if (!file.open())
        return FailWith("Error: creating Key File fails\n");
    if (!writeEncryptedKey(file.stream(), key, password, cipher) || !file.flush()) {
        // On purpose: a private key file that could not be written is neither closed nor given its final
        // mode.
        file.leaveOpen();
        return FailWith("Error: writing encrypted private Key fails\n");
    }
    if (!file.close())
        return FailWith("Error: writing encrypted private Key fails\n");
    file.setPermissions(ownerReadable);
    return 1;
}

int Crypto::SavePrvKey(const unsigned char *path, EVP_PKEY *key)
{
    const HeldSignals heldSignals(CharsOf(path));
    FileOwner file(std::fopen(CharsOf(path), "wb"));
    if (!file)
        return FailWith("Error: creating Key File fails\n");
    // Unbuffered, so that the C library keeps no copy of the key.
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    if (key == nullptr || PEM_write_PrivateKey(file.get(), key, nullptr, nullptr, 0, nullptr, nullptr) == 0 ||
        std::fclose(file.release()) != 0)
        return FailWith("Error: writing Key fails\n");
    return 1;
}

int Crypto::SavePubKey(const unsigned char *path, EVP_PKEY *key)
{
    OutputFile file(path, permissionName(path));
    if (!file.open())
        return FailWith("Error: creating key file fails\n");
    const bool encoded = key != nullptr && PEM_write_PUBKEY(file.stream(), key) != 0;
    const bool written = file.flushAndClose() && encoded;
    if (!written)
        MessageOut("Error: writing key fails\n", MSG_ERROR);
    file.setPermissions(readable);
    return written ? 1 : 0;
}

int Crypto::SaveHashPubKey(EVP_PKEY *key, const unsigned char *hashPath)
{
    OutputFile file(hashPath, permissionName(hashPath));
    const BufferOwner digest(static_cast<unsigned char *>(OPENSSL_malloc(digestBufferSize)));
    if (!digest)
        return FailWith("Error: allocating buffer for PubKey hash fails\n");
    unsigned char *buffer = digest.get();
    size_t length = 0;
    if (GetHashPubKey(key, &buffer, &length) != 1)
        return FailWith("Error: calculating PubKey hash fails\n");
    // The old file is truncated only now. The message speaks of reading, but it is the one that users know
    // for a hash file that cannot be written.
    if (!writeHash(file, buffer, digestSize)) {
        PrintPathError("Error: Reading Device file fails: ", hashPath);
        return -1;
    }
    return 1;
}

int Crypto::SaveHashTableHash(const unsigned char *data, int length, const unsigned char *path)
{
    OutputFile file(path, TextOf(CharsOf(path)));
    if (!writeHash(file, data, static_cast<size_t>(length))) {
        PrintPathError("Error: Creating file fails: ", path);
        return -1;
    }
    return 1;
}
