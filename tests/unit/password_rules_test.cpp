#include "keygen/password_rules.h"

#include "keygen/help.h"
#include "keygen/run_settings.h"
#include "tests/support/captured_output.h"
#include "tests/support/child_run.h"
#include "tests/support/fresh_settings.h"

#include <gtest/gtest.h>

#include <string>

namespace {

const std::string missing = Error("Error: missing -pwd (--password) parametre : password is mandatory\n");
const std::string tooLong = Error("Error: password must be less than 1024 caracters\n");
const std::string wrongNumber =
    Error("Wrong parameter with command --password/-pwd, permitted password number must be respected.\n");
const std::string eightNeeded =
    Error("You are trying to generate 8 keypairs, you need to mention consecutive 8 passwords.\n");
const std::string oneNeeded =
    Error("You are trying to generate 1 keypair, you need to mention just 1 password.\n");

std::string tooShort(const std::string &candidate)
{
    return Error("Error: password must be more than 3 caracters\n") +
           Error("Error: incorrect password : " + candidate + "\n");
}

/// The result of the password rule for `candidate`, followed by what it prints.
std::string resultFor(const QString &candidate)
{
    CapturedOutput output;
    const bool accepted = checkPassword(candidate);
    return (accepted ? "accepted" : "refused: ") + output.text();
}

QString trebleClefs(int times)
{
    return QString::fromUtf8("\xF0\x9D\x84\x9E").repeated(times);
}

TEST(PasswordRule, RefusesAnEmptyPassword)
{
    EXPECT_EQ(resultFor(""), "refused: " + missing);
    EXPECT_EQ(resultFor(QString()), "refused: " + missing);
}

TEST(PasswordRule, RefusesOneToThreeCharactersAndShowsThem)
{
    EXPECT_EQ(resultFor("a"), "refused: " + tooShort("a"));
    EXPECT_EQ(resultFor("ab"), "refused: " + tooShort("ab"));
    EXPECT_EQ(resultFor("abc"), "refused: " + tooShort("abc"));
    EXPECT_EQ(resultFor("   "), "refused: " + tooShort("   "));
}

TEST(PasswordRule, AcceptsFourTo1023CharactersSilently)
{
    for (const int length : {4, 5, 8, 512, 1022, 1023})
        EXPECT_EQ(resultFor(QString(length, 'p')), "accepted") << length;
}

TEST(PasswordRule, Refuses1024CharactersAndMoreWithoutShowingThem)
{
    for (const int length : {1024, 1025, 2048, 131072})
        EXPECT_EQ(resultFor(QString(length, 'p')), "refused: " + tooLong) << length;
}

TEST(PasswordRule, CountsACharacterOfSeveralBytesOnce)
{
    EXPECT_EQ(resultFor(QString::fromUtf8("ééé")), "refused: " + tooShort("ééé"));
    EXPECT_EQ(resultFor(QString::fromUtf8("€€€€")), "accepted");
    EXPECT_EQ(resultFor(QString::fromUtf8("€").repeated(1023)), "accepted");
    EXPECT_EQ(resultFor(QString::fromUtf8("€").repeated(1024)), "refused: " + tooLong);
}

TEST(PasswordRule, CountsACharacterOutsideTheBasicPlaneTwice)
{
    EXPECT_EQ(resultFor(trebleClefs(1)), "refused: " + tooShort("\xF0\x9D\x84\x9E"));
    EXPECT_EQ(resultFor(trebleClefs(1) + "a"), "refused: " + tooShort("\xF0\x9D\x84\x9E"
                                                                      "a"));
    EXPECT_EQ(resultFor(trebleClefs(2)), "accepted");
    EXPECT_EQ(resultFor(trebleClefs(511) + "a"), "accepted");
    EXPECT_EQ(resultFor(trebleClefs(512)), "refused: " + tooLong);
}

/// EnforcePasswordRules with the current settings.
class PasswordCheck : public FreshSettings {
protected:
    /// Applies the settings that -pwd with `passwords` makes.
    static void give(const QList<QString> &passwords)
    {
        isPasswordCmd = true;
        password = passwords.value(0);
        numberPassword = static_cast<int>(passwords.size());
        if (passwords.size() == 1 || passwords.size() == 8)
            passwordTable.append(passwords);
    }

    /// Applies the settings that -n with `pairs` makes.
    static void requestPairs(int pairs)
    {
        isKeyNumberCommand = true;
        numberKeys = pairs;
    }

    static QList<QString> goodPasswords(int count)
    {
        QList<QString> passwords;
        for (int i = 0; i < count; ++i)
            passwords.append("pass" + QString::number(i));
        return passwords;
    }

    static void expectPass()
    {
        const ChildRun run = RunInChild(EnforcePasswordRules);
        EXPECT_TRUE(run.returned);
        EXPECT_EQ(run.output, "");
        EXPECT_EQ(run.errors, "");
    }

    /// Expects `messages`, then the help text, then the end of the process with status 1.
    static void expectRefusal(const std::string &messages)
    {
        const ChildRun run = RunInChild(EnforcePasswordRules);
        EXPECT_FALSE(run.returned);
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(run.output, messages + RunInChild(ShowHelp).output);
        EXPECT_EQ(run.errors, "");
    }
};

TEST_F(PasswordCheck, AcceptsEightPasswordsForEightPairs)
{
    requestPairs(8);
    give(goodPasswords(8));
    expectPass();
}

TEST_F(PasswordCheck, RefusesAnyOtherNumberOfPasswordsForEightPairs)
{
    requestPairs(8);
    for (const int count : {0, 1, 2, 7, 9, 16, 25}) {
        give(goodPasswords(count));
        expectRefusal(wrongNumber + eightNeeded);
    }
}

TEST_F(PasswordCheck, RefusesEightPairsWithoutPasswords)
{
    requestPairs(8);
    expectRefusal(wrongNumber + eightNeeded);
}

TEST_F(PasswordCheck, AcceptsOnePasswordForAPacketOfOne)
{
    requestPairs(1);
    give({"pass"});
    expectPass();
}

TEST_F(PasswordCheck, RefusesSeveralPasswordsForAPacketOfOne)
{
    requestPairs(1);
    for (const int count : {2, 3, 7, 8, 9, 25}) {
        give(goodPasswords(count));
        expectRefusal(wrongNumber + oneNeeded);
    }
}

TEST_F(PasswordCheck, AcceptsAPacketOfOneWithoutAPasswordOption)
{
    requestPairs(1);
    expectPass();
}

TEST_F(PasswordCheck, RefusesAPasswordOptionWithoutValuesForAPacketOfOne)
{
    requestPairs(1);
    give({});
    expectRefusal(missing);
}

TEST_F(PasswordCheck, ChecksTheNumberOfPasswordsFirst)
{
    requestPairs(8);
    give({"a", "b"});
    expectRefusal(wrongNumber + eightNeeded);
}

TEST_F(PasswordCheck, AcceptsAMissingPasswordOption)
{
    expectPass();
}

TEST_F(PasswordCheck, IgnoresAPasswordThatNoOptionSet)
{
    password = "a";
    expectPass();
}

TEST_F(PasswordCheck, AppliesTheRuleToASinglePassword)
{
    give({"good"});
    expectPass();
    give({"abc"});
    expectRefusal(tooShort("abc"));
    give({""});
    expectRefusal(missing);
    give({QString(1023, 'p')});
    expectPass();
    give({QString(1024, 'p')});
    expectRefusal(tooLong);
}

TEST_F(PasswordCheck, ChecksTheLaterOfTwoPasswordOptions)
{
    give({"abc"});
    give({"good"});
    expectPass();
    EXPECT_EQ(passwordTable, (QList<QString>{"abc", "good"}));
    give({"xyz"});
    expectRefusal(tooShort("xyz"));
}

TEST_F(PasswordCheck, ChecksOnlyTheFirstOfEightPasswordsWithoutANumberOfPairs)
{
    give({"good", "", "a", "", "a", "", "a", ""});
    expectPass();
}

TEST_F(PasswordCheck, RefusesABadFirstOfEightPasswordsWithoutANumberOfPairs)
{
    give({"bad", "good", "good", "good", "good", "good", "good", "good"});
    expectRefusal(tooShort("bad"));
}

TEST_F(PasswordCheck, ReportsOnlyTheFirstBadPasswordOfEight)
{
    requestPairs(8);
    give({"good", "good", "abc", "good", "", "good", "good", "good"});
    expectRefusal(tooShort("abc"));
}

TEST_F(PasswordCheck, PrintsNothingAboutSevenAcceptedPasswordsBeforeTheEighth)
{
    requestPairs(8);
    QList<QString> passwords = goodPasswords(7);
    passwords.append("abc");
    give(passwords);
    expectRefusal(tooShort("abc"));
}

// The table then contains no password of that option.
TEST_F(PasswordCheck, RefusesOtherNumbersOfPasswordsWithoutANumberOfPairs)
{
    for (const int count : {0, 2, 3, 4, 5, 6, 7, 9, 25}) {
        give(goodPasswords(count));
        expectRefusal(missing);
    }
}

TEST_F(PasswordCheck, UsesTheTableOfAnEarlierOptionIfTheLastOneFillsNone)
{
    give({"good"});
    give({"a", "b"});
    expectPass();
}

} // namespace
