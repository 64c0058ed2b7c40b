// Whether this build counts what is reached. Each process writes the counts to files when it ends.
#pragma once

constexpr bool countsCoverage = KEYGEN_COUNTS_COVERAGE;
