// Runs a fuzz target over files and directories of files, each once: vxpad-replay-... corpus/...
#include "fuzz.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

int replayed = 0;

void replay(const std::filesystem::path& file) {
    std::printf("%s\n", file.filename().c_str());
    std::fflush(stdout); // names the culprit where the target ends the process
    std::ifstream stream{file, std::ios::binary};
    const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
    // A copy of exactly that size, so that sanitizers see any access beyond it.
    std::vector<uint8_t> input(bytes.begin(), bytes.end());
    input.shrink_to_fit();
    LLVMFuzzerTestOneInput(input.data(), input.size());
    ++replayed;
}

} // namespace

int main(int count, char** arguments) {
    for (int i = 1; i < count; ++i) {
        const std::filesystem::path path = arguments[i];
        if (!std::filesystem::is_directory(path)) {
            replay(path);
            continue;
        }
        std::vector<std::filesystem::path> files{std::filesystem::directory_iterator(path), {}};
        std::sort(files.begin(), files.end());
        for (const auto& file : files) {
            replay(file);
        }
    }
    return replayed > 0 ? 0 : 1; // an empty corpus tests nothing
}
