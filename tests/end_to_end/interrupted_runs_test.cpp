// Runs that a signal ends or stops. At any moment each path holds either the older file or the complete new
// one with its final mode.
#include "tests/support/background_run.h"
#include "tests/support/sanitizer.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"
#include "tests/support/user_run.h"
#include "tests/support/written_keys.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr std::array signals = {SIGINT,  SIGTERM, SIGHUP,  SIGQUIT, SIGPIPE,
                                SIGTSTP, SIGALRM, SIGUSR1, SIGUSR2};

class InterruptedRun : public testing::Test {
protected:
    void SetUp() override
    {
        if (underSanitizers)
            GTEST_SKIP() << "the library that raises the signals replaces malloc, as a sanitizer does";
    }

    /// Runs in `folder`, and raises `signal` before call number `call` of the C library.
    ProgramResult runUnder(const std::vector<std::string> &arguments, int signal, int call) const
    {
        std::map<std::string, std::string> environment;
        for (char **entry = environ; *entry != nullptr; ++entry) {
            const std::string line = *entry;
            environment[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
        }
        // A space in LD_PRELOAD separates two libraries, and the path of the build may contain one.
        const fs::path library = FAILING_CALL;
        environment["LD_PRELOAD"] = library.filename();
        environment["LD_LIBRARY_PATH"] = library.parent_path();
        environment["RAISED_SIGNAL"] = std::to_string(signal);
        environment["RAISED_AT"] = std::to_string(call);
        return BackgroundRun({.arguments = arguments,
                              .folder = folder.path().string(),
                              .environment = environment,
                              .umask = 022})
            .end();
    }

    TemporaryFolder folder;
};

/// Runs that make a pair, each starting from the same files.
class InterruptedPair : public InterruptedRun {
protected:
    /// Raises a signal at every call until the run ends before that call: SIGTERM, and one of the other
    /// signals in turn.
    void interruptAtEveryCall()
    {
        std::set<std::string> situations;
        for (std::size_t call = 1; situations.count("run ended") == 0; ++call) {
            for (const int signal : {SIGTERM, signals[call % signals.size()]}) {
                SCOPED_TRACE("signal " + std::to_string(signal) + " at call " + std::to_string(call));
                putOlderFiles();
                const ProgramResult run =
                    runUnder({"-pwd", "new password", "-abs", "keys"}, signal, static_cast<int>(call));
                if (run.signal == 0) {
                    EXPECT_EQ(run.status, 0);
                    situations.insert("run ended");
                } else {
                    EXPECT_EQ(run.signal, signal);
                }
                situations.insert(situation());
            }
        }
        // Some signals arrived before the first file, some after each file, and one not at all.
        EXPECT_EQ(situations, (std::set<std::string>{"000", "100", "110", "111", "run ended"}));
    }

    void rememberOlderFiles()
    {
        ASSERT_EQ(RunIn(folder, {"-pwd", "old password", "-abs", "older"}).status, 0);
        for (const char *name : names)
            olderFiles[name] = ReadFile(folder / "older/" + name);
    }

private:
    static constexpr std::array names = {"privateKey.pem", "publicKey.pem", "publicKeyhash.bin"};

    void putOlderFiles()
    {
        fs::remove_all(folder / "keys");
        if (!olderFiles.empty())
            fs::copy(folder / "older", folder / "keys");
    }

    /// One digit for each file: whether the run replaced or created it. A new file is checked, and so is that
    /// it belongs to the new file before it.
    std::string situation()
    {
        std::string text;
        for (const std::string name : names)
            text += isNew(name) ? '1' : '0';
        const std::string point =
            text[0] == '1' ? PointOfPrivateKey(folder / "keys/privateKey.pem", "new password") : "";
        EXPECT_EQ(point.size(), text[0] == '1' ? 64U : 0U);
        if (text[1] == '1') {
            EXPECT_EQ(PointOfPublicKey(folder / "keys/publicKey.pem"), point);
        }
        if (text[2] == '1') {
            EXPECT_EQ(ReadFile(folder / "keys/publicKeyhash.bin"), Sha256Of(point));
        }
        return text;
    }

    bool isNew(const std::string &name)
    {
        const std::string path = folder / "keys/" + name;
        const auto older = olderFiles.find(name);
        if (older == olderFiles.end() && !fs::exists(path))
            return false;
        EXPECT_EQ(ModeOf(path), name == "privateKey.pem" ? 0400 : 0444) << name;
        return older == olderFiles.end() || ReadFile(path) != older->second;
    }

    std::map<std::string, std::string> olderFiles;
};

TEST_F(InterruptedPair, EachFileIsTheOlderOneOrACompleteNewOne)
{
    rememberOlderFiles();
    interruptAtEveryCall();
}

TEST_F(InterruptedPair, EachFileInAnEmptyDirectoryIsMissingOrComplete)
{
    interruptAtEveryCall();
}

TEST_F(InterruptedRun, TheRandomDataIsTheOlderFileOrTheCompleteNewOne)
{
    const std::string path = folder / "noise.bin";
    const std::string older(9001, 'o');
    std::set<std::string> situations;
    for (std::size_t call = 1; situations.count("run ended") == 0; ++call) {
        const int signal = signals[call % signals.size()];
        SCOPED_TRACE("signal " + std::to_string(signal) + " at call " + std::to_string(call));
        PutFile(folder, "noise.bin", older);
        fs::permissions(path, fs::perms(0640));
        const ProgramResult run = runUnder({"-rand", "9000", "noise.bin"}, signal, static_cast<int>(call));
        situations.insert(run.signal == 0 ? "run ended" : "run interrupted");
        EXPECT_EQ(run.signal == 0 ? signal : run.signal, signal);
        EXPECT_EQ(ModeOf(path), 0640);
        const std::string content = ReadFile(path);
        EXPECT_TRUE(content == older || content.size() == 9000) << content.size() << " bytes";
        situations.insert(content == older ? "old" : "new");
    }
    EXPECT_EQ(situations, (std::set<std::string>{"old", "new", "run interrupted", "run ended"}));
}

// Opening a pipe without a reader blocks forever, so only the signal can end the run.
TEST_F(InterruptedRun, ASignalEndsARunThatWaitsForTheReaderOfAPipe)
{
    fs::create_directory(folder / "keys");
    ASSERT_EQ(mkfifo((folder / "keys/publicKey.pem").c_str(), 0600), 0);
    BackgroundRun run({.arguments = {"-pwd", "password", "-abs", "keys"}, .folder = folder.path().string()});
    // The private key is written first.
    const std::string privateKey = folder / "keys/privateKey.pem";
    for (int i = 0; i < 30000 && ModeOf(privateKey) != 0400; ++i)
        usleep(1000);
    run.send(SIGINT);
    EXPECT_EQ(run.end().signal, SIGINT);
    EXPECT_EQ(PointOfPrivateKey(privateKey, "password").size(), 64U);
}

} // namespace
