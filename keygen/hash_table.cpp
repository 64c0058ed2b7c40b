#include "keygen/hash_table.h"

#include "keygen/run_settings.h"

#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <sstream>
#include <vector>

namespace {

void copyDigest(const std::string &digest, unsigned char *destination)
{
    std::copy(digest.begin(), digest.end(), destination);
}

} // namespace

std::string sha256(const unsigned char *data, int length)
{
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest = {};
    SHA256_CTX context;
    SHA256_Init(&context);
    SHA256_Update(&context, data, static_cast<std::size_t>(length));
    SHA256_Final(digest.data(), &context);

    std::ostringstream bytes;
    // Otherwise a failed allocation in the stream would go unnoticed, and the digest would be cut short.
    bytes.exceptions(std::ios::badbit);
    for (const unsigned char byte : digest)
        bytes << static_cast<char>(byte);
    return bytes.str();
}

void createHashTable()
{
    const unsigned char algorithm = brainpoolP256t1 ? 2 : 1;
    for (std::size_t i = 0; i < newPubKeysHashTable.size(); ++i) {
        std::array<unsigned char, hashRecordSize> record = {algorithm};
        std::copy_n(pubKeysTable[i], publicPointSize, record.begin() + 4);
        newPubKeysHashTable[i] = new unsigned char[SHA256_DIGEST_LENGTH]();
        copyDigest(sha256(record.data(), record.size()), newPubKeysHashTable[i]);
    }
}

void calculateTableHashValue()
{
    std::vector<unsigned char> table;
    for (std::size_t i = 0; i < static_cast<std::size_t>(numberKeys); ++i)
        table.insert(table.end(), newPubKeysHashTable[i], newPubKeysHashTable[i] + SHA256_DIGEST_LENGTH);
    tableHashValue = new unsigned char[SHA256_DIGEST_LENGTH]();
    copyDigest(sha256(table.data(), static_cast<int>(table.size())), tableHashValue);
}

QString TableHashPath()
{
    return QString(hashPath).replace("publicKeyhash", "publicKeysHashHashes");
}
