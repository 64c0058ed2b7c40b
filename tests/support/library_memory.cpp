#include "tests/support/library_memory.h"

#include <gtest/gtest.h>

#include <openssl/crypto.h>
#include <openssl/err.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <unordered_map>

namespace {

/// All live blocks and their sizes. Never destroyed, because the library releases blocks until the process
/// ends.
std::unordered_map<void *, std::size_t> &blocks()
{
    static auto *const all = new std::unordered_map<void *, std::size_t>;
    return *all;
}

/// What ReleasedMemory searches for. The bytes are stored here and nowhere on the heap.
struct Search {
    bool active = false;
    bool lookingAway = false;
    std::size_t size = 0;
    char forwards[512] = {};
    char backwards[512] = {};
    int releases = 0;
    bool found = false;
} search;

bool contains(const void *block, std::size_t size, const char *bytes)
{
    const std::string_view content(static_cast<const char *>(block), size);
    return content.find(std::string_view(bytes, search.size)) != std::string_view::npos;
}

void *allocate(std::size_t size, const char *, int)
{
    if (size == 0)
        return nullptr;
    // While released blocks are searched, all their bytes must be initialised.
    void *const block = search.active ? std::calloc(1, size) : std::malloc(size);
    if (block != nullptr)
        blocks()[block] = size;
    return block;
}

void release(void *block, const char *, int)
{
    const auto entry = blocks().find(block);
    if (entry == blocks().end())
        return;
    if (search.active && !search.lookingAway && search.size > 0) {
        ++search.releases;
        search.found = search.found || contains(block, entry->second, search.forwards) ||
                       contains(block, entry->second, search.backwards);
    }
    blocks().erase(entry);
    std::free(block);
}

/// Never reallocates in place, so that the old block is searched like any other.
void *reallocate(void *block, std::size_t size, const char *file, int line)
{
    void *const grown = allocate(size, file, line);
    const auto entry = blocks().find(block);
    if (grown != nullptr && entry != blocks().end())
        std::memcpy(grown, block, std::min(size, entry->second));
    if (grown != nullptr || size == 0)
        release(block, file, line);
    return grown;
}

/// The library accepts memory functions only before its first use, so this runs before everything else.
[[gnu::constructor(101)]] void takeOver()
{
    if (CRYPTO_set_mem_functions(allocate, reallocate, release) != 1)
        std::abort();
}

std::ptrdiff_t openFiles()
{
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}

/// The number of blocks and open files, without what the library keeps for this thread.
long held()
{
    ERR_clear_error();
    OPENSSL_thread_stop();
    return static_cast<long>(blocks().size()) + static_cast<long>(openFiles());
}

} // namespace

long LeakedBy(const std::function<void()> &scenario)
{
    scenario();
    const long before = held();
    scenario();
    return held() - before;
}

ReleasedMemory::ReleasedMemory()
{
    search = Search();
    search.active = true;
}

ReleasedMemory::~ReleasedMemory()
{
    search = Search();
}

void ReleasedMemory::searchFor(const std::string &secret)
{
    search.size = std::min(secret.size(), sizeof search.forwards);
    std::copy_n(secret.begin(), search.size, search.forwards);
    std::reverse_copy(search.forwards, search.forwards + search.size, search.backwards);
}

void ReleasedMemory::withoutSearching(const std::function<void()> &step)
{
    search.lookingAway = true;
    step();
    search.lookingAway = false;
}

bool ReleasedMemory::containedTheSecret() const
{
    return search.found;
}

bool ReleasedMemory::sawReleases() const
{
    return search.releases > 0;
}
