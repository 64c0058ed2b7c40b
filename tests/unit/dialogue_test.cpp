#include "keygen/dialogue.h"

#include "keygen/run_settings.h"
#include "tests/support/captured_output.h"
#include "tests/support/dialogue_script.h"
#include "tests/support/pseudo_terminal.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>

#include <unistd.h>

namespace {

std::string textOf(const QString &value)
{
    return value.toStdString();
}

/// The settings that the dialogue is to fill.
std::string settings()
{
    std::ostringstream text;
    text << std::boolalpha << "absolutePath " << textOf(absolutePath) << "\nisKeyGeneration "
         << isKeyGeneration << "\nisKeyNumberCommand " << isKeyNumberCommand << "\nnumberKeys " << numberKeys
         << "\nnumberPassword " << numberPassword << "\nisPasswordCmd " << isPasswordCmd << "\nisRandomCmd "
         << isRandomCmd << "\npassword " << textOf(password) << "\npasswordTable";
    for (const QString &entry : passwordTable)
        text << " " << textOf(entry);
    text << "\npasswordOK " << passwordOK << "\nbrainpoolP256t1 " << brainpoolP256t1 << "\naes128 " << aes128
         << "\npublicKeyPath " << textOf(publicKeyPath) << "\nprivateKeyPath " << textOf(privateKeyPath)
         << "\nhashPath " << textOf(hashPath) << "\n";
    return text.str();
}

const char *const begin = "settings:\n";

/// Answers by `script`, in a folder of its own with the folder keys in it, and returns the settings that
/// result. `before` runs before the dialogue.
std::string settingsAfter(
    const DialogueScript &script, const std::function<void()> &before = [] {})
{
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "keys");
    PseudoTerminal terminal([&] {
        if (chdir(folder.path().c_str()) != 0 || setenv("HOME", "/home/user", 1) != 0)
            _exit(1);
        before();
        RunDialogue();
        std::fputs(begin, stdout);
        std::fputs(settings().c_str(), stdout);
    });
    for (const auto &[question, answer] : script)
        EXPECT_TRUE(terminal.answers(question, answer + "\n"));
    const ProgramResult result = terminal.end();
    EXPECT_EQ(result.status, 0);
    return result.output.substr(result.output.find(begin) + std::string(begin).size());
}

DialogueScript folderStep(const std::string &answer)
{
    return {{question::Folder("/home/user/Corvane_KeyGen/"), answer}};
}

DialogueScript eightPasswords()
{
    DialogueScript script;
    for (int i = 0; i < 8; ++i)
        script = script + PasswordSteps("pass" + std::to_string(i), " [" + std::to_string(i) + "]");
    return script;
}

DialogueScript choices(const std::string &curve, const std::string &cipher)
{
    return {{question::curve, curve}, {question::cipher, cipher}};
}

const char *const allPasswords = "pass0 pass1 pass2 pass3 pass4 pass5 pass6 pass7";

TEST(Dialogue, FillsTheSettingsOfOnePair)
{
    EXPECT_EQ(settingsAfter(folderStep("") + OnePairSteps("secret")),
              "absolutePath /home/user/Corvane_KeyGen/\n"
              "isKeyGeneration true\n"
              "isKeyNumberCommand false\n"
              "numberKeys 1\n"
              "numberPassword 1\n"
              "isPasswordCmd false\n"
              "isRandomCmd false\n"
              "password secret\n"
              "passwordTable secret\n"
              "passwordOK true\n"
              "brainpoolP256t1 false\n"
              "aes128 false\n"
              "publicKeyPath /home/user/Corvane_KeyGen/publicKey.pem\n"
              "privateKeyPath /home/user/Corvane_KeyGen//privateKey.pem\n"
              "hashPath /home/user/Corvane_KeyGen/publicKeyhash.bin\n");
}

TEST(Dialogue, FillsTheSettingsOfAPacket)
{
    EXPECT_EQ(settingsAfter(folderStep("keys") + DialogueScript{{question::packets, "2"}} + eightPasswords() +
                                choices("2", "2"),
                            [] { isKeyGeneration = false; }),
              "absolutePath keys\n"
              "isKeyGeneration true\n"
              "isKeyNumberCommand true\n"
              "numberKeys 8\n"
              "numberPassword 1\n"
              "isPasswordCmd false\n"
              "isRandomCmd false\n"
              "password pass7\n"
              "passwordTable " +
                  std::string(allPasswords) +
                  "\n"
                  "passwordOK true\n"
                  "brainpoolP256t1 true\n"
                  "aes128 true\n"
                  "publicKeyPath keys/publicKey.pem\n"
                  "privateKeyPath keys/privateKey.pem\n"
                  "hashPath keys/publicKeyhash.bin\n");
}

TEST(Dialogue, ChoosesCurveAndCipherApart)
{
    const DialogueScript beginning =
        folderStep("") + DialogueScript{{question::packets, "1"}} + PasswordSteps("secret");
    const std::string onlyCurve = settingsAfter(beginning + choices("2", "1"));
    EXPECT_NE(onlyCurve.find("brainpoolP256t1 true\naes128 false\n"), std::string::npos);
    const std::string onlyCipher = settingsAfter(beginning + choices("1", "2"));
    EXPECT_NE(onlyCipher.find("brainpoolP256t1 false\naes128 true\n"), std::string::npos);
}

TEST(Dialogue, LeavesTheSettingsOfOnePairAsTheyAre)
{
    const std::string filled = settingsAfter(folderStep("") + OnePairSteps("secret"), [] {
        isKeyGeneration = false;
        isKeyNumberCommand = true;
    });
    EXPECT_NE(filled.find("isKeyGeneration false\nisKeyNumberCommand true\nnumberKeys 1\n"),
              std::string::npos);
}

TEST(Dialogue, AsksForEightPasswordsUnlessThereIsOnePair)
{
    const std::string filled = settingsAfter(folderStep("") + DialogueScript{{question::packets, "1"}} +
                                                 eightPasswords() + choices("1", "1"),
                                             [] { numberKeys = 3; });
    EXPECT_NE(filled.find(std::string("passwordTable ") + allPasswords + "\n"), std::string::npos);
    EXPECT_NE(filled.find("numberKeys 3\n"), std::string::npos);
}

TEST(Dialogue, AsksForNoPasswordThatIsConfirmedAlready)
{
    const std::string filled =
        settingsAfter(folderStep("") + DialogueScript{{question::packets, "1"}} + choices("1", "1"), [] {
            passwordOK = true;
            password = "before";
        });
    EXPECT_NE(filled.find("password before\npasswordTable\npasswordOK true\n"), std::string::npos);
}

TEST(Dialogue, ForgetsPasswordsThatWereNotConfirmed)
{
    const std::string filled = settingsAfter(folderStep("") +
                                             DialogueScript{{question::packets, "1"},
                                                            {question::Password(), "first"},
                                                            {question::RepeatPassword(), "other"}} +
                                             PasswordSteps("second") + choices("1", "1"));
    EXPECT_NE(filled.find("password second\npasswordTable second\n"), std::string::npos);
}

TEST(Dialogue, RepeatsOnlyTheMistypedPasswordOfAPacket)
{
    DialogueScript passwords = eightPasswords();
    const DialogueScript mistyped = {{question::Password(" [2]"), "mistaken"},
                                     {question::RepeatPassword(" [2]"), "mistyped"}};
    passwords.insert(passwords.begin() + 4, mistyped.begin(), mistyped.end());
    const std::string filled = settingsAfter(folderStep("") + DialogueScript{{question::packets, "2"}} +
                                             passwords + choices("1", "1"));
    EXPECT_NE(filled.find(std::string("passwordTable ") + allPasswords + "\n"), std::string::npos);
}

TEST(Dialogue, BeginsWithTheNoticeOnATerminalShownAndEdited)
{
    PseudoTerminal terminal([] {
        setenv("HOME", "/home/user", 1);
        RunDialogue();
    });
    ASSERT_TRUE(terminal.shows(question::Folder("/home/user/Corvane_KeyGen/")));
    EXPECT_EQ(terminal.screen(), Info("Corvane Key Generator [Version v2.16.0] <'-? for help>\n"
                                      "Copyright (C) Halvex. All rights reserved.\n") +
                                     Success("Interactive mode...\n") +
                                     question::Folder("/home/user/Corvane_KeyGen/"));
    EXPECT_TRUE(terminal.echoes());
    EXPECT_TRUE(terminal.editsLines());
}

} // namespace
