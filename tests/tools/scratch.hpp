// A directory for the files of a test.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

namespace vxpadctl_test {

namespace fs = std::filesystem;

inline std::string contents(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

class Scratch : public testing::Test {
  protected:
    Scratch() {
        std::string name = testing::TempDir() + "vxpad-XXXXXX";
        directory_ = ::mkdtemp(name.data());
    }
    ~Scratch() override { fs::remove_all(directory_); }

    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(directory_ / name, std::ios::binary) << text;
        return directory_ / name;
    }

    fs::path directory_;
};

} // namespace vxpadctl_test
