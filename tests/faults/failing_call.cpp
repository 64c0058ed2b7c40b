// Preloaded into a program, makes one call of one function of the C library fail, and counts the calls from
// its first message on.
//
//   FAILING_CALL   the function's name; FAILING_AT its call that fails, from 1 on
//   CALL_COUNTS    a file that receives "name count" for each function when the program ends
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// The C library's own allocator, under the names that it exports for replacements of malloc.
extern "C" void *__libc_malloc(size_t size);
extern "C" void *__libc_calloc(size_t count, size_t size);
extern "C" void *__libc_realloc(void *block, size_t size);

namespace {

enum Function { MALLOC, FOPEN, OPEN, WRITE, FFLUSH, FCLOSE, CHMOD, MKDIR, GETRANDOM, GETENTROPY, FUNCTIONS };

constexpr const char *names[FUNCTIONS] = {"malloc", "fopen", "open",  "write",     "fflush",
                                          "fclose", "chmod", "mkdir", "getrandom", "getentropy"};

std::atomic<unsigned long> counts[FUNCTIONS];

// Before the program's first message only the application library's start-up runs, which is not ours to mend.
std::atomic<bool> hasSpoken = false;

/// Counts a call; true when it is the one to fail, with errno set to `error`.
bool fails(Function function, int error)
{
    if (!hasSpoken)
        return false;
    const unsigned long count = ++counts[function];
    const char *const name = getenv("FAILING_CALL");
    if (name == nullptr || strcmp(name, names[function]) != 0)
        return false;
    const char *const at = getenv("FAILING_AT");
    if (at == nullptr || strtoul(at, nullptr, 10) != count)
        return false;
    errno = error;
    return true;
}

template <typename F>
F *next(const char *name)
{
    return reinterpret_cast<F *>(dlsym(RTLD_NEXT, name));
}

struct CountsAtExit {
    ~CountsAtExit()
    {
        const char *const path = getenv("CALL_COUNTS");
        if (path == nullptr)
            return;
        const int file = next<int(const char *, int, ...)>("open")(path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
        for (int i = 0; i < FUNCTIONS; ++i)
            dprintf(file, "%s %lu\n", names[i], counts[i].load());
        close(file);
    }
} countsAtExit;

} // namespace

extern "C" {

int fputs(const char *text, FILE *file)
{
    hasSpoken = true;
    return next<int(const char *, FILE *)>("fputs")(text, file);
}

void *malloc(size_t size)
{
    return fails(MALLOC, ENOMEM) ? nullptr : __libc_malloc(size);
}

void *calloc(size_t count, size_t size)
{
    return fails(MALLOC, ENOMEM) ? nullptr : __libc_calloc(count, size);
}

void *realloc(void *block, size_t size)
{
    return fails(MALLOC, ENOMEM) ? nullptr : __libc_realloc(block, size);
}

FILE *fopen(const char *path, const char *mode)
{
    return fails(FOPEN, EMFILE) ? nullptr : next<FILE *(const char *, const char *)>("fopen")(path, mode);
}

FILE *fopen64(const char *path, const char *mode)
{
    return fails(FOPEN, EMFILE) ? nullptr : next<FILE *(const char *, const char *)>("fopen64")(path, mode);
}

int open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return fails(OPEN, EMFILE) ? -1 : next<int(const char *, int, ...)>("open")(path, flags, mode);
}

int open64(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return fails(OPEN, EMFILE) ? -1 : next<int(const char *, int, ...)>("open64")(path, flags, mode);
}

ssize_t write(int file, const void *bytes, size_t size)
{
    return fails(WRITE, ENOSPC) ? -1 : next<ssize_t(int, const void *, size_t)>("write")(file, bytes, size);
}

int fflush(FILE *file)
{
    return fails(FFLUSH, ENOSPC) ? EOF : next<int(FILE *)>("fflush")(file);
}

int fclose(FILE *file)
{
    // Closed all the same: a failed close leaves no open stream.
    const int status = next<int(FILE *)>("fclose")(file);
    return fails(FCLOSE, EIO) ? EOF : status;
}

int chmod(const char *path, mode_t mode)
{
    return fails(CHMOD, EPERM) ? -1 : next<int(const char *, mode_t)>("chmod")(path, mode);
}

int mkdir(const char *path, mode_t mode)
{
    return fails(MKDIR, ENOSPC) ? -1 : next<int(const char *, mode_t)>("mkdir")(path, mode);
}

ssize_t getrandom(void *buffer, size_t size, unsigned int flags)
{
    return fails(GETRANDOM, ENOSYS)
               ? -1
               : next<ssize_t(void *, size_t, unsigned int)>("getrandom")(buffer, size, flags);
}

int getentropy(void *buffer, size_t size)
{
    return fails(GETENTROPY, ENOSYS) ? -1 : next<int(void *, size_t)>("getentropy")(buffer, size);
}
}
