// A folder of a test's own.
#pragma once

#include <filesystem>
#include <string>

/// An empty folder with a name of its own, removed with everything in it at the end. Its name holds a blank,
/// as a user's folder may.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    const std::filesystem::path &path() const { return folder; }
    /// The path of `name` inside the folder.
    std::string operator/(const std::string &name) const { return (folder / name).string(); }

private:
    std::filesystem::path folder;
};

/// The descriptor of a new file that no name leads to.
int UnnamedFile();

/// The whole content of the file at `path`; a failure of the test where it cannot be read.
std::string ReadFile(const std::string &path);

/// Creates or replaces the file at `path`.
void WriteFile(const std::string &path, const std::string &content);

/// The permission bits of the file at `path`, links followed, as in 0644.
int ModeOf(const std::string &path);
