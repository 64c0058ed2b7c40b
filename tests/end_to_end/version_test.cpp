#include "tests/support/program_run.h"
#include "tests/support/transcript.h"

#include <gtest/gtest.h>

namespace {

TEST(Version, PrintsBannerAndVersionLine)
{
    for (const char *option : {"-v", "--version", "-V", "--Version"}) {
        const ProgramResult run = RunKeygen({.arguments = {option}});
        EXPECT_TRUE(MatchesTranscript("version.txt", run.output));
        EXPECT_EQ(run.errors, "");
        EXPECT_EQ(run.status, 0);
    }
}

} // namespace
