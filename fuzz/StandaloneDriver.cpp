// Runs a fuzz target over stored inputs, for builds without libFuzzer: each argument is a file, or
// a folder whose files are taken.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

namespace fs = std::filesystem;

// Sorted, so that every run takes the same order.
std::vector<fs::path> ListInputs(const fs::path& argument) {
    if (!fs::is_directory(argument)) {
        return {argument};
    }
    std::vector<fs::path> inputs;
    for (const auto& entry : fs::recursive_directory_iterator(argument)) {
        if (entry.is_regular_file()) {
            inputs.push_back(entry.path());
        }
    }
    std::sort(inputs.begin(), inputs.end());
    return inputs;
}

bool RunInput(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        std::fprintf(stderr, "%s: cannot be read\n", path.c_str());
        return false;
    }
    // An exact copy on the heap lets the address sanitizer see a read beyond the input.
    const std::vector<uint8_t> input(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(input.data(), input.size());
    return true;
}

// Number of inputs, or -1 if one could not be read.
int RunAll(int argc, char** argv) {
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        for (const fs::path& path : ListInputs(argv[i])) {
            if (!RunInput(path)) {
                return -1;
            }
            ++count;
        }
    }
    return count;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const int count = RunAll(argc, argv);
        if (count < 0) return 1;
        std::printf("%d inputs\n", count);
        return count > 0 ? 0 : 1;  // a test that replays nothing has failed
    } catch (const fs::filesystem_error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
