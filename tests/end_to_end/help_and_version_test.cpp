#include "tests/support/transcript.h"
#include "tests/support/user_run.h"

#include <gtest/gtest.h>

namespace {

using Arguments = std::vector<std::string>;

std::string bannerAndHelp()
{
    return Transcript("banner.txt") + Transcript("help.txt");
}

TEST(Version, PrintsTheBannerAndTheVersionLine)
{
    const TemporaryFolder folder;
    for (const char *option : {"-v", "--version", "-V", "--Version"})
        EXPECT_TRUE(EndedAsIn(RunIn(folder, {option}), 0, "version.txt")) << option;
    EXPECT_EQ(FilesIn(folder), "");
}

TEST(Help, PrintsTheBannerAndTheHelpText)
{
    const TemporaryFolder folder;
    for (const char *option : {"-?", "-h", "--help", "-H", "--HELP"})
        EXPECT_TRUE(Ended(RunIn(folder, {option}), 0, bannerAndHelp())) << option;
    EXPECT_EQ(FilesIn(folder), "");
}

TEST(Help, TheEarlierOfHelpAndVersionIsAnswered)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(EndedAsIn(RunIn(folder, {"-v", "-h"}), 0, "version.txt"));
    EXPECT_TRUE(EndedAsIn(RunIn(folder, {"--version", "-?"}), 0, "version.txt"));
    EXPECT_TRUE(Ended(RunIn(folder, {"-h", "-v"}), 0, bannerAndHelp()));
    EXPECT_TRUE(Ended(RunIn(folder, {"-?", "--version"}), 0, bannerAndHelp()));
}

TEST(Help, HelpIgnoresValuesAndAllOtherOptions)
{
    const TemporaryFolder folder;
    const Arguments others = {"-abs", "keys", "-pwd",  "abc",   "-n",     "3",     "-pe",
                              "des",  "-ecc", "wrong", "-prvk", "/k.pem", "-rand", "5"};
    Arguments help = others;
    help.insert(help.end(), {"-h", "with", "values"});
    EXPECT_TRUE(Ended(RunIn(folder, help), 0, bannerAndHelp()));
    Arguments version = others;
    version.insert(version.end(), {"-v", "with", "values"});
    EXPECT_TRUE(EndedAsIn(RunIn(folder, version), 0, "version.txt"));
    EXPECT_EQ(FilesIn(folder), "");
}

} // namespace
