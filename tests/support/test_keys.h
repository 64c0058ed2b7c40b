// Keys, encodings and byte strings for the tests of the key engine.
#pragma once

#include "src/openssl_owners.h"

#include <cstddef>
#include <string>

// The numbers of the two curves that the engine supports.
constexpr int prime256v1 = 415;
constexpr int brainpoolP256t1 = 928;

/// The bytes of `text`, in the type that the engine uses for paths, passwords and data.
const unsigned char *Bytes(const std::string &text);

/// The bytes that `digits` represent in hexadecimal. Spaces are ignored.
std::string FromHex(const std::string &digits);

/// The key on the curve `nid` with the private number `number`. Its encodings name the curve.
KeyOwner FixedKey(int nid, unsigned long number);

/// The number of a private key (32 bytes) and the point of a public key (X then Y, 64 bytes), on a curve of
/// 256 bits.
std::string NumberOf(const EVP_PKEY *key);
std::string PointOf(const EVP_PKEY *key);

/// SubjectPublicKeyInfo on one of the two curves, spelled out byte by byte.
std::string EncodingOfPoint(int nid, const std::string &point);

/// A PEM file with one block: lines of 64 characters, a line feed after each line.
std::string PemFile(const std::string &label, const std::string &content);

/// The content of the only block of a PEM file; empty if the file is not exactly as PemFile would write it.
std::string ContentOfPemFile(const std::string &label, const std::string &file);

std::string Sha256Of(const std::string &data);

/// The path of a file in tests/data.
std::string TestData(const std::string &name);

/// Records whether the elliptic-curve key inside a key object has been released.
class ReleaseWatch {
public:
    explicit ReleaseWatch(EVP_PKEY *key);
    /// The key may be released later.
    ~ReleaseWatch();
    ReleaseWatch(const ReleaseWatch &) = delete;
    ReleaseWatch &operator=(const ReleaseWatch &) = delete;

    bool released() const { return isReleased; }

private:
    bool isReleased = false;
};
