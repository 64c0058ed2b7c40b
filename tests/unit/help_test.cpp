#include "keygen/help.h"

#include "keygen/run_settings.h"
#include "tests/support/captured_output.h"
#include "tests/support/child_run.h"
#include "tests/support/fresh_settings.h"
#include "tests/support/transcript.h"

#include <gtest/gtest.h>

#include <string>

namespace {

class Help : public FreshSettings {
protected:
    static std::string helpText()
    {
        CapturedOutput output;
        ShowHelp();
        return output.text();
    }
};

TEST_F(Help, PrintsTheWholeText)
{
    EXPECT_TRUE(MatchesTranscript("help.txt", helpText()));
}

TEST_F(Help, DoesNotEndTheProcess)
{
    const ChildRun run = RunInChild(ShowHelp);
    EXPECT_TRUE(run.returned);
    EXPECT_EQ(run.output, helpText());
    EXPECT_EQ(run.errors, "");
}

TEST_F(Help, NamesEveryAcceptedOption)
{
    const QString text = QString::fromStdString(helpText());
    for (const QString &name : tab_command_name)
        EXPECT_TRUE(text.contains(name)) << name.toStdString();
}

class Banner : public FreshSettings {};

TEST_F(Banner, ContainsTheNameAndTheVersionBetweenTwoBoldLines)
{
    const std::string rule = "    \x1B[01m  " + std::string(67, '-') + "\n";
    CapturedOutput output;
    ShowBanner();
    EXPECT_EQ(output.text(), Title(rule) +
                                 Title(std::string(22, ' ') + "Orvelle Key Generator " + versionShown +
                                       std::string(30, ' ') + "\n") +
                                 Title(rule + "\n"));
}

TEST_F(Banner, ShowsTheVersionOfTheSettings)
{
    KeyGenVersion = "v3";
    CapturedOutput output;
    ShowBanner();
    EXPECT_NE(output.text().find("Orvelle Key Generator v3  "), std::string::npos);
}

class Version : public FreshSettings {};

TEST_F(Version, TheVersionIsPrintedAsOneMessage)
{
    CapturedOutput output;
    ShowVersion();
    EXPECT_EQ(output.text(), Info(std::string("Version: ") + versionShown + "\n"));
}

TEST_F(Version, ShowsTheVersionOfTheSettings)
{
    KeyGenVersion = "v3";
    CapturedOutput output;
    ShowVersion();
    EXPECT_EQ(output.text(), Info("Version: v3\n"));
}

} // namespace
