// The key generator as a user meets it: a command typed in a folder, what then stands on the terminal, and
// what stands in the folder.
#pragma once

#include "tests/support/program_run.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

/// Runs the key generator in `folder` with `input` typed ahead, under the umask that most systems have, 022.
ProgramResult RunIn(const TemporaryFolder &folder, const std::vector<std::string> &arguments,
                    const std::string &input = {});

/// The same through a shell: `script` starts the key generator with its arguments as "$@".
ProgramResult RunInShell(const TemporaryFolder &folder, const std::string &script,
                         const std::vector<std::string> &arguments);

/// Puts a file with the mode 0644 into `folder`, whatever the umask of the tests.
void PutFile(const TemporaryFolder &folder, const std::string &name, const std::string &content);

/// Succeeds when the run ended with `status`, after printing `output` and nothing on standard error.
testing::AssertionResult Ended(const ProgramResult &run, int status, const std::string &output);

/// The same, with the output that stands in tests/transcripts/`transcript`.
testing::AssertionResult EndedAsIn(const ProgramResult &run, int status, const std::string &transcript);

/// What is in `folder` and below, one line each, in the order of the names: "0444 178 keys/publicKey.pem" for
/// a file, with its mode and size; "keys/" for a folder; "link -> target" for a link.
std::string FilesIn(const std::filesystem::path &folder);
std::string FilesIn(const TemporaryFolder &folder);
