// Calls a fuzz target with each file in the directories and files that the arguments name.
#include "tests/fuzz/fuzz_target.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::vector<fs::path> inputsIn(int argc, char *argv[])
{
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        const fs::path named = fs::absolute(argv[i]);
        if (fs::is_directory(named))
            inputs.insert(inputs.end(), fs::directory_iterator(named), fs::directory_iterator());
        else
            inputs.push_back(named);
    }
    std::sort(inputs.begin(), inputs.end());
    return inputs;
}

void replay(const fs::path &input)
{
    std::fprintf(stderr, "%s\n", input.c_str());
    std::ifstream file(input, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    Require(file.is_open(), "the input can be read");
    const std::string bytes = content.str();
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size());
}

} // namespace

int main(int argc, char *argv[])
{
    const std::vector<fs::path> inputs = inputsIn(argc, argv);
    for (const fs::path &input : inputs)
        replay(input);
    std::fprintf(stderr, "%zu inputs\n", inputs.size());
    return inputs.empty() ? EXIT_FAILURE : EXIT_SUCCESS;
}
