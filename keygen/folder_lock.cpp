#include "keygen/folder_lock.h"

#include <QByteArray>

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <set>
#include <string>

namespace {

/// The folder part of `file`, as the C library sees it.
std::string folderOf(const QString &file)
{
    // The C library ends a path at its first zero character.
    const std::string path = file.toUtf8().constData();
    const std::size_t size = path.rfind('/') + 1;
    return size > 0 ? path.substr(0, size) : ".";
}

std::set<std::string> foldersOf(const QStringList &files)
{
    std::set<std::string> names;
    for (const QString &file : files)
        names.insert(folderOf(file));
    return names;
}

/// One free descriptor is enough: a run has one file open at a time.
bool anotherFileCanBeOpened()
{
    const int descriptor = dup(STDIN_FILENO);
    if (descriptor == -1)
        return false;
    close(descriptor);
    return true;
}

} // namespace

FolderLock::FolderLock(const QStringList &files)
{
    for (const std::string &name : foldersOf(files)) {
        FolderOwner folder(opendir(name.c_str()));
        struct stat status = {};
        if (folder && fstat(dirfd(folder.get()), &status) == 0)
            folders.try_emplace({status.st_dev, status.st_ino}, std::move(folder));
    }
    // Without a descriptor for the files themselves, the run does without locks.
    if (!anotherFileCanBeOpened())
        folders.clear();
    for (const auto &[identity, folder] : folders) {
        while (flock(dirfd(folder.get()), LOCK_EX) == -1 && errno == EINTR) {
        }
    }
}
