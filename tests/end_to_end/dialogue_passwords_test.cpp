#include "tests/support/captured_output.h"
#include "tests/support/dialogue_script.h"
#include "tests/support/pseudo_terminal.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/written_keys.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

namespace {

/// Sessions that start at the first question for a password.
class DialoguePasswords : public testing::Test {
protected:
    std::function<void()> keygen() const
    {
        return [this] { ExecKeygen(folder.path()); };
    }

    static testing::AssertionResult choosesOnePair(PseudoTerminal &terminal)
    {
        const testing::AssertionResult answered =
            terminal.answers(question::Folder("home/Corvane_KeyGen/"), "./keys\n");
        return answered ? terminal.answers(question::packets, "1\n") : answered;
    }

    static testing::AssertionResult isAskedForOne(PseudoTerminal &terminal)
    {
        const testing::AssertionResult chosen = choosesOnePair(terminal);
        return chosen ? terminal.shows(question::Password()) : chosen;
    }

    TemporaryFolder folder;
};

// What is typed

/// What a run on a pipe prints after the answer to the first question for a password, up to the question for
/// the curve.
std::string passwordOutput(const std::string &folder, const std::string &typed)
{
    const ProgramResult run = RunOnPipe("./keys\n1\n" + typed + "\n1\n1\n", folder);
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.status, 0);
    const std::size_t begin = run.output.find(question::Password()) + question::Password().size();
    return run.output.substr(begin, run.output.find(question::curve) - begin);
}

TEST_F(DialoguePasswords, PasswordsMayContainAnyCharacterExceptALineEnd)
{
    const std::vector<std::string> passwords = {
        "clé à molette €",
        "    ",
        "  blanks around  ",
        "\t\t\t\t",
        "a\rb\vc\fd",
        "\x01\x02\x1B[0m\x1F\x7F",
        "\xEF\xBB\xBFmark first",
        "-pwd",
        "\"quo'ted\\n\"",
        "\xC2\x85\xE2\x80\xA8\xE2\x80\xA9\xC2\xA0", // next line, line and paragraph separator, no-break space
        "\xEF\xBF\xBD\xEF\xBF\xBE\xEF\xBF\xBF\xEF\xBF\xBD", // U+FFFD and two noncharacters are valid
        "\xF0\x9F\x94\x91\xF0\x9F\x94\x91",                 // two characters that count as four
        "e\xCC\x81\x65\xCC\x81",                            // decomposed
        std::string(1023, 'x'),
    };
    for (const std::string &password : passwords) {
        EXPECT_EQ(passwordOutput(folder.path(), password + "\n" + password), question::RepeatPassword())
            << password;
        EXPECT_TRUE(OpensPrivateKey(folder / "keys/privateKey.pem", password)) << password;
        EXPECT_FALSE(OpensPrivateKey(folder / "keys/privateKey.pem", password + "x"));
        std::filesystem::remove_all(folder / "keys");
    }
}

TEST_F(DialoguePasswords, LongPasswordsOpenTheirKeys)
{
    std::string password;
    for (int i = 0; i < 1023; ++i)
        password += "€";
    EXPECT_EQ(passwordOutput(folder.path(), password + "\n" + password), question::RepeatPassword());
    EXPECT_TRUE(OpensPrivateKey(folder / "keys/privateKey.pem", password));
}

TEST_F(DialoguePasswords, PasswordLengthsAreCountedInUtf16)
{
    // One character of two UTF-16 code units. Two of these characters are accepted in the list above.
    const std::string key = "\xF0\x9F\x94\x91";
    EXPECT_EQ(passwordOutput(folder.path(), key + "\nabc€\nabc€"),
              Error("Error: password must be more than 3 caracters\n") +
                  Error("Error: incorrect password : " + key + "\n") + question::PasswordAgain() +
                  question::RepeatPassword());
}

TEST_F(DialoguePasswords, PasswordsThatAreInvalidUtf8AreAskedForAgain)
{
    const std::vector<std::string> refused = {
        "abcd\xFF",             // never part of UTF-8
        "\xE9t\xE9 1999",       // Latin-1
        "abcd\xE2\x82",         // truncated
        "\xC0\x80\xC0\x80 abc", // an overlong zero character
        "\xED\xA0\x80 abc",     // half of a surrogate pair
        "\xF4\x90\x80\x80 abc", // beyond the last character
        std::string("abcd\0efgh", 9),
        std::string("\0abcd", 5),
        std::string("abcd\0", 5),
    };
    for (const std::string &password : refused) {
        EXPECT_EQ(passwordOutput(folder.path(), password + "\nwell typed\nwell typed"),
                  question::PasswordAgain() + question::RepeatPassword());
        EXPECT_TRUE(OpensPrivateKey(folder / "keys/privateKey.pem", "well typed"));
    }
}

TEST_F(DialoguePasswords, APasswordThatIsInvalidUtf8MatchesNoOther)
{
    // Each invalid byte is shown as U+FFFD.
    const std::string mark = "\xEF\xBF\xBD";
    EXPECT_EQ(passwordOutput(folder.path(), "abc" + mark + "\nabc\xFF\nabcd\nabcd"),
              question::RepeatPassword() + Error("Error: password doesn't match\n") + question::Password() +
                  question::RepeatPassword());
}

TEST_F(DialoguePasswords, PasswordsMatchOnlyIfTheyAreIdentical)
{
    const std::string mismatch = Error("Error: password doesn't match\n");
    for (const char *again : {"Abcd", "abcd ", " abcd", "abc", "abcde", "", "ábcd"})
        EXPECT_EQ(passwordOutput(folder.path(), std::string("abcd\n") + again + "\nabcd\nabcd"),
                  question::RepeatPassword() + mismatch + question::Password() + question::RepeatPassword());
}

TEST_F(DialoguePasswords, PasswordsAreNotEditedOnATerminal)
{
    // Keys that otherwise erase, end the input or quote.
    const std::string password = "abc\x7F\x15\x17\x04\x16\x08\x12 end";
    PseudoTerminal terminal(keygen());
    ASSERT_TRUE(choosesOnePair(terminal));
    ASSERT_TRUE(terminal.answers(question::Password(), password + "\r"));
    ASSERT_TRUE(terminal.answers(question::RepeatPassword(), password + "\n"));
    ASSERT_TRUE(terminal.answers(question::curve, "1\r"));
    ASSERT_TRUE(terminal.answers(question::cipher, "1\n"));
    EXPECT_EQ(terminal.end().status, 0);
    EXPECT_TRUE(OpensPrivateKey(folder / "keys/privateKey.pem", password));
}

// What is shown

TEST_F(DialoguePasswords, PasswordsAreHiddenWhileTheyAreTyped)
{
    PseudoTerminal terminal(keygen());
    ASSERT_TRUE(choosesOnePair(terminal));
    const auto expectHidden = [&] {
        EXPECT_FALSE(terminal.echoes());
        EXPECT_FALSE(terminal.editsLines());
    };
    for (const auto &[question, answer] : DialogueScript{{question::Password(), "one"},
                                                         {question::PasswordAgain(), "first try"},
                                                         {question::RepeatPassword(), "other"},
                                                         {question::Password(), "secret"},
                                                         {question::RepeatPassword(), "secret"}}) {
        ASSERT_TRUE(terminal.shows(question));
        expectHidden();
        terminal.type(answer + "\n");
    }
    ASSERT_TRUE(terminal.shows(question::curve));
    EXPECT_TRUE(terminal.echoes());
    EXPECT_FALSE(terminal.editsLines());
    EXPECT_EQ(terminal.screen().find("secret"), std::string::npos);
    EXPECT_EQ(terminal.screen().find("other"), std::string::npos);
    EXPECT_EQ(terminal.screen().find("first try"), std::string::npos);

    terminal.type("1\n");
    ASSERT_TRUE(terminal.shows(question::cipher));
    EXPECT_TRUE(terminal.echoes());
    EXPECT_FALSE(terminal.editsLines());
    terminal.type("1\n");
    EXPECT_EQ(terminal.end().status, 0);
    EXPECT_TRUE(terminal.echoes());
    EXPECT_FALSE(terminal.editsLines());
}

TEST_F(DialoguePasswords, AnswersToOtherQuestionsAreShownAndEdited)
{
    PseudoTerminal terminal(keygen());
    ASSERT_TRUE(terminal.shows(question::Folder("home/Corvane_KeyGen/")));
    EXPECT_TRUE(terminal.echoes());
    EXPECT_TRUE(terminal.editsLines());
    terminal.type("new/keyx\x7Fs\n"); // corrected before the program reads it
    ASSERT_TRUE(terminal.answers(Info("new\n") + question::createFolder, "y\n"));
    ASSERT_TRUE(terminal.shows(question::packets));
    EXPECT_TRUE(terminal.echoes());
    EXPECT_TRUE(terminal.editsLines());
    terminal.type("1\n");
    ASSERT_TRUE(AnswersAll(terminal, LastSteps("abcd")));
    EXPECT_EQ(terminal.end().status, 0);
    EXPECT_TRUE(OpensPrivateKey(folder / "new/keys/privateKey.pem", "abcd"));
}

TEST_F(DialoguePasswords, PasswordsAreHiddenWhenStandardOutputIsAPipe)
{
    PseudoTerminal terminal([&] {
        Exec("sh", {.arguments = {"-c", "HOME=home \"$0\" | cat", KeygenProgram()}, .folder = folder.path()});
    });
    ASSERT_TRUE(isAskedForOne(terminal));
    EXPECT_FALSE(terminal.echoes());
    terminal.type("secret\n");
    ASSERT_TRUE(terminal.answers(question::RepeatPassword(), "secret\n"));
    ASSERT_TRUE(terminal.shows(question::curve));
    EXPECT_TRUE(terminal.echoes());
    EXPECT_EQ(terminal.screen().find("secret"), std::string::npos);
}

// Signals

TEST_F(DialoguePasswords, TheTerminalEchoesAgainAfterASignalEndsTheRun)
{
    for (const int number : {SIGINT, SIGHUP, SIGTERM, SIGQUIT}) {
        PseudoTerminal terminal(keygen());
        ASSERT_TRUE(isAskedForOne(terminal));
        if (number == SIGTERM) {
            terminal.type("half a pass");
        } else if (number == SIGHUP) {
            terminal.type("password\n");
            ASSERT_TRUE(terminal.shows(question::RepeatPassword()));
        }
        terminal.sendSignal(number);
        EXPECT_EQ(terminal.end().signal, number);
        EXPECT_TRUE(terminal.echoes());
        EXPECT_TRUE(terminal.editsLines());
    }
    EXPECT_FALSE(std::filesystem::exists(folder / "keys"));
}

TEST_F(DialoguePasswords, TheTerminalEchoesAgainAfterATypedInterrupt)
{
    PseudoTerminal terminal(keygen());
    ASSERT_TRUE(isAskedForOne(terminal));
    const std::string screen = terminal.screen();
    terminal.type("half\x03");
    EXPECT_EQ(terminal.end().signal, SIGINT);
    EXPECT_TRUE(terminal.echoes());
    EXPECT_TRUE(terminal.editsLines());
    EXPECT_EQ(terminal.screen(), screen);
}

TEST_F(DialoguePasswords, PasswordsCanBeTypedAfterTheRunWasStopped)
{
    PseudoTerminal terminal(keygen());
    ASSERT_TRUE(isAskedForOne(terminal));
    terminal.type("\x1A");
    ASSERT_TRUE(terminal.stopsBy(SIGTSTP));
    EXPECT_TRUE(terminal.echoes());
    EXPECT_TRUE(terminal.editsLines());
    terminal.continueInForeground();
    ASSERT_TRUE(terminal.reaches([&] { return !terminal.echoes(); }));
    terminal.type("secret\n");
    ASSERT_TRUE(terminal.answers(question::RepeatPassword(), "secret\n"));
    ASSERT_TRUE(terminal.answers(question::curve, "1\n"));
    ASSERT_TRUE(terminal.answers(question::cipher, "1\n"));
    EXPECT_EQ(terminal.end().status, 0);
    EXPECT_EQ(terminal.screen().find("secret"), std::string::npos);
    EXPECT_TRUE(OpensPrivateKey(folder / "keys/privateKey.pem", "secret"));
}

TEST_F(DialoguePasswords, PasswordsAreStillAskedForAfterIgnoredSignals)
{
    PseudoTerminal terminal([&] {
        signal(SIGHUP, SIG_IGN); // as nohup does
        signal(SIGINT, SIG_IGN);
        ExecKeygen(folder.path());
    });
    ASSERT_TRUE(isAskedForOne(terminal));
    terminal.sendSignal(SIGHUP);
    terminal.type("\x03secret\n");
    ASSERT_TRUE(terminal.shows(question::RepeatPassword()));
    EXPECT_FALSE(terminal.echoes());
    terminal.sendSignal(SIGTERM);
    EXPECT_EQ(terminal.end().signal, SIGTERM);
    EXPECT_TRUE(terminal.echoes());
}

} // namespace
