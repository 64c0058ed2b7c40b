// The signals that a thread blocks.
#pragma once

#include <csignal>
#include <set>

/// The numbers of the signals that the calling thread blocks.
std::set<int> BlockedSignals();

/// Blocks these signals, and no others, during its lifetime.
class OnlyBlocked {
public:
    explicit OnlyBlocked(const std::set<int> &signals);
    ~OnlyBlocked();
    OnlyBlocked(const OnlyBlocked &) = delete;
    OnlyBlocked &operator=(const OnlyBlocked &) = delete;

private:
    sigset_t before;
};
