// What the fuzz targets share: a working directory, standard input from a text, and runs that always end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

/// Called for each input, by the fuzzer or by the replay.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

/// How a run ended.
enum class RunEnd {
    Completed,  ///< it returned
    Answered,   ///< it would have ended the process with status 0
    Refused,    ///< it would have ended the process with another status
    OutOfInput, ///< it kept asking after the end of its input
};

/// Runs `run` with the initial run settings and with `input`, which must fit into a pipe, as standard input.
/// Keeps the run settings that the run leaves, and discards remaining input and all output.
RunEnd RunOn(const std::string &input, const std::function<void()> &run);

/// The maximum size of the standard input of a run.
constexpr std::size_t longestInput = 32768;

/// Makes a temporary directory the working directory and the home directory of this process, and removes it
/// when the process ends. Later calls only empty it.
void WorkInEmptyFolder();

/// Ends the process by a signal unless `holds` is true.
void Require(bool holds, const char *property);

/// Whether nothing but a directory inside the working directory can be created at `path`.
bool StaysInside(const std::string &path);
