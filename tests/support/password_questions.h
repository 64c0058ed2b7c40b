// The library's questions for a password on the terminal.
#pragma once

#include <string>

/// For its own lifetime answers the library's questions, which would otherwise go to the terminal, and counts
/// them.
class PasswordQuestions {
public:
    explicit PasswordQuestions(std::string answer = {});
    ~PasswordQuestions();
    PasswordQuestions(const PasswordQuestions &) = delete;
    PasswordQuestions &operator=(const PasswordQuestions &) = delete;

    int count() const;
};
