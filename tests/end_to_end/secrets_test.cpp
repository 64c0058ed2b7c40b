// Where a password can be read during and after a run.
#include "tests/support/captured_output.h"
#include "tests/support/program_run.h"
#include "tests/support/pseudo_terminal.h"
#include "tests/support/sanitizer.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string marker = "marker zebra quartz";
// The text searched for: the end of the password, because the first bytes of released memory are soon
// overwritten.
const std::string trace = "zebra quartz";

TEST(ArgumentList, PasswordsAreWipedFromTheArgumentListDuringTheRun)
{
    const TemporaryFolder folder;
    PseudoTerminal terminal([&folder] {
        dprintf(STDOUT_FILENO, "%d\n", getpid());
        Exec(KeygenProgram(),
             {.arguments = {"-pwd", marker, "-abs", "missing/folder"}, .folder = folder.path()});
    });
    ASSERT_TRUE(terminal.shows(std::string("(y/n)") + messageEnd));
    const std::string arguments =
        ReadFile("/proc/" + std::to_string(std::stoi(terminal.screen())) + "/cmdline");
    EXPECT_EQ(arguments.substr(0, KeygenProgram().size()), KeygenProgram());
    EXPECT_EQ(arguments.find_first_not_of('\0', KeygenProgram().size()), std::string::npos) << arguments;
    terminal.type("y\n");
    EXPECT_EQ(terminal.end().status, 0);
}

/// The memory of a process. Must be opened before the program closes it to other processes; what is already
/// open stays readable.
class Memory {
public:
    explicit Memory(pid_t id)
        : maps("/proc/" + std::to_string(id) + "/maps"),
          memory(open(("/proc/" + std::to_string(id) + "/mem").c_str(), O_RDONLY | O_CLOEXEC))
    {
        EXPECT_TRUE(maps.is_open());
        EXPECT_NE(memory, -1);
    }
    ~Memory() { close(memory); }
    Memory(const Memory &) = delete;
    Memory &operator=(const Memory &) = delete;

    /// Everything that the process can write to, or only what the system has named `name`. The process must
    /// be stopped, and this can be called only once.
    std::string writable(const std::string &name = {})
    {
        std::string content;
        for (std::string line; std::getline(maps, line);) {
            if (!line.ends_with(name))
                continue;
            std::istringstream fields(line);
            unsigned long begin = 0;
            unsigned long end = 0;
            char dash = 0;
            std::string mode;
            fields >> std::hex >> begin >> dash >> end >> mode;
            if (mode.substr(0, 2) != "rw")
                continue;
            std::string region(end - begin, '\0');
            // On 32 bits the stack lies beyond the range of off_t.
            const ssize_t size = pread64(memory, region.data(), region.size(), static_cast<off64_t>(begin));
            content.append(region, 0, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
        }
        return content;
    }

private:
    std::ifstream maps;
    int memory;
};

/// The process of a run with `arguments` and with `input` as its standard input, stopped before its start.
pid_t stoppedRun(const std::string &folder, const std::vector<std::string> &arguments,
                 const std::string &input = {})
{
    const TemporaryFolder elsewhere;
    WriteFile(elsewhere / "input", input);
    const pid_t id = fork();
    if (id == 0) {
        alarm(60);
        const int nullDevice = open("/dev/null", O_RDWR);
        for (const int stream : {STDOUT_FILENO, STDERR_FILENO})
            dup2(nullDevice, stream);
        dup2(open((elsewhere / "input").c_str(), O_RDONLY), STDIN_FILENO);
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        Exec(KeygenProgram(), {.arguments = arguments, .folder = folder});
    }
    waitpid(id, nullptr, 0);
    return id;
}

bool stoppedBy(int status, int event)
{
    return status >> 8 == (SIGTRAP | (event << 8));
}

struct EndOfRun {
    int status = -1;
    std::string memory;
};

/// The end of a run, at the point where it has nothing left to do.
EndOfRun endOf(const std::string &folder, const std::vector<std::string> &arguments,
               const std::string &input = {})
{
    const pid_t id = stoppedRun(folder, arguments, input);
    EndOfRun end;
    std::optional<Memory> memory;
    int status = 0;
    ptrace(PTRACE_SETOPTIONS, id, nullptr, PTRACE_O_TRACEEXEC | PTRACE_O_TRACEEXIT | PTRACE_O_EXITKILL);
    ptrace(PTRACE_CONT, id, nullptr, nullptr);
    while (waitpid(id, &status, 0) == id && WIFSTOPPED(status)) {
        if (stoppedBy(status, PTRACE_EVENT_EXEC))
            memory.emplace(id);
        if (stoppedBy(status, PTRACE_EVENT_EXIT) && memory)
            end.memory = memory->writable();
        const int signal = WSTOPSIG(status) == SIGALRM ? SIGKILL : 0;
        ptrace(PTRACE_CONT, id, nullptr, signal);
    }
    if (WIFEXITED(status))
        end.status = WEXITSTATUS(status);
    EXPECT_FALSE(end.memory.empty());
    return end;
}

/// The stack of a run that has taken its arguments and is about to close its memory to others.
std::string stackAfterStartUp(const std::string &folder, const std::vector<std::string> &arguments)
{
    const pid_t id = stoppedRun(folder, arguments);
    std::optional<Memory> memory;
    std::optional<std::string> stack;
    int status = 0;
    ptrace(PTRACE_SETOPTIONS, id, nullptr, PTRACE_O_TRACEEXEC | PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    ptrace(PTRACE_CONT, id, nullptr, nullptr);
    while (!stack && waitpid(id, &status, 0) == id && WIFSTOPPED(status)) {
        if (stoppedBy(status, PTRACE_EVENT_EXEC))
            memory.emplace(id);
        __ptrace_syscall_info call = {};
        if (WSTOPSIG(status) == (SIGTRAP | 0x80))
            ptrace(PTRACE_GET_SYSCALL_INFO, id, sizeof call, &call);
        if (call.op == PTRACE_SYSCALL_INFO_ENTRY && call.entry.nr == SYS_prctl &&
            call.entry.args[0] == PR_SET_DUMPABLE && memory)
            stack = memory->writable("[stack]");
        else
            ptrace(memory ? PTRACE_SYSCALL : PTRACE_CONT, id, nullptr, 0);
    }
    kill(id, SIGKILL);
    waitpid(id, nullptr, 0);
    return stack.value_or("");
}

/// The memory of a run that succeeds.
std::string memoryAtTheEnd(const std::string &folder, const std::vector<std::string> &arguments)
{
    const EndOfRun end = endOf(folder, arguments);
    EXPECT_EQ(end.status, 0);
    return end.memory;
}

std::string inUtf16(const std::string &ascii)
{
    std::string text;
    for (const char c : ascii)
        text += {c, '\0'};
    return text;
}

class Secrets : public testing::Test {
protected:
    void SetUp() override
    {
        if (underSanitizers)
            GTEST_SKIP()
                << "the sanitizer keeps released memory, and searches for leaks by the same means as this "
                   "test reads the memory";
    }
};

TEST_F(Secrets, PasswordsAreWipedFromTheStackBeforeTheRunBegins)
{
    // The arguments have another address in each run, so the C library reads other pieces of them.
    for (int i = 0; i < 10; ++i) {
        const TemporaryFolder folder;
        const std::string stack = stackAfterStartUp(folder.path(), {"-pwd", marker});
        EXPECT_NE(stack.find("keygen"), std::string::npos);
        EXPECT_EQ(stack.find(trace), std::string::npos);
    }
}

TEST_F(Secrets, ThePasswordIsWipedAtTheEndOfARun)
{
    const TemporaryFolder folder;
    const std::string visible = "marked_folder_name";
    const std::string memory = memoryAtTheEnd(folder.path(), {"-pwd", marker, "-abs", visible});
    // Text that is not secret is still found.
    EXPECT_NE(memory.find(inUtf16(visible)), std::string::npos);
    EXPECT_EQ(memory.find(trace), std::string::npos);
    EXPECT_EQ(memory.find(inUtf16(trace)), std::string::npos);
}

TEST_F(Secrets, ThePasswordsOfAPacketAreWiped)
{
    const TemporaryFolder folder;
    std::vector<std::string> arguments = {"-n", "8", "-abs", "keys", "-pwd"};
    for (int i = 0; i < 8; ++i)
        arguments.push_back(marker + std::to_string(i));
    const std::string memory = memoryAtTheEnd(folder.path(), arguments);
    EXPECT_EQ(memory.find(trace), std::string::npos);
    EXPECT_EQ(memory.find(inUtf16(trace)), std::string::npos);
}

TEST_F(Secrets, ThePasswordOfAFailedPairIsWiped)
{
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "privateKey.pem"); // in place of the file
    const std::string memory = memoryAtTheEnd(folder.path(), {"-pwd", marker, "-abs", "."});
    EXPECT_EQ(memory.find(trace), std::string::npos);
    EXPECT_EQ(memory.find(inUtf16(trace)), std::string::npos);
}

TEST_F(Secrets, ThePasswordOfARunWithoutKeysIsWiped)
{
    const TemporaryFolder folder;
    const std::string memory = memoryAtTheEnd(folder.path(), {"-pwd", marker, "-rand", "16", "noise.bin"});
    EXPECT_EQ(memory.find(trace), std::string::npos);
    EXPECT_EQ(memory.find(inUtf16(trace)), std::string::npos);
}

TEST_F(Secrets, ThePasswordsOfARunThatEndsEarlyAreWiped)
{
    const struct {
        std::vector<std::string> arguments;
        int status;
    } runs[] = {
        {{"-pwd", marker, "-unknown"}, 1},
        {{"-pwd", marker, "-h"}, 0},
        {{"-v", "-pwd", marker}, 0},
        {{"-pwd", marker, "-n", "2"}, 1},
        {{"-pwd", marker, "-pe", "none"}, 1},
        {{"-rand", "5", "-pwd", marker}, 1},
        {{"-pwd", marker, "-abs", "keys", "-pubk", "/absolute/p.pem"}, 1},
        {{"-pwd", marker, marker, "-n", "1"}, 1},
        {{"-pwd", marker, marker, marker}, 1},
        {{"-n", "8", "-pwd", marker, marker, marker, marker, marker, marker, marker, "abc"}, 1},
        {{"-pwd", marker, "-pwd", "abc"}, 1},
        {{"-pwd", marker + "\xFF"}, 1},
        {{"-pwd", marker, "\xFF"}, 1},
        {{"-pubk", "p.pem", marker, "-pwd", marker, "-rand", "5", "missing/noise.bin"}, 1},
        {{marker}, 1},
        {{"-pwd", "-" + marker}, 1},
        {{"-pwd", "-" + marker, "-pwd", "\xFF"}, 1},
        {{"-pwd", marker, "-pubk", "missing/p.pem"}, 1},
    };
    for (const auto &[arguments, status] : runs) {
        const TemporaryFolder folder;
        const EndOfRun end = endOf(folder.path(), arguments, "n\n");
        EXPECT_EQ(end.status, status) << testing::PrintToString(arguments);
        EXPECT_EQ(end.memory.find(trace), std::string::npos) << testing::PrintToString(arguments);
        EXPECT_EQ(end.memory.find(inUtf16(trace)), std::string::npos) << testing::PrintToString(arguments);
    }
}

TEST_F(Secrets, DisplayedPasswordsAreWiped)
{
    const TemporaryFolder folder;
    const std::u16string shortPassword = u"\u2603\u2604\u2605";
    const EndOfRun end = endOf(folder.path(), {"-pwd", "\u2603\u2604\u2605"});
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(end.memory.find("\u2603\u2604\u2605"), std::string::npos);
    EXPECT_EQ(end.memory.find(std::string(reinterpret_cast<const char *>(shortPassword.data()), 6)),
              std::string::npos);
}

TEST_F(Secrets, ThePasswordsOfADialogueAreWiped)
{
    for (const std::string &first : {std::string(), marker + "\nno match\n"}) {
        const TemporaryFolder folder;
        const std::string input = (folder / "keys") + "\n1\n" + first + marker + "\n" + marker + "\n1\n1\n";
        const EndOfRun end = endOf(folder.path(), {}, input);
        EXPECT_EQ(end.status, 0);
        EXPECT_TRUE(std::filesystem::exists(folder / "keys/privateKey.pem"));
        EXPECT_EQ(end.memory.find(trace), std::string::npos);
        EXPECT_EQ(end.memory.find(inUtf16(trace)), std::string::npos);
    }
}

TEST_F(Secrets, PasswordsTypedAheadAreWipedIfTheDialogueEndsEarly)
{
    const TemporaryFolder folder;
    const EndOfRun end = endOf(folder.path(), {}, "missing/folder\nn\n1\n" + marker + "\n" + marker + "\n");
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(end.memory.find(trace), std::string::npos);
    EXPECT_EQ(end.memory.find(inUtf16(trace)), std::string::npos);
}

} // namespace
