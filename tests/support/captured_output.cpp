#include "tests/support/captured_output.h"

#include "tests/support/temporary_folder.h"

#include <unistd.h>

#include <array>
#include <cstdio>

CapturedOutput::CapturedOutput(int captured) : descriptor(captured), original(-1), file(UnnamedFile())
{
    std::fflush(nullptr);
    original = dup(descriptor);
    dup2(file, descriptor);
}

CapturedOutput::~CapturedOutput()
{
    end();
    close(file);
}

void CapturedOutput::end()
{
    if (original == -1)
        return;
    std::fflush(nullptr);
    dup2(original, descriptor);
    close(original);
    original = -1;
}

std::string CapturedOutput::text()
{
    end();
    return flushedText();
}

std::string CapturedOutput::flushedText() const
{
    std::string content;
    std::array<char, 4096> chunk;
    // Reads without moving the file position, which the writers share.
    const auto next = [&] {
        return pread(file, chunk.data(), chunk.size(), static_cast<off_t>(content.size()));
    };
    for (ssize_t size = next(); size > 0; size = next())
        content.append(chunk.data(), static_cast<std::size_t>(size));
    return content;
}

std::string Success(const std::string &text)
{
    return "\x1B[00;32m " + text + messageEnd;
}

std::string Info(const std::string &text)
{
    return "\x1B[49m " + text + messageEnd;
}

std::string Prompt(const std::string &text)
{
    return std::string(messageEnd) + text + messageEnd;
}

std::string Reprompt(const std::string &text)
{
    return "\x1B[00;35m" + text + messageEnd;
}

std::string Error(const std::string &text)
{
    return "\x1B[00;31m " + text + messageEnd;
}

std::string Title(const std::string &text)
{
    return "\x1B[36m " + text + messageEnd;
}

std::string CannotOpen(const std::string &path)
{
    return Error("Error: Reading Device file fails: ") + Error(path) + Error("\n");
}
