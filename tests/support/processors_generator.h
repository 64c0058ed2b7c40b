// The processor's generator of random values. The application library prefers it to the kernel's, which is
// the one that a test can make fail.
#pragma once

#include <dlfcn.h>

#include <cstdint>

/// Lets the application library see, or no longer see, the generator of a processor that has one.
inline void ShowProcessorsGenerator(bool shown)
{
    // The library's record of what the processor can do; this bit is the generator's on x86, and unused
    // elsewhere.
    constexpr std::uint32_t generator = std::uint32_t{1} << 11;
    static auto *const features = static_cast<std::uint32_t *>(dlsym(RTLD_DEFAULT, "qt_cpu_features"));
    static const bool isThere = features != nullptr && (*features & generator) != 0;
    if (isThere)
        *features = shown ? *features | generator : *features & ~generator;
}
