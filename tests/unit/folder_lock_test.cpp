#include "keygen/folder_lock.h"

#include "tests/support/child_run.h"
#include "tests/support/library_faults.h"
#include "tests/support/sanitizer.h"
#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace {

/// Whether another process would have to wait for the directory.
bool isLocked(const std::string &path)
{
    const int folder = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_NE(folder, -1) << path;
    const bool locked = flock(folder, LOCK_EX | LOCK_NB) == -1 && errno == EWOULDBLOCK;
    close(folder);
    return locked;
}

class FolderLocks : public testing::Test {
protected:
    FolderLocks()
    {
        for (const char *name : {"a", "b", "c"})
            fs::create_directory(folder / name);
    }

    /// The path of a file, in the front end's type.
    QString file(const std::string &name) const { return QString::fromStdString(folder / name); }

    /// The names among "a", "b" and "c" of the directories that are locked, in this order.
    std::string locked() const
    {
        std::string names;
        for (const char *name : {"a", "b", "c"})
            names += isLocked(folder / name) ? name : "";
        return names;
    }

    TemporaryFolder folder;
};

TEST_F(FolderLocks, TheDirectoriesOfTheFilesAreLockedForTheLifetimeOfTheLock)
{
    {
        const FolderLock lock({file("a/key"), file("c/key")});
        EXPECT_EQ(locked(), "ac");
        EXPECT_FALSE(isLocked(folder.path().string()));
    }
    EXPECT_EQ(locked(), "");
    EXPECT_TRUE(fs::is_empty(folder / "a"));
}

TEST_F(FolderLocks, TheCurrentDirectoryIsLockedForABareName)
{
    const ChildRun run = RunInChild([&] {
        fs::current_path(folder / "b");
        const FolderLock lock({"key"});
        std::exit(locked() == "b" ? 40 : 41);
    });
    EXPECT_EQ(run.status, 40);
}

TEST_F(FolderLocks, TheRootDirectoryIsLockedForAFileInIt)
{
    LibraryFaults faults;
    faults.fail("flock", 0, LibraryFaults::everyCall);
    const FolderLock lock({"/key"});
    EXPECT_EQ(faults.calls("flock"), 1);
}

// A second lock on the same directory would wait for the first one forever.
TEST_F(FolderLocks, ADirectoryIsLockedOnceUnderSeveralNames)
{
    fs::create_symlink("a", folder / "link");
    const ChildRun run = RunInChild([&] {
        const FolderLock lock({file("a/key"), file("a/key.pem"), file("./a//key"), file("link/key")});
        std::exit(locked() == "a" ? 40 : 41);
    });
    EXPECT_EQ(run.status, 40);
}

TEST_F(FolderLocks, LocksAreTakenInTheOrderOfDeviceAndInodeNumbers)
{
    // The names are in the reverse order of the inode numbers.
    std::vector<std::pair<ino_t, std::string>> made;
    for (int i = 0; i < 4; ++i) {
        const std::string path = folder / ("made" + std::to_string(i));
        fs::create_directory(path);
        struct stat status = {};
        ASSERT_EQ(stat(path.c_str(), &status), 0);
        made.emplace_back(status.st_ino, path);
    }
    std::sort(made.rbegin(), made.rend());
    QStringList files;
    std::vector<ino_t> numbers;
    for (std::size_t i = 0; i < made.size(); ++i) {
        const std::string name = "named" + std::to_string(i);
        fs::rename(made[i].second, folder / name);
        files << file(name + "/key");
        numbers.insert(numbers.begin(), made[i].first);
    }

    std::vector<ino_t> order;
    LibraryFaults faults;
    faults.replace<int(int, int)>("flock", [&](int descriptor, int operation) {
        struct stat status = {};
        fstat(descriptor, &status);
        order.push_back(status.st_ino);
        EXPECT_EQ(operation, LOCK_EX);
        return 0;
    });
    const FolderLock lock(files);
    EXPECT_EQ(order, numbers);
}

TEST_F(FolderLocks, DirectoriesThatCannotBeLockedAreSkipped)
{
    WriteFile(folder / "file", "");
    const FolderLock lock({file("missing/key"), file("file/key"), file("b/key")});
    EXPECT_EQ(locked(), "b");
    for (const int error : {ENOLCK, EOPNOTSUPP, EBADF}) {
        int calls = 0;
        LibraryFaults faults;
        faults.replace<int(int, int)>("flock", [&](int, int) {
            ++calls;
            errno = error;
            return -1;
        });
        const FolderLock without({file("a/key"), file("c/key")});
        EXPECT_EQ(calls, 2);
    }
}

TEST_F(FolderLocks, LockingContinuesAfterAnInterruption)
{
    int calls = 0;
    LibraryFaults faults;
    faults.replace<int(int, int)>("flock", [&](int, int) {
        errno = EINTR;
        return ++calls < 3 ? -1 : 0;
    });
    const FolderLock lock({file("a/key")});
    EXPECT_EQ(calls, 3);
}

/// The limit on file descriptors that leaves `count` of them free, with those that are already open.
rlim_t limitWithFree(unsigned int count)
{
    int limit = 0;
    for (unsigned int found = 0; found < count; ++limit) {
        if (fcntl(limit, F_GETFD) == -1)
            ++found;
    }
    return static_cast<rlim_t>(limit);
}

// A run opens one file at a time.
TEST_F(FolderLocks, OneFileDescriptorIsLeftForTheFiles)
{
    if (underSanitizers)
        GTEST_SKIP() << "a sanitizer inspects objects through a file descriptor of its own";
    const auto lockWith = [&](unsigned int descriptors) {
        return RunInChild([&] {
                   rlimit limit = {};
                   getrlimit(RLIMIT_NOFILE, &limit);
                   const rlim_t before = limit.rlim_cur;
                   limit.rlim_cur = limitWithFree(descriptors);
                   setrlimit(RLIMIT_NOFILE, &limit);
                   const FolderLock lock({file("a/key"), file("b/key")});
                   const bool canOpen = dup(STDIN_FILENO) != -1;
                   limit.rlim_cur = before;
                   setrlimit(RLIMIT_NOFILE, &limit);
                   std::printf("%s %s", canOpen ? "can open" : "cannot open", locked().c_str());
               })
            .output;
    };
    EXPECT_EQ(lockWith(0), "cannot open ");
    EXPECT_EQ(lockWith(1), "can open ");
    EXPECT_EQ(lockWith(2), "can open ");
    EXPECT_EQ(lockWith(3), "can open ab");
}

} // namespace
