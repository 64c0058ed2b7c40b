// Creating the directory of a file. The first line of an input is the path of the file, the rest are the
// answers. The working directory contains the directory "folder" and the file "file".
#include "keygen/output_folders.h"
#include "src/text_of.h"
#include "tests/fuzz/fuzz_target.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

void createWorkFiles()
{
    WorkInEmptyFolder();
    fs::create_directory("folder");
    std::ofstream("file") << "content";
}

bool nothingWasCreated()
{
    return std::distance(fs::recursive_directory_iterator("."), fs::recursive_directory_iterator()) == 2;
}

bool isAscii(const std::string &text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// The first of the four valid answers among the words of `text`; 0 if there is none.
char firstAnswer(const std::string &text)
{
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (word == "y" || word == "Y" || word == "n" || word == "N")
            return static_cast<char>(std::tolower(word[0]));
    }
    return 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string input(reinterpret_cast<const char *>(data), size);
    const std::size_t lineEnd = std::min(input.find('\n'), input.size());
    const std::string path = input.substr(0, lineEnd);
    const std::string answers = input.substr(std::min(lineEnd + 1, input.size()));
    if (size > longestInput || !StaysInside(path))
        return 0;

    createWorkFiles();
    bool exists = false;
    const auto create = [&] { exists = CreateDirectoryPath(TextOf(path)); };
    const RunEnd end = RunOn(answers, create);
    Require(end == RunEnd::Completed || end == RunEnd::OutOfInput, "the process is never ended");
    if (isAscii(answers)) {
        const char answer = firstAnswer(answers);
        Require(answer == 'y' || nothingWasCreated(), "nothing is created without a yes");
        Require(end == RunEnd::Completed || answer == 0, "the question ends with a valid answer");
        Require(end == RunEnd::OutOfInput || exists || answer != 0, "only the user can decline");
    }
    if (end == RunEnd::Completed && exists) {
        exists = false;
        Require(RunOn("", create) == RunEnd::Completed && exists,
                "a directory whose creation succeeded exists");
    }
    return 0;
}
