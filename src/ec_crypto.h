// The key engine for elliptic-curve keys.
#pragma once

#include "src/crypto.h"

/// Generates keys on one selected curve, and signs with ECDSA. The engine-wide rules stand in crypto.h.
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

    /// Generates a key pair and writes its private key PEM, public key PEM and public key hash file, in this
    /// order. 1 or -1; a failure ends the call at once, and files already written stay.
    int GenerateKeys(const unsigned char *privateKeyPath, const unsigned char *publicKeyPath,
                     const unsigned char *hashPath, const unsigned char *password, CIHERTYPE cipher);

    /// Generates a key pair on the selected curve into `*key`, which the caller owns. 1, or 0 when the
    /// library failed, the key did not pass its check, or `key` is null; `*key` is then untouched.
    int KeyGen(EVP_PKEY **key) override;

    /// ECDSA of a digest of `len` bytes: r then s, big-endian, 32 bytes each, at the start of a buffer that
    /// the caller owns; `*siglen` becomes 64. 1 when the signature verifies, 0 when it does not, -1 on error.
    /// An error leaves `*sig` and `*siglen` untouched until the signature is made. After that, as where the
    /// key's numbers are longer than 32 bytes, `*sig` is the caller's, and `*siglen` the length of its
    /// encoding by the library.
    int sign(const unsigned char *data, size_t len, unsigned char **sig, size_t *siglen,
             EVP_PKEY *key) override;

    /// The public key's binary form: the 64 bytes X then Y. The encoding's header is cut off by the length it
    /// has on the selected curve, whatever the key's own. 1 or -1; `*out` is the caller's also after a failed
    /// encoding.
    int GetPubKeyBin(EVP_PKEY *key, unsigned char **out, size_t *outLen) override;

    /// The same for the key in a public key PEM file.
    int GetPubKeyBin(const unsigned char *pemPath, unsigned char **out, size_t *outLen);

    /// The same as the overload above.
    int GetPubKeyBinFromFile(const unsigned char *pemPath, unsigned char **out, size_t *outLen);

    /// Bytes in front of X in the DER encoding of a public key on the curve `nid`.
    static size_t EncodingHeaderSize(int nid);

    int curveNID; ///< 0: no curve selected
};

/// Copies `len` bytes of `src` to `dst` in reverse order. The two must not overlap.
void bn_Copy(unsigned char *dst, const unsigned char *src, size_t len);
