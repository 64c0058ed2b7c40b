// The process's mask for the modes of new files.
#pragma once

#include <sys/stat.h>

/// Puts a mask in force for its own lifetime.
class UmaskInForce {
public:
    explicit UmaskInForce(int mask) : before(umask(static_cast<mode_t>(mask))) {}
    ~UmaskInForce() { umask(before); }
    UmaskInForce(const UmaskInForce &) = delete;
    UmaskInForce &operator=(const UmaskInForce &) = delete;

private:
    mode_t before;
};
