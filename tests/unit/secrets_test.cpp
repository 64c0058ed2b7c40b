#include "keygen/secrets.h"

#include "keygen/run_settings.h"
#include "tests/support/fresh_settings.h"

#include <gtest/gtest.h>

namespace {

TEST(Wipe, EmptiesAText)
{
    QString text = QString::fromUtf8("clé €");
    Wipe(text);
    EXPECT_EQ(text, "");
    QByteArray bytes("password");
    Wipe(bytes);
    EXPECT_EQ(bytes, "");
}

TEST(Wipe, OverwritesTheCharactersInPlace)
{
    const QString sharing = QString::fromUtf8("clé €");
    QString text = sharing;
    Wipe(text);
    EXPECT_EQ(sharing, QString(5, QChar(0)));

    const QByteArray sharingBytes("password");
    QByteArray bytes = sharingBytes;
    Wipe(bytes);
    EXPECT_EQ(sharingBytes, QByteArray(8, '\0'));
}

TEST(Wipe, LeavesLiteralsAsTheyAre)
{
    QString text = QStringLiteral("literal");
    const QString same = text;
    Wipe(text);
    EXPECT_EQ(text, "");
    EXPECT_EQ(same, "literal");
    QByteArray bytes = QByteArrayLiteral("literal");
    const QByteArray sameBytes = bytes;
    Wipe(bytes);
    EXPECT_EQ(bytes, "");
    EXPECT_EQ(sameBytes, "literal");
}

TEST(Wipe, TakesEmptyTexts)
{
    QString text;
    Wipe(text);
    QByteArray bytes;
    Wipe(bytes);
    EXPECT_EQ(text, "");
    EXPECT_EQ(bytes, "");
}

class WipedPasswords : public FreshSettings {};

TEST_F(WipedPasswords, AreThoseOfTheSettings)
{
    const QString first = QString::fromUtf8("first");
    const QString second = QString::fromUtf8("second");
    password = first;
    passwordTable = {first, second};
    absolutePath = "kept";
    WipePasswords();
    EXPECT_EQ(ChangedSettings(), "absolutePath=\"kept\"\n");
    EXPECT_EQ(first, QString(5, QChar(0)));
    EXPECT_EQ(second, QString(6, QChar(0)));
}

} // namespace
