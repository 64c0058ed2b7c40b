// Complete expected outputs, stored in tests/transcripts, and how an output differs from what is expected.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

/// The version that the program shows, "v2.0.1", which is that of the build. Transcripts contain it as
/// "v@VERSION@".
extern const char *const versionShown;

/// Succeeds if `actual` is, byte for byte, the content of tests/transcripts/`name`. Otherwise shows the
/// differences. With KEYGEN_UPDATE_TRANSCRIPTS=1 in the environment, a file that differs is rewritten
/// instead, and the test still fails: check the change.
testing::AssertionResult MatchesTranscript(const std::string &name, const std::string &actual);

/// The content of tests/transcripts/`name`, for text that several outputs have in common.
std::string Transcript(const std::string &name);

/// What is printed for an unknown option: its name, and the help text.
std::string InvalidCommand(const std::string &name);

/// Succeeds if both are the same, byte for byte. Otherwise shows the lines from the first to the last
/// difference, expected ones marked "-", actual ones "+", with some lines before and after.
testing::AssertionResult Same(const std::string &actual, const std::string &expected);

/// `bytes` in readable form: ESC as "␛", other unprintable bytes as "\x1F". Line feeds end lines and are
/// marked "⏎".
std::string Visible(const std::string &bytes);

/// The lines of `text`, without their line feeds.
std::vector<std::string> LinesOf(const std::string &text);

std::string Repeated(const std::string &text, int times);
