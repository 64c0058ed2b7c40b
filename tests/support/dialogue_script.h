// Questions and answers of a dialogue with the key generator.
#pragma once

#include "tests/support/program_run.h"
#include "tests/support/pseudo_terminal.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

/// A complete question of the program, and the line that answers it.
struct DialogueStep {
    std::string question;
    std::string answer;
};
using DialogueScript = std::vector<DialogueStep>;

/// The questions, as they appear on the screen. `which` is "" or, in a packet, " [0]" to " [7]".
namespace question {
std::string Folder(const std::string &byDefault);
extern const std::string createFolder;
extern const std::string createFolderAgain;
extern const std::string packets;
extern const std::string packetsAgain;
std::string Password(const std::string &which = "");
std::string PasswordAgain(const std::string &which = "");
std::string RepeatPassword(const std::string &which = "");
extern const std::string curve;
extern const std::string curveAgain;
extern const std::string cipher;
extern const std::string cipherAgain;
} // namespace question

/// A password typed twice.
DialogueScript PasswordSteps(const std::string &password, const std::string &which = "");

/// The password of one pair and the steps after it.
DialogueScript LastSteps(const std::string &password);

/// The steps from the number of packets to the end, for one pair.
DialogueScript OnePairSteps(const std::string &password);

DialogueScript operator+(DialogueScript first, const DialogueScript &second);

/// All answers, each followed by `lineEnd`.
std::string Answers(const DialogueScript &script, const std::string &lineEnd = "\n");

/// Replaces this process with the key generator, in `folder`, with the home directory `home`.
[[noreturn]] void ExecKeygen(const std::string &folder, const std::string &home = "home");

/// Types each answer on a terminal once its question is shown there. Fails at a question that is not shown.
testing::AssertionResult AnswersAll(PseudoTerminal &terminal, const DialogueScript &script);

/// Types the answers to the key generator's questions on a terminal, and waits for the end of the run.
ProgramResult RunOnTerminal(const DialogueScript &script, const std::string &folder,
                            const std::string &home = "home");

/// Runs the key generator with `input`, followed by the end of input, on a pipe.
ProgramResult RunOnPipe(const std::string &input, const std::string &folder, const std::string &home = "home",
                        int timeoutSeconds = 300);
