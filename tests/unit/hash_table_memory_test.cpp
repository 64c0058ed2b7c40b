// Hashes when allocations fail. This program allocates with the operators below.
#include "keygen/hash_table.h"

#include "tests/support/sanitizer.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <new>
#include <optional>
#include <string>

namespace {

/// The number of allocations that succeed before one fails. Without a value none fails.
std::optional<int> allocationsLeft;

} // namespace

// A sanitizer provides its own operators.
#ifndef KEYGEN_UNDER_SANITIZERS
void *operator new(std::size_t size)
{
    const bool fails = allocationsLeft && (*allocationsLeft)-- == 0;
    void *const memory = fails ? nullptr : std::malloc(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

void operator delete(void *memory) noexcept
{
    std::free(memory);
}

void operator delete(void *memory, std::size_t) noexcept
{
    std::free(memory);
}
#endif

namespace {

constexpr std::array<unsigned char, 3> data = {'a', 'b', 'c'};

TEST(Sha256, TheHashIsCompleteOrMissingIfAnAllocationFails)
{
    if (underSanitizers)
        GTEST_SKIP() << "the sanitizer allocates";
    const std::string whole = sha256(data.data(), data.size());
    for (int allocations = 0;; ++allocations) {
        std::string digest;
        bool returned = true;
        allocationsLeft = allocations;
        try {
            digest = sha256(data.data(), data.size());
        } catch (const std::bad_alloc &) {
            returned = false;
        }
        const bool oneFailed = *allocationsLeft < 0;
        allocationsLeft.reset();
        EXPECT_NE(returned, oneFailed) << allocations;
        if (returned) {
            EXPECT_EQ(digest, whole);
            EXPECT_GT(allocations, 0);
            break;
        }
    }
}

} // namespace
