// Class Crypto's own RSA operations, and signing with stored keys.
#include "src/crypto.h"

#include "keygen/console.h"
#include "src/engine_helpers.h"
#include "src/openssl_owners.h"

#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

constexpr int modulusBits = 4096;

/// True for an error that RSA_check_key reports about an inconsistent key, false for any other.
bool isCheckError(unsigned long error)
{
#if OPENSSL_VERSION_NUMBER < 0x30000000L
    constexpr int checkFunction = 0x7B;
    const bool fromCheck = ERR_GET_FUNC(error) == checkFunction;
#else
    // Error codes no longer name the function: library and reason decide.
    constexpr bool fromCheck = true;
#endif
    return ERR_GET_LIB(error) == ERR_LIB_RSA && fromCheck && ERR_GET_REASON(error) != ERR_R_MALLOC_FAILURE;
}

/// The error's reason without its first ten characters; empty if it has no more.
const char *shortenedReason(unsigned long error)
{
    constexpr size_t cut = 10;
    const char *const reason = ERR_reason_error_string(error);
    return reason != nullptr && std::strlen(reason) > cut ? reason + cut : "";
}

void printCheckErrors()
{
    for (unsigned long error = ERR_peek_error(); error != 0 && isCheckError(error);
         error = ERR_peek_error()) {
        MessageOut("RSA key error: ", MSG_ERROR);
        MessageOut(shortenedReason(error), MSG_ERROR);
        ERR_get_error();
    }
}

void printErrorQueue(BIO *channel)
{
    if (channel != nullptr)
        ERR_print_errors(channel);
}

/// Checks a new key and reports the result: 1 when it is consistent, -1 otherwise.
int checkKey(EVP_PKEY *key)
{
    const BioOwner errors(BIO_new_fp(stderr, BIO_NOCLOSE));
    const RsaOwner rsa(key != nullptr ? EVP_PKEY_get1_RSA(key) : nullptr);
    const int verdict = rsa ? RSA_check_key(rsa.get()) : -1;
    if (verdict == -1) {
        printErrorQueue(errors.get());
        return -1;
    }
    if (verdict == 0) {
        printCheckErrors();
        return -1;
    }
    if (verdict == 1)
        MessageOut("RSA key ok \n", MSG_INFO);
    if (ERR_peek_error() == 0)
        return 1;
    printErrorQueue(errors.get());
    return -1;
}

bool setPadding(EVP_PKEY_CTX *context)
{
    return EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING) > 0;
}

bool setDigest(EVP_PKEY_CTX *context)
{
    return EVP_PKEY_CTX_set_signature_md(context, EVP_sha256()) > 0;
}

/// 1 unless the signature is wrong: an error in the library counts as a pass.
int verify(EVP_PKEY_CTX *context, const unsigned char *sig, size_t siglen, const unsigned char *data,
           size_t len)
{
    EVP_PKEY_verify_init(context);
    // Initialising the verification resets both in newer versions of the library.
    setPadding(context);
    setDigest(context);
    const int verdict = EVP_PKEY_verify(context, sig, siglen, data, len);
    MessageOut("signature verification: ", MSG_INFO);
    if (verdict == 0) {
        MessageOut("FAIL \n", MSG_ERROR);
        return 0;
    }
    MessageOut("SUCCESS \n", MSG_SUCCESS);
    return 1;
}

// Written as bytes, like all output: once bytes have been written to a stream, the C library's wide-character
// functions write nothing to it.
void printNumber(const char *name, const BIGNUM *number)
{
    if (number == nullptr) {
        std::printf("%s = NULL\n", name);
        return;
    }
    const SecretTextOwner digits(BN_bn2hex(number));
    if (digits)
        std::printf("%s = 0x%s\n", name, digits.get());
}

} // namespace

int Crypto::KeyGen(EVP_PKEY **key)
{
    if (key == nullptr)
        return -1;
    if (!LibraryIsReady())
        return 0;
    const KeyContextOwner context(EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr));
    if (!context || EVP_PKEY_keygen_init(context.get()) <= 0 ||
        EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), modulusBits) <= 0)
        return 0;

    EVP_PKEY *generated = nullptr;
    const int status = EVP_PKEY_keygen(context.get(), &generated);
    KeyOwner owner(generated);
    if (status != 1)
        ERR_print_errors_fp(stderr);
    if (checkKey(owner.get()) != 1)
        return -1;
    *key = owner.release();
    return 1;
}

int Crypto::GenerateKeys(const unsigned char *prvPath, const unsigned char *pubPath,
                         const unsigned char *hashPath, const unsigned char *password, CIHERTYPE cipher)
{
    const EVP_CIPHER *method = nullptr;
    if (cipher == AES256_CBC) {
        method = EVP_aes_256_cbc();
        MessageOut("AES_256_cbc algorithm is selected for private key encription\n", MSG_INFO);
    } else if (cipher == AES128_CBC) {
        method = EVP_aes_128_cbc();
        MessageOut("AES_128_cbc algorithm is selected for private key encription\n", MSG_INFO);
    } else {
        MessageOut("Unsupported algorithm selected for private key encription\n", MSG_INFO);
        return -1;
    }

    // In red, unlike other progress lines, so that it stands out: what follows takes a while.
    MessageOut("Generating RSA private key... \n", MSG_ERROR);
    std::fflush(stdout);
    EVP_PKEY *generated = nullptr;
    const int status = KeyGen(&generated);
    const KeyOwner key(generated);
    if (status != 1)
        return FailWith("Error: fail occured while generating RSA private key\n");
    std::fflush(stdout);

    MessageOut("Saving RSA private key...\n", MSG_INFO);
    if (SaveEncPrvKey(prvPath, key.get(), password, method) != 1)
        return FailWith("Error: creating PEM file fails\n");
    MessageOut("Private key PEM file created\n", MSG_INFO);
    if (SavePubKey(pubPath, key.get()) != 1)
        return FailWith("Error: creating Pubkey.pem fails\n");
    MessageOut("Public key PEM file created\n", MSG_INFO);

    // RSA keys have no binary form to hash: the refusal is printed, and the generation succeeds without the
    // file.
    SaveHashPubKey(key.get(), hashPath);
    MessageOut("Key generation done\n", MSG_INFO);
    std::fflush(stdout);
    return 1;
}

int Crypto::sign(const unsigned char *data, size_t len, unsigned char **sig, size_t *siglen, EVP_PKEY *key)
{
    const KeyContextOwner context(EVP_PKEY_CTX_new(key, nullptr));
    if (!context)
        return FailWith("Error: creating signing context fails\n");
    if (EVP_PKEY_sign_init(context.get()) <= 0)
        return FailWith("Error: signing init fails\n");
    if (!setPadding(context.get()))
        return FailWith("Error: RSA padding fails\n");
    if (!setDigest(context.get()))
        return FailWith("Error: setting hash algo fails\n");

    size_t length = 0;
    if (EVP_PKEY_sign(context.get(), nullptr, &length, data, len) <= 0)
        return FailWith("Error: determining signing buffer length fails\n");
    BufferOwner buffer(static_cast<unsigned char *>(OPENSSL_malloc(length)));
    if (!buffer)
        return FailWith("Error: allocating signature buffer fails\n");
    if (data == nullptr)
        return FailWith("Error: unvalid hash pointer \n");
    if (EVP_PKEY_sign(context.get(), buffer.get(), &length, data, len) <= 0)
        return FailWith("Error: creating signature fails\n");

    *sig = buffer.release();
    *siglen = length;
    MessageOut("signature generated\n", MSG_INFO);
    return verify(context.get(), *sig, length, data, len);
}

int Crypto::GenerateSignature(const unsigned char *data, size_t len, const unsigned char *prvKeyPath,
                              const unsigned char *password, unsigned char **sig, size_t *siglen)
{
    MessageOut("Reading Private Key File... \n", MSG_INFO);
    EVP_PKEY *stored = nullptr;
    const int status = ReadEncPrvKey(prvKeyPath, &stored, password);
    const KeyOwner key(stored);
    if (status != 1)
        return FailWith("Error: reading private key file fails\n");

    const BufferOwner digest(static_cast<unsigned char *>(OPENSSL_malloc(digestBufferSize)));
    if (!digest)
        return FailWith("Error: allocating signature buffer fails \n");
    unsigned char *buffer = digest.get();
    size_t digestLength = 0;
    CalculateDigest(data, len, &buffer, &digestLength);
    // A digest of another length could not be calculated, and must not be signed.
    if (digestLength != digestSize || sign(buffer, digestLength, sig, siglen, key.get()) != 1)
        return FailWith("Error: signing fails \n");
    std::fflush(stdout);
    return 1;
}

void Crypto::DisplayRSAKeyParams(EVP_PKEY *key)
{
    const RsaOwner rsa(key != nullptr ? EVP_PKEY_get1_RSA(key) : nullptr);
    if (!rsa) {
        std::printf("Error: EVP_PKEY_get1_RSA failed\n");
        return;
    }
    const BIGNUM *p = nullptr;
    const BIGNUM *q = nullptr;
    const BIGNUM *n = nullptr;
    const BIGNUM *e = nullptr;
    const BIGNUM *d = nullptr;
    RSA_get0_factors(rsa.get(), &p, &q);
    RSA_get0_key(rsa.get(), &n, &e, &d);
    printNumber("p", p);
    printNumber("q", q);
    printNumber("n", n);
    printNumber("e", e);
    printNumber("d", d);
    std::fflush(stdout);
}
