// Included at the start of every file of the front end that is compiled for the fuzz targets. A run ends by
// an exception where the program would end its process, so that its objects are released and the next run can
// start.
#pragma once

#include <cstdlib>
#include <exception>

/// Thrown where a run ends, with the status that the process would have had.
struct EndOfRun {
    int status;
};

// Not a wrapper around exit() made by the linker: exit() is declared never to throw, so compilers omit the
// code that an exception would need for unwinding.
#define exit(status) rethrow_exception(std::make_exception_ptr(EndOfRun{status}))
