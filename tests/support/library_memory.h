// The memory that the cryptographic library allocates, and the engine through it.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

/// How many blocks and open files `scenario` leaks. The scenario runs twice, so that what the library keeps
/// permanently after its first use is not counted.
long LeakedBy(const std::function<void()> &scenario);

/// During its lifetime, searches every block of the library for a secret when the block is released.
class ReleasedMemory {
public:
    ReleasedMemory();
    ~ReleasedMemory();
    ReleasedMemory(const ReleasedMemory &) = delete;
    ReleasedMemory &operator=(const ReleasedMemory &) = delete;

    /// Searches from now on for the bytes of `secret`, in this order and in reverse, the order in which the
    /// library stores numbers.
    void searchFor(const std::string &secret);

    /// Runs `step` without searching.
    void withoutSearching(const std::function<void()> &step);

    /// Whether a block was released that contained the secret.
    bool containedTheSecret() const;

    /// Whether any block was released since searchFor.
    bool sawReleases() const;
};
