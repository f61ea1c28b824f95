// The secret that whoever wants pads has to know, and the places where the user finds it.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace bridge {

// 256 random bits as hexadecimal digits. Throws std::system_error.
std::string make_token();

// One that lasts: a line of 32 to 256 letters, digits, - and _ in a file that is the user's alone. Throws
// std::runtime_error.
std::string read_token(const std::filesystem::path& file);

// Takes as long whatever stands where in what was given.
bool is_token(std::string_view given, std::string_view token);

// $XDG_RUNTIME_DIR/vxpad-bridge/address. Throws std::runtime_error where there is no such directory.
std::filesystem::path default_address_file();

// A file of the user's alone that holds one line as long as this exists. Throws std::system_error.
class PrivateFile {
  public:
    PrivateFile(std::filesystem::path file, const std::string& line);
    ~PrivateFile();
    PrivateFile(const PrivateFile&) = delete;
    PrivateFile& operator=(const PrivateFile&) = delete;

  private:
    std::filesystem::path file_;
    std::string line_;
};

} // namespace bridge
