#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

#include "fuzz/Fuzz.h"

/*
 * Runs a target over the inputs kept for it: REPLAY FILE-OR-FOLDER... Whatever fails ends the program; the last name
 * printed is that of the input.
 */

namespace {

void run(const std::filesystem::path& path)
{
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
    // A block of its own size, so that whoever reads behind the input is caught.
    const std::unique_ptr<unsigned char[]> input(new unsigned char[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), input.get());
    LLVMFuzzerTestOneInput(input.get(), bytes.size());
}

}  // namespace

int main(int count, char** arguments)
{
    std::vector<std::filesystem::path> inputs;
    for (int i = 1; i < count; ++i) {
        const std::filesystem::path path = arguments[i];
        if (!std::filesystem::is_directory(path))
            inputs.push_back(path);
        else
            for (const auto& entry : std::filesystem::directory_iterator(path))
                inputs.push_back(entry.path());
    }
    std::sort(inputs.begin(), inputs.end());
    if (inputs.empty()) {
        std::fprintf(stderr, "usage: %s FILE-OR-FOLDER...\n", arguments[0]);
        return 2;
    }
    LLVMFuzzerTestOneInput(nullptr, 0);
    for (const std::filesystem::path& input : inputs)
        run(input);
    std::printf("%zu inputs\n", inputs.size());
    return 0;
}
