#include "keygen/dialogue.h"

#include "keygen/run_settings.h"
#include "tests/support/captured_output.h"
#include "tests/support/dialogue_script.h"
#include "tests/support/pseudo_terminal.h"
#include "tests/support/settings.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/transcript.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include <unistd.h>

namespace {

const char *const begin = "settings:\n";

/// Runs the dialogue with the answers of `script`, in a directory that contains the directory keys, and
/// returns the settings that it changes. `before` runs before the dialogue.
std::string settingsAfter(
    const DialogueScript &script, const std::function<void()> &before = [] {})
{
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "keys");
    PseudoTerminal terminal([&] {
        if (chdir(folder.path().c_str()) != 0 || setenv("HOME", "/home/user", 1) != 0)
            _exit(1);
        ResetSettings();
        before();
        RunDialogue();
        std::fputs(begin, stdout);
        std::fputs(ChangedSettings().c_str(), stdout);
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

const std::string tableOfEight = "passwordTable=[\"pass0\", \"pass1\", \"pass2\", \"pass3\", \"pass4\", "
                                 "\"pass5\", \"pass6\", \"pass7\"]\n";

TEST(Dialogue, SetsTheSettingsForOnePair)
{
    EXPECT_EQ(settingsAfter(folderStep("") + OnePairSteps("secret")),
              "password=\"secret\"\n"
              "publicKeyPath=\"/home/user/Corvane_KeyGen/publicKey.pem\"\n"
              "privateKeyPath=\"/home/user/Corvane_KeyGen//privateKey.pem\"\n"
              "hashPath=\"/home/user/Corvane_KeyGen/publicKeyhash.bin\"\n"
              "absolutePath=\"/home/user/Corvane_KeyGen/\"\n"
              "passwordTable=[\"secret\"]\n"
              "passwordOK=true\n");
}

TEST(Dialogue, SetsTheSettingsForAPacket)
{
    EXPECT_EQ(settingsAfter(folderStep("keys") + DialogueScript{{question::packets, "2"}} + eightPasswords() +
                                choices("2", "2"),
                            [] { isKeyGeneration = false; }),
              "numberKeys=8\n"
              "isKeyNumberCommand=true\n"
              "password=\"pass7\"\n"
              "publicKeyPath=\"keys/publicKey.pem\"\n"
              "privateKeyPath=\"keys/privateKey.pem\"\n"
              "hashPath=\"keys/publicKeyhash.bin\"\n"
              "absolutePath=\"keys\"\n" +
                  tableOfEight +
                  "passwordOK=true\n"
                  "aes128=true\n"
                  "brainpoolP256t1=true\n");
}

TEST(Dialogue, SetsTheCurveAndTheCipherIndependently)
{
    const DialogueScript beginning =
        folderStep("") + DialogueScript{{question::packets, "1"}} + PasswordSteps("secret");
    const std::string onlyCurve = settingsAfter(beginning + choices("2", "1"));
    EXPECT_NE(onlyCurve.find("passwordOK=true\nbrainpoolP256t1=true\n"), std::string::npos);
    const std::string onlyCipher = settingsAfter(beginning + choices("1", "2"));
    EXPECT_NE(onlyCipher.find("passwordOK=true\naes128=true\n"), std::string::npos);
}

TEST(Dialogue, ChangesNoOtherSettingForOnePair)
{
    const std::string filled = settingsAfter(folderStep("") + OnePairSteps("secret"), [] {
        isKeyGeneration = false;
        isKeyNumberCommand = true;
    });
    EXPECT_EQ(filled.find("isKeyGeneration=false\nisKeyNumberCommand=true\n"), 0U);
}

TEST(Dialogue, AsksForEightPasswordsUnlessThereIsOnePair)
{
    const std::string filled = settingsAfter(folderStep("") + DialogueScript{{question::packets, "1"}} +
                                                 eightPasswords() + choices("1", "1"),
                                             [] { numberKeys = 3; });
    EXPECT_NE(filled.find(tableOfEight), std::string::npos);
    EXPECT_NE(filled.find("numberKeys=3\n"), std::string::npos);
}

TEST(Dialogue, DoesNotAskForAPasswordThatIsAlreadyConfirmed)
{
    const std::string filled =
        settingsAfter(folderStep("") + DialogueScript{{question::packets, "1"}} + choices("1", "1"), [] {
            passwordOK = true;
            password = "before";
        });
    EXPECT_NE(filled.find("absolutePath=\"/home/user/Corvane_KeyGen/\"\npasswordOK=true\n"),
              std::string::npos);
    EXPECT_EQ(filled.find("password=\"before\"\n"), 0U);
}

TEST(Dialogue, DiscardsPasswordsThatWereNotConfirmed)
{
    const std::string filled = settingsAfter(folderStep("") +
                                             DialogueScript{{question::packets, "1"},
                                                            {question::Password(), "first"},
                                                            {question::RepeatPassword(), "other"}} +
                                             PasswordSteps("second") + choices("1", "1"));
    EXPECT_NE(filled.find("password=\"second\"\n"), std::string::npos);
    EXPECT_NE(filled.find("passwordTable=[\"second\"]\n"), std::string::npos);
}

TEST(Dialogue, AsksAgainOnlyForTheMistypedPasswordOfAPacket)
{
    DialogueScript passwords = eightPasswords();
    const DialogueScript mistyped = {{question::Password(" [2]"), "mistaken"},
                                     {question::RepeatPassword(" [2]"), "mistyped"}};
    passwords.insert(passwords.begin() + 4, mistyped.begin(), mistyped.end());
    const std::string filled = settingsAfter(folderStep("") + DialogueScript{{question::packets, "2"}} +
                                             passwords + choices("1", "1"));
    EXPECT_NE(filled.find(tableOfEight), std::string::npos);
}

TEST(Dialogue, StartsWithTheNoticeAndLeavesEchoAndEditingOn)
{
    PseudoTerminal terminal([] {
        setenv("HOME", "/home/user", 1);
        RunDialogue();
    });
    ASSERT_TRUE(terminal.shows(question::Folder("/home/user/Corvane_KeyGen/")));
    EXPECT_EQ(terminal.screen(), Info(std::string("Corvane Key Generator [Version ") + versionShown +
                                      "] <'-? for help>\n"
                                      "Copyright (C) Halvex. All rights reserved.\n") +
                                     Success("Interactive mode...\n") +
                                     question::Folder("/home/user/Corvane_KeyGen/"));
    EXPECT_TRUE(terminal.echoes());
    EXPECT_TRUE(terminal.editsLines());
}

} // namespace
