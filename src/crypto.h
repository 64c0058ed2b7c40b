// The key engine's base class: key-file writers and readers, hashing, random data, and RSA.
//
// Throughout the engine:
// - Paths and passwords are NUL-terminated byte strings in UTF-8.
// - A status of 1 is success. -1, or 0 where a member says so, is failure, and its message has been printed.
//   Callers compare with 1.
// - Byte buffers handed out are allocated with the library's allocator and belong to the caller, who
//   releases them with OPENSSL_free or Buffer_Cleanup. Key objects handed out are released with
//   EVP_PKEY_free.
// - While a file is replaced, signals that would end or stop the process wait, on the calling thread: see
//   held_signals.h.
#pragma once

#include <openssl/evp.h>

#include <cstddef>

/// The cipher that a private key file is encrypted with.
enum CIHERTYPE : int {
    AES128_CBC = 0, ///< AES-128-CBC
    AES256_CBC = 1, ///< AES-256-CBC
};

/// One random byte: the low 8 bits of one value of the system-wide generator. Ends the process by abort()
/// where the system has none to give: the caller could not tell.
unsigned char randomByte();

/// Key generation, key files and signatures. Used as it stands the class works with RSA keys; EC_Crypto
/// replaces the three virtual operations. Objects have no state of their own and are never deleted through a
/// base pointer.
class Crypto {
public:
    /// Initialises the cryptographic library and loads its standard configuration file. Failures are not
    /// detected, and leave no errors in the library's queue.
    Crypto();
    ~Crypto() = default;

    /// Generates a key pair into `*key`, which the caller owns. Here: RSA, 4096 bits, exponent 65537. 1 on
    /// success; 0 when the generation cannot be set up; -1 when the key fails its check, or `key` is null.
    /// Errors that the library's queue held before the call count as the key's: they are printed to standard
    /// error, and the result is -1.
    virtual int KeyGen(EVP_PKEY **key);

    /// Signs a digest of `len` bytes with `key`. Here: RSA, PKCS#1 v1.5, `data` being a 32-byte SHA-256
    /// digest. 1 when the signature was made and verifies; 0 when it was made and does not; -1 on any earlier
    /// failure. In the first two cases the caller owns `*sig`, of `*siglen` bytes; otherwise both are
    /// untouched.
    virtual int sign(const unsigned char *data, size_t len, unsigned char **sig, size_t *siglen,
                     EVP_PKEY *key);

    /// The public key's binary form. Here: refused, 0.
    virtual int GetPubKeyBin(EVP_PKEY *key, unsigned char **out, size_t *outlen);

    /// Generates an RSA key pair and writes its private key PEM and public key PEM. An RSA key has no binary
    /// form, so its hash file is refused, and the generation still succeeds. 1 or -1; files already written
    /// stay.
    int GenerateKeys(const unsigned char *prvPath, const unsigned char *pubPath,
                     const unsigned char *hashPath, const unsigned char *password, CIHERTYPE cipher);

    /// Writes `key` as an encrypted PKCS#8 PEM file, mode 0400: PBES2 with PBKDF2 (HMAC-SHA-256, 2048
    /// iterations, 8 bytes of salt) and `cipher`, under the first 1024 bytes of `password`. An empty password
    /// is a failure. 1 or -1. A file that could not be written stays open until the process ends, and as
    /// writable as it was opened.
    int SaveEncPrvKey(const unsigned char *path, EVP_PKEY *key, const unsigned char *password,
                      const EVP_CIPHER *cipher);

    /// Writes `key` as an unencrypted PKCS#8 PEM file, in the process's default mode. 1 or -1.
    int SavePrvKey(const unsigned char *path, EVP_PKEY *key);

    /// Writes the public key of `key` as a PEM file, mode 0444. 1; -1 when the file cannot be created; 0 when
    /// the key cannot be written.
    int SavePubKey(const unsigned char *path, EVP_PKEY *key);

    /// Writes the SHA-256 of the key's binary form, 32 bytes, mode 0444. 1 or -1.
    int SaveHashPubKey(EVP_PKEY *key, const unsigned char *hashPath);

    /// Writes `length` bytes of `data`, the hash of a packet's hash table, mode 0444. 1 or -1.
    int SaveHashTableHash(const unsigned char *data, int length, const unsigned char *path);

    /// Reads a private key PEM file, decrypting it with the first 1024 bytes of `password`. `*key` is null on
    /// failure, the caller's on success. 1 or -1. This and the other readers read no further than the key's
    /// last line, and no more than 16 MiB.
    int ReadEncPrvKey(const unsigned char *path, EVP_PKEY **key, const unsigned char *password);

    /// The same without a password: an encrypted file makes the library ask for one on the terminal. `*key`
    /// is untouched when the file cannot be opened. 1 or -1.
    int ReadPrvKey(const unsigned char *path, EVP_PKEY **key);

    /// Reads a public key PEM file. A file that opens counts as read: where it holds no public key, `*key`
    /// stays as it was. A key read replaces and releases the one in `*key`, and is the caller's. 1; -1 when
    /// the file cannot be opened or `key` is null.
    int ReadPubKey(const unsigned char *pemPath, EVP_PKEY **key);

    /// The DER SubjectPublicKeyInfo of `key`, in a new buffer that the caller owns. 1 or -1; after a failed
    /// encoding the buffer is the caller's all the same.
    int GetPubKeyDER(EVP_PKEY *key, unsigned char **der, size_t *derLen);

    /// The same for the key in a public key PEM file.
    int GetPubKeyDER(const unsigned char *path, unsigned char **der, size_t *derLen);

    /// SHA-256 of `len` bytes into the caller's buffer `*digest`, of at least 32 bytes; `*digestLen` becomes
    /// 32, or 0 when the library failed on the way. 1; -1 when the library has no SHA-256.
    int CalculateDigest(const unsigned char *data, size_t len, unsigned char **digest, size_t *digestLen);

    /// SHA-256 of the key's binary form into the caller's buffer `*digest`, of at least 32 bytes. 1 or -1.
    int GetHashPubKey(EVP_PKEY *key, unsigned char **digest, size_t *digestLen);

    /// Signs the SHA-256 of `len` bytes of `data` with the private key stored at `prvKeyPath`. The caller
    /// owns `*sig`, of `*siglen` bytes, also where `sign` handed it out and failed then; after any other
    /// failure both are untouched. 1 or -1.
    int GenerateSignature(const unsigned char *data, size_t len, const unsigned char *prvKeyPath,
                          const unsigned char *password, unsigned char **sig, size_t *siglen);

    /// Prints p, q, n, e and d of an RSA key in hexadecimal on standard output, without colours.
    void DisplayRSAKeyParams(EVP_PKEY *key);

    /// Writes `size` random bytes to the file at `path`, in the process's default mode. 0 on success, -1 on
    /// failure; where the system has no random bytes to give, the file is not touched.
    int generateRandom(int size, const unsigned char *path);

    /// Releases a buffer handed out by the engine. 1, or 0 for a null buffer.
    int Buffer_Cleanup(unsigned char *buf);
};
