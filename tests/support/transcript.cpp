#include "tests/support/transcript.h"

#include "tests/support/captured_output.h"
#include "tests/support/temporary_folder.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <sstream>

namespace {

/// The number of lines shown before and after those that differ.
constexpr std::ptrdiff_t linesAround = 2;
/// The number of bytes shown of a longer line.
constexpr std::size_t bytesShown = 400;

std::string difference(const std::string &actual, const std::string &expected)
{
    const std::vector<std::string> before = LinesOf(Visible(expected));
    const std::vector<std::string> after = LinesOf(Visible(actual));
    const auto [firstBefore, firstAfter] =
        std::mismatch(before.begin(), before.end(), after.begin(), after.end());
    // Searches from the end, at most up to the first difference.
    const auto lastBefore = std::make_reverse_iterator(firstBefore);
    const auto lastAfter = std::make_reverse_iterator(firstAfter);
    const auto [endBefore, endAfter] = std::mismatch(before.rbegin(), lastBefore, after.rbegin(), lastAfter);

    std::ostringstream text;
    const auto show = [&](const char *mark, auto begin, auto end) {
        for (; begin != end; ++begin) {
            text << mark << begin->substr(0, bytesShown);
            if (begin->size() > bytesShown)
                text << "... (" << begin->size() << " bytes)";
            text << "\n";
        }
    };
    const auto sameBefore = firstBefore - before.begin();
    const auto sameAfter = before.end() - endBefore.base();
    text << "from line " << sameBefore + 1 << " on:\n";
    show("  ", firstBefore - std::min(sameBefore, linesAround), firstBefore);
    show("- ", firstBefore, endBefore.base());
    show("+ ", firstAfter, endAfter.base());
    show("  ", endBefore.base(), endBefore.base() + std::min(sameAfter, linesAround));
    return text.str();
}

std::string replaced(std::string text, const std::string &from, const std::string &to)
{
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

constexpr const char *versionKept = "v@VERSION@";

std::string pathOf(const std::string &name)
{
    return std::string(TRANSCRIPT_FOLDER "/") + name;
}

} // namespace

const char *const versionShown = "v" KEYGEN_VERSION;

std::string Visible(const std::string &bytes)
{
    std::ostringstream text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '\n')
            text << "⏎\n";
        else if (byte == 0x1B)
            text << "␛";
        else if (byte < 0x20 || byte == 0x7F)
            text << "\\x" << std::hex << std::uppercase << std::setw(2) << std::setfill('0') << int{byte};
        else
            text << c;
    }
    return text.str();
}

testing::AssertionResult Same(const std::string &actual, const std::string &expected)
{
    if (actual == expected)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "differs " << difference(actual, expected);
}

std::string Transcript(const std::string &name)
{
    return replaced(ReadFile(pathOf(name)), versionKept, versionShown);
}

std::string InvalidCommand(const std::string &name)
{
    return Error("Error: Invalid command ") + Info("'" + name + "'\n\n") + Transcript("help.txt");
}

testing::AssertionResult MatchesTranscript(const std::string &name, const std::string &actual)
{
    const testing::AssertionResult same = Same(actual, Transcript(name));
    const char *const update = std::getenv("KEYGEN_UPDATE_TRANSCRIPTS");
    if (same || update == nullptr || std::string(update) != "1")
        return same ? same
                    : testing::AssertionFailure() << "tests/transcripts/" << name << " " << same.message();
    std::ofstream(pathOf(name), std::ios::binary) << replaced(actual, versionShown, versionKept);
    return testing::AssertionFailure() << "tests/transcripts/" << name
                                       << " was rewritten. A test fails when it writes; run it again without "
                                          "KEYGEN_UPDATE_TRANSCRIPTS.";
}

std::vector<std::string> LinesOf(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::string Repeated(const std::string &text, int times)
{
    std::string result;
    for (int i = 0; i < times; ++i)
        result += text;
    return result;
}
