#include "src/ec_crypto.h"

#include "keygen/console.h"
#include "src/engine_helpers.h"
#include "src/openssl_owners.h"

#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/obj_mac.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

// Bytes of r, and of s, in a signature.
constexpr size_t numberSize = 32;

/// Removes the header from the encoding in `buffer`, and moves the public point to the front.
int stripHeader(unsigned char *buffer, size_t *length, size_t headerSize)
{
    // Only a key far smaller than any on a curve has an encoding this short.
    if (*length < headerSize)
        return FailWith("Error: extracting public key fails\n");
    *length -= headerSize;
    std::memmove(buffer, buffer + headerSize, *length);
    return 1;
}

KeyContextOwner keyGenerationContext(EVP_PKEY *parameters)
{
    return KeyContextOwner(parameters != nullptr ? EVP_PKEY_CTX_new(parameters, nullptr)
                                                 : EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr));
}

/// The curve's parameters as a key object, in `parameters`. False on failure. Only zero counts as the failure
/// of a step; any other value but 1 makes the key generation itself fail.
bool generateParameters(int nid, KeyOwner &parameters)
{
    const KeyContextOwner context(EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr));
    if (!context || EVP_PKEY_paramgen_init(context.get()) == 0 ||
        EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context.get(), nid) == 0)
        return false;
    EVP_PKEY *generated = nullptr;
    const int status = EVP_PKEY_paramgen(context.get(), &generated);
    parameters.reset(generated);
    return status != 0;
}

/// Makes every encoding of `key` name its curve instead of listing the curve's parameters, and checks the
/// key. 1 when it is valid.
int nameCurveAndCheck(EVP_PKEY *key)
{
    EcKeyOwner ec(EVP_PKEY_get1_EC_KEY(key));
    if (!ec)
        return 0;
    EC_KEY_set_asn1_flag(ec.get(), OPENSSL_EC_NAMED_CURVE);
    if (EVP_PKEY_assign_EC_KEY(key, ec.get()) == 0)
        return 0;
    return EC_KEY_check_key(ec.release()); // the key object owns it
}

void reportVerification(int verdict)
{
    MessageOut("Signature verification: ", MSG_INFO);
    if (verdict == 1)
        MessageOut("SUCCESS \n", MSG_SUCCESS);
    else if (verdict == 0)
        MessageOut("Incorrect signature!\n", MSG_ERROR);
    else
        MessageOut("Error occured during signature verification!\n", MSG_ERROR);
}

bool writeNumber(const BIGNUM *number, unsigned char *destination)
{
    return BN_bn2binpad(number, destination, numberSize) == static_cast<int>(numberSize);
}

} // namespace

EC_Crypto::EC_Crypto() : EC_Crypto(0) {}

EC_Crypto::EC_Crypto(int nid) : curveNID(nid) {}

int EC_Crypto::SetCurveNID(int nid)
{
    curveNID = nid;
    int status = 1;
    if (nid == NID_brainpoolP256t1) {
        MessageOut("brainpoolP256t1 curve is selected.\n", MSG_INFO);
    } else if (nid == NID_X9_62_prime256v1) {
        MessageOut("Prime256v1 curve is selected. \n", MSG_INFO);
    } else {
        MessageOut("Unsupported curve NID!\n", MSG_ERROR);
        status = -1;
    }
    std::fflush(stdout);
    return status;
}

int EC_Crypto::GenerateKeys(const unsigned char *privateKeyPath, const unsigned char *publicKeyPath,
                            const unsigned char *hashPath, const unsigned char *password, CIHERTYPE cipher)
{
    const EVP_CIPHER *method = nullptr;
    if (cipher == AES256_CBC) {
        method = EVP_aes_256_cbc();
        MessageOut("AES_256_cbc algorithm is selected for private key encryption\n", MSG_INFO);
    } else if (cipher == AES128_CBC) {
        method = EVP_aes_128_cbc();
        MessageOut("AES_128_cbc algorithm is selected for private key encryption\n", MSG_INFO);
    } else {
        // Plain, not red: no run of the program gets here, only a caller of the engine.
        MessageOut("Unsupported algorithm selected for private key encryption\n", MSG_INFO);
        return -1;
    }

    if (curveNID == NID_brainpoolP256t1) {
        MessageOut("Generating brainpoolP256t1 keys... \n", MSG_INFO);
    } else if (curveNID == NID_X9_62_prime256v1) {
        MessageOut("Generating Prime256v1 keys... \n", MSG_INFO);
    } else {
        MessageOut("Unsupported curve NID!\n", MSG_ERROR);
        std::fflush(stdout);
        return -1;
    }
    std::fflush(stdout);

    EVP_PKEY *generated = nullptr;
    const int status = KeyGen(&generated);
    const KeyOwner key(generated);
    if (status != 1)
        return FailWith("Error occured while generating Keypair! \n");
    std::fflush(stdout);

    if (SaveEncPrvKey(privateKeyPath, key.get(), password, method) != 1)
        return FailWith("Error occured while creating PEM file!\n");
    MessageOut("Private key PEM file created \n", MSG_INFO);

    if (SavePubKey(publicKeyPath, key.get()) != 1)
        return FailWith("Error occured while creating public key PEM file!\n");
    MessageOut("Public key PEM file created \n", MSG_INFO);

    if (SaveHashPubKey(key.get(), hashPath) != 1)
        return FailWith("Error occured while creating public key hash file!\n");
    MessageOut("public key hash file created \n", MSG_INFO);
    std::fflush(stdout);
    return 1;
}

int EC_Crypto::KeyGen(EVP_PKEY **key)
{
    KeyOwner parameters;
    if (key == nullptr || !LibraryIsReady() || !generateParameters(curveNID, parameters))
        return 0;
    const KeyContextOwner context = keyGenerationContext(parameters.get());
    if (!context || EVP_PKEY_keygen_init(context.get()) == 0)
        return 0;

    EVP_PKEY *generated = nullptr;
    const int status = EVP_PKEY_keygen(context.get(), &generated);
    KeyOwner owner(generated);
    if (status != 1 || !owner) {
        ERR_print_errors_fp(stderr);
        return 0;
    }
    if (nameCurveAndCheck(owner.get()) != 1)
        return 0;
    *key = owner.release();
    return 1;
}

int EC_Crypto::sign(const unsigned char *data, size_t len, unsigned char **sig, size_t *siglen, EVP_PKEY *key)
{
    const EcKeyOwner ec(key != nullptr ? EVP_PKEY_get1_EC_KEY(key) : nullptr);
    const int largestEncoding = ec ? ECDSA_size(ec.get()) : 0;
    if (largestEncoding <= 0)
        return FailWith("Error: determining signing buffer length fails \n");
    // On a curve with a short order the encoding is shorter than the two numbers written over it.
    const size_t bufferSize = std::max(static_cast<size_t>(largestEncoding), 2 * numberSize);
    BufferOwner buffer(static_cast<unsigned char *>(OPENSSL_malloc(bufferSize)));
    if (!buffer)
        return FailWith("Error: allocating signature buffer fails \n");
    if (data == nullptr)
        return FailWith("Error: unvalid hash pointer \n");
    const int dataLength = static_cast<int>(len);
    unsigned int encodedLength = 0;
    if (ECDSA_sign(0, data, dataLength, buffer.get(), &encodedLength, ec.get()) == 0)
        return FailWith("Error: Creating ECDSA signature fails!\n");
    *sig = buffer.release();
    *siglen = encodedLength;
    MessageOut("ECDSA signature generated.\n", MSG_INFO);
    reportVerification(ECDSA_verify(0, data, dataLength, *sig, static_cast<int>(encodedLength), ec.get()));

    const unsigned char *cursor = *sig;
    const EcdsaSignatureOwner signature(d2i_ECDSA_SIG(nullptr, &cursor, static_cast<long>(encodedLength)));
    if (!signature)
        return -1;
    const int verdict = ECDSA_do_verify(data, dataLength, signature.get(), ec.get());
    if (!writeNumber(ECDSA_SIG_get0_r(signature.get()), *sig) ||
        !writeNumber(ECDSA_SIG_get0_s(signature.get()), *sig + numberSize))
        return -1;
    *siglen = 2 * numberSize;
    return verdict;
}

int EC_Crypto::GetPubKeyBin(EVP_PKEY *key, unsigned char **out, size_t *outLen)
{
    if (GetPubKeyDER(key, out, outLen) != 1)
        return -1;
    return stripHeader(*out, outLen, EncodingHeaderSize(curveNID));
}

int EC_Crypto::GetPubKeyBin(const unsigned char *pemPath, unsigned char **out, size_t *outLen)
{
    EVP_PKEY *key = nullptr;
    const int status = ReadPubKey(pemPath, &key);
    const KeyOwner owner(key);
    if (status != 1)
        return FailWith("Error: reading public key fails \n");
    return GetPubKeyBin(key, out, outLen);
}

int EC_Crypto::GetPubKeyBinFromFile(const unsigned char *pemPath, unsigned char **out, size_t *outLen)
{
    return GetPubKeyBin(pemPath, out, outLen);
}

size_t EC_Crypto::EncodingHeaderSize(int nid)
{
    // The object identifier of brainpoolP256t1 is one byte longer than that of prime256v1.
    return nid == NID_brainpoolP256t1 ? 28 : 27;
}

void bn_Copy(unsigned char *dst, const unsigned char *src, size_t len)
{
    std::reverse_copy(src, src + len, dst);
}
