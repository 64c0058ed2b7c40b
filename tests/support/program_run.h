// Programs, run as a user runs them.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

/// How a program is started. Arguments, input and directory are byte strings, passed unchanged.
struct ProgramCall {
    std::vector<std::string> arguments;
    std::string input = {};   ///< all of standard input
    std::string folder = "."; ///< working directory
    std::optional<std::map<std::string, std::string>> environment =
        std::nullopt;                        ///< in place of this process's
    std::optional<int> umask = std::nullopt; ///< in place of this process's
    int timeoutSeconds = 300;                ///< then it is killed
};

struct ProgramResult {
    int status = -1;    ///< exit status; -1 when a signal ended it
    int signal = 0;     ///< the signal that ended it, or 0
    std::string output; ///< standard output
    std::string errors; ///< standard error
};

/// Runs `program`, which is searched for in PATH if its name contains no slash, until it ends.
ProgramResult Run(const std::string &program, const ProgramCall &call);

/// Runs the built key generator until it ends.
ProgramResult RunKeygen(const ProgramCall &call);

/// Replaces this process, which must be a child process, with `program`. The standard streams are kept.
[[noreturn]] void Exec(const std::string &program, const ProgramCall &call);

/// The path of the built key generator.
std::string KeygenProgram();
