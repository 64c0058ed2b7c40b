#include "tests/support/user_run.h"

#include "tests/support/transcript.h"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace fs = std::filesystem;

namespace {

constexpr int usualUmask = 022;
/// Seconds after which a run that waits for an answer is ended.
constexpr int timeLimit = 300;

testing::AssertionResult endedWithStatus(const ProgramResult &run, int status)
{
    if (run.signal != 0)
        return testing::AssertionFailure() << "ended by signal " << run.signal;
    if (run.status != status)
        return testing::AssertionFailure() << "status " << run.status << ", not " << status;
    if (!run.errors.empty())
        return testing::AssertionFailure() << "standard error:\n" << Visible(run.errors);
    return testing::AssertionSuccess();
}

std::string described(const fs::path &path, const std::string &name)
{
    if (fs::is_symlink(path))
        return name + " -> " + fs::read_symlink(path).string();
    if (fs::is_directory(path))
        return name + "/";
    std::ostringstream line;
    line << std::oct << std::setw(4) << std::setfill('0') << ModeOf(path.string()) << std::dec << " "
         << fs::file_size(path) << " " << name;
    return line.str();
}

} // namespace

ProgramResult RunIn(const TemporaryFolder &folder, const std::vector<std::string> &arguments,
                    const std::string &input)
{
    return RunKeygen({.arguments = arguments,
                      .input = input,
                      .folder = folder.path().string(),
                      .umask = usualUmask,
                      .timeoutSeconds = timeLimit});
}

ProgramResult RunInShell(const TemporaryFolder &folder, const std::string &script,
                         const std::vector<std::string> &arguments)
{
    std::vector<std::string> words = {"-c", script, "sh", KeygenProgram()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return Run("sh", {.arguments = words,
                      .folder = folder.path().string(),
                      .umask = usualUmask,
                      .timeoutSeconds = timeLimit});
}

void PutFile(const TemporaryFolder &folder, const std::string &name, const std::string &content)
{
    WriteFile(folder / name, content);
    fs::permissions(folder / name, fs::perms(0644));
}

testing::AssertionResult Ended(const ProgramResult &run, int status, const std::string &output)
{
    const testing::AssertionResult printed = Same(run.output, output);
    return printed ? endedWithStatus(run, status) : printed;
}

testing::AssertionResult EndedAsIn(const ProgramResult &run, int status, const std::string &transcript)
{
    const testing::AssertionResult printed = MatchesTranscript(transcript, run.output);
    return printed ? endedWithStatus(run, status) : printed;
}

std::string FilesIn(const fs::path &folder)
{
    std::vector<std::string> names;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(folder))
        names.push_back(entry.path().lexically_relative(folder).string());
    std::sort(names.begin(), names.end());

    std::string list;
    for (const std::string &name : names)
        list += described(folder / name, name) + "\n";
    return list;
}

std::string FilesIn(const TemporaryFolder &folder)
{
    return FilesIn(folder.path());
}
