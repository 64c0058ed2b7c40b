#include "tests/support/captured_output.h"
#include "tests/support/transcript.h"
#include "tests/support/user_run.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

using Arguments = std::vector<std::string>;

/// The longest argument that the system passes on.
constexpr std::size_t longest = 128 * 1024 - 1;

const std::string argumentError = Error("Error: Argument error.Use -? for help.\n");
const std::string generating = Info("Prime256v1 curve is selected. \n") +
                               Info("AES_256_cbc algorithm is selected for private key encryption\n") +
                               Info("Generating Prime256v1 keys... \n");
const std::string pairFailed = Error("Error: An error occured while generating key files\n");

/// Expects `messages` after the banner and no file left behind.
void expectRefusal(const Arguments &arguments, const std::string &messages, const std::string &input = {})
{
    const TemporaryFolder folder;
    EXPECT_TRUE(Ended(RunIn(folder, arguments, input), 1, Transcript("banner.txt") + messages));
    EXPECT_EQ(FilesIn(folder), "");
}

TEST(BadInput, InvalidUtf8IsRefusedInAValue)
{
    for (const char *value :
         {"\xFF", "abc\xE2\x82", "pass\xC0\x80word", "\xED\xA0\x80key", "\xF4\x90\x80\x80", "caf\xE9"}) {
        for (const char *option : {"-pwd", "-pubk", "-abs", "-pe", "-n", "-v", "-unknown"})
            expectRefusal({option, value}, argumentError);
        expectRefusal({"-rand", "16", std::string(value) + ".bin"}, argumentError);
        expectRefusal({value}, argumentError);
    }
}

TEST(BadInput, InvalidUtf8IsReplacedInADisplayedOptionName)
{
    expectRefusal({"-\xFF"}, InvalidCommand("-\uFFFD"));
    expectRefusal({"-pwd\xE9", "password"}, InvalidCommand("-pwd\uFFFD"));
}

TEST(BadInput, AVeryLongArgumentIsRefusedLikeAnyOther)
{
    const std::string name = "-" + std::string(longest - 1, 'x');
    expectRefusal({name}, InvalidCommand(name));
    expectRefusal({std::string(longest, 'x')}, argumentError);
    expectRefusal({"-pwd", std::string(longest, 'x')},
                  Error("Error: password must be less than 1024 caracters\n") + Transcript("help.txt"));
    expectRefusal({"-pe", std::string(longest, 'x')},
                  Error("Error: wrong parameter with command -pe.\n") + Transcript("help.txt"));
    expectRefusal(
        {"-n", std::string(longest, '8')},
        Error("Wrong parameter with command --number-key/-n, permitted number value must be respected "
              "{1 or 8}.\n") +
            Transcript("help.txt"));
}

TEST(BadInput, AVeryLongArgumentIsAcceptedUnchangedAsAPath)
{
    const std::string name(longest, 'x');
    const TemporaryFolder folder;
    const ProgramResult run = RunIn(folder, {"-pwd", "password", "-prvk", name});
    EXPECT_TRUE(run.output == Transcript("banner.txt") + generating +
                                  Error("Error: creating Key File fails\n") +
                                  Error("Error occured while creating PEM file!\n") + pairFailed);
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(FilesIn(folder), "");

    const std::string random = std::string(longest - 4, 'x') + ".bin";
    expectRefusal({"-rand", "16", random}, Title("\nRandom Data Generation : \n") +
                                               Info("    Size        : 16 Bytes\n") +
                                               Info("    Output path : " + random + "\n") +
                                               Error("Failed to create output file : " + random) +
                                               Error("\nFailed to create random data file : " + random));
    expectRefusal({"-pwd", "password", "-abs", name},
                  Info(name + "\n") +
                      Reprompt("Warning: File path does not exist. Do you want to create it?\n(y/n)") +
                      Error("Error: Creating file path has failed\n") + Info(name + "/publicKey.pem\n") +
                      Error("Please make sure you have entered the correct path.\n"),
                  "y\n");
}

TEST(BadInput, APathOfThousandsOfDirectoriesIsAcceptedUnchanged)
{
    std::string path;
    while (path.size() + 2 <= longest)
        path += "a/";
    const std::string asked = path.substr(0, path.size() - 1);
    ASSERT_EQ(path.size(), longest - 1);
    expectRefusal({"-pwd", "password", "-pubk", path},
                  Info(asked + "\n") +
                      Reprompt("Warning: File path does not exist. Do you want to create it?\n(y/n)") +
                      Error("Error: Creating file path has failed\n") + Info(path + "publicKey.pem\n") +
                      Error("Please make sure you have entered the correct path.\n"),
                  "n\n");
}

TEST(BadInput, AVeryLongArgumentCreatesNoDirectoryThatItDoesNotName)
{
    // A 16-bit index would confuse the last separator with the one after "folder".
    const std::string path = "folder/" + std::string(65536, 'x') + "/p.pem";
    expectRefusal({"-pwd", "password", "-pubk", path},
                  Info(path.substr(0, path.size() - 6) + "\n") +
                      Reprompt("Warning: File path does not exist. Do you want to create it?\n(y/n)") +
                      Error("Error: Creating file path has failed\n") + Info(path + "\n") +
                      Error("Please make sure you have entered the correct path.\n"),
                  "n\n");
}

TEST(BadInput, ThousandsOfArgumentsAreAllRead)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(EndedAsIn(RunIn(folder, Arguments(5000, "-v")), 0, "version.txt"));
    Arguments options(5000, "-pe");
    for (std::size_t i = 1; i < options.size(); i += 2)
        options[i] = "aes128";
    EXPECT_TRUE(Ended(RunIn(folder, options), 0, Transcript("banner.txt")));
    EXPECT_EQ(FilesIn(folder), "");

    options.push_back("-unknown");
    expectRefusal(options, InvalidCommand("-unknown"));
    Arguments values(5000, "value");
    values[0] = "-pubk";
    expectRefusal(values, argumentError);
    expectRefusal(Arguments(5000, ""), argumentError);
}

TEST(BadInput, ControlCharactersAreAcceptedUnchanged)
{
    expectRefusal({"-\x1B[2J\n"}, InvalidCommand("-\x1B[2J\n"));
    expectRefusal({"-pwd", "\a\b\n"}, Error("Error: password must be more than 3 caracters\n") +
                                          Error("Error: incorrect password : \a\b\n\n") +
                                          Transcript("help.txt"));
    const TemporaryFolder folder;
    const ProgramResult run =
        RunIn(folder, {"-pwd", "\x01\x02\x03\x04", "-pubk", "\x1B[2J\n", "-hash", "\x7F"});
    EXPECT_TRUE(Ended(run, 0,
                      Transcript("banner.txt") + generating + Info("Private key PEM file created \n") +
                          Info("Public key PEM file created \n") + Info("public key hash file created \n") +
                          Success("Keys generated successfully.\n") + Info("+ public key:      ") +
                          Info("\x1B[2J\n\n") + Info("+ private key:     ") + Info("privateKey.pem\n") +
                          Info("+ public hash key: ") + Info("\x7F\n")));
    EXPECT_EQ(FilesIn(folder), "0444 178 \x1B[2J\n\n0400 399 privateKey.pem\n0444 32 \x7F\n");
}

TEST(BadInput, AnEmptyArgumentIsNotAnOption)
{
    expectRefusal({""}, argumentError);
    expectRefusal({"", "-h"}, argumentError);
    expectRefusal({"-ecc", ""},
                  Error("Error: wrong parameter with command -ecc.\n") + Transcript("help.txt"));
    const TemporaryFolder folder;
    EXPECT_TRUE(Ended(RunIn(folder, {"-abs", "", "-pubk", "", "-prvk", "", "-hash", ""}), 0,
                      Transcript("banner.txt")));
    EXPECT_EQ(FilesIn(folder), "");
}

TEST(BadInput, TheOptionsOfTheApplicationLibraryAreInvalidCommands)
{
    for (const char *option : {"-qmljsdebugger=x", "--qmljsdebugger=x", "-qmljsdebugger", "-style=x",
                               "-platform", "-plugin", "-session", "-reverse", "-stylesheet=x", "-qtargs"}) {
        expectRefusal({option}, InvalidCommand(option));
        expectRefusal({option, "-v"}, InvalidCommand(option));
        expectRefusal({"-pwd", "password", option}, InvalidCommand(option));
    }
}

TEST(BadInput, AnswersThatAreInvalidUtf8AreAskedForAgain)
{
    const Arguments arguments = {"-pwd", "password", "-pubk", "new/p.pem"};
    const std::string question =
        Info("new\n") + Reprompt("Warning: File path does not exist. Do you want to create it?\n(y/n)");
    const std::string declined = Error("Error: Creating file path has failed\n") + Info("new/p.pem\n") +
                                 Error("Please make sure you have entered the correct path.\n");
    const std::string again = Reprompt("(y/n)");
    expectRefusal(arguments, question + again + again + again + declined,
                  std::string("\xFF\xFE y\xE9\ny\0 n\n", 11));
    expectRefusal(arguments, question + again + declined, std::string(1000000, 'y') + " n\n");
    expectRefusal(arguments, question + declined, std::string(1000000, '\n') + "n");
    std::string many;
    for (int i = 0; i < 1000; ++i)
        many += again;
    expectRefusal(arguments, question + many + declined, [] {
        std::ostringstream words;
        for (int i = 0; i < 1000; ++i)
            words << "word" << i << (i % 3 == 0 ? '\n' : ' ');
        return words.str() + "N";
    }());
}

} // namespace
