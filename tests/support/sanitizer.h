// Whether this build watches its own memory.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
constexpr bool builtWithAddressSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool builtWithAddressSanitizer = true;
#else
constexpr bool builtWithAddressSanitizer = false;
#endif
#else
constexpr bool builtWithAddressSanitizer = false;
#endif
