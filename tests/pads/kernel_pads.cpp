#include "kernel_pads.hpp"

#include "control_client.hpp"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace pads {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr int usb_major = 189;
constexpr auto longest_change = 60s;

std::size_t count_plugged() {
    std::istringstream list{emulator::request("list")};
    std::size_t count = 0;
    for (std::string line; std::getline(list, line);) {
        count += line.empty() || line.find(" unplugged ") != std::string::npos ? 0U : 1U;
    }
    return count;
}

std::string word_of(const fs::path& file) {
    std::string word;
    std::ifstream{file} >> word;
    return word;
}

int number_of(const fs::path& file) {
    return std::atoi(word_of(file).c_str());
}

// All its interfaces are there, a HID pad's has its driver, and udev knows it.
bool is_ready(const fs::path& device) {
    const int interfaces = number_of(device / "bNumInterfaces");
    if (interfaces == 0 || word_of(device / "bConfigurationValue").empty()) {
        return false;
    }
    const auto interface = device.filename().string() + ":1.";
    const auto first = device / (interface + "0");
    const bool is_hid = word_of(first / "bInterfaceClass") == "03";
    const int minor = (number_of(device / "busnum") - 1) * 128 + number_of(device / "devnum") - 1;
    const auto udev = fs::path{"/run/udev/data"} / ("c" + std::to_string(usb_major) + ":" + std::to_string(minor));
    return fs::exists(device / (interface + std::to_string(interfaces - 1))) &&
           (!is_hid || fs::exists(first / "driver")) && fs::exists(udev);
}

// Devices in a port of a root hub.
std::vector<fs::path> devices() {
    std::vector<fs::path> found;
    for (const auto& entry : fs::directory_iterator{"/sys/bus/usb/devices"}) {
        const auto name = entry.path().filename().string();
        if (name.find('-') != std::string::npos && name.find(':') == std::string::npos) {
            found.push_back(entry.path());
        }
    }
    return found;
}

bool shows(std::size_t plugged) {
    const auto shown = devices();
    return shown.size() == plugged && std::ranges::all_of(shown, is_ready) && !fs::exists("/run/udev/queue");
}

} // namespace

bool on_a_kernel() {
    return std::getenv("VXPAD_TEST_KERNEL") != nullptr;
}

void wait_for_kernel() {
    if (!on_a_kernel()) {
        return;
    }
    const auto deadline = std::chrono::steady_clock::now() + longest_change;
    while (!shows(count_plugged())) {
        if (std::chrono::steady_clock::now() > deadline) {
            ADD_FAILURE() << "the kernel does not show the pads that are plugged in";
            return;
        }
        std::this_thread::sleep_for(20ms);
    }
}

std::string port_of(int pad, const std::string& serial) {
    if (on_a_kernel()) {
        for (const auto& device : devices()) {
            if (word_of(device / "serial") == serial) {
                return device.filename().string();
            }
        }
        ADD_FAILURE() << "there is no pad " << serial;
    }
    return "1-" + std::to_string(pad);
}

double patience(double seconds) {
    return on_a_kernel() || VXPAD_SANITIZED ? 10 * seconds : seconds;
}

int next_moment(int moment) {
    constexpr int all_of_them = 6;
    return !on_a_kernel() || moment < all_of_them ? moment + 1 : moment + moment / 2;
}

} // namespace pads
