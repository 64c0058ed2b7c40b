#include "tests/support/child_run.h"

#include "tests/support/temporary_folder.h"

#include <fcntl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace {

/// A file descriptor that is closed on destruction.
class Descriptor {
public:
    explicit Descriptor(int opened) : number(opened)
    {
        if (number == -1)
            throw std::runtime_error("cannot open a file for a child process");
    }
    ~Descriptor() { close(number); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int get() const { return number; }

private:
    int number;
};

/// The read end of a pipe that contains `content` and then ends.
int filledPipe(const std::string &content)
{
    std::array<int, 2> ends = {};
    if (content.size() > 4096 || pipe(ends.data()) != 0)
        throw std::runtime_error("cannot create the input pipe of a child process");
    const ssize_t size = write(ends[1], content.data(), content.size());
    close(ends[1]);
    return size == static_cast<ssize_t>(content.size()) ? ends[0] : -1;
}

int inputOf(const ChildCall &call)
{
    return call.inputFile.empty() ? filledPipe(call.input) : open(call.inputFile.c_str(), O_RDONLY);
}

/// The signal of the timer ends the child, whatever it is doing.
void setTimeLimit(int milliseconds)
{
    const itimerval life = {{0, 0}, {milliseconds / 1000, milliseconds % 1000 * 1000}};
    setitimer(ITIMER_REAL, &life, nullptr);
}

/// Everything that the child does. It must never return, not even by an exception, or the child would
/// continue with the tests.
[[noreturn]] void runChild(const std::function<void()> &function, int input, int output, int errors,
                           int returned, int milliseconds) noexcept
{
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(errors, STDERR_FILENO);
    setTimeLimit(milliseconds);
    function();
    setTimeLimit(0);
    const ssize_t marked = write(returned, "r", 1);
    std::exit(marked == 1 ? EXIT_SUCCESS : EXIT_FAILURE);
}

} // namespace

ChildRun RunInChild(const std::function<void()> &function, const ChildCall &call)
{
    const Descriptor input(inputOf(call));
    const Descriptor output(UnnamedFile());
    const Descriptor errors(UnnamedFile());
    const Descriptor returned(UnnamedFile());

    // Buffered output would be written twice.
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == -1)
        throw std::runtime_error("fork failed");
    if (child == 0)
        runChild(function, input.get(), output.get(), errors.get(), returned.get(), call.timeoutMilliseconds);

    int status = 0;
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    ChildRun run;
    run.returned = !ContentOf(returned.get()).empty();
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    run.output = ContentOf(output.get());
    run.errors = ContentOf(errors.get());
    return run;
}
