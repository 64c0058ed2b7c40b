#include "tests/support/transcript.h"

#include "tests/support/temporary_folder.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <vector>

namespace {

std::vector<std::string> linesOf(const std::string &visible)
{
    std::vector<std::string> lines;
    std::istringstream stream(visible);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

/// The lines from the first to the last that differ, expected ones marked "-", actual ones "+".
std::string difference(const std::string &expected, const std::string &actual)
{
    const std::vector<std::string> before = linesOf(Visible(expected));
    const std::vector<std::string> after = linesOf(Visible(actual));
    const std::size_t shorter = std::min(before.size(), after.size());
    std::size_t same = 0;
    while (same < shorter && before[same] == after[same])
        ++same;
    std::size_t sameAtEnd = 0;
    while (sameAtEnd < shorter - same &&
           before[before.size() - 1 - sameAtEnd] == after[after.size() - 1 - sameAtEnd])
        ++sameAtEnd;

    std::ostringstream text;
    text << "from line " << same + 1 << " on:\n";
    for (std::size_t i = same; i < before.size() - sameAtEnd; ++i)
        text << "- " << before[i] << "\n";
    for (std::size_t i = same; i < after.size() - sameAtEnd; ++i)
        text << "+ " << after[i] << "\n";
    return text.str();
}

} // namespace

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

std::string Transcript(const std::string &name)
{
    return ReadFile(std::string(TRANSCRIPT_FOLDER "/") + name);
}

testing::AssertionResult MatchesTranscript(const std::string &name, const std::string &actual)
{
    const std::string path = std::string(TRANSCRIPT_FOLDER "/") + name;
    std::ifstream file(path, std::ios::binary);
    std::ostringstream expected;
    expected << file.rdbuf();
    if (file.is_open() && expected.str() == actual)
        return testing::AssertionSuccess();

    const char *const update = std::getenv("KEYGEN_UPDATE_TRANSCRIPTS");
    if (update != nullptr && std::string(update) == "1") {
        std::ofstream(path, std::ios::binary) << actual;
        return testing::AssertionFailure() << name << " rewritten";
    }
    return testing::AssertionFailure()
           << "output differs from tests/transcripts/" << name << " " << difference(expected.str(), actual);
}
