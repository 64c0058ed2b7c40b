#include "tests/support/dialogue_script.h"

#include "tests/support/captured_output.h"
#include "tests/support/pseudo_terminal.h"

#include <gtest/gtest.h>

namespace question {

std::string Folder(const std::string &byDefault)
{
    return Prompt("Please enter Path for output files :\n ") + Info("<") + Info(byDefault) + Info(">\n");
}

const std::string createFolder =
    Reprompt("Warning: File path does not exist. Do you want to create it?\n(y/n)");
const std::string createFolderAgain = Reprompt("(y/n)");

const std::string packets = Prompt("Please select number of packets: \n") +
                            Info("1. 1 keypair packet   2. 8 keypair packets ") + Prompt("(1/2)?\n");
const std::string packetsAgain = Reprompt("Please select  number of packets: ") +
                                 Info("1. 1 keypair packet   2. 8 keypair packets ") + Reprompt("(1/2)?\n");

std::string Password(const std::string &which)
{
    return Prompt("Please enter Password" + which + "\n");
}

std::string PasswordAgain(const std::string &which)
{
    return Prompt("Please enter your Password" + which + "\n");
}

std::string RepeatPassword(const std::string &which)
{
    return Prompt("Please re-enter your Password" + which + "\n");
}

const std::string curve =
    Prompt("Please select algorithm: ") + Info("1. prime256v1   2. brainpoolP256t1 ") + Prompt("(1/2)?\n");
const std::string curveAgain = Reprompt("Please select algorithm: ") +
                               Info("1. prime256v1   2. brainpoolP256t1 ") + Reprompt("(1/2)?\n");
const std::string cipher =
    Prompt("Please select encrypting algorithm: ") + Info("1. aes256   2. aes128 ") + Prompt("(1/2)?\n");
const std::string cipherAgain =
    Reprompt("Please select encrypting algorithm: ") + Info("1. aes256   2. aes128 ") + Reprompt("(1/2)?\n");

} // namespace question

DialogueScript PasswordSteps(const std::string &password, const std::string &which)
{
    return {{question::Password(which), password}, {question::RepeatPassword(which), password}};
}

DialogueScript LastSteps(const std::string &password)
{
    return PasswordSteps(password) + DialogueScript{{question::curve, "1"}, {question::cipher, "1"}};
}

DialogueScript OnePairSteps(const std::string &password)
{
    return DialogueScript{{question::packets, "1"}} + LastSteps(password);
}

DialogueScript operator+(DialogueScript first, const DialogueScript &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

std::string Answers(const DialogueScript &script, const std::string &lineEnd)
{
    std::string answers;
    for (const DialogueStep &step : script)
        answers += step.answer + lineEnd;
    return answers;
}

namespace {

/// The rest of the environment is kept.
ProgramCall callWithHome(const std::string &folder, const std::string &home)
{
    return {.arguments = {"HOME=" + home, KeygenProgram()}, .folder = folder};
}

} // namespace

void ExecKeygen(const std::string &folder, const std::string &home)
{
    Exec("env", callWithHome(folder, home));
}

testing::AssertionResult AnswersAll(PseudoTerminal &terminal, const DialogueScript &script)
{
    for (const auto &[question, answer] : script) {
        const testing::AssertionResult answered = terminal.answers(question, answer + "\n");
        if (!answered)
            return answered;
    }
    return testing::AssertionSuccess();
}

ProgramResult RunOnTerminal(const DialogueScript &script, const std::string &folder, const std::string &home)
{
    PseudoTerminal terminal([&] { ExecKeygen(folder, home); });
    const testing::AssertionResult answered = AnswersAll(terminal, script);
    EXPECT_TRUE(answered);
    return answered ? terminal.end() : ProgramResult();
}

ProgramResult RunOnPipe(const std::string &input, const std::string &folder, const std::string &home,
                        int timeoutSeconds)
{
    ProgramCall call = callWithHome(folder, home);
    call.input = input;
    call.timeoutSeconds = timeoutSeconds;
    return Run("env", call);
}
