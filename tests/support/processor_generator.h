// The processor's random generator. The application library prefers it to the kernel's, but a test can make
// only the kernel's fail.
#pragma once

#include <dlfcn.h>

#include <cstdint>

/// Makes the application library use, or not use, the processor's generator, if there is one.
inline void UseProcessorGenerator(bool used)
{
    // The library's record of the processor's features. This bit is the generator on x86, and unused on other
    // processors.
    constexpr std::uint32_t generator = std::uint32_t{1} << 11;
    static auto *const features = static_cast<std::uint32_t *>(dlsym(RTLD_DEFAULT, "qt_cpu_features"));
    static const bool isThere = features != nullptr && (*features & generator) != 0;
    if (isThere)
        *features = used ? *features | generator : *features & ~generator;
}
