/// @file
/// The key engine for elliptic-curve keys. What holds throughout the engine stands in crypto.h.
#pragma once

#include "src/crypto.h"

/// Generates keys on one selected curve, and signs with ECDSA.
class EC_Crypto : public Crypto {
public:
    /// No curve is selected yet.
    EC_Crypto();
    /// Selects the curve `nid` without checking it and without a message.
    explicit EC_Crypto(int nid);
    ~EC_Crypto() = default;

    /// Selects the curve: NID_X9_62_prime256v1 (415) or NID_brainpoolP256t1 (928). Any other value is stored
    /// too, but reported with -1, and GenerateKeys refuses it. 1 or -1.
    int SetCurveNID(int nid);

    /// Generates a key pair on the selected curve and writes its private key, as SaveEncPrvKey does, its
    /// public key, as SavePubKey does, and the hash of its public key, as SaveHashPubKey does, in this order.
    /// A `cipher` outside the enumeration, or a curve other than the two, is a failure before anything is
    /// generated. 1 or -1; a failure ends the call at once, and files already written stay. Not virtual:
    /// through a pointer to Crypto it is an RSA key that is generated.
    int GenerateKeys(const unsigned char *privateKeyPath, const unsigned char *publicKeyPath,
                     const unsigned char *hashPath, const unsigned char *password, CIHERTYPE cipher);

    /// Generates a key pair on the selected curve. `*key` becomes the new key object, the caller's; what it
    /// held before is not released. 1; 0, without a message, when the library failed, the key did not pass
    /// its check, or `key` is null.
    int KeyGen(EVP_PKEY **key) override;

    /// Signs a digest with ECDSA, on the key's own curve.
    ///
    /// `data` is the digest, and `len` its length, 32 for SHA-256; a null `data` is a failure. `key` holds an
    /// EC private key. `*sig` becomes a new buffer, the caller's, that starts with r, then s, big-endian, 32
    /// bytes each, and `*siglen` becomes 64. 1 when the signature verifies, 0 when it does not, -1 on error.
    /// An error leaves both untouched until the signature is made. After that, as where the key's numbers are
    /// longer than 32 bytes, `*sig` is the caller's, and `*siglen` the length of its encoding by the library.
    int sign(const unsigned char *data, size_t len, unsigned char **sig, size_t *siglen,
             EVP_PKEY *key) override;

    /// The public key's binary form: X, then Y, big-endian, 32 bytes each. `*out` becomes a new buffer, the
    /// caller's, and `*outLen` 64. The encoding's header is cut off by the length that it has on the selected
    /// curve, whatever the key's own: for a key of the other curve the length is 65 or 63. The buffer has at
    /// least 64 bytes: behind a shorter form stand the encoding's last bytes, then zeros. 1 or -1. After a
    /// failure: as with GetPubKeyDER, and where the encoding is shorter than the header `*out` is the
    /// caller's.
    int GetPubKeyBin(EVP_PKEY *key, unsigned char **out, size_t *outLen) override;

    /// The same for the key in the public key PEM file at `pemPath`. 1 or -1; where the file cannot be opened
    /// `*out` and `*outLen` are untouched.
    int GetPubKeyBin(const unsigned char *pemPath, unsigned char **out, size_t *outLen);

    /// The same as the overload above.
    int GetPubKeyBinFromFile(const unsigned char *pemPath, unsigned char **out, size_t *outLen);

    /// Bytes in front of X in the DER encoding of a public key on the curve `nid`.
    static size_t EncodingHeaderSize(int nid);

    int curveNID; ///< The selected curve, as SetCurveNID takes it; 0 where none is selected.
};

/// Copies `len` bytes of `src` to `dst` in reverse order. The two must not overlap.
void bn_Copy(unsigned char *dst, const unsigned char *src, size_t len);
