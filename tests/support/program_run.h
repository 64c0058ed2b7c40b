// Programs run as a user runs them.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

/// How a program is started. Arguments, input and folder are byte strings, taken as they are.
struct ProgramCall {
    std::vector<std::string> arguments;
    std::string input = {};   ///< all of standard input; then its end
    std::string folder = "."; ///< working folder
    std::optional<std::map<std::string, std::string>> environment =
        std::nullopt;                        ///< in place of this process's
    std::optional<int> umask = std::nullopt; ///< in place of this process's
    int secondsToLive = 300;                 ///< then it is killed
};

struct ProgramResult {
    int status = -1;    ///< exit status; -1 when a signal ended it
    int signal = 0;     ///< the signal that ended it, or 0
    std::string output; ///< standard output
    std::string errors; ///< standard error
};

/// Runs `program`, found through PATH when it holds no slash, to its end.
ProgramResult Run(const std::string &program, const ProgramCall &call);

/// Runs the built key generator to its end.
ProgramResult RunKeygen(const ProgramCall &call);

/// Turns this process, a child made for it, into `program`. Its standard streams stay as they are.
[[noreturn]] void Become(const std::string &program, const ProgramCall &call);

/// The built key generator's path.
std::string KeygenProgram();
