#include "base/companion.hpp"

#include <stdexcept>
#include <string>

namespace emulator {

namespace fs = std::filesystem;

fs::path companion(const char* built, const char* installed) {
    const auto directory = fs::read_symlink("/proc/self/exe").parent_path();
    for (const auto* place : {built, installed}) {
        if (const auto path = directory / place; fs::exists(path)) {
            return fs::canonical(path);
        }
    }
    throw std::runtime_error(fs::path(installed).filename().string() + " is missing, which belongs into " +
                             (directory / installed).lexically_normal().parent_path().string());
}

} // namespace emulator
