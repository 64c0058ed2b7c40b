// The mask of the process for the modes of new files.
#pragma once

#include <sys/stat.h>

/// Sets a mask during its lifetime.
class UmaskInForce {
public:
    explicit UmaskInForce(int mask) : before(umask(static_cast<mode_t>(mask))) {}
    ~UmaskInForce() { umask(before); }
    UmaskInForce(const UmaskInForce &) = delete;
    UmaskInForce &operator=(const UmaskInForce &) = delete;

private:
    mode_t before;
};
