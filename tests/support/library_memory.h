// The memory that the cryptographic library takes, and the engine through it.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

/// How many blocks, and open files, `scenario` leaves behind. It is run twice: what the library keeps for
/// good from its first use is not counted.
long LeftBehindBy(const std::function<void()> &scenario);

/// For its own lifetime looks for a secret in every block of the library's at its release.
class ReleasedMemory {
public:
    ReleasedMemory();
    ~ReleasedMemory();
    ReleasedMemory(const ReleasedMemory &) = delete;
    ReleasedMemory &operator=(const ReleasedMemory &) = delete;

    /// Looks from now on for the bytes of `secret`, in this order and in the reverse one, in which the
    /// library keeps numbers.
    void lookFor(const std::string &secret);

    /// Runs `step` without looking.
    void lookAway(const std::function<void()> &step);

    /// Whether a block was released with the secret in it.
    bool heldTheSecret() const;

    /// Whether any block was released since lookFor.
    bool sawReleases() const;
};
