#include "src/crypto.h"

#include "keygen/console.h"
#include "src/engine_helpers.h"
#include "src/held_signals.h"
#include "src/openssl_owners.h"
#include "src/text_of.h"

#include <QFile>
#include <QRandomGenerator>

#include <openssl/conf.h>
#include <openssl/crypto.h>
#include <openssl/err.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <span>

namespace {

/// Bytes of a public point. No buffer for an encoding or a binary form is smaller, so that a caller can read
/// a point from it whatever the key.
constexpr size_t smallestKeyBuffer = 64;

/// Fills `values` with random values; false if the system has none to give. The generator does not report
/// that: it leaves elements unchanged, so an element that is still zero counts as not drawn. A drawn value is
/// zero by chance once in 2^64.
bool draw(std::span<quint64> values)
{
    std::fill(values.begin(), values.end(), 0);
    QRandomGenerator64::system()->fillRange(values.data(), static_cast<qsizetype>(values.size()));
    return std::find(values.begin(), values.end(), 0) == values.end();
}

/// A buffer for random data, wiped when it is no longer needed: the data may be used as keys.
class RandomBytes {
public:
    /// Holds nothing if `size` is negative or the allocation fails.
    explicit RandomBytes(int size)
        : count(size), bytes(size < 0 ? nullptr : new (std::nothrow) char[static_cast<size_t>(size)])
    {
    }
    ~RandomBytes()
    {
        if (bytes)
            OPENSSL_cleanse(bytes.get(), static_cast<size_t>(count));
    }
    RandomBytes(const RandomBytes &) = delete;
    RandomBytes &operator=(const RandomBytes &) = delete;

    explicit operator bool() const { return bytes != nullptr; }
    const char *data() const { return bytes.get(); }

    /// Each byte is the low 8 bits of its own 64-bit value. The values are drawn in blocks, which is many
    /// times faster than one by one. False if there are none to draw.
    bool fill()
    {
        std::array<quint64, 4096> values = {};
        bool drawn = true;
        for (int done = 0; drawn && done < count;) {
            const std::span block(values.data(), std::min(values.size(), static_cast<size_t>(count - done)));
            drawn = draw(block);
            for (const quint64 value : block)
                bytes[static_cast<size_t>(done++)] = static_cast<char>(value & 0xFF);
        }
        OPENSSL_cleanse(values.data(), sizeof values);
        return drawn;
    }

private:
    int count;
    std::unique_ptr<char[]> bytes;
};

/// Writes `bytes` to `file` and closes it, because some failures show only then.
bool writeAndClose(QFile &file, const char *bytes, int size)
{
    const bool written = file.write(bytes, size) == size;
    file.close();
    return written && file.error() == QFileDevice::NoError;
}

} // namespace

bool LibraryIsReady()
{
#if OPENSSL_VERSION_NUMBER >= 0x30000000L
    return OSSL_LIB_CTX_get0_global_default() != nullptr;
#else
    return true;
#endif
}

unsigned char randomByte()
{
    quint64 value = 0;
    if (!draw({&value, 1}))
        std::abort();
    return static_cast<unsigned char>(value & 0xFF);
}

Crypto::Crypto()
{
    ERR_set_mark();
    OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CRYPTO_STRINGS, nullptr);
    OPENSSL_init_crypto(OPENSSL_INIT_ADD_ALL_CIPHERS | OPENSSL_INIT_ADD_ALL_DIGESTS, nullptr);
    OPENSSL_init_crypto(OPENSSL_INIT_ADD_ALL_DIGESTS, nullptr);
    // What OPENSSL_config(NULL) does, which is not in the API level that the build declares.
    OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, nullptr);
    // Drops the errors of a broken configuration file, which would be taken for errors of a key. Earlier
    // errors are the caller's, and stay.
    ERR_pop_to_mark();
}

int Crypto::GetPubKeyBin(EVP_PKEY *, unsigned char **, size_t *)
{
    MessageOut("Not supported operation\n", MSG_ERROR);
    return 0;
}

int Crypto::GetPubKeyDER(EVP_PKEY *key, unsigned char **der, size_t *derLen)
{
    *derLen = static_cast<size_t>(std::max(i2d_PUBKEY(key, nullptr), 0));
    if (*derLen == 0)
        return FailWith("Error: extracting public key fails\n");
    const size_t size = std::max(*derLen, smallestKeyBuffer);
    *der = static_cast<unsigned char *>(OPENSSL_malloc(size));
    if (*der == nullptr)
        return FailWith("Error: creating buffer for DER fromat public key fails\n");
    std::fill_n(*der, size, 0);
    unsigned char *cursor = *der;
    if (i2d_PUBKEY(key, &cursor) <= 0)
        return FailWith("Error: creating DER fromat public key fails\n");
    return 1;
}

int Crypto::GetPubKeyDER(const unsigned char *path, unsigned char **der, size_t *derLen)
{
    EVP_PKEY *key = nullptr;
    const int status = ReadPubKey(path, &key);
    const KeyOwner owner(key);
    if (status != 1)
        return FailWith("Error: reading public key fails\n");
    return GetPubKeyDER(key, der, derLen);
}

int Crypto::CalculateDigest(const unsigned char *data, size_t len, unsigned char **digest, size_t *digestLen)
{
    *digestLen = 0;
    const EVP_MD *const method = EVP_sha256();
    if (method == nullptr)
        return FailWith("unknown message digest ");
    const DigestContextOwner context(EVP_MD_CTX_new());
    if (!context)
        return FailWith("unknown message digest ");
    // A failure of a step does not fail the call, but the length then stays 0.
    unsigned int length = 0;
    if (EVP_MD_CTX_reset(context.get()) == 1 && EVP_DigestInit_ex(context.get(), method, nullptr) == 1 &&
        EVP_DigestUpdate(context.get(), data, len) == 1 &&
        EVP_DigestFinal_ex(context.get(), *digest, &length) == 1)
        *digestLen = length;
    return 1;
}

int Crypto::GetHashPubKey(EVP_PKEY *key, unsigned char **digest, size_t *digestLen)
{
    unsigned char *binaryForm = nullptr;
    size_t length = 0;
    const int status = GetPubKeyBin(key, &binaryForm, &length);
    const BufferOwner owner(binaryForm);
    if (status != 1) {
        // Plain on purpose: unlike all other messages of a key generation, this one has no colour.
        std::puts("Error: converting public Key to DER Format fails ");
        return -1;
    }
    if (CalculateDigest(binaryForm, length, digest, digestLen) != 1 || *digestLen == 0)
        return FailWith("Error : calculating public Key (DER Format) hash fails\n");
    return 1;
}

int Crypto::generateRandom(int size, const unsigned char *path)
{
    const QString name = TextOf(CharsOf(path));
    RandomBytes bytes(size);
    if (!bytes || !bytes.fill()) {
        MessageOut("Failed to create output file : " + name, MSG_ERROR);
        return -1;
    }

    QFile file(name);
    // Tests the name, because for the file object a dangling link exists, too.
    if (QFile::exists(name))
        MessageOut("The file " + name + " already exists, it will be overwritten", MSG_REPROMPT);
    const HeldSignals heldSignals(QFile::encodeName(name).constData());
    // Unbuffered: the whole buffer is written at once, and a failure shows at once.
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        MessageOut("Failed to create output file : " + name, MSG_ERROR);
        return -1;
    }
    if (!writeAndClose(file, bytes.data(), size)) {
        MessageOut("Error while writing in file : " + name, MSG_ERROR);
        return -1;
    }
    return 0;
}

int Crypto::Buffer_Cleanup(unsigned char *buf)
{
    if (buf == nullptr)
        return 0;
    OPENSSL_free(buf);
    return 1;
}
