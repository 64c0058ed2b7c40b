// Properties of written key files.
#pragma once

#include "src/openssl_owners.h"

#include <string>

/// The key in the private key file at `path`; null if `password`, byte for byte, does not open it.
KeyOwner OpenedKey(const std::string &path, const std::string &password);

/// Whether `password`, byte for byte, opens the private key file at `path`.
bool OpensPrivateKey(const std::string &path, const std::string &password);

/// The public point, X then Y, of the private key file at `path`; empty if `password` does not open it.
std::string PointOfPrivateKey(const std::string &path, const std::string &password);

/// The public point of the public key file at `path`; empty if it does not contain a complete key on a curve
/// of 256 bits.
std::string PointOfPublicKey(const std::string &path);

/// The short name of the cipher that the private key file at `path` is encrypted with.
std::string CipherOf(const std::string &path);

/// The short name of the curve of the public key file at `path`.
std::string CurveOf(const std::string &path);
