// Included in front of every file of the front end that is compiled for the fuzz targets: a run ends by an
// exception where the program would end its process, so that what it holds is released and the next run can
// start.
#pragma once

#include <cstdlib>
#include <exception>

/// Where a run ended, with the status that the process would have had.
struct EndOfRun {
    int status;
};

// Not a function of our own wrapped around exit() by the linker: exit() is declared never to throw, and
// compilers leave out what an exception would need on its way.
#define exit(status) rethrow_exception(std::make_exception_ptr(EndOfRun{status}))
