#include "keygen/command_line.h"

#include "keygen/run_settings.h"
#include "tests/support/captured_output.h"
#include "tests/support/child_run.h"
#include "tests/support/fresh_settings.h"
#include "tests/support/transcript.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace {

using Arguments = QList<QByteArray>;

const std::string argumentError = Error("Error: Argument error.Use -? for help.\n");
const std::string cipherError = Error("Error: wrong parameter with command -pe.\n");
const std::string curveError = Error("Error: wrong parameter with command -ecc.\n");
const std::string numberError = Error(
    "Wrong parameter with command --number-key/-n, permitted number value must be respected {1 or 8}.\n");
const std::string randomCountError = Error("Wrong parameters with command --random/-rand.\n");
const std::string randomExtensionError =
    Error("Wrong parameters with command --random/-rand. Output file extension should be .bin\n");

const std::string versionLine = Info(std::string("Version: ") + versionShown + "\n");

class CommandLine : public FreshSettings {
protected:
    /// The settings that `arguments` change.
    static std::string settingsFrom(const Arguments &arguments)
    {
        ResetSettings();
        CapturedOutput output;
        ParseCommandLine(arguments);
        EXPECT_EQ(output.text(), "");
        return ChangedSettings();
    }

    static void expectEnd(const Arguments &arguments, const std::string &output, int status)
    {
        ResetSettings();
        const ChildRun run = RunInChild([&] { ParseCommandLine(arguments); });
        EXPECT_FALSE(run.returned);
        EXPECT_TRUE(Same(run.output, output));
        EXPECT_EQ(run.errors, "");
        EXPECT_EQ(run.status, status);
    }

    static void expectError(const Arguments &arguments, const std::string &output)
    {
        expectEnd(arguments, output, 1);
    }

    static void expectErrorWithHelp(const Arguments &arguments, const std::string &message)
    {
        expectEnd(arguments, message + Transcript("help.txt"), 1);
    }
};

// Collecting the arguments

TEST_F(CommandLine, ChangesNothingWithoutArguments)
{
    EXPECT_EQ(settingsFrom({}), "");
}

TEST_F(CommandLine, RefusesAFirstArgumentThatIsNotAnOption)
{
    for (const char *argument : {"key.pem", "pwd", "?", " -v", "/h", "\xE2\x80\x93v"})
        expectError({argument}, argumentError);
}

TEST_F(CommandLine, RefusesAnEmptyArgumentInPlaceOfAnOption)
{
    expectError({""}, argumentError);
    expectError({"", "-v"}, argumentError);
}

TEST_F(CommandLine, RefusesABadArgumentBeforeItAnswersHelp)
{
    expectError({"key.pem", "-h"}, argumentError);
}

TEST_F(CommandLine, TreatsAnArgumentWithADashAsAnOption)
{
    expectError({"-pwd", "-abc"}, InvalidCommand("-abc"));
    expectError({"-pwd", "good", "-"}, InvalidCommand("-"));
    EXPECT_EQ(settingsFrom({"-pubk", "-prvk", "k.pem"}), "privateKeyPath=\"k.pem\"\n");
}

TEST_F(CommandLine, AcceptsEmptyValues)
{
    EXPECT_EQ(settingsFrom({"-pwd", "", "-abs", "out"}), "isPasswordCmd=true\n"
                                                         "absolutePath=\"out\"\n"
                                                         "passwordTable=[\"\"]\n");
}

Arguments withValues(const QByteArray &option, int count)
{
    Arguments arguments(count + 1, "value");
    arguments[0] = option;
    return arguments;
}

TEST_F(CommandLine, Accepts25ValuesOfOneOption)
{
    EXPECT_EQ(settingsFrom(withValues("-pwd", 24)),
              "numberPassword=24\nisPasswordCmd=true\npassword=\"value\"\n");
    EXPECT_EQ(settingsFrom(withValues("-pwd", 25)),
              "numberPassword=25\nisPasswordCmd=true\npassword=\"value\"\n");
    EXPECT_EQ(settingsFrom(withValues("-pwd", 25) + withValues("-pubk", 1)),
              "numberPassword=25\nisPasswordCmd=true\npassword=\"value\"\npublicKeyPath=\"value\"\n");
}

TEST_F(CommandLine, RefusesThe26thValueOfAnOption)
{
    expectError(withValues("-pwd", 26), argumentError);
    expectError(withValues("-h", 26), argumentError);
    expectError(withValues("-pwd", 27), argumentError);
}

TEST_F(CommandLine, AcceptsAnyNumberOfOptions)
{
    for (const int count : {19, 20, 21, 1000}) {
        Arguments arguments;
        for (int i = 1; i < count; ++i)
            arguments += {"-pubk", "p" + QByteArray::number(i)};
        arguments += {"-prvk", "last"};
        EXPECT_EQ(settingsFrom(arguments),
                  "publicKeyPath=\"p" + std::to_string(count - 1) + "\"\nprivateKeyPath=\"last\"\n");
    }
}

TEST_F(CommandLine, AcceptsAnArgumentOf128KiB)
{
    const std::string path(131071, 'p');
    EXPECT_EQ(settingsFrom({"-abs", path.c_str()}), "absolutePath=\"" + path + "\"\n");
    const std::string name = "-" + path;
    expectError({name.c_str()}, InvalidCommand(name));
}

// Encoding

TEST_F(CommandLine, ReadsValuesAsUtf8)
{
    EXPECT_EQ(settingsFrom({"-abs", "clés €\xF0\x9D\x84\x9E"}), "absolutePath=\"clés €\xF0\x9D\x84\x9E\"\n");
    EXPECT_EQ(absolutePath.size(), 8);
}

TEST_F(CommandLine, KeepsAByteOrderMarkAndControlCharacters)
{
    EXPECT_EQ(settingsFrom({"-pwd", "\xEF\xBB\xBFpass"}), "isPasswordCmd=true\n"
                                                          "password=\"\xEF\xBB\xBFpass\"\n"
                                                          "passwordTable=[\"\xEF\xBB\xBFpass\"]\n");
    EXPECT_EQ(settingsFrom({"-abs", "a\nb\x1B\t\x7F"}), "absolutePath=\"a\nb\x1B\t\x7F\"\n");
}

TEST_F(CommandLine, RefusesAValueThatIsInvalidUtf8)
{
    for (const char *value : {"\xFF", "pass\xE9", "abc\xE2\x82", "\xC0\xAF", "\xED\xA0\x80", "a\x80z"}) {
        expectError({"-pwd", value}, argumentError);
        expectError({"-pwd", "good", value}, argumentError);
        expectError({"-v", "-abs", value}, argumentError);
        expectError({"-nonsense", value}, argumentError);
    }
}

TEST_F(CommandLine, ReportsANameThatIsInvalidUtf8)
{
    expectError({"-p\xFFq"}, InvalidCommand("-p\xEF\xBF\xBDq"));
    expectError({"-pwd\xFF"}, InvalidCommand("-pwd\xEF\xBF\xBD"));
}

// Names

TEST_F(CommandLine, ReportsTheFirstUnknownName)
{
    expectError({"-x"}, InvalidCommand("-x"));
    expectError({"--"}, InvalidCommand("--"));
    expectError({"-pwd", "good", "-Unknown", "-other"}, InvalidCommand("-Unknown"));
    expectError({"-pwdx", "good"}, InvalidCommand("-pwdx"));
    expectError({"-pw", "good"}, InvalidCommand("-pw"));
    expectError({"--pwd", "good"}, InvalidCommand("--pwd"));
    expectError({"-pwd ", "good"}, InvalidCommand("-pwd "));
    expectError({"-pwd=good"}, InvalidCommand("-pwd=good"));
    expectError({"-clé"}, InvalidCommand("-clé"));
}

TEST_F(CommandLine, ReportsAnUnknownNameBeforeHelpVersionAndWrongValues)
{
    expectError({"-x", "-v"}, InvalidCommand("-x"));
    expectError({"-h", "-x"}, InvalidCommand("-x"));
    expectError({"-n", "2", "-x"}, InvalidCommand("-x"));
}

TEST_F(CommandLine, RefusesTheNamesThatAreNotInTheTable)
{
    expectError({"--hash-image", "h.bin"}, InvalidCommand("--hash-image"));
    expectError({"--prvkey-enc ", "aes128"}, InvalidCommand("--prvkey-enc "));
}

TEST_F(CommandLine, IgnoresTheNamesThatNoCommandHas)
{
    EXPECT_EQ(settingsFrom({"--public-key-hash", "h.bin"}), "");
    EXPECT_EQ(settingsFrom({"--PUBLIC-KEY-HASH"}), "");
    EXPECT_EQ(settingsFrom({"--prvkey-enc", "aes128"}), "");
    EXPECT_EQ(settingsFrom({"--prvkey-enc", "nonsense"}), "");
    EXPECT_EQ(settingsFrom({"-pe", "aes128", "--prvkey-enc", "aes256"}), "aes128=true\n");
}

TEST_F(CommandLine, KeepsTheResultOfTheNameCheck)
{
    settingsFrom({"-abs", "out"});
    EXPECT_TRUE(true_command);
}

TEST_F(CommandLine, AcceptsEveryNameInTheTableInAnyLetterCase)
{
    for (const QString &name : tab_command_name) {
        for (const QString &typed : {name, name.toUpper()}) {
            ResetSettings();
            // A wrong value, or help, ends the process, but an unknown name must not be the reason.
            const ChildRun run = RunInChild([&] { ParseCommandLine({typed.toUtf8(), "8"}); });
            EXPECT_EQ(run.output.find("Invalid command"), std::string::npos) << typed.toStdString();
        }
    }
}

TEST_F(CommandLine, AppliesOrAnswersEveryNameInTheTableExceptTwo)
{
    std::vector<std::string> withoutEffect;
    for (const QString &name : tab_command_name) {
        ResetSettings();
        const ChildRun run = RunInChild([&] {
            ParseCommandLine({name.toUtf8(), "8"});
            std::fputs(ChangedSettings().c_str(), stdout);
        });
        if (run.output.empty())
            withoutEffect.push_back(name.toStdString());
    }
    EXPECT_EQ(withoutEffect, std::vector<std::string>({"--public-key-hash", "--prvkey-enc"}));
}

// Help and version

TEST_F(CommandLine, AnswersHelp)
{
    for (const char *name : {"-?", "-h", "--help", "-H", "--HELP", "--Help"})
        expectEnd({name}, Transcript("help.txt"), 0);
}

TEST_F(CommandLine, AnswersVersion)
{
    for (const char *name : {"-v", "--version", "-V", "--Version", "--VERSION"})
        expectEnd({name}, versionLine, 0);
}

TEST_F(CommandLine, AnswersTheFirstOfHelpAndVersion)
{
    for (const char *help : {"-?", "-h", "--help"}) {
        for (const char *version : {"-v", "--version"}) {
            expectEnd({version, help}, versionLine, 0);
            expectEnd({help, version}, Transcript("help.txt"), 0);
        }
    }
}

TEST_F(CommandLine, AnswersHelpAndVersionBeforeItAppliesAnything)
{
    expectEnd({"-n", "2", "-rand", "-v", "ignored"}, versionLine, 0);
    expectEnd({"-pe", "nonsense", "-h", "ignored", "values"}, Transcript("help.txt"), 0);
}

// Applying the options

TEST_F(CommandLine, AppliesOnePassword)
{
    const std::string applied = "isPasswordCmd=true\npassword=\"good\"\npasswordTable=[\"good\"]\n";
    for (const char *name : {"-pwd", "--password", "-PWD", "-Pwd", "--Password"})
        EXPECT_EQ(settingsFrom({name, "good"}), applied);
}

TEST_F(CommandLine, AppliesEightPasswordsInOrder)
{
    EXPECT_EQ(settingsFrom({"-pwd", "p1", "p2", "p3", "p4", "p5", "p6", "p7", "p8"}),
              "numberPassword=8\n"
              "isPasswordCmd=true\n"
              "password=\"p1\"\n"
              "passwordTable=[\"p1\", \"p2\", \"p3\", \"p4\", \"p5\", \"p6\", \"p7\", \"p8\"]\n");
}

TEST_F(CommandLine, FillsNoTableFromAnyOtherNumberOfPasswords)
{
    EXPECT_EQ(settingsFrom({"-pwd"}), "numberPassword=0\nisPasswordCmd=true\n");
    for (const int count : {2, 3, 7, 9, 16})
        EXPECT_EQ(settingsFrom(withValues("-pwd", count)),
                  "numberPassword=" + std::to_string(count) + "\nisPasswordCmd=true\npassword=\"value\"\n");
}

TEST_F(CommandLine, AppendsToTheTableAndOverwritesTheRestForARepeatedPassword)
{
    EXPECT_EQ(settingsFrom({"-pwd", "first", "--password", "second"}),
              "isPasswordCmd=true\npassword=\"second\"\npasswordTable=[\"first\", \"second\"]\n");
    EXPECT_EQ(settingsFrom({"-pwd", "first", "-pwd", "a", "b"}),
              "numberPassword=2\nisPasswordCmd=true\npassword=\"a\"\npasswordTable=[\"first\"]\n");
    EXPECT_EQ(settingsFrom({"-pwd", "1", "2", "3", "4", "5", "6", "7", "8", "-pwd", "9"}),
              "isPasswordCmd=true\npassword=\"9\"\n"
              "passwordTable=[\"1\", \"2\", \"3\", \"4\", \"5\", \"6\", \"7\", \"8\", \"9\"]\n");
    EXPECT_EQ(settingsFrom({"-pwd", "first", "-pwd"}),
              "numberPassword=0\nisPasswordCmd=true\npasswordTable=[\"first\"]\n");
}

TEST_F(CommandLine, AppliesThePaths)
{
    for (const char *name : {"-pubk", "--public-key", "-PUBK", "--PUBLIC-KEY"})
        EXPECT_EQ(settingsFrom({name, "a/p.pem"}), "publicKeyPath=\"a/p.pem\"\n");
    for (const char *name : {"-prvk", "--private-key", "-PrvK", "--Private-Key"})
        EXPECT_EQ(settingsFrom({name, "a/k.pem"}), "privateKeyPath=\"a/k.pem\"\n");
    for (const char *name : {"-hash", "-HASH"})
        EXPECT_EQ(settingsFrom({name, "a/h.bin"}), "hashPath=\"a/h.bin\"\n");
    for (const char *name : {"-abs", "--absolute-path", "-ABS", "--Absolute-Path"})
        EXPECT_EQ(settingsFrom({name, "out"}), "absolutePath=\"out\"\n");
}

TEST_F(CommandLine, IgnoresFurtherValuesOfPathsCipherCurveAndNumber)
{
    EXPECT_EQ(settingsFrom({"-pubk", "p", "ignored"}), "publicKeyPath=\"p\"\n");
    EXPECT_EQ(settingsFrom({"-prvk", "k", "ignored"}), "privateKeyPath=\"k\"\n");
    EXPECT_EQ(settingsFrom({"-hash", "h", "ignored"}), "hashPath=\"h\"\n");
    EXPECT_EQ(settingsFrom({"-abs", "out", "ignored"}), "absolutePath=\"out\"\n");
    EXPECT_EQ(settingsFrom({"-pe", "aes128", "aes256"}), "aes128=true\n");
    EXPECT_EQ(settingsFrom({"-ecc", "1", "2"}), "brainpoolP256t1=true\n");
    EXPECT_EQ(settingsFrom({"-n", "8", "1"}), "numberKeys=8\nisKeyNumberCommand=true\n");
}

TEST_F(CommandLine, ClearsAPathGivenWithoutAValue)
{
    for (const char *name : {"-pubk", "-prvk", "-hash", "-abs"})
        EXPECT_EQ(settingsFrom({name, "earlier", name}), "");
}

TEST_F(CommandLine, UsesTheLaterPath)
{
    EXPECT_EQ(settingsFrom({"-abs", "a", "-hash", "b", "-abs", "c", "-hash", "d", "-pubk", "e", "-prvk", "f",
                            "--public-key", "g", "--private-key", "h"}),
              "publicKeyPath=\"g\"\nprivateKeyPath=\"h\"\nhashPath=\"d\"\nabsolutePath=\"c\"\n");
}

TEST_F(CommandLine, AppliesTheCipher)
{
    for (const char *value : {"aes128", "AES128", "Aes128"})
        EXPECT_EQ(settingsFrom({"-pe", value}), "aes128=true\n");
    for (const char *value : {"aes256", "AES256", "aEs256"})
        EXPECT_EQ(settingsFrom({"-PE", value}), "");
    EXPECT_EQ(settingsFrom({"-pe", "aes256", "-pe", "aes128"}), "aes128=true\n");
    EXPECT_EQ(settingsFrom({"-pe", "aes128", "-pe", "aes256"}), "");
}

TEST_F(CommandLine, RefusesAnUnknownCipher)
{
    for (const char *value : {"aes192", "", "aes", "aes128 ", " aes128", "aes1288", "128", "0", "aes-128"})
        expectErrorWithHelp({"-pe", value}, cipherError);
    expectErrorWithHelp({"-pe"}, cipherError);
    expectErrorWithHelp({"-pe", "ignored", "aes128"}, cipherError);
}

TEST_F(CommandLine, AppliesTheCurve)
{
    for (const char *value : {"1", "brainpoolP256t1", "BRAINPOOLP256T1", "brainpoolp256t1"})
        EXPECT_EQ(settingsFrom({"-ecc", value}), "brainpoolP256t1=true\n");
    for (const char *value : {"2", "prime256v1", "PRIME256V1", "Prime256v1"})
        EXPECT_EQ(settingsFrom({"-ecc", value}), "");
    EXPECT_EQ(settingsFrom({"--ecc-algo", "1"}), "brainpoolP256t1=true\n");
    EXPECT_EQ(settingsFrom({"--ECC-ALGO", "1"}), "brainpoolP256t1=true\n");
    EXPECT_EQ(settingsFrom({"-ecc", "1", "-ecc", "2"}), "");
    EXPECT_EQ(settingsFrom({"-ecc", "1", "-ecc", "prime256v1"}), "");
    EXPECT_EQ(settingsFrom({"-ecc", "2", "-ecc", "1"}), "brainpoolP256t1=true\n");
}

TEST_F(CommandLine, RefusesAnUnknownCurve)
{
    for (const char *value :
         {"3", "0", "", "01", "1 ", " 2", "12", "prime256", "brainpoolP256r1", "secp256k1"})
        expectErrorWithHelp({"-ecc", value}, curveError);
    expectErrorWithHelp({"-ecc"}, curveError);
    expectErrorWithHelp({"-ecc", "ignored", "1"}, curveError);
}

TEST_F(CommandLine, ReportsAWrongCipherOrCurveEvenIfARightOneFollows)
{
    expectErrorWithHelp({"-pe", "aes192", "-pe", "aes128"}, cipherError);
    expectErrorWithHelp({"-ecc", "3", "-ecc", "1"}, curveError);
}

TEST_F(CommandLine, ReportsAWrongCipherBeforeAWrongCurve)
{
    expectErrorWithHelp({"-ecc", "3", "-pe", "aes192"}, cipherError);
    expectErrorWithHelp({"-pe", "aes192", "-ecc", "3"}, cipherError);
}

TEST_F(CommandLine, ReportsAWrongCipherOrCurveAfterAllOptionsWereApplied)
{
    expectErrorWithHelp({"-pe", "aes192", "-n", "2"}, numberError);
    expectErrorWithHelp({"-ecc", "3", "-rand", "16"}, randomCountError);
    expectErrorWithHelp({"-ecc", "3", "-rand", "16", "data"}, randomExtensionError);
}

TEST_F(CommandLine, AppliesTheNumberOfPairs)
{
    for (const char *value : {"8", "08", "+8", " 8", "8 ", "\t8\n", "00000000000000000008"})
        EXPECT_EQ(settingsFrom({"-n", value}), "numberKeys=8\nisKeyNumberCommand=true\n") << value;
    for (const char *value : {"1", "01", "+1", " 1"})
        EXPECT_EQ(settingsFrom({"-n", value}), "isKeyNumberCommand=true\n") << value;
    for (const char *name : {"-N", "--number-key", "--Number-Key"})
        EXPECT_EQ(settingsFrom({name, "8"}), "numberKeys=8\nisKeyNumberCommand=true\n") << name;
}

TEST_F(CommandLine, UsesTheLaterNumberOfPairs)
{
    EXPECT_EQ(settingsFrom({"-n", "8", "-n", "1"}), "isKeyNumberCommand=true\n");
    EXPECT_EQ(settingsFrom({"-n", "1", "-n", "8"}), "numberKeys=8\nisKeyNumberCommand=true\n");
}

TEST_F(CommandLine, RefusesAnyOtherNumberOfPairs)
{
    for (const char *value : {"2",
                              "0",
                              "7",
                              "9",
                              "",
                              " ",
                              "8x",
                              "x8",
                              "0x8",
                              "010",
                              "8.0",
                              "8e0",
                              "1,0",
                              "eight",
                              "1 8",
                              " -8",
                              "+-8",
                              "2147483648",
                              "4294967304",
                              "4294967297",
                              "18446744073709551624",
                              "99999999999999999999999",
                              "\xD9\xA8",
                              "\xEF\xBC\x98"})
        expectErrorWithHelp({"-n", value}, numberError);
    expectErrorWithHelp({"-n"}, numberError);
    expectErrorWithHelp({"-n", "2", "8"}, numberError);
}

TEST_F(CommandLine, ReportsAWrongNumberBeforeLaterOptionsAreApplied)
{
    expectErrorWithHelp({"-n", "2", "-rand"}, numberError);
    expectErrorWithHelp({"-rand", "-n", "2"}, randomCountError);
    expectErrorWithHelp({"-n", "2", "-n", "8"}, numberError);
}

TEST_F(CommandLine, AppliesTheRandomData)
{
    for (const char *name : {"-rand", "--random", "-RAND", "--Random"})
        EXPECT_EQ(settingsFrom({name, "16", "a/data.bin"}),
                  "isRandomCmd=true\nrandPath=\"a/data.bin\"\nrandSize=16\n");
    EXPECT_EQ(settingsFrom({"-rand", "16", ".bin"}), "isRandomCmd=true\nrandPath=\".bin\"\nrandSize=16\n");
}

TEST_F(CommandLine, UsesTheLaterRandomData)
{
    EXPECT_EQ(settingsFrom({"-rand", "16", "a.bin", "-rand", "17", "b.bin"}),
              "isRandomCmd=true\nrandPath=\"b.bin\"\nrandSize=17\n");
}

TEST_F(CommandLine, ReadsTheSizeOfTheRandomDataAsADecimalNumber)
{
    const auto sizeFrom = [](const char *value) {
        settingsFrom({"-rand", value, "d.bin"});
        EXPECT_TRUE(isRandomCmd);
        return randSize;
    };
    EXPECT_EQ(sizeFrom("1048576"), 1048576);
    EXPECT_EQ(sizeFrom("0016"), 16);
    EXPECT_EQ(sizeFrom("+16"), 16);
    EXPECT_EQ(sizeFrom(" 16 "), 16);
    EXPECT_EQ(sizeFrom(" -16"), -16);
    EXPECT_EQ(sizeFrom("2147483647"), 2147483647);
    EXPECT_EQ(sizeFrom(" -2147483648"), -2147483647 - 1);
}

TEST_F(CommandLine, TreatsASizeThatIsNotA32BitNumberAsZero)
{
    for (const char *value : {"", "x", "16x", "0x10", "1e3", "16.0", "1,024", "2147483648", "4294967312",
                              " -2147483649", "99999999999999999999"})
        EXPECT_EQ(settingsFrom({"-rand", value, "d.bin"}), "isRandomCmd=true\nrandPath=\"d.bin\"\n") << value;
}

TEST_F(CommandLine, RefusesRandomDataWithoutExactlyTwoValues)
{
    for (const int count : {0, 1, 3, 4, 25})
        expectErrorWithHelp(withValues("-rand", count), randomCountError);
    expectErrorWithHelp({"-rand", "16", "data.bin", "more"}, randomCountError);
    // A negative size is treated as an option.
    expectError({"-rand", "-16", "data.bin"}, InvalidCommand("-16"));
}

TEST_F(CommandLine, RefusesARandomDataFileWithAnotherExtension)
{
    for (const char *path :
         {"data", "data.BIN", "data.Bin", "data.bin ", "data.bin/", "databin", "data.bi", "", "data.bin.txt"})
        expectErrorWithHelp({"-rand", "16", path}, randomExtensionError);
}

TEST_F(CommandLine, AppliesAllOptionsOfOneCommandLine)
{
    EXPECT_EQ(settingsFrom({"-pwd", "good", "-abs", "out", "-prvk", "k", "-pubk", "p", "-hash", "h", "-ecc",
                            "brainpoolP256t1", "-pe", "aes128", "-n", "1", "-rand", "32", "r.bin"}),
              "isKeyNumberCommand=true\n"
              "isPasswordCmd=true\n"
              "isRandomCmd=true\n"
              "randPath=\"r.bin\"\n"
              "password=\"good\"\n"
              "publicKeyPath=\"p\"\n"
              "privateKeyPath=\"k\"\n"
              "hashPath=\"h\"\n"
              "absolutePath=\"out\"\n"
              "passwordTable=[\"good\"]\n"
              "randSize=32\n"
              "aes128=true\n"
              "brainpoolP256t1=true\n");
}

TEST_F(CommandLine, WipesTheArgumentsOnceTheyAreRead)
{
    const QByteArray typed("correct horse");
    ParseCommandLine({"-pwd", typed});
    EXPECT_EQ(password, "correct horse");
    EXPECT_EQ(typed, QByteArray(13, '\0'));
}

} // namespace
