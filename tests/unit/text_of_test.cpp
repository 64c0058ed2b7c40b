#include "src/text_of.h"

#include <gtest/gtest.h>

namespace {

TEST(TextOf, KeepsALeadingByteOrderMark)
{
    EXPECT_EQ(TextOf("\xEF\xBB\xBFpass").toStdString(), "\xEF\xBB\xBFpass");
}

TEST(TextOf, ReportsInvalidUtf8)
{
    for (const char *bytes : {"a\xFF", "abc\xE2\x82", "\xED\xA0\x80"}) {
        bool valid = true;
        EXPECT_TRUE(TextOf(bytes, &valid).contains(QChar(QChar::ReplacementCharacter)));
        EXPECT_FALSE(valid);
    }
    bool valid = false;
    EXPECT_EQ(TextOf("abc\xE2\x82\xAC", &valid).size(), 4);
    EXPECT_TRUE(valid);
}

} // namespace
