#include "tests/support/background_run.h"

#include "tests/support/temporary_folder.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

/// The system lists a process that waits for a lock as in "1: -> FLOCK  ADVISORY  WRITE 4711 fe:00:12 0 EOF".
bool isWaitingForALock(pid_t process)
{
    std::ifstream locks("/proc/locks");
    if (!locks)
        throw std::runtime_error("cannot read /proc/locks");
    for (std::string line; std::getline(locks, line);) {
        if (line.find("-> FLOCK ") != std::string::npos &&
            line.find(" WRITE " + std::to_string(process) + " ") != std::string::npos)
            return true;
    }
    return false;
}

void sleepBriefly()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

} // namespace

BackgroundRun::BackgroundRun(const ProgramCall &call)
    : deadline(Clock::now() + std::chrono::seconds(call.timeoutSeconds)), output(UnnamedFile()), child(fork())
{
    if (child == -1) {
        close(output);
        throw std::runtime_error("fork failed");
    }
    if (child == 0) {
        setpgid(0, 0);
        dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        Exec(KeygenProgram(), call);
    }
}

BackgroundRun::~BackgroundRun()
{
    close(output);
    if (over && !WIFSTOPPED(status))
        return;
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

bool BackgroundRun::isOver()
{
    over = over || waitpid(child, &status, WNOHANG | WUNTRACED) == child;
    return over;
}

bool BackgroundRun::waitsForALock()
{
    while (!isOver() && Clock::now() < deadline) {
        if (isWaitingForALock(child))
            return true;
        sleepBriefly();
    }
    return false;
}

void BackgroundRun::send(int signal) const
{
    kill(child, signal);
}

ProgramResult BackgroundRun::end()
{
    while (!isOver()) {
        if (Clock::now() > deadline)
            kill(child, SIGKILL);
        sleepBriefly();
    }
    ProgramResult result;
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (WIFSIGNALED(status))
        result.signal = WTERMSIG(status);
    else if (WIFSTOPPED(status))
        result.signal = WSTOPSIG(status);
    result.output = ContentOf(output);
    return result;
}
