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

/// Thrown where a run waits for more input than there is.
struct InputEnded {};

// A few questions are asked again before a run is cut short: an empty answer is one of the answers to try.
constexpr int patience = 3;
int pausesLeft = 0;

void pauseOrGiveUp()
{
    if (pausesLeft-- == 0)
        throw InputEnded();
}

void ignoreLibraryMessage(QtMsgType, const QMessageLogContext &, const QString &) {}

/// A pipe that holds `text`, and then ends, in place of standard input.
void feed(const std::string &text)
{
    std::array<int, 2> ends = {};
    if (pipe2(ends.data(), O_CLOEXEC) != 0 ||
        write(ends[1], text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("no pipe for standard input");
    close(ends[1]);
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
}

/// Reads on to the end of input.
void drain()
{
    try {
        pausesLeft = 0;
        for (;;)
            ReadLine();
    } catch (const InputEnded &) {
    }
}

/// Leaves no line of this input, nor the start of a character, for the next run.
void forgetInput()
{
    drain();
    feed("\n");
    drain();
}

/// Done once. Nothing that a run prints, and none of the application library's warnings, is of interest here;
/// and the first input is read as all others are, without a look for what may stand at the start of a stream
/// only.
bool prepare()
{
    qInstallMessageHandler(ignoreLibraryMessage);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
    forgetInput();
    return true;
}

struct WorkFolder {
    WorkFolder()
    {
        std::string name = (fs::temp_directory_path() / "keygen fuzz XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("no temporary folder at " + name);
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

// In place of the C library's, for calls from the targets themselves.
extern "C" int __wrap_nanosleep(const timespec *, timespec *)
{
    pauseOrGiveUp();
    return 0;
}

extern "C" int __wrap_clock_nanosleep(clockid_t, int, const timespec *, timespec *)
{
    pauseOrGiveUp();
    return 0;
}

RunEnd RunOn(const std::string &input, const std::function<void()> &run)
{
    [[maybe_unused]] static const bool prepared = prepare();
    ResetSettings();
    feed(input);
    pausesLeft = patience;
    RunEnd end = RunEnd::Completed;
    try {
        run();
    } catch (const EndOfRun &ended) {
        end = ended.status == 0 ? RunEnd::Answered : RunEnd::Refused;
    } catch (const InputEnded &) {
        end = RunEnd::OutOfInput;
    }
    forgetInput();
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
    // The mark that may open a text is dropped from standard input, and a separator behind it comes first.
    const std::string_view mark = "\xEF\xBB\xBF";
    const std::string_view text = std::string_view(path).substr(path.starts_with(mark) ? mark.size() : 0);
    return !text.starts_with('/') && text.find("..") == std::string_view::npos;
}
