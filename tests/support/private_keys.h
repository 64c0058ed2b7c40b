// Private keys made by other tools, and signatures verified by other tools.
#pragma once

#include "src/openssl_owners.h"

#include <string>
#include <utility>
#include <vector>

/// The password of every encrypted file in tests/data/private_keys.
extern const std::string storedPassword;

/// The keys in tests/data/private_keys that exist in every form.
extern const std::vector<std::string> storedNames;

/// Every form that a private key file may have, and whether it is encrypted.
extern const std::vector<std::pair<std::string, bool>> storedForms;

/// The path of a file in tests/data/private_keys.
std::string StoredKeyPath(const std::string &name);

/// The key in an unencrypted file in tests/data/private_keys, read by the cryptographic library.
KeyOwner StoredKey(const std::string &name);

/// The public half of `key`, in a separate key object, as a public key file contains it.
KeyOwner PublicHalf(EVP_PKEY *key);

/// Encodes the numbers r and s, which have the same length, in the usual form of ECDSA signatures.
std::string EncodedSignature(const std::string &numbers);

/// Whether the openssl tool accepts an encoded ECDSA signature of `digest`, or a PKCS#1 v1.5 signature of
/// `data` with SHA-256.
bool OpensslAcceptsEcdsa(EVP_PKEY *key, const std::string &digest, const std::string &signature);
bool OpensslAcceptsRsa(EVP_PKEY *key, const std::string &data, const std::string &signature);

/// What the openssl tool prints. If the tool fails, so does the test.
std::string OutputOfOpenssl(const std::vector<std::string> &arguments);
