// The readers of key files, with any file: public keys and their binary form, and private keys under a
// password.
#include "src/ec_crypto.h"
#include "src/openssl_owners.h"
#include "tests/fuzz/fuzz_target.h"

#include <openssl/err.h>
#include <openssl/obj_mac.h>
#include <openssl/pem.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <string>
#include <string_view>

namespace {

constexpr const char *storedPath = "stored.pem";
constexpr const char *rewrittenPath = "rewritten.pem";
constexpr const char *storedPassword = "abcd";

const unsigned char *bytesOf(const char *text)
{
    return reinterpret_cast<const unsigned char *>(text);
}

/// A byte string that the engine returned.
struct Buffer {
    Buffer() = default;
    ~Buffer() { OPENSSL_free(bytes); }
    Buffer(const Buffer &) = delete;
    Buffer &operator=(const Buffer &) = delete;

    std::string_view view() const { return {reinterpret_cast<const char *>(bytes), size}; }

    unsigned char *bytes = nullptr;
    size_t size = 0;
};

long iterationsOf(const ASN1_INTEGER *number)
{
    const long iterations = ASN1_INTEGER_get(number);
    return iterations < 0 ? std::numeric_limits<long>::max() : iterations;
}

/// The number of key derivation rounds that `algorithm` specifies; one if it cannot be determined.
long derivationRounds(const X509_ALGOR *algorithm)
{
    const ASN1_OBJECT *name = nullptr;
    int type = 0;
    const void *parameter = nullptr;
    X509_ALGOR_get0(&name, &type, &parameter, algorithm);
    if (type != V_ASN1_SEQUENCE)
        return 1;
    const auto *const sequence = static_cast<const ASN1_STRING *>(parameter);
    const auto unpacked = [&](const ASN1_ITEM *item) { return ASN1_item_unpack(sequence, item); };
    long rounds = 1;
    switch (OBJ_obj2nid(name)) {
    case NID_pbes2: {
        const Owner<PBE2PARAM, PBE2PARAM_free> scheme(
            static_cast<PBE2PARAM *>(unpacked(ASN1_ITEM_rptr(PBE2PARAM))));
        return scheme ? derivationRounds(scheme->keyfunc) : 1;
    }
    case NID_id_pbkdf2: {
        const Owner<PBKDF2PARAM, PBKDF2PARAM_free> derivation(
            static_cast<PBKDF2PARAM *>(unpacked(ASN1_ITEM_rptr(PBKDF2PARAM))));
        return derivation ? iterationsOf(derivation->iter) : 1;
    }
    case NID_id_scrypt:
        return std::numeric_limits<long>::max();
    default: {
        const Owner<PBEPARAM, PBEPARAM_free> scheme(
            static_cast<PBEPARAM *>(unpacked(ASN1_ITEM_rptr(PBEPARAM))));
        if (scheme)
            rounds = iterationsOf(scheme->iter);
    }
    }
    return rounds;
}

/// Whether opening the file takes too long for a fuzz input: the file itself specifies how often its password
/// is hashed.
bool isExpensive(const std::string &content)
{
    constexpr long mostRounds = 10000;
    const BioOwner source(BIO_new_mem_buf(content.data(), static_cast<int>(content.size())));
    for (;;) {
        char *name = nullptr;
        char *header = nullptr;
        Buffer block;
        long size = 0;
        if (PEM_read_bio(source.get(), &name, &header, &block.bytes, &size) != 1)
            return false;
        const BufferOwner nameOwner(reinterpret_cast<unsigned char *>(name));
        const BufferOwner headerOwner(reinterpret_cast<unsigned char *>(header));
        const unsigned char *cursor = block.bytes;
        const EncryptedKeyOwner encrypted(d2i_X509_SIG(nullptr, &cursor, size));
        if (!encrypted)
            continue;
        const X509_ALGOR *algorithm = nullptr;
        const ASN1_OCTET_STRING *digest = nullptr;
        X509_SIG_get0(encrypted.get(), &algorithm, &digest);
        if (derivationRounds(algorithm) > mostRounds)
            return true;
    }
}

std::string encodingOf(Crypto &engine, EVP_PKEY *key)
{
    Buffer encoding;
    if (engine.GetPubKeyDER(key, &encoding.bytes, &encoding.size) != 1)
        return {};
    Require(encoding.bytes != nullptr && encoding.size > 0, "a successful encoding is not empty");
    return std::string(encoding.view());
}

void readPublicKey(int curve)
{
    EC_Crypto engine(curve);
    EVP_PKEY *read = nullptr;
    Require(engine.ReadPubKey(bytesOf(storedPath), &read) == 1, "a file that can be opened counts as read");
    const KeyOwner key(read);
    const std::string encoding = encodingOf(engine, read);
    Require(key || encoding.empty(), "without a key there is no encoding");

    Buffer fromFile;
    const int status = engine.GetPubKeyDER(bytesOf(storedPath), &fromFile.bytes, &fromFile.size);
    Require(status == (encoding.empty() ? -1 : 1), "the key and its file are both encoded, or neither is");
    Require(status != 1 || fromFile.view() == encoding, "the key and its file have the same encoding");

    const size_t header = EC_Crypto::EncodingHeaderSize(curve);
    Buffer form;
    const int formStatus = engine.GetPubKeyBin(bytesOf(storedPath), &form.bytes, &form.size);
    Require(formStatus == (!encoding.empty() && encoding.size() >= header ? 1 : -1),
            "every encoding with a header has a binary form");
    Require(formStatus != 1 || form.view() == encoding.substr(header),
            "the binary form is the encoding without its header");

    Buffer again;
    Require(engine.GetPubKeyBinFromFile(bytesOf(storedPath), &again.bytes, &again.size) == formStatus,
            "both ways to the binary form return the same status");
    Require(formStatus != 1 || again.view() == form.view(), "both ways give the same binary form");
}

/// Writes the key that was read, and reads it again.
void rewrite(EC_Crypto &engine, EVP_PKEY *key)
{
    const int kind = EVP_PKEY_base_id(key);
    if (engine.SaveEncPrvKey(bytesOf(rewrittenPath), key, bytesOf(storedPassword), EVP_aes_256_cbc()) != 1)
        return;
    EVP_PKEY *read = nullptr;
    const int status = engine.ReadEncPrvKey(bytesOf(rewrittenPath), &read, bytesOf(storedPassword));
    const KeyOwner owner(read);
    Require(status == 1 && read != nullptr, "a key that was written can be read");
    Require(EVP_PKEY_base_id(read) == kind, "a key that was written is read as the same type");
    if (kind == EVP_PKEY_EC || kind == EVP_PKEY_RSA)
        Require(EVP_PKEY_cmp(read, key) == 1, "a key that was written is read as the same key");
}

void readPrivateKey(int curve)
{
    EC_Crypto engine(curve);
    EVP_PKEY *read = nullptr;
    const int status = engine.ReadEncPrvKey(bytesOf(storedPath), &read, bytesOf(storedPassword));
    const KeyOwner key(read);
    Require((status == 1) == (read != nullptr), "a key is read, or its absence is reported");
    Require(status == 1 || status == -1, "the status is 1 or -1");
    if (read != nullptr)
        rewrite(engine, read);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string content(reinterpret_cast<const char *>(data), size);
    if (isExpensive(content))
        return 0;
    WorkInEmptyFolder();
    std::ofstream(storedPath, std::ios::binary) << content;
    const RunEnd end = RunOn("", [] {
        for (const int curve : {NID_X9_62_prime256v1, NID_brainpoolP256t1})
            readPublicKey(curve);
        readPrivateKey(NID_X9_62_prime256v1);
    });
    Require(end == RunEnd::Completed, "readers ask no questions and do not end the process");
    ERR_clear_error();
    return 0;
}
