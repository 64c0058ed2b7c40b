// A library to preload into a program. It makes one call of one function of the C library fail, and counts
// the calls from the start of main() on.
//
//   FAILING_CALL    the name of the function; FAILING_AT the number of its call that fails, from 1 on
//   FAILURE_REPORT  a file that receives "early" or "late", before or after the program's first message, and
//                   the purpose of the failing call: "late wb keys/publicKey.pem"
//   CALL_COUNTS     a file that receives "name count" for each function when the program ends, and
//                   "allocations_before_lock" with the number of allocations before the first flock()
//   RAISED_SIGNAL   the number of a signal that is raised before one call, which does not fail
//   RAISED_AT       the number of that call, from 1 on, among the calls that concern files
//
// Two names mean calls of write() without a permanent failure: "short" writes half of the bytes,
// "interrupted" writes nothing, as when a signal arrives.
#include "tests/support/processor_generator.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// The allocator of the C library, under the names that it exports for replacements of malloc.
extern "C" void *__libc_malloc(size_t size);
extern "C" void *__libc_calloc(size_t count, size_t size);
extern "C" void *__libc_realloc(void *block, size_t size);
extern "C" void *__libc_memalign(size_t alignment, size_t size);

namespace {

enum Function {
    MALLOC,
    FOPEN,
    OPEN,
    WRITE,
    SHORT,
    INTERRUPTED,
    FFLUSH,
    FCLOSE,
    CLOSE,
    CHMOD,
    MKDIR,
    STATX,
    STAT,
    OPENDIR,
    FLOCK,
    SIGMASK,
    GETRANDOM,
    GETENTROPY,
    FUNCTIONS
};

constexpr const char *names[FUNCTIONS] = {"malloc",          "fopen",     "open",      "write",   "short",
                                          "interrupted",     "fflush",    "fclose",    "close",   "chmod",
                                          "mkdir",           "statx",     "stat",      "opendir", "flock",
                                          "pthread_sigmask", "getrandom", "getentropy"};

std::atomic<unsigned long> counts[FUNCTIONS];
unsigned long allocationsBeforeLock = 0;
int failingFunction = -1;
unsigned long failingAt = 0;
int raisedSignal = 0;
unsigned long raisedAt = 0;
unsigned long raisableCalls = 0;

// Calls before main() never fail: the libraries initialise themselves then, and some wait forever if an
// allocation fails.
std::atomic<bool> isRunning = false;
std::atomic<bool> hasSpoken = false;

/// The names of the open streams; "" for the standard streams.
struct Stream {
    FILE *file;
    char name[240];
};
std::array<Stream, 32> streams;

const char *nameOf(FILE *file)
{
    const auto stream =
        std::find_if(streams.begin(), streams.end(), [=](const Stream &s) { return s.file == file; });
    return stream != streams.end() ? stream->name : "";
}

FILE *named(FILE *file, const char *mode, const char *path)
{
    const auto place =
        std::find_if(streams.begin(), streams.end(), [](const Stream &s) { return s.file == nullptr; });
    if (file != nullptr && place != streams.end()) {
        place->file = file;
        snprintf(place->name, sizeof place->name, "%s %s", mode, path);
    }
    return file;
}

template <typename F>
F *next(const char *name)
{
    return reinterpret_cast<F *>(dlsym(RTLD_NEXT, name));
}

/// Appends to the file that `variable` names, without the functions that may be failing.
void report(const char *variable, const char *text, size_t size)
{
    const char *const path = getenv(variable);
    if (path == nullptr)
        return;
    const long file = syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    syscall(SYS_write, file, text, size);
    syscall(SYS_close, file);
}

void raiseBefore(Function function)
{
    // Functions that are called too often, and the two other names of write().
    constexpr std::array others = {MALLOC, GETRANDOM, GETENTROPY, SHORT, INTERRUPTED};
    if (std::find(others.begin(), others.end(), function) != others.end())
        return;
    if (++raisableCalls == raisedAt)
        std::raise(raisedSignal);
}

/// Counts a call. Returns true, with errno set to `error`, if it is the call that has to fail.
bool fails(Function function, int error, const char *purpose)
{
    if (!isRunning)
        return false;
    raiseBefore(function);
    if (function == FLOCK && counts[FLOCK] == 0)
        allocationsBeforeLock = counts[MALLOC];
    if (++counts[function] != failingAt || function != failingFunction)
        return false;
    std::array<char, 300> text = {};
    strcpy(text.data(), hasSpoken ? "late " : "early ");
    strncat(text.data(), purpose, text.size() - 10);
    report("FAILURE_REPORT", text.data(), strlen(text.data()));
    errno = error;
    return true;
}

int (*programsMain)(int, char **, char **) = nullptr;

int mainWithFailures(int count, char **arguments, char **environment)
{
    if (const char *const name = getenv("FAILING_CALL")) {
        const auto *const found = std::find_if(names, names + FUNCTIONS,
                                               [=](const char *known) { return strcmp(known, name) == 0; });
        failingFunction = static_cast<int>(found - names);
        failingAt = strtoul(getenv("FAILING_AT"), nullptr, 10);
    }
    if (const char *const signal = getenv("RAISED_SIGNAL")) {
        raisedSignal = static_cast<int>(strtol(signal, nullptr, 10));
        raisedAt = strtoul(getenv("RAISED_AT"), nullptr, 10);
    }
    UseProcessorGenerator(false);
    isRunning = true;
    return programsMain(count, arguments, environment);
}

struct CountsAtExit {
    ~CountsAtExit()
    {
        isRunning = false;
        for (int i = 0; i < FUNCTIONS; ++i)
            reportCount(names[i], counts[i]);
        reportCount("allocations_before_lock", allocationsBeforeLock);
    }

    static void reportCount(const char *name, unsigned long count)
    {
        std::array<char, 64> line = {};
        const int size = snprintf(line.data(), line.size(), "%s %lu\n", name, count);
        report("CALL_COUNTS", line.data(), static_cast<size_t>(size));
    }
} countsAtExit;

/// The paths of the files that this library opened by name, by file descriptor.
std::array<char[240], 64> pathsOfDescriptors;

const char *pathOf(int file)
{
    return file > 2 && file < 64 ? pathsOfDescriptors[static_cast<size_t>(file)] : "";
}

int opened(int file, const char *path)
{
    if (file > 2 && file < 64)
        snprintf(pathsOfDescriptors[static_cast<size_t>(file)], 240, "%s", path);
    return file;
}

/// Does what a stream of the C library does with write(), which cannot be replaced inside the C library.
ssize_t writeOfStream(void *cookie, const char *bytes, size_t size)
{
    const int file = static_cast<int>(reinterpret_cast<intptr_t>(cookie));
    size_t done = 0;
    while (done < size) {
        const ssize_t written = write(file, bytes + done, size - done);
        if (written < 0)
            return 0;
        done += static_cast<size_t>(written);
    }
    return static_cast<ssize_t>(done);
}

int closeOfStream(void *cookie)
{
    return static_cast<int>(syscall(SYS_close, reinterpret_cast<intptr_t>(cookie)));
}

FILE *openStream(const char *path, const char *mode)
{
    if (mode[0] != 'w')
        return named(next<FILE *(const char *, const char *)>("fopen")(path, mode), mode, path);
    const long file = syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (file == -1)
        return nullptr;
    opened(static_cast<int>(file), path);
    const cookie_io_functions_t functions = {nullptr, writeOfStream, nullptr, closeOfStream};
    return named(fopencookie(reinterpret_cast<void *>(file), mode, functions), mode, path);
}

} // namespace

extern "C" {

int __libc_start_main(int (*main)(int, char **, char **), int count, char **arguments, void (*init)(),
                      void (*fini)(), void (*loaderFini)(), void *stackEnd)
{
    programsMain = main;
    return next<decltype(__libc_start_main)>("__libc_start_main")(mainWithFailures, count, arguments, init,
                                                                  fini, loaderFini, stackEnd);
}

int fputs(const char *text, FILE *file)
{
    hasSpoken = true;
    return next<int(const char *, FILE *)>("fputs")(text, file);
}

void *malloc(size_t size)
{
    return fails(MALLOC, ENOMEM, "") ? nullptr : __libc_malloc(size);
}

void *calloc(size_t count, size_t size)
{
    return fails(MALLOC, ENOMEM, "") ? nullptr : __libc_calloc(count, size);
}

void *realloc(void *block, size_t size)
{
    return fails(MALLOC, ENOMEM, "") ? nullptr : __libc_realloc(block, size);
}

void *aligned_alloc(size_t alignment, size_t size)
{
    return fails(MALLOC, ENOMEM, "") ? nullptr : __libc_memalign(alignment, size);
}

int posix_memalign(void **block, size_t alignment, size_t size)
{
    if (fails(MALLOC, ENOMEM, ""))
        return ENOMEM;
    *block = __libc_memalign(alignment, size);
    return *block != nullptr ? 0 : ENOMEM;
}

FILE *fopen(const char *path, const char *mode)
{
    std::array<char, 240> purpose = {};
    snprintf(purpose.data(), purpose.size(), "%s %s", mode, path);
    return fails(FOPEN, EMFILE, purpose.data()) ? nullptr : openStream(path, mode);
}

FILE *fopen64(const char *path, const char *mode)
{
    return fopen(path, mode);
}

int open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (fails(OPEN, EMFILE, path))
        return -1;
    return opened(next<int(const char *, int, ...)>("open")(path, flags, mode), path);
}

int open64(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return open(path, flags, mode);
}

int openat(int folder, const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (fails(OPEN, EMFILE, path))
        return -1;
    return opened(next<int(int, const char *, int, ...)>("openat")(folder, path, flags, mode), path);
}

ssize_t write(int file, const void *bytes, size_t size)
{
    if (fails(WRITE, ENOSPC, pathOf(file)) || fails(INTERRUPTED, EINTR, pathOf(file)))
        return -1;
    if (fails(SHORT, 0, pathOf(file)))
        size = (size + 1) / 2;
    return next<ssize_t(int, const void *, size_t)>("write")(file, bytes, size);
}

int fflush(FILE *file)
{
    return fails(FFLUSH, ENOSPC, nameOf(file)) ? EOF : next<int(FILE *)>("fflush")(file);
}

int fclose(FILE *file)
{
    const bool failing = fails(FCLOSE, EIO, nameOf(file));
    for (Stream &stream : streams) {
        if (stream.file == file)
            stream.file = nullptr;
    }
    // The stream is closed nevertheless: a failed close leaves no open stream.
    const int status = next<int(FILE *)>("fclose")(file);
    return failing ? EOF : status;
}

int close(int file)
{
    const bool failing = fails(CLOSE, EIO, pathOf(file));
    const int status = next<int(int)>("close")(file);
    if (failing)
        errno = EIO;
    return failing ? -1 : status;
}

int chmod(const char *path, mode_t mode)
{
    return fails(CHMOD, EPERM, path) ? -1 : next<int(const char *, mode_t)>("chmod")(path, mode);
}

int mkdir(const char *path, mode_t mode)
{
    return fails(MKDIR, ENOSPC, path) ? -1 : next<int(const char *, mode_t)>("mkdir")(path, mode);
}

int statx(int folder, const char *path, int flags, unsigned int mask, struct statx *status)
{
    if (fails(STATX, EIO, path))
        return -1;
    return next<int(int, const char *, int, unsigned int, struct statx *)>("statx")(folder, path, flags, mask,
                                                                                    status);
}

int stat(const char *path, struct stat *status)
{
    return fails(STAT, EIO, path) ? -1 : next<int(const char *, struct stat *)>("stat")(path, status);
}

DIR *opendir(const char *path)
{
    return fails(OPENDIR, EMFILE, path) ? nullptr : next<DIR *(const char *)>("opendir")(path);
}

int flock(int file, int operation)
{
    return fails(FLOCK, ENOLCK, "") ? -1 : next<int(int, int)>("flock")(file, operation);
}

int pthread_sigmask(int how, const sigset_t *set, sigset_t *former)
{
    using Mask = int(int, const sigset_t *, sigset_t *);
    return fails(SIGMASK, EINVAL, "") ? EINVAL : next<Mask>("pthread_sigmask")(how, set, former);
}

ssize_t getrandom(void *buffer, size_t size, unsigned int flags)
{
    return fails(GETRANDOM, EIO, "")
               ? -1
               : next<ssize_t(void *, size_t, unsigned int)>("getrandom")(buffer, size, flags);
}

int getentropy(void *buffer, size_t size)
{
    return fails(GETENTROPY, EIO, "") ? -1 : next<int(void *, size_t)>("getentropy")(buffer, size);
}
}
