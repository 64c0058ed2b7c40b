#include "keygen/run_settings.h"

#include "tests/support/fresh_settings.h"

#include <gmock/gmock.h>

#include <set>
#include <string>
#include <type_traits>

namespace {

using testing::ElementsAre;

/// Looks at the settings before the first test can change them.
class SettingsAtStart : public testing::Environment {
public:
    void SetUp() override
    {
        if (text.empty())
            text = SettingsText();
    }

    static std::string text;
};

std::string SettingsAtStart::text;

const testing::Environment *const settingsAtStart = testing::AddGlobalTestEnvironment(new SettingsAtStart);

TEST(RunSettings, StartWithOnePairToGenerateAndNothingElse)
{
    EXPECT_EQ(SettingsAtStart::text, "numberKeys=1\n"
                                     "numberPassword=1\n"
                                     "isKeyGeneration=true\n"
                                     "isKeyNumberCommand=false\n"
                                     "isPasswordCmd=false\n"
                                     "isRandomCmd=false\n"
                                     "password=\"\"\n"
                                     "passwordTable=[]\n"
                                     "passwordOK=false\n"
                                     "publicKeyPath=\"\"\n"
                                     "privateKeyPath=\"\"\n"
                                     "hashPath=\"\"\n"
                                     "absolutePath=\"\"\n"
                                     "NewPath=\"\"\n"
                                     "InfoPath=\"\"\n"
                                     "tmpPath=\"\"\n"
                                     "tempabsolutePath=\"\"\n"
                                     "randSize=0\n"
                                     "randPath=\"\"\n"
                                     "aes128=false\n"
                                     "brainpoolP256t1=false\n"
                                     "wrongParameterAES=false\n"
                                     "wrongParameterECC=false\n"
                                     "true_command=false\n"
                                     "KeyGenVersion=\"v2.16.0\"\n"
                                     "pubKeysTable=0 of 8\n"
                                     "newPubKeysHashTable=0 of 8\n"
                                     "tableHashValue=false\n");
}

TEST(RunSettings, HoldNumbersOf32Bits)
{
    static_assert(std::is_same_v<decltype(numberKeys), std::int32_t>);
    static_assert(std::is_same_v<decltype(numberPassword), std::int32_t>);
    static_assert(std::is_same_v<decltype(randSize), std::int32_t>);
    EXPECT_EQ(packetSize, 8);
}

TEST(OptionTable, ListsTheAcceptedNamesInOrder)
{
    EXPECT_THAT(tab_command_name,
                ElementsAre("-prvk", "--private-key", "-pubk", "--public-key", "-hash", "--public-key-hash",
                            "-abs", "--absolute-path", "--password", "-pwd", "--prvkey-enc", "-pe",
                            "--ecc-algo", "-ecc", "--help", "-h", "-?", "--version", "-v", "--number-key",
                            "-n", "-rand", "--random"));
}

TEST(OptionTable, NamesEachOptionOnceWhateverTheLetterCase)
{
    std::set<QString> names;
    for (const QString &name : tab_command_name)
        names.insert(name.toLower());
    EXPECT_EQ(names.size(), 23U);
}

class PasswordOf : public FreshSettings {};

TEST_F(PasswordOf, ReturnsTheEntryAtTheIndex)
{
    passwordTable = {"first", "second"};
    EXPECT_EQ(passwordOf(0), "first");
    EXPECT_EQ(passwordOf(1), "second");
}

TEST_F(PasswordOf, CountsAMissingEntryAsAnEmptyPassword)
{
    EXPECT_EQ(passwordOf(0), "");
    passwordTable = {"first", "second"};
    EXPECT_EQ(passwordOf(2), "");
    EXPECT_EQ(passwordOf(7), "");
}

const QString wiped(4, QChar(0));

class Passwords : public FreshSettings {
protected:
    /// Sets the passwords of the run, and keeps what they share.
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

TEST_F(Passwords, AreWiped)
{
    setPasswords();
    WipePasswords();
    expectWiped();
}

TEST_F(Passwords, AreWipedWhereTheListSharesThem)
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
