#include "tests/support/temporary_folder.h"

#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

namespace fs = std::filesystem;

TemporaryFolder::TemporaryFolder()
{
    std::string name = (fs::temp_directory_path() / "keygen test XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("cannot create the temporary directory " + name);
    folder = name;
}

TemporaryFolder::~TemporaryFolder()
{
    // A test may have left directories that their owner cannot enter.
    std::error_code ignored;
    for (auto entry =
             fs::recursive_directory_iterator(folder, fs::directory_options::skip_permission_denied, ignored);
         entry != fs::recursive_directory_iterator(); entry.increment(ignored)) {
        if (entry->is_directory(ignored) && !entry->is_symlink(ignored))
            fs::permissions(entry->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    }
    fs::remove_all(folder, ignored);
}

int UnnamedFile()
{
    std::string name = (fs::temp_directory_path() / "keygen-test-XXXXXX").string();
    const int file = mkostemp(name.data(), O_CLOEXEC);
    if (file == -1)
        throw std::runtime_error("cannot create the temporary file " + name);
    unlink(name.c_str());
    return file;
}

std::string ContentOf(int file)
{
    std::string content;
    std::array<char, 4096> chunk;
    const auto next = [&] {
        return pread(file, chunk.data(), chunk.size(), static_cast<off_t>(content.size()));
    };
    for (ssize_t size = next(); size > 0; size = next())
        content.append(chunk.data(), static_cast<std::size_t>(size));
    return content;
}

std::string ReadFile(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << "cannot read " << path;
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void WriteFile(const std::string &path, const std::string &content)
{
    std::ofstream file(path, std::ios::binary);
    file << content;
    file.close();
    EXPECT_TRUE(file.good()) << "cannot write " << path;
}

int ModeOf(const std::string &path)
{
    return static_cast<int>(fs::status(path).permissions()) & 07777;
}
