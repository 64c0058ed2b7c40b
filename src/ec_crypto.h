/// @file
/// The key engine for elliptic-curve keys. The conventions of the whole engine are in crypto.h.
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
    /// generated. 1 or -1; a failure ends the call at once, and files already written stay. Not virtual: a
    /// call through a pointer to Crypto generates an RSA key.
    int GenerateKeys(const unsigned char *privateKeyPath, const unsigned char *publicKeyPath,
                     const unsigned char *hashPath, const unsigned char *password, CIHERTYPE cipher);

    /// Generates a key pair on the selected curve. `*key` becomes the new key object, which the caller owns;
    /// its previous value is not released. 1; 0, without a message, when the library failed, the key did not
    /// pass its check, or `key` is null.
    int KeyGen(EVP_PKEY **key) override;

    /// Signs a digest with ECDSA, on the key's own curve.
    ///
    /// `data` is the digest, and `len` its length, 32 for SHA-256; a null `data` is a failure. `key` holds an
    /// EC private key. `*sig` becomes a new buffer, which the caller owns and which starts with r, then s,
    /// big-endian, 32 bytes each; `*siglen` becomes 64. 1 when the signature verifies, 0 when it does not, -1
    /// on error. An error before the signature is made leaves both unchanged. After a later error, for
    /// example because the key's numbers are longer than 32 bytes, the caller owns `*sig`, and `*siglen` is
    /// the length of the library's encoding.
    int sign(const unsigned char *data, size_t len, unsigned char **sig, size_t *siglen,
             EVP_PKEY *key) override;

    /// The public key's binary form: X, then Y, big-endian, 32 bytes each. `*out` becomes a new buffer, which
    /// the caller owns, and `*outLen` 64. As many bytes are removed from the encoding as its header has on
    /// the selected curve, whatever the key's own curve: for a key on the other curve the length is 65 or 63.
    /// The buffer has at least 64 bytes: a shorter form is followed by the encoding's last bytes, then zeros.
    /// 1 or -1. After a failure: as with GetPubKeyDER, and if the encoding is shorter than the header, the
    /// caller owns `*out`.
    int GetPubKeyBin(EVP_PKEY *key, unsigned char **out, size_t *outLen) override;

    /// The same for the key in the public key PEM file at `pemPath`. 1 or -1; if the file cannot be opened,
    /// `*out` and `*outLen` are unchanged.
    int GetPubKeyBin(const unsigned char *pemPath, unsigned char **out, size_t *outLen);

    /// The same as the overload above.
    int GetPubKeyBinFromFile(const unsigned char *pemPath, unsigned char **out, size_t *outLen);

    /// Bytes in front of X in the DER encoding of a public key on the curve `nid`.
    static size_t EncodingHeaderSize(int nid);

    int curveNID; ///< The selected curve, as SetCurveNID takes it; 0 if none is selected.
};

/// Copies `len` bytes of `src` to `dst` in reverse order. The two must not overlap.
void bn_Copy(unsigned char *dst, const unsigned char *src, size_t len);
