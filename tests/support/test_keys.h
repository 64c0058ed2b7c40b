// Keys, encodings and byte strings for the tests of the key engine.
#pragma once

#include "src/openssl_owners.h"

#include <cstddef>
#include <string>

/// The bytes of `text`, as the engine takes paths, passwords and data.
const unsigned char *Bytes(const std::string &text);

/// The bytes that `digits` spell in hexadecimal; blanks are left out.
std::string FromHex(const std::string &digits);

/// The key on the curve `nid` whose private number is `number`: always the same one. Its encodings name the
/// curve.
KeyOwner FixedKey(int nid, unsigned long number);

/// A private key's number, 32 bytes, and a public key's point X then Y, 64 bytes, on a curve of 256 bits.
std::string NumberOf(const EVP_PKEY *key);
std::string PointOf(const EVP_PKEY *key);

/// SubjectPublicKeyInfo on prime256v1 (415) or brainpoolP256t1 (928), written down byte by byte.
std::string EncodingOfPoint(int nid, const std::string &point);

/// A PEM file with one block: lines of 64 characters, a line feed after each line.
std::string PemFile(const std::string &label, const std::string &content);

/// The content of a PEM file's one block; empty when the file is not exactly as PemFile would write it.
std::string ContentOfPemFile(const std::string &label, const std::string &file);

std::string Sha256Of(const std::string &data);

/// The path of a file in tests/data.
std::string TestData(const std::string &name);

/// How many elliptic-curve keys the library holds at present, of those made since this was first asked for.
int LiveCurveKeys();

/// Tells when the elliptic-curve key inside a key object is released.
class ReleaseWatch {
public:
    explicit ReleaseWatch(EVP_PKEY *key);
    ReleaseWatch(const ReleaseWatch &) = delete;
    ReleaseWatch &operator=(const ReleaseWatch &) = delete;

    bool released() const { return isReleased; }

private:
    bool isReleased = false;
};
