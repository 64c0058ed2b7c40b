// The names under which the application library knows the program.
#include "tests/support/sanitizer.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/transcript.h"
#include "tests/support/user_run.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace {

TEST(ApplicationNames, NameTheProductItsVersionAndItsMaker)
{
    if (underSanitizers)
        GTEST_SKIP() << "a sanitizer must be the first library of a process";
    const TemporaryFolder folder;
    const std::filesystem::path library = APPLICATION_NAMES;
    const std::string names = folder / "names";
    // A space in LD_PRELOAD separates two libraries, and the path of the build may contain one.
    const ProgramResult run =
        ::Run("env", {.arguments = {"LD_LIBRARY_PATH=" + library.parent_path().string(),
                                    "LD_PRELOAD=" + library.filename().string(), "APPLICATION_NAMES=" + names,
                                    KeygenProgram(), "-v"}});
    EXPECT_TRUE(EndedAsIn(run, 0, "version.txt"));
    EXPECT_EQ(ReadFile(names), "Corvane Key Generator\n" + std::string(versionShown) + "\nHalvex\n");
}

} // namespace
