// The library's questions for a password on the terminal.
#pragma once

#include <string>

/// During its lifetime, counts and answers the library's questions, which would otherwise go to the terminal.
class PasswordQuestions {
public:
    explicit PasswordQuestions(std::string answer = {});
    ~PasswordQuestions();
    PasswordQuestions(const PasswordQuestions &) = delete;
    PasswordQuestions &operator=(const PasswordQuestions &) = delete;

    int count() const;
};
