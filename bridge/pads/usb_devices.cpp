#include "pads/usb_devices.hpp"

#include <fstream>
#include <system_error>

namespace bridge {

std::set<std::string> usb_devices(const std::filesystem::path& directory) {
    std::set<std::string> devices;
    std::error_code error;
    for (std::filesystem::directory_iterator entry{directory, error}, end; !error && entry != end;
         entry.increment(error)) {
        std::string number;
        if (std::getline(std::ifstream(entry->path() / "devnum"), number)) { // interfaces have none
            devices.insert(entry->path().filename().string() + " " + number);
        }
    }
    return devices;
}

} // namespace bridge
