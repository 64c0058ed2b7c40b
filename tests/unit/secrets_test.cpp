#include "keygen/secrets.h"

#include <gtest/gtest.h>

namespace {

const QString wiped(4, QChar(0));

TEST(Wipe, ClearsAText)
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
    // Copies that share the characters show whether they were overwritten.
    QString text = QString("abcd");
    const QString sharing = text;
    Wipe(text);
    EXPECT_EQ(sharing, wiped);

    QByteArray bytes = QByteArray("abcd");
    const QByteArray sharingBytes = bytes;
    Wipe(bytes);
    EXPECT_EQ(sharingBytes, QByteArray(4, '\0'));
}

TEST(Wipe, DoesNotChangeLiterals)
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

} // namespace
