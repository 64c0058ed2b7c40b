// The table that binds the public keys of a packet together: eight hashes, and one hash over them.
#pragma once

#include <QString>

#include <cstddef>
#include <string>

/// Bytes of a public key's binary form: X then Y.
constexpr std::size_t publicPointSize = 64;
/// Bytes of a hash record: algorithm identifier, three zero bytes, public point.
constexpr std::size_t hashRecordSize = 4 + publicPointSize;

/// The raw 32-byte SHA-256 of the first `length` bytes of `data`.
std::string sha256(const unsigned char *data, int length);

/// Fills all eight entries of newPubKeysHashTable from those of pubKeysTable, each of which must point to at
/// least 64 bytes. The buffers stay allocated until the process ends.
void createHashTable();

/// Fills tableHashValue from the first numberKeys entries of newPubKeysHashTable. The buffer stays allocated
/// until the process ends.
void calculateTableHashValue();

/// The path of the table hash file: hashPath with each "publicKeyhash" replaced by "publicKeysHashHashes". A
/// path without that text is used as it is: no file of a pair has that name, because those have numbers.
QString TableHashPath();
