#include "tests/support/captured_output.h"
#include "tests/support/child_run.h"
#include "tests/support/sanitizer.h"
#include "tests/support/transcript.h"
#include "tests/support/user_run.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>
#include <filesystem>

namespace {

namespace fs = std::filesystem;
using Environment = std::map<std::string, std::string>;

const std::vector<std::string> pairInKeys = {"-pwd", "correct horse", "-abs", "keys"};
const char *const pairFiles = "keys/\n"
                              "0400 399 keys/privateKey.pem\n"
                              "0444 178 keys/publicKey.pem\n"
                              "0444 32 keys/publicKeyhash.bin\n";

const std::vector<Environment> environments = {
    {},
    {{"LC_ALL", "C"}},
    {{"LC_ALL", "POSIX"}, {"HOME", ""}},
    {{"LC_ALL", "C.UTF-8"}},
    {{"LC_ALL", "de_DE.ISO-8859-1"}, {"LANGUAGE", "de"}},
    {{"LC_ALL", "ja_JP.SJIS"}},
    {{"LC_ALL", "no such locale"}, {"LANG", "\xFF"}},
    {{"LC_CTYPE", "C"}, {"LANG", "en_US.UTF-8"}},
    {{"TZ", "Asia/Kathmandu"}, {"HOME", "/nonexistent"}},
    {{"TZ", ":/no such zone"}, {"PATH", ""}, {"TMPDIR", "/nonexistent"}, {"TERM", "dumb"}},
    {{"QT_LOGGING_RULES", "*=true"}, {"QT_DEBUG_PLUGINS", "1"}, {"QT_MESSAGE_PATTERN", "%{message}"}},
    {{"NO_COLOR", "1"}, {"COLUMNS", "20"}, {"POSIXLY_CORRECT", "1"}},
};

ProgramResult runIn(const TemporaryFolder &folder, const Environment &environment,
                    const std::vector<std::string> &arguments)
{
    return RunKeygen(
        {.arguments = arguments, .folder = folder.path().string(), .environment = environment, .umask = 022});
}

TEST(Environment, TheEnvironmentDoesNotChangeOutputOrFiles)
{
    for (const Environment &environment : environments) {
        const TemporaryFolder folder;
        EXPECT_TRUE(EndedAsIn(runIn(folder, environment, pairInKeys), 0, "pair_prime256v1_aes256.txt"))
            << testing::PrintToString(environment);
        EXPECT_EQ(FilesIn(folder), pairFiles);
    }
}

TEST(Environment, TheEnvironmentDoesNotChangeNonAsciiNames)
{
    for (const Environment &environment : environments) {
        const TemporaryFolder folder;
        const std::string path = "clé €/bruit 🔑.bin";
        fs::create_directory(folder.path() / "clé €");
        EXPECT_TRUE(Ended(runIn(folder, environment, {"-rand", "3", path}), 0,
                          Transcript("banner.txt") + Title("\nRandom Data Generation : \n") +
                              Info("    Size        : 3 Bytes\n") + Info("    Output path : " + path + "\n") +
                              Success("\nRandom data generated successfully : " + path + "\n")))
            << testing::PrintToString(environment);
        EXPECT_EQ(FilesIn(folder), "clé €/\n0644 3 clé €/bruit 🔑.bin\n");
    }
}

TEST(Environment, TheEnvironmentDoesNotChangeADisplayedPassword)
{
    for (const Environment &environment : environments) {
        const TemporaryFolder folder;
        EXPECT_TRUE(Ended(runIn(folder, environment, {"-pwd", "é€"}), 1,
                          Transcript("banner.txt") +
                              Error("Error: password must be more than 3 caracters\n") +
                              Error("Error: incorrect password : é€\n") + Transcript("help.txt")))
            << testing::PrintToString(environment);
    }
}

TEST(Umask, TheUmaskDoesNotChangeTheModesOfKeyFiles)
{
    for (const int mask : {0, 022, 077}) {
        const TemporaryFolder folder;
        fs::create_directory(folder.path() / "keys");
        fs::permissions(folder.path() / "keys", fs::perms(0755));
        const ProgramResult run =
            RunKeygen({.arguments = pairInKeys, .folder = folder.path().string(), .umask = mask});
        EXPECT_TRUE(EndedAsIn(run, 0, "pair_prime256v1_aes256.txt"));
        EXPECT_EQ(FilesIn(folder), pairFiles);
    }
}

TEST(Umask, TheUmaskDeterminesTheModesOfRandomDataAndNewDirectories)
{
    for (const int mask : {0, 022, 077}) {
        const TemporaryFolder folder;
        RunKeygen(
            {.arguments = {"-rand", "3", "noise.bin", "-pwd", "password", "-abs", "keys", "-pubk", "sub/"},
             .input = "y\n",
             .folder = folder.path().string(),
             .umask = mask});
        EXPECT_EQ(ModeOf(folder / "noise.bin"), 0666 & ~mask);
        EXPECT_EQ(ModeOf(folder / "keys"), 0777 & ~mask);
        EXPECT_EQ(ModeOf(folder / "keys/sub"), 0777 & ~mask);
    }
}

// The modes of key files are set under the Latin-1 reading of their paths, so they do not take effect on a
// non-ASCII path.
TEST(NonAsciiPath, KeyFilesKeepTheModesThatTheUmaskGives)
{
    for (const int mask : {022, 077}) {
        const TemporaryFolder folder;
        const ProgramResult run = RunKeygen({.arguments = {"-pwd", "password", "-abs", "clés"},
                                             .folder = folder.path().string(),
                                             .umask = mask});
        EXPECT_TRUE(EndedAsIn(run, 0, "pair_beyond_ascii.txt"));
        const std::string mode = mask == 022 ? "0644" : "0600";
        EXPECT_EQ(FilesIn(folder), "clés/\n" + mode + " 399 clés/privateKey.pem\n" + mode +
                                       " 178 clés/publicKey.pem\n" + mode + " 32 clés/publicKeyhash.bin\n");
    }
}

TEST(NonAsciiPath, TheTableHashGetsItsMode)
{
    const TemporaryFolder folder;
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(EndedAsIn(RunIn(folder, {"-n", "1", "-pwd", "password", "-abs", "clés"}), 0,
                              "packet_beyond_ascii.txt"));
        EXPECT_EQ(FilesIn(folder), "clés/\n"
                                   "0644 399 clés/privateKey00.pem\n"
                                   "0644 178 clés/publicKey00.pem\n"
                                   "0644 32 clés/publicKeyHash00.bin\n"
                                   "0444 32 clés/publicKeysHashHashes.bin\n");
    }
}

/// A run, the files it leaves, and the arguments of the program that checks its keys.
struct StreamedRun {
    std::vector<std::string> arguments;
    const char *transcript;
    std::string files;
    std::vector<std::string> check;
};

std::string filesOfPacket()
{
    std::string files = "packet/\n";
    const auto addEach = [&files](const std::string &before, const char *after) {
        for (int i = 0; i < 8; ++i)
            files += before + "0" + std::to_string(i) + after + "\n";
    };
    addEach("0400 399 packet/privateKey", ".pem");
    addEach("0444 178 packet/publicKey", ".pem");
    addEach("0444 32 packet/publicKeyHash", ".bin");
    return files + "0444 32 packet/publicKeysHashHashes.bin\n";
}

const StreamedRun pairRun = {pairInKeys,
                             "pair_prime256v1_aes256.txt",
                             pairFiles,
                             {"pair", "prime256v1", "aes256", "keys/privateKey.pem", "keys/publicKey.pem",
                              "keys/publicKeyhash.bin", "correct horse"}};
const StreamedRun packetRun = {
    {"-n", "8", "-abs", "packet", "-pwd", "p111", "p222", "p333", "p444", "p555", "p666", "p777", "p888"},
    "packet_prime256v1_aes256.txt",
    filesOfPacket(),
    {"packet", "prime256v1", "aes256", "packet", "p111", "p222", "p333", "p444", "p555", "p666", "p777",
     "p888"}};
const StreamedRun randomRun = {{"-rand", "16", "noise.bin"}, "random_data.txt", "0644 16 noise.bin\n", {}};

/// Expects the run to succeed and to leave the same files whatever its standard streams are, and to print the
/// same output where it can be captured.
void expectSameWith(const StreamedRun &run, const char *input, const char *output, const char *errors)
{
    const TemporaryFolder folder;
    const std::string redirections = std::string(input) + " " + output + " " + errors;
    SCOPED_TRACE(redirections);
    const ProgramResult result = RunInShell(folder, "exec \"$@\" " + redirections, run.arguments);
    if (*output == '\0')
        EXPECT_TRUE(EndedAsIn(result, 0, run.transcript));
    else
        EXPECT_TRUE(Ended(result, 0, ""));
    EXPECT_EQ(FilesIn(folder), run.files);
    // The content is checked only once for each kind of missing output, because the check takes longer than
    // the run.
    if (!run.check.empty() && *input != '\0' && *output != '\0' && std::string(errors) == "2>&-") {
        std::vector<std::string> words = {TEST_SUPPORT_FOLDER "/check_key_files.py"};
        words.insert(words.end(), run.check.begin(), run.check.end());
        EXPECT_TRUE(Ended(Run(PYTHON, {.arguments = words, .folder = folder.path().string()}), 0, ""));
    }
}

void expectSameWithAnyStreams(const StreamedRun &run)
{
    for (const char *input : {"", "<&-"}) {
        for (const char *output : {"", ">&-", ">/dev/full"}) {
            for (const char *errors : {"", "2>&-", "2>/dev/full"})
                expectSameWith(run, input, output, errors);
        }
    }
}

TEST(StandardStreams, TheStreamsDoNotChangeAPair)
{
    expectSameWithAnyStreams(pairRun);
}

TEST(StandardStreams, TheStreamsDoNotChangeAPacket)
{
    expectSameWithAnyStreams(packetRun);
}

TEST(StandardStreams, TheStreamsDoNotChangeRandomData)
{
    expectSameWithAnyStreams(randomRun);
}

TEST(StandardStreams, TheStreamsDoNotChangeTheStatusOfAFailure)
{
    for (const char *redirections : {"", ">&-", ">/dev/full", "<&- >&- 2>&-", ">/dev/full 2>/dev/full"}) {
        for (const std::vector<std::string> &arguments :
             {std::vector<std::string>{"-unknown"}, {"-rand", "16", "missing/noise.bin"}}) {
            const TemporaryFolder folder;
            const ProgramResult run =
                RunInShell(folder, std::string("exec \"$@\" ") + redirections, arguments);
            EXPECT_EQ(run.status, 1) << redirections;
            EXPECT_EQ(run.output.empty(), *redirections != '\0') << redirections;
            EXPECT_EQ(FilesIn(folder), "") << redirections;
        }
    }
}

/// Expects that the application library aborted the run at its start, for `reason`.
template <typename Run>
void expectAbort(const Run &run, const char *reason)
{
    EXPECT_EQ(run.signal, SIGABRT);
    EXPECT_NE(run.errors.find(reason), std::string::npos) << run.errors;
    EXPECT_EQ(run.output, "");
}

TEST(ApplicationLibrary, TheLibraryReportsWhyItEndsARunWithoutDescriptors)
{
    if (underSanitizers)
        GTEST_SKIP() << "a sanitizer waits forever for a file descriptor of its own";
    const TemporaryFolder folder;
    expectAbort(RunInShell(folder, "exec <&-; ulimit -n 3; export QT_NO_GLIB=1; exec \"$@\"", {"-v"}),
                "Cannot continue without a thread pipe");
}

// A set-user-ID copy run by another user is in this state. Only root can create it without such a copy.
TEST(ApplicationLibrary, TheLibraryReportsWhyItEndsARunUnderTwoUserIds)
{
    if (geteuid() != 0)
        return;
    const ChildRun run = RunInChild([] {
        constexpr uid_t nobody = 65534;
        if (setresuid(nobody, 0, 0) == 0)
            Exec(KeygenProgram(), {.arguments = {"-v"}});
    });
    expectAbort(run, "running setuid");
}

} // namespace
