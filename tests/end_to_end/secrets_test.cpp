// Where a password can be read while, and after, the program uses it.
#include "tests/support/program_run.h"
#include "tests/support/pseudo_terminal.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

const std::string marker = "marker pass phrase";

/// Becomes the key generator, working in `folder`, with `arguments`.
void becomeKeygen(const std::string &folder, std::vector<std::string> arguments)
{
    const std::string program = KeygenProgram();
    arguments.insert(arguments.begin(), program);
    std::vector<char *> pointers;
    for (std::string &argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    if (chdir(folder.c_str()) == 0)
        execv(program.c_str(), pointers.data());
    _exit(127);
}

TEST(Secrets, AreGoneFromTheArgumentListWhileTheRunGoesOn)
{
    const TemporaryFolder folder;
    PseudoTerminal terminal([&folder] {
        dprintf(STDOUT_FILENO, "%d\n", getpid());
        becomeKeygen(folder.path(), {"-pwd", marker, "-abs", "missing/folder"});
    });
    ASSERT_TRUE(terminal.shows("(y/n)\x1B[0m\x1B[39;49m"));
    const std::string arguments =
        ReadFile("/proc/" + std::to_string(std::stoi(terminal.screen())) + "/cmdline");
    EXPECT_EQ(arguments.substr(0, KeygenProgram().size()), KeygenProgram());
    EXPECT_EQ(arguments.find_first_not_of('\0', KeygenProgram().size()), std::string::npos) << arguments;
    terminal.type("y\n");
    EXPECT_EQ(terminal.end().status, 0);
}

/// All memory that the stopped process `id` can write to: what it has put anywhere.
std::string writableMemory(pid_t id)
{
    std::string content;
    std::ifstream maps("/proc/" + std::to_string(id) + "/maps");
    const int memory = open(("/proc/" + std::to_string(id) + "/mem").c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_NE(memory, -1);
    for (std::string line; std::getline(maps, line);) {
        std::istringstream fields(line);
        unsigned long begin = 0;
        unsigned long end = 0;
        char dash = 0;
        std::string mode;
        fields >> std::hex >> begin >> dash >> end >> mode;
        if (mode.substr(0, 2) != "rw")
            continue;
        std::string region(end - begin, '\0');
        const ssize_t size = pread(memory, region.data(), region.size(), static_cast<off_t>(begin));
        content.append(region, 0, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    }
    close(memory);
    return content;
}

/// The memory of a run with `arguments` at its very end, when nothing of it is left to be done.
std::string memoryAtTheEnd(const std::string &folder, const std::vector<std::string> &arguments)
{
    const pid_t id = fork();
    if (id == 0) {
        const int nothing = open("/dev/null", O_RDWR);
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            dup2(nothing, stream);
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        becomeKeygen(folder, arguments);
    }
    std::string content;
    int status = 0;
    waitpid(id, &status, 0);
    ptrace(PTRACE_SETOPTIONS, id, nullptr, PTRACE_O_TRACEEXIT | PTRACE_O_EXITKILL);
    ptrace(PTRACE_CONT, id, nullptr, nullptr);
    while (waitpid(id, &status, 0) == id && WIFSTOPPED(status)) {
        const bool atTheEnd = status >> 8 == (SIGTRAP | (PTRACE_EVENT_EXIT << 8));
        if (atTheEnd)
            content = writableMemory(id);
        ptrace(PTRACE_CONT, id, nullptr, nullptr);
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    return content;
}

std::string inUtf16(const std::string &ascii)
{
    std::string text;
    for (const char c : ascii)
        text += {c, '\0'};
    return text;
}

TEST(Secrets, AreGoneFromMemoryAtTheEndOfARun)
{
    const TemporaryFolder folder;
    const std::string visible = "marked_folder_name";
    const std::string memory = memoryAtTheEnd(folder.path(), {"-pwd", marker, "-abs", visible});
    // What is no secret is still found, in the strings of the run.
    EXPECT_NE(memory.find(inUtf16(visible)), std::string::npos);
    EXPECT_EQ(memory.find(marker), std::string::npos);
    EXPECT_EQ(memory.find(inUtf16(marker)), std::string::npos);
}

TEST(Secrets, OfAPacketAreGoneFromMemoryToo)
{
    const TemporaryFolder folder;
    std::vector<std::string> arguments = {"-n", "8", "-abs", "keys", "-pwd"};
    for (int i = 0; i < 8; ++i)
        arguments.push_back(marker + std::to_string(i));
    const std::string memory = memoryAtTheEnd(folder.path(), arguments);
    EXPECT_EQ(memory.find(marker), std::string::npos);
    EXPECT_EQ(memory.find(inUtf16(marker)), std::string::npos);
}

TEST(Secrets, OfAPairThatFailedAreGoneFromMemoryToo)
{
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "privateKey.pem"); // where the file is to be
    const std::string memory = memoryAtTheEnd(folder.path(), {"-pwd", marker, "-abs", "."});
    EXPECT_EQ(memory.find(marker), std::string::npos);
    EXPECT_EQ(memory.find(inUtf16(marker)), std::string::npos);
}

TEST(Secrets, OfARunWithoutKeysAreGoneFromMemoryToo)
{
    const TemporaryFolder folder;
    const std::string memory = memoryAtTheEnd(folder.path(), {"-pwd", marker, "-rand", "16", "noise.bin"});
    EXPECT_EQ(memory.find(marker), std::string::npos);
    EXPECT_EQ(memory.find(inUtf16(marker)), std::string::npos);
}

} // namespace
