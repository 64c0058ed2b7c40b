#include "tests/support/captured_output.h"
#include "tests/support/transcript.h"
#include "tests/support/user_run.h"

#include <gtest/gtest.h>

namespace {

using Arguments = std::vector<std::string>;

const char *const eight =
    "You are trying to generate 8 keypairs, you need to mention consecutive 8 passwords.\n";
const char *const one = "You are trying to generate 1 keypair, you need to mention just 1 password.\n";

/// Expects each command line to be refused: the banner, then `messages`, and no file left behind.
void expectRefusal(const std::vector<Arguments> &commandLines, const std::string &messages)
{
    for (const Arguments &arguments : commandLines) {
        const TemporaryFolder folder;
        EXPECT_TRUE(Ended(RunIn(folder, arguments), 1, Transcript("banner.txt") + messages))
            << testing::PrintToString(arguments);
        EXPECT_EQ(FilesIn(folder), "") << testing::PrintToString(arguments);
    }
}

void expectRefusalWithHelp(const std::vector<Arguments> &commandLines, const std::string &messages)
{
    expectRefusal(commandLines, messages + Transcript("help.txt"));
}

std::string wrongCount(const char *expectation)
{
    return Error("Wrong parameter with command --password/-pwd, permitted password number must be "
                 "respected.\n") +
           Error(expectation);
}

std::string tooShort(const std::string &password)
{
    return Error("Error: password must be more than 3 caracters\n") +
           Error("Error: incorrect password : " + password + "\n");
}

std::string missing()
{
    return Error("Error: missing -pwd (--password) parametre : password is mandatory\n");
}

std::string tooLong()
{
    return Error("Error: password must be less than 1024 caracters\n");
}

Arguments with(Arguments arguments, std::size_t count, const std::string &value)
{
    arguments.insert(arguments.end(), count, value);
    return arguments;
}

TEST(CommandLineErrors, AnArgumentThatIsNotAnOptionIsRefusedWithoutTheHelp)
{
    expectRefusal({{"key.pem"}, {""}, {"", "-h"}, {" -h"}, {"key.pem", "-v"}},
                  Error("Error: Argument error.Use -? for help.\n"));
}

TEST(CommandLineErrors, TwentyFiveValuesAreAcceptedAndTheTwentySixthIsRefused)
{
    const TemporaryFolder folder;
    Arguments most = with({"-pubk"}, 25, "value");
    most.push_back("-v");
    EXPECT_TRUE(EndedAsIn(RunIn(folder, most), 0, "version.txt"));
    expectRefusal({with({"-pubk"}, 26, "value"), with({"-v"}, 26, "value"), with({"-v", "-x"}, 26, "value")},
                  Error("Error: Argument error.Use -? for help.\n"));
}

TEST(CommandLineErrors, TheFirstUnknownOptionIsNamed)
{
    expectRefusal({{"-Xyz"}, {"-Xyz", "value"}, {"-pwd", "pass", "-Xyz"}, {"-Xyz", "-abc"}},
                  InvalidCommand("-Xyz"));
    expectRefusal({{"-"}}, InvalidCommand("-"));
    expectRefusal({{"--"}}, InvalidCommand("--"));
    expectRefusal({{"-pw"}}, InvalidCommand("-pw"));
    expectRefusal({{"-pwdd", "pass"}}, InvalidCommand("-pwdd"));
    expectRefusal({{"-pwd=pass"}}, InvalidCommand("-pwd=pass"));
}

TEST(CommandLineErrors, AValueThatBeginsWithAHyphenIsTreatedAsAnOption)
{
    expectRefusal({{"-pwd", "-abc"}, {"-abs", "keys", "-pwd", "-abc"}}, InvalidCommand("-abc"));
    expectRefusal({{"-rand", "-5", "noise.bin"}}, InvalidCommand("-5"));
}

TEST(CommandLineErrors, AnUnknownOptionTakesPrecedenceOverHelpAndVersion)
{
    expectRefusal({{"-x", "-v"}, {"-v", "-x"}, {"-h", "-x"}, {"-x", "--help"}}, InvalidCommand("-x"));
}

TEST(CommandLineErrors, TheTwoLongNamesThatAreNotInTheTableAreRefused)
{
    expectRefusal({{"--hash-image", "h.bin"}}, InvalidCommand("--hash-image"));
    expectRefusal({{"--prvkey-enc ", "aes128"}}, InvalidCommand("--prvkey-enc "));
}

TEST(CommandLineErrors, ANumberOfKeysOtherThanOneAndEightIsRefused)
{
    const std::string message = Error(
        "Wrong parameter with command --number-key/-n, permitted number value must be respected {1 or 8}.\n");
    expectRefusalWithHelp({{"-n", "2"},
                           {"-n", "0"},
                           {"-n", "7"},
                           {"-n", "9"},
                           {"-n"},
                           {"-n", ""},
                           {"-n", "eight"},
                           {"-n", "8.0"},
                           {"-n", "0x8"},
                           {"-n", "8 1"},
                           {"-n", "4294967304"},
                           {"-n", "2147483648"},
                           {"--number-key", "3"}},
                          message);
    // Immediately: before later options, and before the errors that are reported at the end.
    expectRefusalWithHelp({{"-n", "2", "-rand", "5"},
                           {"-pe", "des", "-ecc", "p521", "-n", "2"},
                           {"-pwd", "abc", "-n", "2"},
                           {"-n", "8", "-n", "2"},
                           {"-n", "2", "-n", "8"}},
                          message);
}

TEST(CommandLineErrors, RandomDataWithoutExactlyTwoValuesIsRefused)
{
    const std::string message = Error("Wrong parameters with command --random/-rand.\n");
    expectRefusalWithHelp({{"-rand"},
                           {"-rand", "16"},
                           {"-rand", "noise.bin"},
                           {"-rand", "16", "noise.bin", "more.bin"},
                           {"--random", "16"}},
                          message);
    expectRefusalWithHelp({{"-rand", "16", "-n", "2"}, {"-pe", "des", "-rand", "16"}}, message);
}

TEST(CommandLineErrors, RandomDataInAFileWithoutTheExtensionBinIsRefused)
{
    const std::string message =
        Error("Wrong parameters with command --random/-rand. Output file extension should be .bin\n");
    expectRefusalWithHelp({{"-rand", "16", "noise.BIN"},
                           {"-rand", "16", "noise"},
                           {"-rand", "16", ""},
                           {"-rand", "16", "bin"},
                           {"-rand", "16", "noise.bin "},
                           {"--random", "16", "noise.Bin"}},
                          message);
    expectRefusalWithHelp(
        {{"-rand", "16", "noise.txt", "-n", "2"}, {"-ecc", "p521", "-rand", "16", "noise.txt"}}, message);
}

TEST(CommandLineErrors, AnUnknownCipherIsRefusedAfterAllOptionsAreApplied)
{
    const std::string message = Error("Error: wrong parameter with command -pe.\n");
    expectRefusalWithHelp({{"-pe", "aes192"},
                           {"-pe"},
                           {"-pe", ""},
                           {"-pe", "aes128 "},
                           {"-PE", "AES"},
                           {"-pe", "aes192", "-pe", "aes128"},
                           {"-pe", "aes256", "-pe", "aes192"}},
                          message);
    // Before the error about the curve, in any order of the options, and before the paths and the passwords
    // are checked.
    expectRefusalWithHelp({{"-ecc", "p521", "-pe", "aes192"},
                           {"-pe", "aes192", "-ecc", "p521"},
                           {"-pe", "aes192", "-abs", "out", "-prvk", "/k.pem"},
                           {"-pe", "aes192", "-pwd", "abc"}},
                          message);
}

TEST(CommandLineErrors, AnUnknownCurveIsRefusedAfterAllOptionsAreApplied)
{
    expectRefusalWithHelp({{"-ecc", "secp256k1"},
                           {"-ecc"},
                           {"-ecc", ""},
                           {"-ecc", "3"},
                           {"-ecc", "0"},
                           {"-ecc", "01"},
                           {"--ecc-algo", "brainpoolP256r1"},
                           {"-ecc", "p521", "-ecc", "1"},
                           {"-ecc", "p521", "-abs", "out", "-prvk", "/k.pem"},
                           {"-ecc", "p521", "-pwd", "abc"}},
                          Error("Error: wrong parameter with command -ecc.\n"));
}

TEST(CommandLineErrors, AnAbsolutePathUnderABaseDirectoryIsRefusedWithoutTheHelp)
{
    const auto refused = [](const char *key, const char *folder) {
        return Error("Error: Absolute path for " + std::string(key) +
                     " is not accepted when command '-abs' is used\t") +
               Info(std::string(folder) + "\n");
    };
    expectRefusal({{"-abs", "out", "-pubk", "/tmp/p.pem"}, {"-pubk", "/tmp/", "-abs", "out/"}},
                  refused("public Key", "/tmp/"));
    expectRefusal({{"-abs", "out", "-prvk", "/tmp/k.pem"}}, refused("private Key", "/tmp/"));
    expectRefusal({{"-abs", "out", "-hash", "/a/b/h.bin"}}, refused("public Key Hash", "/a/b/"));
    // The first of the three is named, and the passwords are no longer checked.
    expectRefusal({{"-abs", "out", "-hash", "/h/", "-prvk", "/k/", "-pubk", "/p.pem", "-pwd", "abc"}},
                  refused("public Key", "/"));
    expectRefusal({{"-abs", "out", "-hash", "/h/", "-prvk", "/k/"}}, refused("private Key", "/k/"));
}

TEST(CommandLineErrors, APacketOfEightWithoutEightPasswordsIsRefused)
{
    expectRefusalWithHelp({{"-n", "8"},
                           {"-n", "8", "-pwd"},
                           with({"-n", "8", "-pwd"}, 1, "pass"),
                           with({"-n", "8", "-pwd"}, 7, "pass"),
                           with({"-abs", "out", "-n", "8", "-pwd"}, 9, "pass"),
                           with({"-n", "08", "-pwd"}, 7, "abc"),
                           with({"-n", "+8", "-pwd"}, 7, "abc")},
                          wrongCount(eight));
}

TEST(CommandLineErrors, APacketOfOneWithSeveralPasswordsIsRefused)
{
    expectRefusalWithHelp({{"-n", "1", "-pwd", "pass", "word"},
                           with({"-abs", "out", "-n", "1", "-pwd"}, 8, "pass"),
                           {"-n", "8", "-n", "1", "-pwd", "abc", "abc"}},
                          wrongCount(one));
}

TEST(CommandLineErrors, APasswordOfFewerThanFourCharactersIsRefused)
{
    expectRefusalWithHelp({{"-pwd", "abc"},
                           {"-abs", "out", "-pwd", "abc"},
                           {"--password", "abc"},
                           {"-pwd", "abc", "-rand", "16", "noise.bin"},
                           {"-n", "1", "-pwd", "abc"},
                           {"-pwd", "password", "-pwd", "abc"}},
                          tooShort("abc"));
    expectRefusalWithHelp({{"-pwd", "a"}}, tooShort("a"));
    expectRefusalWithHelp({{"-pwd", "é€z"}}, tooShort("é€z"));
}

TEST(CommandLineErrors, CharactersOutsideTheBasicPlaneCountTwice)
{
    expectRefusalWithHelp({{"-pwd", "🔑a"}}, tooShort("🔑a"));
    const TemporaryFolder folder;
    EXPECT_TRUE(Ended(RunIn(folder, {"-pwd", "🔑🔑"}), 0, Transcript("banner.txt")));
    EXPECT_TRUE(Ended(RunIn(folder, {"-pwd", Repeated("🔑", 511) + "a"}), 0, Transcript("banner.txt")));
    expectRefusalWithHelp({{"-pwd", Repeated("🔑", 512)}}, tooLong());
}

TEST(CommandLineErrors, APasswordOf1024CharactersIsRefusedAndNotShown)
{
    expectRefusalWithHelp({{"-pwd", Repeated("a", 1024)}, {"-pwd", Repeated("€", 1024)}}, tooLong());
    const TemporaryFolder folder;
    EXPECT_TRUE(Ended(RunIn(folder, {"-pwd", Repeated("€", 1023)}), 0, Transcript("banner.txt")));
}

TEST(CommandLineErrors, AMissingPasswordIsRefused)
{
    expectRefusalWithHelp({{"-pwd", ""},
                           {"-pwd"},
                           {"-abs", "out", "-pwd"},
                           {"-pwd", "pass", "word"},
                           with({"-pwd"}, 7, "password"),
                           with({"-pwd"}, 9, "password"),
                           {"-n", "1", "-pwd", ""}},
                          missing());
}

TEST(CommandLineErrors, EachOfEightPasswordsIsCheckedAndNoOther)
{
    const Arguments packet = {"-abs", "out",  "-n",   "8",    "-pwd", "p111",
                              "p222", "p333", "p444", "p555", "p666", "p777"};
    expectRefusalWithHelp({with(packet, 1, "p88")}, tooShort("p88"));
    expectRefusalWithHelp({with(packet, 1, "")}, missing());
    expectRefusalWithHelp({with(packet, 1, Repeated("a", 1024))}, tooLong());
    // The first refusal ends the checks.
    expectRefusalWithHelp({{"-n", "8", "-pwd", "p111", "abc", "p333", "p444", "", "p666", "p777", "xyz"}},
                          tooShort("abc"));
    // Without a number of keys one pair is made, and only the first password is used.
    expectRefusalWithHelp({with({"-pwd", "abc"}, 7, "password")}, tooShort("abc"));
    const TemporaryFolder folder;
    EXPECT_TRUE(Ended(RunIn(folder, with({"-pwd", "password"}, 7, "abc")), 0, Transcript("banner.txt")));
}

TEST(CommandLineErrors, OnlyTheLastPasswordIsChecked)
{
    const TemporaryFolder folder;
    EXPECT_TRUE(Ended(RunIn(folder, {"-pwd", "abc", "-pwd", "password"}), 0, Transcript("banner.txt")));
}

} // namespace
