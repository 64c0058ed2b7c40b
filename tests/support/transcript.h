// Whole expected outputs, kept as files in tests/transcripts, and how an output differs from what is
// expected.
#pragma once

#include <gtest/gtest.h>

#include <string>

/// The program's version as it shows it, "v2.0.1": the build's. In a transcript it stands as "v@VERSION@".
extern const char *const versionShown;

/// Succeeds when `actual` is, byte for byte, the content of tests/transcripts/`name`. Otherwise shows where
/// they differ. With KEYGEN_UPDATE_TRANSCRIPTS=1 in the environment a file that differs is rewritten instead,
/// and the test fails all the same: look at the change.
testing::AssertionResult MatchesTranscript(const std::string &name, const std::string &actual);

/// The content of tests/transcripts/`name`: a piece that several outputs have in common.
std::string Transcript(const std::string &name);

/// What an unknown option is refused with: its name, and the help text.
std::string InvalidCommand(const std::string &name);

/// Succeeds when the two are the same, byte for byte. Otherwise shows the lines from the first to the last
/// that differ, expected ones marked "-", actual ones "+", with the lines around them.
testing::AssertionResult Same(const std::string &actual, const std::string &expected);

/// `bytes` in readable form: ESC as "␛", other unprintable bytes as "\x1F"; line feeds end lines and are
/// marked "⏎".
std::string Visible(const std::string &bytes);
