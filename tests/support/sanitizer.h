// Whether this build checks its own memory.
#pragma once

#ifdef KEYGEN_UNDER_SANITIZERS
constexpr bool underSanitizers = true;
#else
constexpr bool underSanitizers = false;
#endif
