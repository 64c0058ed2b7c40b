// Runs a command to its end and prints its CPU time and wall time in seconds, its peak memory in KiB and its
// status. It is a separate program because a process's peak memory starts at that of its parent.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

double seconds(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc < 2)
        return EXIT_FAILURE;
    const auto started = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        const int nothing = open("/dev/null", O_RDWR);
        dup2(nothing, STDOUT_FILENO);
        dup2(nothing, STDERR_FILENO);
        execvp(argv[1], argv + 1);
        _exit(127);
    }
    int status = 0;
    rusage usage = {};
    if (wait4(child, &status, 0, &usage) != child)
        return EXIT_FAILURE;
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - started;
    std::printf("%f %f %ld %d\n", seconds(usage.ru_utime) + seconds(usage.ru_stime), wall.count(),
                usage.ru_maxrss, WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status));
}
