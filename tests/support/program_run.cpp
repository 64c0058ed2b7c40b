#include "tests/support/program_run.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <stdexcept>

namespace {

using Clock = std::chrono::steady_clock;

struct Pipe {
    Pipe()
    {
        std::array<int, 2> ends = {};
        if (pipe2(ends.data(), O_CLOEXEC) != 0)
            throw std::runtime_error("cannot create a pipe");
        readEnd = ends[0];
        writeEnd = ends[1];
    }
    ~Pipe()
    {
        closeRead();
        closeWrite();
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;

    void closeRead() { closeEnd(readEnd); }
    void closeWrite() { closeEnd(writeEnd); }

    int readEnd = -1;
    int writeEnd = -1;

private:
    static void closeEnd(int &end)
    {
        if (end != -1)
            close(end);
        end = -1;
    }
};

std::vector<char *> pointersTo(std::vector<std::string> &texts)
{
    std::vector<char *> pointers;
    for (std::string &text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/// Everything that the child needs, prepared before the fork: between fork and exec only plain system calls
/// are safe.
class Child {
public:
    Child(const std::string &program, const ProgramCall &call)
        : arguments(call.arguments), folder(call.folder)
    {
        arguments.insert(arguments.begin(), program);
        if (call.environment) {
            for (const auto &[name, value] : *call.environment)
                environment.push_back(name + "=" + value);
        } else {
            for (char **entry = environ; *entry != nullptr; ++entry)
                environment.emplace_back(*entry);
        }
        mask = call.umask;
    }

    [[noreturn]] void execute(int input, int output, int errors)
    {
        if (dup2(input, 0) != -1 && dup2(output, 1) != -1 && dup2(errors, 2) != -1)
            execute();
        _exit(127);
    }

    [[noreturn]] void execute()
    {
        std::vector<char *> argumentPointers = pointersTo(arguments);
        std::vector<char *> environmentPointers = pointersTo(environment);
        // Resets signals that the tests ignore or block, so that the child does not inherit this.
        signal(SIGPIPE, SIG_DFL);
        if (mask)
            ::umask(static_cast<mode_t>(*mask));
        if (chdir(folder.c_str()) == 0)
            execvpe(argumentPointers[0], argumentPointers.data(), environmentPointers.data());
        _exit(127);
    }

private:
    std::vector<std::string> arguments;
    std::vector<std::string> environment;
    std::string folder;
    std::optional<int> mask;
};

/// Writes to and reads from the child's pipes until both outputs have ended. Kills the child when `deadline`
/// has passed.
void transferData(pid_t child, Pipe &input, const std::string &text, Pipe &output, Pipe &errors,
                  ProgramResult &result, Clock::time_point deadline)
{
    std::size_t fed = 0;
    if (text.empty())
        input.closeWrite();
    while (output.readEnd != -1 || errors.readEnd != -1) {
        std::array<pollfd, 3> waiting = {pollfd{input.writeEnd, POLLOUT, 0},
                                         pollfd{output.readEnd, POLLIN, 0},
                                         pollfd{errors.readEnd, POLLIN, 0}};
        if (poll(waiting.data(), waiting.size(), 100) < 0 && errno != EINTR)
            throw std::runtime_error("poll failed");
        if (Clock::now() > deadline)
            kill(child, SIGKILL);
        if (waiting[0].revents != 0) {
            const ssize_t size = write(input.writeEnd, text.data() + fed, text.size() - fed);
            fed += size > 0 ? static_cast<std::size_t>(size) : 0;
            if ((size < 0 && errno != EAGAIN && errno != EINTR) || fed == text.size())
                input.closeWrite();
        }
        const auto receive = [](const pollfd &ready, Pipe &pipe, std::string &into) {
            std::array<char, 65536> chunk;
            if (ready.revents == 0)
                return;
            const ssize_t size = read(pipe.readEnd, chunk.data(), chunk.size());
            if (size > 0)
                into.append(chunk.data(), static_cast<std::size_t>(size));
            else if (size == 0 || errno != EINTR)
                pipe.closeRead();
        };
        receive(waiting[1], output, result.output);
        receive(waiting[2], errors, result.errors);
    }
}

} // namespace

ProgramResult Run(const std::string &program, const ProgramCall &call)
{
    Child child(program, call);
    Pipe input;
    Pipe output;
    Pipe errors;
    // A child that ends without reading its input must not end the tests.
    signal(SIGPIPE, SIG_IGN);
    fcntl(input.writeEnd, F_SETFL, O_NONBLOCK);

    const pid_t id = fork();
    if (id == -1)
        throw std::runtime_error("fork failed");
    if (id == 0)
        child.execute(input.readEnd, output.writeEnd, errors.writeEnd);
    input.closeRead();
    output.closeWrite();
    errors.closeWrite();

    ProgramResult result;
    transferData(id, input, call.input, output, errors, result,
                 Clock::now() + std::chrono::seconds(call.timeoutSeconds));
    int status = 0;
    while (waitpid(id, &status, 0) == -1 && errno == EINTR) {
    }
    if (WIFEXITED(status))
        result.status = WEXITSTATUS(status);
    else
        result.signal = WTERMSIG(status);
    return result;
}

ProgramResult RunKeygen(const ProgramCall &call)
{
    return Run(KeygenProgram(), call);
}

void Exec(const std::string &program, const ProgramCall &call)
{
    Child(program, call).execute();
}

std::string KeygenProgram()
{
    return KEYGEN_PROGRAM;
}
