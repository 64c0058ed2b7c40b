// Class Crypto's key-file readers.
#include "src/crypto.h"

#include "keygen/console.h"
#include "src/engine_helpers.h"
#include "src/openssl_owners.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

/// How much of a file is read before it counts as one without a key. No text before a key comes near this
/// size, and an endless file must not keep a run from ending or use up all memory.
constexpr size_t largestKeyFile = size_t{16} << 20;

/// Called by the library before and after each operation on a key file; the callback's argument points to the
/// number of bytes that may still be read. A line that exceeds it is treated as the end of the file.
long endAtLimit(BIO *content, int operation, const char *line, size_t space, int, long, int result, size_t *)
{
    if (operation != (BIO_CB_GETS | BIO_CB_RETURN) || result <= 0)
        return result;
    auto *const left = reinterpret_cast<size_t *>(BIO_get_callback_arg(content));
    // A line without a line feed may contain a zero byte, which hides the rest from strlen(): it is counted
    // as if it filled its space.
    const size_t length = std::strlen(line);
    const size_t size = line[length - 1] == '\n' ? length : space - 1;
    if (size > *left)
        return 0;
    *left -= size;
    return result;
}

/// A key file, read line by line and no further than a key's last line, because a pipe may stay open.
class KeyFile {
public:
    explicit KeyFile(const unsigned char *path) : file(std::fopen(CharsOf(path), "rb"))
    {
        if (!file) {
            PrintPathError("Error: Reading Device file fails: ", path);
            return;
        }
        // Uses a buffer that is wiped: the stream's own would be released with the key in it.
        std::setvbuf(file.get(), buffer.data(), _IOFBF, buffer.size());
        lines.reset(BIO_new_fp(file.get(), BIO_NOCLOSE));
        if (lines) {
            BIO_set_callback_ex(lines.get(), endAtLimit);
            BIO_set_callback_arg(lines.get(), reinterpret_cast<char *>(&left));
        }
    }
    ~KeyFile()
    {
        file.reset();
        OPENSSL_cleanse(buffer.data(), buffer.size());
    }
    KeyFile(const KeyFile &) = delete;
    KeyFile &operator=(const KeyFile &) = delete;

    bool isOpen() const { return file != nullptr; }

    /// Null if its allocation failed.
    BIO *content() const { return lines.get(); }

private:
    std::array<char, 4096> buffer = {};
    size_t left = largestKeyFile;
    FileOwner file;
    BioOwner lines;
};

/// A PEM block's name and its bytes, wiped when released.
struct PemBlock {
    PemBlock() = default;
    ~PemBlock()
    {
        OPENSSL_secure_free(name);
        OPENSSL_secure_clear_free(bytes, static_cast<size_t>(size));
    }
    PemBlock(const PemBlock &) = delete;
    PemBlock &operator=(const PemBlock &) = delete;

    /// Reads the first block whose name matches `kind`, and decrypts it if the whole block is encrypted. The
    /// library wipes the memory that it reads the lines into.
    bool read(const KeyFile &file, const char *kind, pem_password_cb *callback, void *argument)
    {
        return file.content() != nullptr &&
               PEM_bytes_read_bio_secmem(&bytes, &size, &name, kind, file.content(), callback, argument) == 1;
    }

    char *name = nullptr;
    unsigned char *bytes = nullptr;
    long size = 0;
};

/// Public keys are not encrypted; for one that claims to be, the terminal is not asked for a password.
int refusePassPhrase(char *, int, int, void *)
{
    return -1;
}

/// The public key that a SubjectPublicKeyInfo encodes, or null. Decoding as an elliptic-curve key is tried
/// first: newer versions of the library take longer to find a decoder for a key of unknown kind than to
/// generate a key.
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

/// The private key in `file`, in any of the PEM formats for private keys, or null. The formats are told apart
/// here, because the library's own reader accepts different ones from version to version. With a null
/// `password` the library asks on the terminal if one is needed.
KeyOwner readPrivateKey(const KeyFile &file, void *password)
{
    PemBlock block;
    if (!block.read(file, PEM_STRING_EVP_PKEY, nullptr, password))
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

int Crypto::ReadPubKey(const unsigned char *pemPath, EVP_PKEY **key)
{
    const KeyFile file(pemPath);
    if (!file.isOpen())
        return -1;
    if (key == nullptr)
        return FailWith("Error: reading public key file fails\n");
    // The next step detects a file without a public key: it then finds none in `*key`.
    PemBlock block;
    if (!block.read(file, PEM_STRING_PUBLIC, refusePassPhrase, nullptr))
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
    const KeyFile file(path);
    if (!file.isOpen())
        return -1;
    // The library's interface takes the password without const; it only reads it.
    *key = readPrivateKey(file, const_cast<unsigned char *>(password)).release();
    if (*key == nullptr)
        return FailWith("Error: reading encrypted private key file fails\n");
    return 1;
}

int Crypto::ReadPrvKey(const unsigned char *path, EVP_PKEY **key)
{
    const KeyFile file(path);
    if (!file.isOpen())
        return -1;
    *key = readPrivateKey(file, nullptr).release();
    if (*key == nullptr)
        return FailWith("Error: reading private key file fails\n");
    return 1;
}
