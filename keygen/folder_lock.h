// Runs that write into the same folder take turns.
#pragma once

#include <QStringList>

#include <dirent.h>
#include <sys/types.h>

#include <map>
#include <memory>
#include <utility>

/// Keeps other runs from writing into the folders of some files for as long as it lives. The locks are
/// advisory and leave nothing behind in the folders.
class FolderLock {
public:
    /// Waits until no other run holds a folder of `files`. A folder that cannot be read or locked is skipped.
    explicit FolderLock(const QStringList &files);

private:
    struct CloseFolder {
        void operator()(DIR *folder) const { closedir(folder); }
    };
    using FolderOwner = std::unique_ptr<DIR, CloseFolder>;

    // By device and inode number: each folder once, and in the same order in every run, so that two runs
    // never wait for each other.
    std::map<std::pair<dev_t, ino_t>, FolderOwner> folders;
};
