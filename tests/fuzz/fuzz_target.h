// What the fuzz targets share: a folder of their own, standard input from a text, and runs that come to an
// end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

/// Called once for each input, by the fuzzer or by the replay.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

/// How a run ended.
enum class RunEnd {
    Completed,  ///< it returned
    Answered,   ///< it would have ended the process with status 0
    Refused,    ///< it would have ended the process with another status
    OutOfInput, ///< it went on asking after its input had ended
};

/// Runs `run` with fresh run settings and `input` as standard input, all of which must fit into a pipe. The
/// run settings are left as the run left them, nothing is left of the input, and what is printed is dropped.
RunEnd RunOn(const std::string &input, const std::function<void()> &run);

/// The most bytes of standard input that a run can be given.
constexpr std::size_t longestInput = 32768;

/// Makes a temporary folder the working folder and the home folder of this process, and removes it when the
/// process ends. Later calls only empty it.
void WorkInEmptyFolder();

/// Ends the process, by a signal, unless `holds`.
void Require(bool holds, const char *property);

/// Whether a folder inside the working folder is all that can be created at `path`.
bool StaysInside(const std::string &path);
