// Calls that end or permanently change the process, made in a child process.
#pragma once

#include <functional>
#include <string>

struct ChildCall {
    std::string input = {};          ///< standard input, through a pipe; at most 4096 bytes
    std::string inputFile = {};      ///< a file to use as standard input instead
    int timeoutMilliseconds = 10000; ///< then it is killed
};

struct ChildRun {
    bool returned = false; ///< the function returned instead of ending the process
    int status = -1;       ///< exit status; -1 when a signal ended the child
    int signal = 0;        ///< the signal that ended it, or 0
    std::string output;    ///< standard output, complete
    std::string errors;    ///< standard error
};

/// Calls `function` in a child of this process, with its own standard streams, and waits for its end.
/// Assertions in the child are lost: let it print what has to be checked.
ChildRun RunInChild(const std::function<void()> &function, const ChildCall &call = {});
