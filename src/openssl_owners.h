// Owners for the objects of the cryptographic library and the C library. Every such object has an owner from
// the line that creates it; release() marks where the ownership passes on.
#pragma once

#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <cstdio>
#include <memory>

/// Deleter that calls `release`, whatever it returns.
template <auto release>
struct ReleasedBy {
    template <typename T>
    void operator()(T *object) const
    {
        release(object);
    }
};

template <typename T, auto release>
using Owner = std::unique_ptr<T, ReleasedBy<release>>;

using BioOwner = Owner<BIO, BIO_free>;
using DigestContextOwner = Owner<EVP_MD_CTX, EVP_MD_CTX_free>;
using EcKeyOwner = Owner<EC_KEY, EC_KEY_free>;
using EcdsaSignatureOwner = Owner<ECDSA_SIG, ECDSA_SIG_free>;
using EncryptedKeyOwner = Owner<X509_SIG, X509_SIG_free>;
using KeyContextOwner = Owner<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using KeyOwner = Owner<EVP_PKEY, EVP_PKEY_free>;
using PrivateKeyInfoOwner = Owner<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>;
using RsaOwner = Owner<RSA, RSA_free>;
using AlgorithmOwner = Owner<X509_ALGOR, X509_ALGOR_free>;

/// For byte buffers from OPENSSL_malloc: OPENSSL_free is a macro and cannot be a template argument.
struct FreeBuffer {
    void operator()(void *buffer) const { OPENSSL_free(buffer); }
};
using BufferOwner = std::unique_ptr<unsigned char, FreeBuffer>;

/// For strings from the library that contain secrets: wiped, then released.
struct WipeText {
    void operator()(char *text) const { OPENSSL_clear_free(text, std::char_traits<char>::length(text)); }
};
using SecretTextOwner = std::unique_ptr<char, WipeText>;

struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using FileOwner = std::unique_ptr<std::FILE, CloseFile>;
