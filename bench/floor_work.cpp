#include "bench/floor_work.h"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/obj_mac.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/sha.h>

#include <sys/stat.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Point = std::array<unsigned char, 64>;
using Digest = std::array<unsigned char, SHA256_DIGEST_LENGTH>;

void require(bool condition)
{
    if (!condition)
        std::abort();
}

std::string fileName(const char *folder, const char *name, int count, int index, const char *extension)
{
    const std::string number = count > 1 ? "0" + std::to_string(index) : "";
    return std::string(folder) + "/" + name + number + extension;
}

FILE *openForWriting(const std::string &path)
{
    chmod(path.c_str(), 0226);
    FILE *const file = std::fopen(path.c_str(), "wb");
    require(file != nullptr);
    return file;
}

void closeWithMode(FILE *file, const std::string &path, mode_t mode)
{
    require(std::fflush(file) == 0);
    require(std::fclose(file) == 0);
    chmod(path.c_str(), mode);
}

void writePrivateKey(EVP_PKEY *key, const std::string &path, const std::string &password)
{
    PKCS8_PRIV_KEY_INFO *const info = EVP_PKEY2PKCS8(key);
    X509_ALGOR *const algorithm =
        PKCS5_pbe2_set_iv(EVP_aes_256_cbc(), 2048, nullptr, 8, nullptr, NID_hmacWithSHA256);
    X509_SIG *const encrypted =
        PKCS8_set0_pbe(password.c_str(), static_cast<int>(password.size()), info, algorithm);
    require(encrypted != nullptr);
    FILE *const file = openForWriting(path);
    require(PEM_write_PKCS8(file, encrypted) != 0);
    closeWithMode(file, path, 0400);
    X509_SIG_free(encrypted);
    PKCS8_PRIV_KEY_INFO_free(info);
}

void writePublicKey(EVP_PKEY *key, const std::string &path)
{
    FILE *const file = openForWriting(path);
    require(PEM_write_PUBKEY(file, key) != 0);
    closeWithMode(file, path, 0444);
}

void writeDigest(const Digest &digest, const std::string &path)
{
    FILE *const file = openForWriting(path);
    require(std::fwrite(digest.data(), 1, digest.size(), file) == digest.size());
    closeWithMode(file, path, 0444);
}

Digest sha256(const unsigned char *bytes, std::size_t size)
{
    Digest digest;
    SHA256(bytes, size, digest.data());
    return digest;
}

Point pointOf(const EC_KEY *ec)
{
    std::array<unsigned char, 65> encoded;
    require(EC_POINT_point2oct(EC_KEY_get0_group(ec), EC_KEY_get0_public_key(ec),
                               POINT_CONVERSION_UNCOMPRESSED, encoded.data(), encoded.size(),
                               nullptr) == encoded.size());
    Point point;
    std::memcpy(point.data(), encoded.data() + 1, point.size());
    return point;
}

Point pointOf(EVP_PKEY *key)
{
    unsigned char *encoding = nullptr;
    const int size = i2d_PUBKEY(key, &encoding);
    require(size > 64);
    Point point;
    std::memcpy(point.data(), encoding + size - 64, point.size());
    OPENSSL_free(encoding);
    return point;
}

EVP_PKEY *generate(int nid)
{
    EVP_PKEY *parameters = nullptr;
    EVP_PKEY_CTX *const parameterContext = EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr);
    require(EVP_PKEY_paramgen_init(parameterContext) > 0 &&
            EVP_PKEY_CTX_set_ec_paramgen_curve_nid(parameterContext, nid) > 0 &&
            EVP_PKEY_paramgen(parameterContext, &parameters) > 0);
    EVP_PKEY *key = nullptr;
    EVP_PKEY_CTX *const context = EVP_PKEY_CTX_new(parameters, nullptr);
    require(EVP_PKEY_keygen_init(context) > 0 && EVP_PKEY_keygen(context, &key) > 0);
    EC_KEY *const ec = EVP_PKEY_get1_EC_KEY(key);
    EC_KEY_set_asn1_flag(ec, OPENSSL_EC_NAMED_CURVE);
    require(EVP_PKEY_assign(key, EVP_PKEY_EC, ec) == 1 && EC_KEY_check_key(ec) == 1);
    EVP_PKEY_CTX_free(context);
    EVP_PKEY_CTX_free(parameterContext);
    EVP_PKEY_free(parameters);
    return key;
}

Point readPoint(const std::string &path)
{
    std::FILE *const file = std::fopen(path.c_str(), "rb");
    require(file != nullptr);
    EVP_PKEY *const key = PEM_read_PUBKEY(file, nullptr, nullptr, nullptr);
    require(key != nullptr);
    const Point point = pointOf(key);
    EVP_PKEY_free(key);
    std::fclose(file);
    return point;
}

void writeTableHash(int nid, const std::vector<Point> &points, const char *folder)
{
    std::vector<unsigned char> table;
    for (const Point &point : points) {
        std::array<unsigned char, 68> record = {
            static_cast<unsigned char>(nid == NID_brainpoolP256t1 ? 2 : 1)};
        std::memcpy(record.data() + 4, point.data(), point.size());
        const Digest digest = sha256(record.data(), record.size());
        table.insert(table.end(), digest.begin(), digest.end());
    }
    writeDigest(sha256(table.data(), table.size()), std::string(folder) + "/publicKeysHashHashes.bin");
}

const char *hashName(int count)
{
    return count > 1 ? "publicKeyHash" : "publicKeyhash";
}

} // namespace

void DoPlainWork(int nid, int count, const char *folder)
{
    mkdir(folder, 0777);
    std::vector<Point> points;
    for (int i = 0; i < count; ++i) {
        EVP_PKEY *const key = generate(nid);
        const std::string publicKey = fileName(folder, "publicKey", count, i, ".pem");
        writePrivateKey(key, fileName(folder, "privateKey", count, i, ".pem"),
                        "password " + std::to_string(i));
        writePublicKey(key, publicKey);
        const Point point = pointOf(key);
        writeDigest(sha256(point.data(), point.size()), fileName(folder, hashName(count), count, i, ".bin"));
        EVP_PKEY_free(key);
        if (count > 1)
            points.push_back(readPoint(publicKey));
    }
    if (count > 1)
        writeTableHash(nid, points, folder);
}

void DoLeanWork(int nid, int count, const char *folder)
{
    mkdir(folder, 0777);
    EC_GROUP *const group = EC_GROUP_new_by_curve_name(nid);
    std::vector<Point> points;
    for (int i = 0; i < count; ++i) {
        EC_KEY *const ec = EC_KEY_new();
        require(EC_KEY_set_group(ec, group) == 1 && EC_KEY_generate_key(ec) == 1 &&
                EC_KEY_check_key(ec) == 1);
        EVP_PKEY *const key = EVP_PKEY_new();
        require(EVP_PKEY_assign(key, EVP_PKEY_EC, ec) == 1);
        writePrivateKey(key, fileName(folder, "privateKey", count, i, ".pem"),
                        "password " + std::to_string(i));
        writePublicKey(key, fileName(folder, "publicKey", count, i, ".pem"));
        points.push_back(pointOf(ec));
        writeDigest(sha256(points.back().data(), points.back().size()),
                    fileName(folder, hashName(count), count, i, ".bin"));
        EVP_PKEY_free(key);
    }
    EC_GROUP_free(group);
    if (count > 1)
        writeTableHash(nid, points, folder);
}
