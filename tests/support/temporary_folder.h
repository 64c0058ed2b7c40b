// A temporary directory for a test.
#pragma once

#include <filesystem>
#include <string>

/// A new, empty directory, removed with its content on destruction. Its name contains a space, as a user's
/// directory may.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    const std::filesystem::path &path() const { return folder; }
    /// The path of `name` inside the directory.
    std::string operator/(const std::string &name) const { return (folder / name).string(); }

private:
    std::filesystem::path folder;
};

/// The descriptor of a new file without a name.
int UnnamedFile();

/// The whole content of an open file. Does not move its position, which the writers share.
std::string ContentOf(int file);

/// The whole content of the file at `path`. If it cannot be read, the test fails.
std::string ReadFile(const std::string &path);

/// Creates or replaces the file at `path`.
void WriteFile(const std::string &path, const std::string &content);

/// The permission bits of the file at `path`, as in 0644. Follows links.
int ModeOf(const std::string &path);
