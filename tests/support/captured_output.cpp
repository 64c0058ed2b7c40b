#include "tests/support/captured_output.h"

#include "tests/support/temporary_folder.h"

#include <unistd.h>

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
    return ContentOf(file);
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
