/// @file
/// The key engine's base class: key-file writers and readers, hashing, random data, and RSA.
///
/// Throughout the engine, unless a member says otherwise:
/// - Paths and passwords are NUL-terminated byte strings in UTF-8. Lengths and sizes count bytes. Pointers
///   must not be null.
/// - A status of 1 is success. -1, or 0 where a member says so, is failure, and its message has been printed
///   with MessageOut. Callers compare with 1.
/// - Arguments remain the caller's, and are not needed after the call.
/// - Returned byte buffers are allocated with the library's allocator and belong to the caller, who releases
///   them with OPENSSL_free or Buffer_Cleanup. Returned key objects also belong to the caller, and are
///   released with EVP_PKEY_free. After a failure nothing is returned, and the output parameters are
///   unchanged.
/// - Files are created, or truncated and rewritten. A mode is set if the path is ASCII; otherwise a new file
///   has the process's default mode, and an old file keeps its own. An old file that cannot be opened keeps
///   its content and its mode; a write that fails leaves the file cut short.
/// - While a file is replaced, signals that would end or stop the process are blocked in the calling thread.
/// - Some members print details of the library's failures to standard error; otherwise the library's error
///   queue is left to the caller.
#pragma once

#include <openssl/evp.h>

#include <cstddef>

/// The cipher that a private key file is encrypted with.
enum CIHERTYPE : int {
    AES128_CBC = 0, ///< AES-128-CBC
    AES256_CBC = 1, ///< AES-256-CBC
};

/// One random byte: the low 8 bits of one value of the system-wide generator. Calls abort() if the system has
/// none to give, because the caller could not tell.
unsigned char randomByte();

/// Key generation, key files and signatures. By itself the class works with RSA keys; EC_Crypto overrides the
/// three virtual operations. Objects have no state of their own and are never deleted through a base pointer.
/// An object may be used by one thread only.
class Crypto {
public:
    /// Initialises the cryptographic library and loads its standard configuration file. Failures are not
    /// detected, and leave no errors in the library's queue.
    Crypto();
    ~Crypto() = default;

    /// Generates a key pair. Here: RSA, 4096 bits, exponent 65537, which takes seconds.
    ///
    /// `*key` becomes the new key object, which the caller owns; its previous value is not released. 1 on
    /// success; 0, without a message, when the generation cannot be set up; -1 when no key is generated, when
    /// it fails its check, or when `key` is null. Errors already in the library's queue before the call count
    /// as errors of the key: they are printed to standard error, and the result is -1.
    virtual int KeyGen(EVP_PKEY **key);

    /// Signs a digest. Here: RSA, PKCS#1 v1.5 with SHA-256.
    ///
    /// `data` is the digest, and `len` its length, 32; a null `data` is a failure. `key` holds an RSA private
    /// key. 1 when the signature was made and verifies; 0 when it was made and does not verify; -1 on any
    /// earlier failure. With 1 and with 0, `*sig` is a new buffer, which the caller owns, and `*siglen` its
    /// length: that of the modulus, 512 for 4096 bits.
    virtual int sign(const unsigned char *data, size_t len, unsigned char **sig, size_t *siglen,
                     EVP_PKEY *key);

    /// The public key's binary form. Here: refused with 0, because an RSA key has none.
    virtual int GetPubKeyBin(EVP_PKEY *key, unsigned char **out, size_t *outlen);

    /// Generates an RSA key pair and writes its private key, as SaveEncPrvKey does, to `prvPath` and its
    /// public key, as SavePubKey does, to `pubPath`. An RSA key has no binary form, so the hash file is
    /// refused: a file at `hashPath` is not changed, and the generation still succeeds. A `cipher` outside
    /// the enumeration is a failure before anything is generated. 1 or -1; files already written stay. Not
    /// virtual: EC_Crypto has its own.
    int GenerateKeys(const unsigned char *prvPath, const unsigned char *pubPath,
                     const unsigned char *hashPath, const unsigned char *password, CIHERTYPE cipher);

    /// Writes the private key of `key` as an encrypted PKCS#8 PEM file, mode 0400: PBES2 with PBKDF2
    /// (HMAC-SHA-256, 2048 iterations, 8 bytes of salt) and `cipher`, for example EVP_aes_256_cbc(), under
    /// the first 1024 bytes of `password`. A null or empty password is a failure, and so is a null `key` or
    /// `cipher`. 1 or -1. A file that could not be written stays open until the process ends, and keeps the
    /// mode that it had for writing.
    int SaveEncPrvKey(const unsigned char *path, EVP_PKEY *key, const unsigned char *password,
                      const EVP_CIPHER *cipher);

    /// Writes the private key of `key` as an unencrypted PKCS#8 PEM file, with the process's default mode, or
    /// with that of an old file. A null `key` is a failure. 1 or -1.
    int SavePrvKey(const unsigned char *path, EVP_PKEY *key);

    /// Writes the public key of `key` as a PEM file, its SubjectPublicKeyInfo, mode 0444. 1; -1 when the file
    /// cannot be created; 0 when the key cannot be written, for example because it is null: the file is then
    /// cut short, and has its final mode.
    int SavePubKey(const unsigned char *path, EVP_PKEY *key);

    /// Writes the SHA-256 of the key's binary form, 32 bytes and nothing else, mode 0444. 1 or -1; an old
    /// file is truncated only once the hash has been calculated. Always -1 here: see GetPubKeyBin.
    int SaveHashPubKey(EVP_PKEY *key, const unsigned char *hashPath);

    /// Writes `length` bytes of `data`, the hash of a packet's hash table, mode 0444, even if the path is not
    /// ASCII. 1 or -1.
    int SaveHashTableHash(const unsigned char *data, int length, const unsigned char *path);

    /// Reads a private key PEM file: PKCS#8, or the older forms of EC, RSA and DSA keys. An encrypted key is
    /// decrypted with the first 1024 bytes of `password`; with a null password the library asks for one on
    /// the terminal. `*key` becomes the key object, which the caller owns, or null after a failure; its
    /// previous value is not released. 1 or -1. This and the other readers read no further than the key's
    /// last line, and no more than 16 MiB.
    int ReadEncPrvKey(const unsigned char *path, EVP_PKEY **key, const unsigned char *password);

    /// ReadEncPrvKey without a password: an encrypted file makes the library ask for one on the terminal. If
    /// the file cannot be opened, `*key` is unchanged. 1 or -1.
    int ReadPrvKey(const unsigned char *path, EVP_PKEY **key);

    /// Reads a public key PEM file, a SubjectPublicKeyInfo. A file that can be opened counts as read: if it
    /// holds no public key, `*key` is unchanged, and no message is printed. A key that is read replaces the
    /// one in `*key`, which must be null or a key object and is released; the caller owns the new key. 1; -1
    /// when the file cannot be opened or `key` is null.
    int ReadPubKey(const unsigned char *pemPath, EVP_PKEY **key);

    /// The DER SubjectPublicKeyInfo of `key`. `*der` becomes a new buffer, which the caller owns, and
    /// `*derLen` the encoding's length; the buffer has at least 64 bytes, with zeros after a shorter
    /// encoding. 1 or -1. After a failure: if the key has no encoding, or is null, `*derLen` is 0 and `*der`
    /// unchanged; if the allocation fails, `*der` is null; if the encoding fails, the caller owns `*der` all
    /// the same.
    int GetPubKeyDER(EVP_PKEY *key, unsigned char **der, size_t *derLen);

    /// The same for the key in the public key PEM file at `path`. 1 or -1; if the file cannot be opened,
    /// `*der` and `*derLen` are unchanged.
    int GetPubKeyDER(const unsigned char *path, unsigned char **der, size_t *derLen);

    /// The SHA-256 of `len` bytes of `data`, into the caller's buffer `*digest`, of at least 32 bytes; the
    /// pointer itself is not changed. `*digestLen` becomes 32, or 0 when a step of the calculation failed,
    /// which does not fail the call. 1; -1 when the library has no SHA-256 or an allocation fails, and
    /// `*digestLen` is then 0.
    int CalculateDigest(const unsigned char *data, size_t len, unsigned char **digest, size_t *digestLen);

    /// The SHA-256 of the key's binary form, into the caller's buffer `*digest`, of at least 32 bytes;
    /// `*digestLen` becomes 32. 1 or -1; after a failure `*digestLen` is 0 or unchanged. If the key has no
    /// binary form, one line of the message goes to standard output without MessageOut. Always -1 here: see
    /// GetPubKeyBin.
    int GetHashPubKey(EVP_PKEY *key, unsigned char **digest, size_t *digestLen);

    /// Signs the SHA-256 of `len` bytes of `data` with the private key that is stored at `prvKeyPath`, read
    /// as ReadEncPrvKey does. The form of the signature is that of `sign`. `*sig` becomes a new buffer, which
    /// the caller owns, and `*siglen` its length. 1 or -1. If `sign` returned a signature and then failed,
    /// the caller owns it all the same; after any other failure `*sig` and `*siglen` are unchanged.
    int GenerateSignature(const unsigned char *data, size_t len, const unsigned char *prvKeyPath,
                          const unsigned char *password, unsigned char **sig, size_t *siglen);

    /// Prints p, q, n, e and d of an RSA key, which include private numbers, in hexadecimal on standard
    /// output, without colours and without MessageOut; NULL for those that the key does not hold. For a key
    /// of another kind, or a null one, it prints an error there.
    void DisplayRSAKeyParams(EVP_PKEY *key);

    /// Writes `size` random bytes to the file at `path`, with the process's default mode, or with that of an
    /// old file. 0 on success, -1 on failure; if `size` is negative, the allocation fails or the system has
    /// no random bytes to give, the file is not touched.
    int generateRandom(int size, const unsigned char *path);

    /// Releases a buffer that the engine returned, without wiping it. 1, or 0 for a null buffer.
    int Buffer_Cleanup(unsigned char *buf);
};
