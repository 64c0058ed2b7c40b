// The signals that a thread holds back.
#pragma once

#include <csignal>
#include <set>

/// The numbers of the signals that the calling thread blocks.
std::set<int> BlockedSignals();

/// Blocks these signals, and no others, for its own lifetime.
class OnlyBlocked {
public:
    explicit OnlyBlocked(const std::set<int> &signals);
    ~OnlyBlocked();
    OnlyBlocked(const OnlyBlocked &) = delete;
    OnlyBlocked &operator=(const OnlyBlocked &) = delete;

private:
    sigset_t before;
};
