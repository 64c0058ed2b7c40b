// Whole expected outputs, kept as files in tests/transcripts.
#pragma once

#include <gtest/gtest.h>

#include <string>

/// Succeeds when `actual` is, byte for byte, the content of tests/transcripts/`name`. Otherwise shows the
/// lines that differ, escape sequences and other unprintable bytes made visible. With
/// KEYGEN_UPDATE_TRANSCRIPTS=1 in the environment a file that differs is rewritten instead, and the test
/// fails all the same: look at the change.
testing::AssertionResult MatchesTranscript(const std::string &name, const std::string &actual);

/// The content of tests/transcripts/`name`: a piece that several outputs have in common.
std::string Transcript(const std::string &name);

/// `bytes` in readable form: ESC as "␛", other unprintable bytes as "\x1F"; line feeds end lines and are
/// marked "⏎".
std::string Visible(const std::string &bytes);
