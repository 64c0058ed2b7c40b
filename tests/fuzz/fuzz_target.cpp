#include "tests/fuzz/fuzz_target.h"

#include "keygen/standard_input.h"
#include "tests/fuzz/end_of_run.h"
#include "tests/support/settings.h"

#include <QtGlobal>

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <stdexcept>
#include <string_view>

namespace fs = std::filesystem;

namespace {

/// Thrown when a run waits for more input than there is.
struct InputEnded {};

// A few questions may be repeated before a run is ended, because an empty answer is one of the answers to
// test.
constexpr int allowedPauses = 3;
int pausesLeft = 0;

void pauseOrEndRun()
{
    if (pausesLeft-- == 0)
        throw InputEnded();
}

void ignoreLibraryMessage(QtMsgType, const QMessageLogContext &, const QString &) {}

/// Replaces standard input with a pipe that contains `text` and then ends.
void setStandardInput(const std::string &text)
{
    std::array<int, 2> ends = {};
    if (pipe2(ends.data(), O_CLOEXEC) != 0 ||
        write(ends[1], text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("cannot create a pipe for standard input");
    close(ends[1]);
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
}

/// Reads to the end of input.
void drain()
{
    try {
        pausesLeft = 0;
        for (;;)
            ReadLine();
    } catch (const InputEnded &) {
    }
}

/// Discards unread lines and incomplete characters, so that the next run does not see them.
void discardInput()
{
    drain();
    setStandardInput("\n");
    drain();
}

/// Called once. Discards the output of runs and the warnings of the application library, which are not of
/// interest here. Also makes the first input be read like all others, without the check for a byte order mark
/// at the start of the stream.
bool prepare()
{
    qInstallMessageHandler(ignoreLibraryMessage);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
    discardInput();
    return true;
}

struct WorkFolder {
    WorkFolder()
    {
        std::string name = (fs::temp_directory_path() / "keygen fuzz XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("cannot create the temporary directory " + name);
        path = name;
        fs::current_path(path);
        setenv("HOME", name.c_str(), 1);
    }
    ~WorkFolder()
    {
        std::error_code ignored;
        fs::current_path("/", ignored);
        fs::remove_all(path, ignored);
    }
    WorkFolder(const WorkFolder &) = delete;
    WorkFolder &operator=(const WorkFolder &) = delete;

    fs::path path;
};

} // namespace

// Replaces the C library's function for calls from the targets themselves.
extern "C" int __wrap_nanosleep(const timespec *, timespec *)
{
    pauseOrEndRun();
    return 0;
}

extern "C" int __wrap_clock_nanosleep(clockid_t, int, const timespec *, timespec *)
{
    pauseOrEndRun();
    return 0;
}

RunEnd RunOn(const std::string &input, const std::function<void()> &run)
{
    [[maybe_unused]] static const bool prepared = prepare();
    ResetSettings();
    setStandardInput(input);
    pausesLeft = allowedPauses;
    RunEnd end = RunEnd::Completed;
    try {
        run();
    } catch (const EndOfRun &ended) {
        end = ended.status == 0 ? RunEnd::Answered : RunEnd::Refused;
    } catch (const InputEnded &) {
        end = RunEnd::OutOfInput;
    }
    discardInput();
    return end;
}

void WorkInEmptyFolder()
{
    static const WorkFolder folder;
    for (const fs::directory_entry &entry : fs::directory_iterator(folder.path))
        fs::remove_all(entry.path());
}

void Require(bool holds, const char *property)
{
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", property);
    std::abort();
}

bool StaysInside(const std::string &path)
{
    // A byte order mark at the start is removed from standard input, and a separator after it then comes
    // first.
    const std::string_view mark = "\xEF\xBB\xBF";
    const std::string_view text = std::string_view(path).substr(path.starts_with(mark) ? mark.size() : 0);
    return !text.starts_with('/') && text.find("..") == std::string_view::npos;
}
