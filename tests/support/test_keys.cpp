#include "tests/support/test_keys.h"

#include <QByteArray>

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/obj_mac.h>
#include <openssl/sha.h>

#include <array>
#include <set>
#include <stdexcept>

namespace {

using Number = Owner<BIGNUM, BN_clear_free>;
using Point = Owner<EC_POINT, EC_POINT_free>;

constexpr int numberSize = 32;

void require(bool condition, const char *what)
{
    if (!condition)
        throw std::runtime_error(what);
}

EcKeyOwner ellipticKeyOf(const EVP_PKEY *key)
{
    // Some versions of the library do not declare the key const, but they only read it.
    EcKeyOwner ec(EVP_PKEY_get1_EC_KEY(const_cast<EVP_PKEY *>(key)));
    require(ec != nullptr, "not an elliptic-curve key");
    return ec;
}

std::string bytesOf(const BIGNUM *number)
{
    std::array<unsigned char, numberSize> bytes = {};
    require(BN_bn2binpad(number, bytes.data(), numberSize) == numberSize, "not a number of 32 bytes");
    return {bytes.begin(), bytes.end()};
}

std::set<void *> &watchedFlags()
{
    static std::set<void *> flags;
    return flags;
}

/// The library calls this for every key that is released.
void recordRelease(void *, void *watched, CRYPTO_EX_DATA *, int, long, void *)
{
    if (watchedFlags().count(watched) > 0)
        *static_cast<bool *>(watched) = true;
}

int watchIndex()
{
    static const int index = EC_KEY_get_ex_new_index(0, nullptr, nullptr, nullptr, recordRelease);
    return index;
}

} // namespace

const unsigned char *Bytes(const std::string &text)
{
    return reinterpret_cast<const unsigned char *>(text.c_str());
}

std::string FromHex(const std::string &digits)
{
    return QByteArray::fromHex(QByteArray::fromStdString(digits)).toStdString();
}

KeyOwner FixedKey(int nid, unsigned long number)
{
    EcKeyOwner ec(EC_KEY_new_by_curve_name(nid));
    require(ec != nullptr, "unknown curve");
    const Number privateNumber(BN_new());
    const EC_GROUP *const group = EC_KEY_get0_group(ec.get());
    const Point point(EC_POINT_new(group));
    require(BN_set_word(privateNumber.get(), number) == 1 &&
                EC_POINT_mul(group, point.get(), privateNumber.get(), nullptr, nullptr, nullptr) == 1 &&
                EC_KEY_set_private_key(ec.get(), privateNumber.get()) == 1 &&
                EC_KEY_set_public_key(ec.get(), point.get()) == 1,
            "no fixed key");
    EC_KEY_set_asn1_flag(ec.get(), OPENSSL_EC_NAMED_CURVE);
    KeyOwner key(EVP_PKEY_new());
    require(EVP_PKEY_assign_EC_KEY(key.get(), ec.get()) == 1, "cannot create the key object");
    static_cast<void>(ec.release()); // the key object owns it
    return key;
}

std::string NumberOf(const EVP_PKEY *key)
{
    return bytesOf(EC_KEY_get0_private_key(ellipticKeyOf(key).get()));
}

std::string PointOf(const EVP_PKEY *key)
{
    const EcKeyOwner ec = ellipticKeyOf(key);
    const Number x(BN_new());
    const Number y(BN_new());
    require(EC_POINT_get_affine_coordinates(EC_KEY_get0_group(ec.get()), EC_KEY_get0_public_key(ec.get()),
                                            x.get(), y.get(), nullptr) == 1,
            "no public point");
    return bytesOf(x.get()) + bytesOf(y.get());
}

std::string EncodingOfPoint(int nid, const std::string &point)
{
    require(nid == prime256v1 || nid == brainpoolP256t1, "unsupported curve");
    const std::string header = nid == brainpoolP256t1
                                   ? "30 5A 30 14 06 07 2A 86 48 CE 3D 02 01 06 09 2B 24 03 03 02 08 01 01 08"
                                   : "30 59 30 13 06 07 2A 86 48 CE 3D 02 01 06 08 2A 86 48 CE 3D 03 01 07";
    return FromHex(header + " 03 42 00 04") + point;
}

std::string PemFile(const std::string &label, const std::string &content)
{
    const std::string base64 = QByteArray::fromStdString(content).toBase64().toStdString();
    std::string file = "-----BEGIN " + label + "-----\n";
    for (std::size_t i = 0; i < base64.size(); i += 64)
        file += base64.substr(i, 64) + "\n";
    return file + "-----END " + label + "-----\n";
}

std::string ContentOfPemFile(const std::string &label, const std::string &file)
{
    const std::size_t begin = file.find('\n');
    const std::size_t end = file.rfind("-----END ");
    if (begin >= end)
        return "";
    // Characters that are not digits, such as line feeds, are ignored.
    const QByteArray base64 = QByteArray::fromStdString(file.substr(begin, end - begin));
    const std::string content = QByteArray::fromBase64(base64).toStdString();
    return PemFile(label, content) == file ? content : "";
}

std::string Sha256Of(const std::string &data)
{
    // Uses the low-level functions, because the others initialise the library and read its configuration.
    std::string digest(SHA256_DIGEST_LENGTH, '\0');
    SHA256_CTX context;
    SHA256_Init(&context);
    SHA256_Update(&context, data.data(), data.size());
    SHA256_Final(reinterpret_cast<unsigned char *>(digest.data()), &context);
    return digest;
}

std::string TestData(const std::string &name)
{
    return std::string(TEST_DATA_FOLDER "/") + name;
}

ReleaseWatch::ReleaseWatch(EVP_PKEY *key)
{
    require(EC_KEY_set_ex_data(ellipticKeyOf(key).get(), watchIndex(), &isReleased) == 1,
            "cannot watch the key");
    watchedFlags().insert(&isReleased);
}

ReleaseWatch::~ReleaseWatch()
{
    watchedFlags().erase(&isReleased);
}
