#include "keygen/secrets.h"

#include "keygen/run_settings.h"
#include "tests/support/fresh_settings.h"

#include <gtest/gtest.h>

namespace {

const QString wiped(4, QChar(0));

TEST(Wipe, EmptiesAText)
{
    QString text = "abcd";
    Wipe(text);
    EXPECT_TRUE(text.isEmpty());
    QByteArray bytes = "abcd";
    Wipe(bytes);
    EXPECT_TRUE(bytes.isEmpty());
}

TEST(Wipe, OverwritesTheCharactersInPlace)
{
    // What shares them sees what became of them.
    QString text = QString("abcd");
    const QString sharing = text;
    Wipe(text);
    EXPECT_EQ(sharing, wiped);

    QByteArray bytes = QByteArray("abcd");
    const QByteArray sharingBytes = bytes;
    Wipe(bytes);
    EXPECT_EQ(sharingBytes, QByteArray(4, '\0'));
}

TEST(Wipe, LeavesLiteralsAlone)
{
    QString text = QStringLiteral("abcd");
    const QString sharing = text;
    Wipe(text);
    EXPECT_TRUE(text.isEmpty());
    EXPECT_EQ(sharing, "abcd");
}

TEST(Wipe, DoesNothingToAnEmptyText)
{
    QString text;
    Wipe(text);
    EXPECT_TRUE(text.isEmpty());
}

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
