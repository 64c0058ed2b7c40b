#include "keygen/run_settings.h"

#include "tests/support/fresh_settings.h"
#include "tests/support/transcript.h"

#include <gmock/gmock.h>

#include <set>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using testing::ElementsAreArray;
using testing::IsSupersetOf;

/// Records the settings before the first test can change them.
class SettingsAtStart : public testing::Environment {
public:
    void SetUp() override
    {
        if (text.empty())
            text = SettingsText();
        ResetSettings();
    }

    static std::string text;
};

std::string SettingsAtStart::text;

const testing::Environment *const settingsAtStart = testing::AddGlobalTestEnvironment(new SettingsAtStart);

TEST(RunSettings, TheInitialSettingsGenerateOnePairAndNothingElse)
{
    EXPECT_THAT(LinesOf(SettingsAtStart::text),
                IsSupersetOf<std::string>({"numberKeys=1",
                                           "numberPassword=1",
                                           "isKeyGeneration=true",
                                           "isKeyNumberCommand=false",
                                           "isPasswordCmd=false",
                                           "isRandomCmd=false",
                                           "randPath=\"\"",
                                           std::string("KeyGenVersion=\"") + versionShown + "\"",
                                           "password=\"\"",
                                           "publicKeyPath=\"\"",
                                           "privateKeyPath=\"\"",
                                           "hashPath=\"\"",
                                           "absolutePath=\"\"",
                                           "NewPath=\"\"",
                                           "tmpPath=\"\"",
                                           "InfoPath=\"\"",
                                           "tempabsolutePath=\"\"",
                                           "passwordTable=[]",
                                           "passwordOK=false",
                                           "randSize=0",
                                           "aes128=false",
                                           "brainpoolP256t1=false",
                                           "wrongParameterAES=false",
                                           "wrongParameterECC=false",
                                           "true_command=false",
                                           "pubKeysTable=0 of 8",
                                           "newPubKeysHashTable=0 of 8",
                                           "tableHashValue=false"}));
}

TEST(RunSettings, NumbersHave32Bits)
{
    static_assert(std::is_same_v<decltype(numberKeys), std::int32_t>);
    static_assert(std::is_same_v<decltype(numberPassword), std::int32_t>);
    static_assert(std::is_same_v<decltype(randSize), std::int32_t>);
    EXPECT_EQ(packetSize, 8);
}

TEST(OptionTable, TheNamesThatScriptsUseComeFirstInOrder)
{
    const std::vector<QString> names = {"-prvk",        "--private-key",
                                        "-pubk",        "--public-key",
                                        "-hash",        "--public-key-hash",
                                        "-abs",         "--absolute-path",
                                        "--password",   "-pwd",
                                        "--prvkey-enc", "-pe",
                                        "--ecc-algo",   "-ecc",
                                        "--help",       "-h",
                                        "-?",           "--version",
                                        "-v",           "--number-key",
                                        "-n",           "-rand",
                                        "--random"};
    ASSERT_GE(tab_command_name.size(), names.size());
    EXPECT_THAT(names, ElementsAreArray(tab_command_name.begin(), names.size()));
}

TEST(OptionTable, NamesAreUniqueIgnoringLetterCase)
{
    std::set<QString> names;
    for (const QString &name : tab_command_name)
        EXPECT_TRUE(names.insert(name.toLower()).second) << name.toStdString();
}

class PasswordOf : public FreshSettings {};

TEST_F(PasswordOf, ReturnsTheEntryAtTheIndex)
{
    passwordTable = {"first", "second"};
    EXPECT_EQ(passwordOf(0), "first");
    EXPECT_EQ(passwordOf(1), "second");
}

TEST_F(PasswordOf, ReturnsAnEmptyPasswordForAMissingEntry)
{
    EXPECT_EQ(passwordOf(0), "");
    passwordTable = {"first", "second"};
    EXPECT_EQ(passwordOf(2), "");
    EXPECT_EQ(passwordOf(7), "");
}

const QString wiped(4, QChar(0));

class Passwords : public FreshSettings {
protected:
    /// Sets the passwords of the run, and keeps copies that share their data.
    void setPasswords()
    {
        password = QString("pass");
        kept.append(password);
        for (const char *entry : {"one1", "two2", "thr3", "fou4", "fiv5", "six6", "sev7", "eig8"})
            passwordTable.append(QString(entry));
        kept.append(passwordTable);
    }

    void expectWiped() const
    {
        EXPECT_TRUE(password.isEmpty());
        EXPECT_TRUE(passwordTable.isEmpty());
        EXPECT_EQ(kept.size(), 9);
        for (const QString &text : kept)
            EXPECT_EQ(text, wiped);
    }

    QList<QString> kept;
};

TEST_F(Passwords, PasswordsAreWiped)
{
    setPasswords();
    WipePasswords();
    expectWiped();
}

TEST_F(Passwords, PasswordsThatAreSharedWithTheListAreWiped)
{
    password = QString("pass");
    passwordTable.append(password);
    const QString sharing = password;
    WipePasswords();
    EXPECT_EQ(sharing, wiped);
    EXPECT_TRUE(password.isEmpty());
    EXPECT_TRUE(passwordTable.isEmpty());
}

} // namespace
