// Calls that end the process, or change it for good, made in a child process.
#pragma once

#include <functional>
#include <string>

struct ChildCall {
    std::string input = {};     ///< what its standard input, a pipe, holds before the end; at most 4096 bytes
    std::string inputFile = {}; ///< a file to be its standard input instead
    int millisecondsToLive = 10000; ///< then it is killed
};

struct ChildRun {
    bool returned = false; ///< the function returned, and did not end the process
    int status = -1;       ///< exit status; -1 when a signal ended the child
    int signal = 0;        ///< the signal that ended it, or 0
    std::string output;    ///< standard output, complete
    std::string errors;    ///< standard error
};

/// Calls `function` in a child of this process, with standard streams of its own, and waits for its end.
/// Assertions of the child are lost: let it print what is to be checked.
ChildRun RunInChild(const std::function<void()> &function, const ChildCall &call = {});
