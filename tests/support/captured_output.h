// What a call writes to standard output or to standard error.
#pragma once

#include <string>

/// Captures a standard stream of this process, at the level of its file descriptor, from construction until
/// text() or destruction.
class CapturedOutput {
public:
    /// `descriptor`: STDOUT_FILENO or STDERR_FILENO.
    explicit CapturedOutput(int descriptor = 1);
    ~CapturedOutput();
    CapturedOutput(const CapturedOutput &) = delete;
    CapturedOutput &operator=(const CapturedOutput &) = delete;

    /// Flushes the stream, ends the capture and returns everything that was written.
    std::string text();
    /// What has reached the file descriptor so far. Does not flush, and the capture continues.
    std::string flushedText() const;

private:
    void end();

    int descriptor;
    int original;
    int file;
};

/// What MessageOut writes after each message: the reset sequence.
inline constexpr const char *messageEnd = "\x1B[0m\x1B[39;49m";

/// `text` as MessageOut prints it, for each kind.
std::string Success(const std::string &text);
std::string Info(const std::string &text);
std::string Prompt(const std::string &text);
std::string Reprompt(const std::string &text);
std::string Error(const std::string &text);
std::string Title(const std::string &text);

/// The messages about a file at `path` that cannot be opened.
std::string CannotOpen(const std::string &path);
