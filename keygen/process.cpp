#include "keygen/process.h"

#include <QtGlobal>

#include <openssl/crypto.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>
#if __has_include(<sys/prctl.h>)
#include <sys/prctl.h>
#endif

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Replaces the C library's buffer, which could not be wiped: output may show a refused password.
std::array<char, 4096> outputBuffer;

void fillStandardStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        // open() returns the lowest free descriptor, which is the closed stream's: those below it are in use.
        if (fcntl(stream, F_GETFD) == -1 && errno == EBADF && open("/dev/null", O_RDWR) == -1)
            std::exit(EXIT_FAILURE);
    }
}

/// Prints only the reason for which the library is about to end the process.
void handleLibraryMessage(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type == QtFatalMsg)
        std::fprintf(stderr, "%s\n", message.toLocal8Bit().constData());
}

void keepMemoryPrivate()
{
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
#if defined(PR_SET_DUMPABLE) && !defined(KEYGEN_UNDER_SANITIZERS)
    // The limit neither applies where the system pipes core dumps to a program, nor keeps other processes of
    // the same user from tracing this one.
    prctl(PR_SET_DUMPABLE, 0);
#endif
}

/// At start-up the C library searches the program's path for its last slash. It loads whole vector registers,
/// and with them the first arguments, which follow the path in memory. The dynamic linker saves these
/// registers on the stack.
void wipeUnusedStack()
{
    std::array<char, 4096> unused;
    OPENSSL_cleanse(unused.data(), unused.size());
}

} // namespace

void PrepareProcess()
{
    fillStandardStreams();
    std::setvbuf(stdout, outputBuffer.data(), isatty(STDOUT_FILENO) == 1 ? _IOLBF : _IOFBF,
                 outputBuffer.size());
    qInstallMessageHandler(handleLibraryMessage);
    keepMemoryPrivate();
    // A write beyond a limit on file sizes then fails, as on a full disk, and is reported.
    std::signal(SIGXFSZ, SIG_IGN);
}

QList<QByteArray> TakeArguments(int argc, char *argv[])
{
    QList<QByteArray> arguments;
    for (int i = 1; i < argc; ++i) {
        arguments.append(QByteArray(argv[i], static_cast<qsizetype>(std::strlen(argv[i]))));
        OPENSSL_cleanse(argv[i], static_cast<std::size_t>(arguments.last().size()));
    }
    wipeUnusedStack();
    return arguments;
}

void WipeOutputBuffer()
{
    // The C library tries again at the end of the process to write what could not be written.
    if (std::fflush(stdout) == 0)
        OPENSSL_cleanse(outputBuffer.data(), outputBuffer.size());
}

void exitKeyGen(int status)
{
    std::exit(status);
}
