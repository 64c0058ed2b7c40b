#include "keygen/console.h"

#include "tests/support/captured_output.h"

#include <gtest/gtest.h>

namespace {

std::string printed(const QString &message, MSGTYPE type)
{
    CapturedOutput output;
    MessageOut(message, type);
    return output.text();
}

TEST(MessageOut, WritesThePrefixOfEachKindTheTextAndTheReset)
{
    EXPECT_EQ(printed("text", MSG_SUCCESS), Success("text"));
    EXPECT_EQ(printed("text", MSG_INFO), Info("text"));
    EXPECT_EQ(printed("text", MSG_PROMPT), Prompt("text"));
    EXPECT_EQ(printed("text", MSG_REPROMPT), Reprompt("text"));
    EXPECT_EQ(printed("text", MSG_ERROR), Error("text"));
    EXPECT_EQ(printed("text", MSG_TITLE), Title("text"));
}

TEST(MessageOut, NumbersTheKindsFromZeroToFive)
{
    EXPECT_EQ(MSG_SUCCESS, 0);
    EXPECT_EQ(MSG_INFO, 1);
    EXPECT_EQ(MSG_PROMPT, 2);
    EXPECT_EQ(MSG_REPROMPT, 3);
    EXPECT_EQ(MSG_ERROR, 4);
    EXPECT_EQ(MSG_TITLE, 5);
}

TEST(MessageOut, WritesNoPrefixForAnUnknownKind)
{
    EXPECT_EQ(printed("text", static_cast<MSGTYPE>(6)), std::string("text") + messageEnd);
    EXPECT_EQ(printed("text", static_cast<MSGTYPE>(-1)), std::string("text") + messageEnd);
}

TEST(MessageOut, TruncatesAMessageAtItsFirstZeroCharacter)
{
    EXPECT_EQ(printed(QString("ab") + QChar(0) + "cd", MSG_PROMPT), Prompt("ab"));
}

TEST(MessageOut, ReplacesUnpairedSurrogates)
{
    EXPECT_EQ(printed(QString("a") + QChar(0xD83D) + "b" + QChar(0xDD11), MSG_PROMPT),
              Prompt("a\uFFFDb\uFFFD"));
}

TEST(MessageOut, WritesUtf8)
{
    EXPECT_EQ(printed(QString::fromUtf8("clé €"), MSG_PROMPT), Prompt("clé €"));
}

} // namespace
