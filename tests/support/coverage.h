// Whether this build counts what is reached. Each process writes the counts to files when it ends.
#pragma once

#ifdef KEYGEN_COUNTS_COVERAGE
constexpr bool countsCoverage = true;
#else
constexpr bool countsCoverage = false;
#endif
