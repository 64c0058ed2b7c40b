// The key generator as a user runs it: a command in a directory, what the terminal then shows, and what the
// directory then contains.
#pragma once

#include "tests/support/program_run.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

/// Runs the key generator in `folder` with `input` as its input, under the usual umask, 022.
ProgramResult RunIn(const TemporaryFolder &folder, const std::vector<std::string> &arguments,
                    const std::string &input = {});

/// The same through a shell: `script` starts the key generator and its arguments as "$@".
ProgramResult RunInShell(const TemporaryFolder &folder, const std::string &script,
                         const std::vector<std::string> &arguments);

/// Creates a file with the mode 0644 in `folder`, whatever the umask of the tests.
void PutFile(const TemporaryFolder &folder, const std::string &name, const std::string &content);

/// Succeeds if the run ended with `status`, after printing `output`, and nothing on standard error.
testing::AssertionResult Ended(const ProgramResult &run, int status, const std::string &output);

/// The same, with the output in tests/transcripts/`transcript`.
testing::AssertionResult EndedAsIn(const ProgramResult &run, int status, const std::string &transcript);

/// The content of `folder` and its subdirectories, one line each, sorted by name: "0444 178
/// keys/publicKey.pem" for a file, with its mode and size; "keys/" for a directory; "link -> target" for a
/// link.
std::string FilesIn(const std::filesystem::path &folder);
std::string FilesIn(const TemporaryFolder &folder);
