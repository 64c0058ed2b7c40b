#include "keygen/process.h"

#include "tests/support/child_run.h"
#include "tests/support/coverage.h"
#include "tests/support/library_faults.h"
#include "tests/support/pseudo_terminal.h"
#include "tests/support/sanitizer.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

#include <QDebug>

#include <fcntl.h>
#include <grp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

TEST(ExitKeyGen, EndsTheProcessWithTheStatus)
{
    for (const int status : {0, 1, 3}) {
        const ChildRun run = RunInChild([status] { exitKeyGen(status); });
        EXPECT_FALSE(run.returned);
        EXPECT_EQ(run.status, status);
    }
}

TEST(ExitKeyGen, EndsAsExitDoes)
{
    const ChildRun run = RunInChild([] {
        std::atexit([] { std::fputs("handled", stdout); });
        std::fputs("buffered, ", stdout);
        exitKeyGen(0);
    });
    EXPECT_EQ(run.output, "buffered, handled");
}

bool isNullDevice(int descriptor)
{
    struct stat stream = {};
    struct stat device = {};
    return fstat(descriptor, &stream) == 0 && stat("/dev/null", &device) == 0 && S_ISCHR(stream.st_mode) &&
           stream.st_rdev == device.st_rdev;
}

/// What PrepareProcess makes of the standard streams if those in `closed` are closed: the kind of each
/// stream, and whether a file opened later gets another descriptor ("free").
std::string streamsAfter(const std::vector<int> &closed)
{
    return RunInChild([&closed] {
               const int report = fcntl(STDOUT_FILENO, F_DUPFD, 100);
               for (const int stream : closed)
                   close(stream);
               PrepareProcess();
               for (const int stream : {0, 1, 2})
                   dprintf(report, "%s ", isNullDevice(stream) ? "null" : "kept");
               dprintf(report, "%s", open("/dev/null", O_RDONLY) > 2 ? "free" : "taken");
           })
        .output;
}

TEST(PrepareProcess, KeepsOpenStandardStreams)
{
    EXPECT_EQ(streamsAfter({}), "kept kept kept free");
}

TEST(PrepareProcess, OpensTheNullDeviceForEachClosedStandardStream)
{
    EXPECT_EQ(streamsAfter({0}), "null kept kept free");
    EXPECT_EQ(streamsAfter({1}), "kept null kept free");
    EXPECT_EQ(streamsAfter({2}), "kept kept null free");
    EXPECT_EQ(streamsAfter({0, 1}), "null null kept free");
    EXPECT_EQ(streamsAfter({0, 2}), "null kept null free");
    EXPECT_EQ(streamsAfter({1, 2}), "kept null null free");
    EXPECT_EQ(streamsAfter({0, 1, 2}), "null null null free");
}

TEST(PrepareProcess, MakesClosedStandardStreamsReadableAndWritable)
{
    const ChildRun run = RunInChild([] {
        const int report = fcntl(STDOUT_FILENO, F_DUPFD, 100);
        for (const int stream : {0, 1, 2})
            close(stream);
        PrepareProcess();
        char byte = 'x';
        dprintf(report, "%zd %zd %zd", read(0, &byte, 1), write(1, &byte, 1), write(2, &byte, 1));
    });
    EXPECT_EQ(run.output, "0 1 1");
}

TEST(PrepareProcess, WritesNoMessagesForAClosedOutputIntoFiles)
{
    const TemporaryFolder folder;
    const std::string path = folder / "key file";
    const ChildRun run = RunInChild([&path] {
        close(STDOUT_FILENO);
        close(STDERR_FILENO);
        PrepareProcess();
        const int file = open(path.c_str(), O_WRONLY | O_CREAT, 0600);
        std::puts("a message");
        std::fputs("an error", stderr);
        std::fflush(nullptr);
        dprintf(file, "content");
    });
    EXPECT_TRUE(run.returned);
    EXPECT_EQ(ReadFile(path), "content");
}

TEST(PrepareProcess, EndsTheProcessIfNoFileDescriptorIsLeft)
{
    if (underSanitizers)
        GTEST_SKIP() << "the sanitizer needs a file descriptor at the end of the process";
    const ChildRun run = RunInChild([] {
        close(STDIN_FILENO);
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_NOFILE, &none);
        PrepareProcess();
    });
    EXPECT_FALSE(run.returned);
    EXPECT_EQ(run.status, 1);
}

TEST(PrepareProcess, BuffersLinesForATerminalAndBlocksForOtherOutput)
{
    const auto printAndEnd = [] {
        PrepareProcess();
        std::fputs("a line\nno line", stdout);
        _exit(0); // discards what is still buffered
    };
    EXPECT_EQ(PseudoTerminal(printAndEnd).end().output, "a line\n");
    EXPECT_EQ(RunInChild(printAndEnd).output, "");
}

TEST(WipeOutputBuffer, WritesTheBufferedOutput)
{
    const ChildRun run = RunInChild([] {
        PrepareProcess();
        std::fputs("written", stdout);
        WipeOutputBuffer();
        std::fputs(", then lost", stdout);
        _exit(0);
    });
    EXPECT_EQ(run.output, "written");
}

TEST(WipeOutputBuffer, KeepsWhatCouldNotBeWritten)
{
    const ChildRun run = RunInChild([] {
        LibraryFaults faults;
        PrepareProcess();
        std::fputs("written later", stdout);
        faults.fail("fflush(stdout)", EOF);
        WipeOutputBuffer();
    });
    EXPECT_TRUE(run.returned);
    EXPECT_EQ(run.output, "written later");
}

TEST(PrepareProcess, DisablesCoreFiles)
{
    const ChildRun run = RunInChild([] {
        rlimit core = {};
        getrlimit(RLIMIT_CORE, &core);
        core.rlim_cur = core.rlim_max;
        setrlimit(RLIMIT_CORE, &core);
        PrepareProcess();
        getrlimit(RLIMIT_CORE, &core);
        std::printf("%llu %llu", static_cast<unsigned long long>(core.rlim_cur),
                    static_cast<unsigned long long>(core.rlim_max));
    });
    EXPECT_EQ(run.output, "0 0");
}

/// Drops the privileges of root, which can read every process.
void dropRootPrivileges()
{
    constexpr uid_t nobody = 65534;
    if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0))
        std::abort();
    // Changing the user leaves the memory closed.
    prctl(PR_SET_DUMPABLE, 1);
}

TEST(PrepareProcess, ClosesTheMemoryToOtherProcessesOfTheSameUser)
{
    const ChildRun run = RunInChild([] {
        dropRootPrivileges();
        const pid_t prepared = fork();
        if (prepared == 0) {
            PrepareProcess();
            raise(SIGSTOP);
            _exit(0);
        }
        waitpid(prepared, nullptr, WUNTRACED);
        const int memory = open(("/proc/" + std::to_string(prepared) + "/mem").c_str(), O_RDONLY);
        std::fputs(memory == -1 ? "closed" : "open", stdout);
        kill(prepared, SIGKILL);
        waitpid(prepared, nullptr, 0);
    });
    EXPECT_TRUE(run.returned);
    EXPECT_EQ(run.output, underSanitizers ? "open" : "closed");
}

TEST(PrepareProcess, MakesAWriteBeyondTheSizeLimitFail)
{
    if (countsCoverage)
        GTEST_SKIP() << "the coverage data exceeds the limit, too";
    const TemporaryFolder folder;
    const std::string path = folder / "limited";
    const ChildRun run = RunInChild([&path] {
        std::signal(SIGXFSZ, SIG_DFL);
        PrepareProcess();
        rlimit size = {};
        getrlimit(RLIMIT_FSIZE, &size);
        const rlimit small = {2, size.rlim_max};
        setrlimit(RLIMIT_FSIZE, &small);
        const int file = open(path.c_str(), O_WRONLY | O_CREAT, 0600);
        const ssize_t first = write(file, "text", 4);
        const ssize_t second = write(file, "text", 4);
        const bool isTooLarge = errno == EFBIG;
        setrlimit(RLIMIT_FSIZE, &size);
        std::printf("%zd %zd%s", first, second, isTooLarge ? " too large" : "");
    });
    EXPECT_TRUE(run.returned);
    EXPECT_EQ(run.output, "2 -1 too large");
}

void writeLibraryMessages()
{
    setenv("QT_FORCE_STDERR_LOGGING", "1", 1);
    qDebug("a debug message");
    qInfo("some information");
    qWarning("a warning");
    qCritical("a critical message");
}

TEST(PrepareProcess, SilencesTheMessagesOfTheApplicationLibrary)
{
    EXPECT_NE(RunInChild(writeLibraryMessages).errors.find("a warning"), std::string::npos);
    const ChildRun run = RunInChild([] {
        PrepareProcess();
        writeLibraryMessages();
    });
    EXPECT_TRUE(run.returned);
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.output, "");
}

TEST(PrepareProcess, KeepsTheMessageWithWhichTheApplicationLibraryAborts)
{
    const ChildRun run = RunInChild([] {
        PrepareProcess();
        qFatal("no way to go on: %s", "d\xC3\xA9sol\xC3\xA9");
    });
    EXPECT_EQ(run.signal, SIGABRT);
    EXPECT_EQ(run.errors, "no way to go on: d\xC3\xA9sol\xC3\xA9\n");
    EXPECT_EQ(run.output, "");
}

TEST(TakeArguments, ReturnsTheArgumentsAndClearsTheVector)
{
    std::string name = "keygen";
    std::string option = "-pwd";
    std::string value = "p\xFFss word";
    std::string empty;
    std::vector<char *> vector = {name.data(), option.data(), value.data(), empty.data(), nullptr};
    EXPECT_EQ(TakeArguments(4, vector.data()), QList<QByteArray>({"-pwd", "p\xFFss word", ""}));
    EXPECT_EQ(name, "keygen");
    EXPECT_EQ(option, std::string(4, '\0'));
    EXPECT_EQ(value, std::string(9, '\0'));
}

TEST(TakeArguments, ReturnsNothingIfThereAreNoArguments)
{
    std::string name = "keygen";
    std::vector<char *> vector = {name.data(), nullptr};
    EXPECT_TRUE(TakeArguments(1, vector.data()).isEmpty());
    EXPECT_TRUE(TakeArguments(0, &vector[1]).isEmpty());
}

} // namespace
