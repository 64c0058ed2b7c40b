// What the files of the engine share, and callers do not need.
#pragma once

#include "keygen/console.h"
#include "src/text_of.h"

#include <cstddef>

/// Bytes of a SHA-256 digest.
constexpr size_t digestSize = 32;
/// Bytes of the buffers that digests are calculated in.
constexpr size_t digestBufferSize = 512;

/// False if the cryptographic library could not set up its default context, for example because an allocation
/// failed. Newer versions use it all the same, and crash.
bool LibraryIsReady();

inline const char *CharsOf(const unsigned char *bytes)
{
    return reinterpret_cast<const char *>(bytes);
}

/// Prints the error; returns the status of a failure.
inline int FailWith(const char *error)
{
    MessageOut(error, MSG_ERROR);
    return -1;
}

/// Prints an error that ends with a path, as three messages.
inline void PrintPathError(const char *error, const unsigned char *path)
{
    MessageOut(error, MSG_ERROR);
    MessageOut(TextOf(CharsOf(path)), MSG_ERROR);
    MessageOut("\n", MSG_ERROR);
}
