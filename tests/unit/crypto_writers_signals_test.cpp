// What the engine's writers leave behind when a signal arrives during a write.
#include "src/crypto.h"

#include "src/ec_crypto.h"
#include "tests/support/child_run.h"
#include "tests/support/library_faults.h"
#include "tests/support/signal_mask.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/test_keys.h"
#include "tests/support/umask.h"
#include "tests/support/written_keys.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

const std::set<int> heldBack = {SIGINT,  SIGTERM, SIGHUP,  SIGQUIT, SIGPIPE,
                                SIGTSTP, SIGALRM, SIGUSR1, SIGUSR2};

const std::string tableHash(32, 'h');

/// All substituted functions that a writer calls.
const std::vector<std::string> functions = {"CRYPTO_malloc",
                                            "CRYPTO_free",
                                            "i2d_PUBKEY",
                                            "EVP_MD_CTX_new",
                                            "EVP_DigestInit_ex",
                                            "EVP_DigestUpdate",
                                            "EVP_DigestFinal_ex",
                                            "EVP_PKEY2PKCS8",
                                            "PKCS5_pbe2_set_iv",
                                            "PKCS8_set0_pbe",
                                            "PEM_write_PKCS8",
                                            "PEM_write_PUBKEY",
                                            "PEM_write_PrivateKey",
                                            "fopen",
                                            "setvbuf(none)",
                                            "fwrite",
                                            "fflush",
                                            "fclose",
                                            "chmod"};

KeyOwner key()
{
    return FixedKey(prime256v1, 20);
}

struct Writer {
    const char *name;
    int (*write)(const std::string &path, EVP_PKEY *key);
    int newMode; ///< of a file that it created under the mask 022
    int oldMode; ///< of a file with the mode 0640 that it replaced
    bool (*isComplete)(const std::string &path);
};

std::ostream &operator<<(std::ostream &stream, const Writer &writer)
{
    return stream << writer.name;
}

const std::array<Writer, 5> writers = {{
    {"SaveEncPrvKey",
     [](const std::string &path, EVP_PKEY *written) {
         return Crypto().SaveEncPrvKey(Bytes(path), written, Bytes("password"), EVP_aes_256_cbc());
     },
     0400, 0400, [](const std::string &path) { return OpensPrivateKey(path, "password"); }},
    {"SavePrvKey",
     [](const std::string &path, EVP_PKEY *written) { return Crypto().SavePrvKey(Bytes(path), written); },
     0644, 0640, [](const std::string &path) { return OpensPrivateKey(path, ""); }},
    {"SavePubKey",
     [](const std::string &path, EVP_PKEY *written) { return Crypto().SavePubKey(Bytes(path), written); },
     0444, 0444,
     [](const std::string &path) {
         return ReadFile(path) == PemFile("PUBLIC KEY", EncodingOfPoint(prime256v1, PointOf(key().get())));
     }},
    {"SaveHashPubKey",
     [](const std::string &path, EVP_PKEY *written) {
         return EC_Crypto(prime256v1).SaveHashPubKey(written, Bytes(path));
     },
     0444, 0444, [](const std::string &path) { return ReadFile(path) == Sha256Of(PointOf(key().get())); }},
    {"SaveHashTableHash",
     [](const std::string &path, EVP_PKEY *) {
         return Crypto().SaveHashTableHash(Bytes(tableHash), 32, Bytes(path));
     },
     0444, 0444, [](const std::string &path) { return ReadFile(path) == tableHash; }},
}};

class SignalsDuringAWrite : public testing::TestWithParam<Writer> {
protected:
    /// Writes to `path` in a child process that receives `signal` before its call number `number`. `onSignal`
    /// is its action, as for sigaction.
    ChildRun writeUnder(const std::string &path, int signal, int number, void (*onSignal)(int))
    {
        return RunInChild([&] {
            const KeyOwner written = key();
            const OnlyBlocked none({});
            std::signal(signal, onSignal);
            int calls = 0;
            LibraryFaults faults;
            for (const std::string &function : functions) {
                faults.before(
                    function,
                    [&] {
                        if (++calls == number)
                            std::raise(signal);
                    },
                    LibraryFaults::everyCall);
            }
            writer.write(path, written.get());
            // Skips the check that all functions were called: this process only writes.
            std::_Exit(EXIT_SUCCESS);
        });
    }

    std::string oldFile()
    {
        std::string path = folder / "old";
        fs::remove(path);
        WriteFile(path, "old");
        fs::permissions(path, fs::perms(0640));
        return path;
    }

    std::string newFile()
    {
        std::string path = folder / "new";
        fs::remove(path);
        return path;
    }

    void expectWritten(const std::string &path, int mode)
    {
        EXPECT_EQ(ModeOf(path), mode);
        fs::permissions(path, fs::perms(0600)); // to read it
        EXPECT_TRUE(writer.isComplete(path));
    }

    const Writer &writer = GetParam();
    const UmaskInForce umask{022};
    TemporaryFolder folder;
};

INSTANTIATE_TEST_SUITE_P(Files, SignalsDuringAWrite, testing::ValuesIn(writers),
                         testing::PrintToStringParamName());

TEST_P(SignalsDuringAWrite, ASignalAtAnyCallLeavesTheCompleteFileWithItsMode)
{
    int calls = 0;
    for (bool ended = false; !ended; ++calls) {
        SCOPED_TRACE(calls);
        ended = true;
        for (const bool exists : {true, false}) {
            const std::string path = exists ? oldFile() : newFile();
            const ChildRun run = writeUnder(path, SIGTERM, calls + 1, SIG_DFL);
            if (run.signal != 0) {
                EXPECT_EQ(run.signal, SIGTERM);
                ended = false;
            }
            expectWritten(path, exists ? writer.oldMode : writer.newMode);
        }
    }
    // At least fopen, a write and fclose.
    EXPECT_GE(calls, 3);
}

TEST_P(SignalsDuringAWrite, AnySignalDuringTheOpeningIsHeldBackUntilTheFileIsComplete)
{
    for (const int signal : heldBack) {
        SCOPED_TRACE(signal);
        const std::string path = oldFile();
        const ChildRun run = writeUnder(path, signal, 1, [](int) { std::_Exit(40); });
        EXPECT_EQ(run.status, 40);
        expectWritten(path, writer.oldMode);
    }
}

TEST_P(SignalsDuringAWrite, SignalsAreNotHeldBackDuringAWriteToAPipe)
{
    const std::string path = folder / "pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
    const KeyOwner written = key();
    const OnlyBlocked none({});
    std::set<int> blocked = {-1};
    {
        LibraryFaults faults;
        faults.before("fopen", [&] { blocked = BlockedSignals(); });
        EXPECT_EQ(writer.write(path, written.get()), 1);
    }
    close(reader);
    EXPECT_EQ(blocked, std::set<int>());
}

// Programs with signal masks of their own may use the engine.
TEST_P(SignalsDuringAWrite, TheSignalMaskIsRestoredOnEveryReturn)
{
    const std::set<int> callers = {SIGINT, SIGCHLD};
    const OnlyBlocked blocked(callers);
    const KeyOwner written = key();
    for (const char *failing : {"", "fopen", "PEM_write_PKCS8", "PEM_write_PrivateKey", "PEM_write_PUBKEY",
                                "fflush", "fclose", "CRYPTO_malloc", "i2d_PUBKEY"}) {
        SCOPED_TRACE(failing);
        const std::string path = oldFile();
        EXPECT_EQ(RunInChild([&] {
                      LibraryFaults faults;
                      faults.fail(failing, std::string(failing) == "fflush" ? EOF : 0);
                      writer.write(path, written.get());
                      std::_Exit(BlockedSignals() == callers ? 41 : 42);
                  }).status,
                  41);
    }
}

} // namespace
