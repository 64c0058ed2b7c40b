#include "tests/support/captured_output.h"
#include "tests/support/dialogue_script.h"
#include "tests/support/pseudo_terminal.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/transcript.h"
#include "tests/support/user_run.h"
#include "tests/support/written_keys.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

class Dialogue : public testing::Test {
protected:
    Dialogue() { fs::create_directory(folder / "home"); }

    ProgramResult onTerminal(const DialogueScript &script) const
    {
        return RunOnTerminal(script, folder.path());
    }
    ProgramResult onPipe(const DialogueScript &script, const std::string &lineEnd = "\n") const
    {
        return RunOnPipe(Answers(script, lineEnd), folder.path());
    }

    TemporaryFolder folder;
};

std::string index(int i)
{
    return " [" + std::to_string(i) + "]";
}

std::string packetPassword(int i)
{
    return "password " + std::to_string(i);
}

DialogueScript folderStep(const std::string &answer)
{
    return {{question::Folder("home/Corvane_KeyGen/"), answer}};
}

DialogueScript onePair()
{
    return folderStep("") + OnePairSteps("my password");
}

/// Eight pairs in the new directory keys, with the second of each choice.
DialogueScript packet()
{
    DialogueScript script = folderStep("keys") + DialogueScript{{question::createFolder, "y"}} +
                            DialogueScript{{question::packets, "2"}};
    for (int i = 0; i < 8; ++i)
        script = script + PasswordSteps(packetPassword(i), index(i));
    return script + DialogueScript{{question::curve, "2"}, {question::cipher, "2"}};
}

const std::string password1023(1023, 'p');
const std::string password1024(1024, 'p');

/// One pair, with every kind of refused answer before the accepted one.
DialogueScript refusals()
{
    return folderStep("new/keys") + DialogueScript{{question::createFolder, "x"},
                                                   {question::createFolderAgain, "yes"},
                                                   {question::createFolderAgain, ""},
                                                   {"\n", "Y"},
                                                   {question::packets, " 1"},
                                                   {question::packetsAgain, "01"},
                                                   {question::packetsAgain, "3"},
                                                   {question::packetsAgain, ""},
                                                   {question::packetsAgain, "1 "},
                                                   {question::packetsAgain, "1"},
                                                   {question::Password(), ""},
                                                   {question::PasswordAgain(), "abc"},
                                                   {question::PasswordAgain(), "a"},
                                                   {question::PasswordAgain(), password1024},
                                                   {question::PasswordAgain(), "abcd"},
                                                   {question::RepeatPassword(), "abcD"},
                                                   {question::Password(), "abcd"},
                                                   {question::RepeatPassword(), ""},
                                                   {question::Password(), "abc"},
                                                   {question::PasswordAgain(), password1023},
                                                   {question::RepeatPassword(), password1023},
                                                   {question::curve, "brainpoolP256t1"},
                                                   {question::curveAgain, "12"},
                                                   {question::curveAgain, "2"},
                                                   {question::cipher, "aes128"},
                                                   {question::cipherAgain, ""},
                                                   {question::cipherAgain, "2"}};
}

/// Eight pairs. The first password is refused; the third and the last are mistyped once.
DialogueScript packetRefusals()
{
    DialogueScript script = folderStep("") + DialogueScript{{question::packets, "2"}};
    for (int i = 0; i < 8; ++i) {
        if (i == 0)
            script = script + DialogueScript{{question::Password(index(0)), ""},
                                             {question::PasswordAgain(index(0)), "abc"},
                                             {question::PasswordAgain(index(0)), password1024},
                                             {question::PasswordAgain(index(0)), packetPassword(0)},
                                             {question::RepeatPassword(index(0)), packetPassword(0)}};
        else if (i == 2 || i == 7)
            script = script + DialogueScript{{question::Password(index(i)), packetPassword(i)},
                                             {question::RepeatPassword(index(i)), packetPassword(0)}};
        if (i != 0)
            script = script + PasswordSteps(packetPassword(i), index(i));
    }
    return script + DialogueScript{{question::curve, "1"}, {question::cipher, "1"}};
}

void expectRun(const ProgramResult &run, const std::string &transcript)
{
    EXPECT_TRUE(MatchesTranscript(transcript, run.output));
    EXPECT_EQ(run.errors, "");
    EXPECT_EQ(run.status, 0);
}

void expectPair(const std::string &privateKey, const std::string &publicKey, const std::string &password,
                const std::string &curve, const std::string &cipher)
{
    EXPECT_TRUE(OpensPrivateKey(privateKey, password));
    EXPECT_EQ(CipherOf(privateKey), cipher);
    EXPECT_EQ(CurveOf(publicKey), curve);
}

void expectPacket(const std::string &keys, const std::string &curve, const std::string &cipher)
{
    std::string files;
    for (const char *name : {"0400 399 privateKey0#", "0444 178 publicKey0#", "0444 32 publicKeyHash0#"}) {
        for (int i = 0; i < 8; ++i) {
            std::string line = name;
            line.back() = static_cast<char>('0' + i);
            files += line + (line.find("Hash") == line.npos ? ".pem\n" : ".bin\n");
        }
    }
    EXPECT_EQ(FilesIn(keys), files + "0444 32 publicKeysHashHashes.bin\n");
    for (int i = 0; i < 8; ++i)
        expectPair(keys + "/privateKey0" + std::to_string(i) + ".pem",
                   keys + "/publicKey0" + std::to_string(i) + ".pem", packetPassword(i), curve, cipher);
}

const char *const onePairFiles = "0400 399 privateKey.pem\n"
                                 "0444 178 publicKey.pem\n"
                                 "0444 32 publicKeyhash.bin\n";

TEST_F(Dialogue, MakesOnePairOnATerminal)
{
    expectRun(onTerminal(onePair()), "dialogue_one_pair_terminal.txt");
    const std::string keys = folder / "home/Corvane_KeyGen";
    EXPECT_EQ(FilesIn(keys), onePairFiles);
    expectPair(keys + "/privateKey.pem", keys + "/publicKey.pem", "my password", "prime256v1", "AES-256-CBC");
}

TEST_F(Dialogue, MakesOnePairFromAPipe)
{
    expectRun(onPipe(onePair()), "dialogue_one_pair_pipe.txt");
    const std::string keys = folder / "home/Corvane_KeyGen";
    EXPECT_EQ(FilesIn(keys), onePairFiles);
    expectPair(keys + "/privateKey.pem", keys + "/publicKey.pem", "my password", "prime256v1", "AES-256-CBC");
}

TEST_F(Dialogue, MakesAPacketOnATerminal)
{
    expectRun(onTerminal(packet()), "dialogue_packet_terminal.txt");
    expectPacket(folder / "keys", "brainpoolP256t1", "AES-128-CBC");
}

TEST_F(Dialogue, MakesAPacketFromAPipe)
{
    expectRun(onPipe(packet()), "dialogue_packet_pipe.txt");
    expectPacket(folder / "keys", "brainpoolP256t1", "AES-128-CBC");
}

TEST_F(Dialogue, AsksAgainAfterRefusedAnswersOnATerminal)
{
    expectRun(onTerminal(refusals()), "dialogue_refusals_terminal.txt");
    expectPair(folder / "new/keys/privateKey.pem", folder / "new/keys/publicKey.pem", password1023,
               "brainpoolP256t1", "AES-128-CBC");
}

TEST_F(Dialogue, AsksAgainAfterRefusedAnswersOnAPipe)
{
    expectRun(onPipe(refusals()), "dialogue_refusals_pipe.txt");
    expectPair(folder / "new/keys/privateKey.pem", folder / "new/keys/publicKey.pem", password1023,
               "brainpoolP256t1", "AES-128-CBC");
}

TEST_F(Dialogue, AsksAgainForOnePasswordOfAPacketOnATerminal)
{
    expectRun(onTerminal(packetRefusals()), "dialogue_packet_refusals_terminal.txt");
    expectPacket(folder / "home/Corvane_KeyGen", "prime256v1", "AES-256-CBC");
}

TEST_F(Dialogue, AsksAgainForOnePasswordOfAPacketOnAPipe)
{
    expectRun(onPipe(packetRefusals()), "dialogue_packet_refusals_pipe.txt");
    expectPacket(folder / "home/Corvane_KeyGen", "prime256v1", "AES-256-CBC");
}

TEST_F(Dialogue, TreatsACarriageReturnAsPartOfTheLineEnd)
{
    expectRun(onPipe(packet(), "\r\n"), "dialogue_packet_pipe.txt");
    expectPacket(folder / "keys", "brainpoolP256t1", "AES-128-CBC");
}

TEST_F(Dialogue, AcceptsALastAnswerWithoutALineEnd)
{
    std::string answers = Answers(onePair());
    answers.pop_back();
    expectRun(RunOnPipe(answers, folder.path()), "dialogue_one_pair_pipe.txt");
}

TEST_F(Dialogue, IgnoresAByteOrderMarkAtTheStart)
{
    expectRun(RunOnPipe("\xEF\xBB\xBF" + Answers(onePair()), folder.path()), "dialogue_one_pair_pipe.txt");
}

TEST_F(Dialogue, MakesTheSameFilesAsACommandLine)
{
    struct Choice {
        std::string curve;
        std::string cipher;
        std::vector<std::string> options;
    };
    const std::vector<Choice> choices = {
        {"1", "1", {}},
        {"1", "2", {"-pe", "aes128"}},
        {"2", "1", {"-ecc", "brainpoolP256t1"}},
        {"2", "2", {"-ecc", "brainpoolP256t1", "-pe", "aes128"}},
    };
    for (const auto &[curve, cipher, options] : choices) {
        const std::string asked = folder / ("asked" + curve + cipher);
        const std::string told = folder / ("told" + curve + cipher);
        fs::create_directory(asked);
        fs::create_directory(told);
        EXPECT_EQ(RunOnPipe(asked + "\n1\npass\npass\n" + curve + "\n" + cipher + "\n", folder.path()).status,
                  0);
        ProgramCall call = {.arguments = {"-abs", told, "-pwd", "pass"}};
        call.arguments.insert(call.arguments.end(), options.begin(), options.end());
        EXPECT_EQ(RunKeygen(call).status, 0);

        EXPECT_EQ(FilesIn(asked), onePairFiles);
        EXPECT_EQ(FilesIn(asked), FilesIn(told));
        EXPECT_EQ(CurveOf(asked + "/publicKey.pem"), CurveOf(told + "/publicKey.pem"));
        EXPECT_EQ(CipherOf(asked + "/privateKey.pem"), CipherOf(told + "/privateKey.pem"));
        EXPECT_TRUE(OpensPrivateKey(asked + "/privateKey.pem", "pass"));
    }
}

// Directories

/// What a run on a pipe prints between the question for a directory and the one for the number of packets.
/// Also expects the run to write its three files into `keys`.
std::string folderOutput(const TemporaryFolder &folder, const std::string &answers, const std::string &keys)
{
    const ProgramResult run = RunOnPipe(answers + "\n1\npass\npass\n1\n1\n", folder.path());
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(FilesIn(folder / keys), onePairFiles);
    const std::string question = question::Folder("home/Corvane_KeyGen/");
    const std::size_t begin = run.output.find(question) + question.size();
    return run.output.substr(begin, run.output.find(question::packets) - begin);
}

/// What a run prints after the answer to the question for a directory, which ends the run.
std::string refusedFolder(const TemporaryFolder &folder, const std::string &answers)
{
    const ProgramResult run = RunOnPipe(answers, folder.path());
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.errors, "");
    const std::string question = question::Folder("home/Corvane_KeyGen/");
    return run.output.substr(run.output.find(question) + question.size());
}

TEST_F(Dialogue, AsksNothingIfTheParentOfTheDirectoryExists)
{
    fs::create_directory(folder / "old");
    EXPECT_EQ(folderOutput(folder, "", "home/Corvane_KeyGen"), "");
    EXPECT_EQ(folderOutput(folder, "old", "old"), "");
    EXPECT_EQ(folderOutput(folder, "old/keys", "old/keys"), "");
    EXPECT_EQ(folderOutput(folder, "./keys", "keys"), "");
    EXPECT_EQ(folderOutput(folder, "./more keys/", "more keys"), "");
    EXPECT_EQ(folderOutput(folder, folder / "absolute", "absolute"), "");
}

TEST_F(Dialogue, ReadsDirectoryNamesAsUtf8)
{
    EXPECT_EQ(RunOnPipe("./clés €\n1\npass\npass\n1\n1\n", folder.path()).status, 0);
    EXPECT_TRUE(OpensPrivateKey(folder / "clés €/privateKey.pem", "pass"));
}

TEST_F(Dialogue, AsksBeforeItCreatesTheParentOfADirectory)
{
    EXPECT_EQ(folderOutput(folder, "one\ny", "one"), Info("one\n") + question::createFolder);
    EXPECT_EQ(folderOutput(folder, "two/keys\nY", "two/keys"), Info("two\n") + question::createFolder);
    EXPECT_EQ(folderOutput(folder, "three/keys/\ny", "three/keys"),
              Info("three/\n") + question::createFolder);
    EXPECT_EQ(folderOutput(folder, "four/a/b/keys\ny", "four/a/b/keys"),
              Info("four/a/b\n") + question::createFolder);
}

TEST_F(Dialogue, ReadsTheAnswerAboutTheParentWordByWord)
{
    const std::string again = question::createFolderAgain;
    EXPECT_EQ(folderOutput(folder, "one/keys\nx yes\n\n  y", "one/keys"),
              Info("one\n") + question::createFolder + again + again);
    EXPECT_EQ(folderOutput(folder, "two/keys\nyy\nno\r\ny\r", "two/keys"),
              Info("two\n") + question::createFolder + again + again);
}

TEST_F(Dialogue, TreatsTheRestOfTheLineAsTheNextAnswer)
{
    const ProgramResult run = RunOnPipe("new/keys\ny 1\n1\npass\npass\n1\n1\n", folder.path());
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.output.find(question::createFolder + question::packets + question::packetsAgain +
                              Success("Generate 1 key packet !\n")),
              std::string::npos);
}

TEST_F(Dialogue, EndsIfTheUserDeclinesTheDirectory)
{
    for (const char *no : {"n", "N"}) {
        EXPECT_EQ(refusedFolder(folder, std::string("new/keys\n") + no + "\n"),
                  Info("new\n") + question::createFolder + Error("Error: Can not create path."));
        EXPECT_FALSE(fs::exists(folder / "new"));
    }
    expectRun(
        [&] {
            ProgramResult run =
                onTerminal(folderStep("new/keys") + DialogueScript{{question::createFolder, "n"}});
            EXPECT_EQ(run.status, 1);
            run.status = 0;
            return run;
        }(),
        "dialogue_declined_terminal.txt");
}

TEST_F(Dialogue, EndsIfTheDirectoryCannotBeCreated)
{
    WriteFile(folder / "file", "");
    EXPECT_EQ(refusedFolder(folder, "file/new/keys\ny\n"),
              Info("file/new\n") + question::createFolder + Error("Error: Can not create path."));
}

TEST_F(Dialogue, EndsIfTheDirectoryNameIsInvalid)
{
    const std::string name("new\0keys", 8);
    EXPECT_EQ(refusedFolder(folder, name + "\ny\n"),
              Info("new") + question::createFolder + Error("Error: Can not create path."));
    EXPECT_FALSE(fs::exists(folder / "new"));
}

TEST_F(Dialogue, DoublesTheSeparatorBeforeThePrivateKeyOnly)
{
    const auto report = [&](const std::string &answer) {
        const std::string output = RunOnPipe(answer + "\n1\npass\npass\n1\n1\n", folder.path()).output;
        return output.substr(output.find(Info("+ public key:      ")));
    };
    EXPECT_EQ(report("./keys/"), Info("+ public key:      ") + Info("./keys/publicKey.pem\n") +
                                     Info("+ private key:     ") + Info("./keys//privateKey.pem\n") +
                                     Info("+ public hash key: ") + Info("./keys/publicKeyhash.bin\n"));
    EXPECT_EQ(report("./keys"), Info("+ public key:      ") + Info("./keys/publicKey.pem\n") +
                                    Info("+ private key:     ") + Info("./keys/privateKey.pem\n") +
                                    Info("+ public hash key: ") + Info("./keys/publicKeyhash.bin\n"));
}

// Pipes

TEST_F(Dialogue, ShowsEachQuestionOnAPipeBeforeItWaitsForTheAnswer)
{
    // The answers go through one pipe, the output comes through another.
    PseudoTerminal terminal([&] {
        Exec("sh",
             {.arguments = {"-c", "cat | HOME=home \"$0\" | cat", KeygenProgram()}, .folder = folder.path()});
    });
    for (const auto &[question, answer] : onePair())
        ASSERT_TRUE(terminal.answers(question, answer + "\n"));
    ASSERT_TRUE(terminal.shows(Info("home/Corvane_KeyGen/publicKeyhash.bin\n")));
    // Standard error is the terminal, so anything written there would be seen. The program never changed the
    // terminal's settings, so the terminal echoes the answers.
    EXPECT_TRUE(MatchesTranscript("dialogue_one_pair_between_pipes.txt", terminal.screen()));
    EXPECT_TRUE(terminal.echoes());
    EXPECT_TRUE(terminal.editsLines());
    terminal.type("\x04");
    terminal.end();
}

} // namespace
