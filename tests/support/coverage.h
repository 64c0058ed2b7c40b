// Whether this build measures coverage. Each process writes its coverage data to files when it ends.
#pragma once

#ifdef KEYGEN_COUNTS_COVERAGE
constexpr bool countsCoverage = true;
#else
constexpr bool countsCoverage = false;
#endif
