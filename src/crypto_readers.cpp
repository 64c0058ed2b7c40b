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
#include <string_view>

namespace {

/// No key file comes near this size, and an endless device must not keep a run from ending.
constexpr size_t largestKeyFile = size_t{1} << 20;

FileOwner openForReading(const unsigned char *path)
{
    FileOwner file(std::fopen(CharsOf(path), "rb"));
    if (!file)
        PrintPathError("Error: Reading Device file fails: ", path);
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

int Crypto::ReadPubKey(const unsigned char *pemPath, EVP_PKEY **key)
{
    const FileOwner file = openForReading(pemPath);
    if (!file)
        return -1;
    if (key == nullptr)
        return FailWith("Error: reading public key file fails\n");
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
    if (*key == nullptr)
        return FailWith("Error: reading encrypted private key file fails\n");
    return 1;
}

int Crypto::ReadPrvKey(const unsigned char *path, EVP_PKEY **key)
{
    const FileOwner file = openForReading(path);
    if (!file)
        return -1;
    *key = readPrivateKey(contentOf(file.get()).get(), nullptr).release();
    if (*key == nullptr)
        return FailWith("Error: reading private key file fails\n");
    return 1;
}
