#include "keygen/help.h"

#include "keygen/run_settings.h"
#include "tests/support/captured_output.h"
#include "tests/support/child_run.h"
#include "tests/support/fresh_settings.h"
#include "tests/support/transcript.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace {

using testing::ElementsAreArray;

/// The messages in `output`: each ends with the reset sequence, which a prompt's prefix repeats.
std::vector<std::string> messagesIn(const std::string &output)
{
    const std::string reset = "\x1B[0m\x1B[39;49m";
    std::vector<std::string> messages;
    for (std::size_t begin = 0; begin < output.size();) {
        const std::size_t end = output.find(reset, begin + 1) + reset.size();
        messages.push_back(output.substr(begin, end - begin));
        begin = end;
    }
    return messages;
}

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

TEST_F(Help, SendsAGreenHeadingAndFifteenPlainMessages)
{
    const std::string indent(30, ' ');
    const std::vector<std::string> expected = {
        Success("Available commands:\n\n"),
        Prompt("--help        -h   -?       : Show help\n"),
        Prompt("--version          -v       : Display this program version\n"),
        Prompt("--password         -pwd     : Password of the private keys <Mondatory>\n"),
        Prompt(indent + "Note: you must include 8 passwords when you would like to generate 8 keypairs\n"),
        Prompt(indent + "Syntax 1: -pwd <Password>\n"),
        Prompt(indent + "Syntax 2: -pwd <Password1> <Password2> <Password3> <Password4>\n"),
        Prompt(std::string(45, ' ') + "<Password5> <Password6> <Password7> <Password8>\n"),
        Prompt("--private-key      -prvk    : Private key file path\n" + indent +
               "Syntax: -prvk <privateKey_file_path.pem>\n"),
        Prompt("--public-key       -pubk    : Public key file path\n" + indent +
               "Syntax: -pubk <publicKey_file_path.pem>\n"),
        Prompt("--public-key-hash  -hash    : Hash image file path\n" + indent +
               "Syntax: -hash <hash_file_path.bin>\n"),
        Prompt("--absolute-path    -abs     : Absolute path for output files\n" + indent +
               "Syntax: -abs <folder_path>\n"),
        Prompt("--prvkey-enc       -pe      : Encrypting private key algorithm\n" + indent +
               "Syntax: -pe aes128\n" + indent + "Syntax: -pe aes256 <Default>\n"),
        Prompt("--ecc-algo         -ecc     : ECC algorithm for keys generation:\n" + indent +
               "1. prime256v1   2. brainpoolP256t1\n" + indent + "Syntax: -ecc 1 <Default>\n" + indent +
               "Syntax: -ecc 2\n\n"),
        Prompt("--number-key       -n       : Generate number of key pairs {1 or 8}\n" + indent +
               "with Hash of table of Hash of (algo + publicKey) file\n" + indent + "Syntax: -n <number>\n"),
        Prompt("--random           -rand    : Generate random data and save the result in a binary file\n" +
               indent + "Syntax: -rand <size_bytes> <output_path.bin>\n"),
    };
    EXPECT_EQ(expected.size(), 16U);
    EXPECT_THAT(messagesIn(helpText()), ElementsAreArray(expected));
}

TEST_F(Help, LeavesTheEndOfTheProcessToItsCaller)
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

TEST_F(Banner, FramesTheNameAndTheVersionBetweenTwoBoldRules)
{
    const std::string rule = "    \x1B[01m  " + std::string(67, '-') + "\n";
    CapturedOutput output;
    ShowBanner();
    EXPECT_EQ(output.text(), Title(rule) +
                                 Title(std::string(22, ' ') + "Orvelle Key Generator v2.16.0" +
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

TEST_F(Version, IsOneMessage)
{
    CapturedOutput output;
    ShowVersion();
    EXPECT_EQ(output.text(), Info("Version: v2.16.0\n"));
}

TEST_F(Version, ShowsTheVersionOfTheSettings)
{
    KeyGenVersion = "v3";
    CapturedOutput output;
    ShowVersion();
    EXPECT_EQ(output.text(), Info("Version: v3\n"));
}

} // namespace
