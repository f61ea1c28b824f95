// vxpad-emulator: runs a program with virtual USB signature pads plugged in.
#include "base/event_loop.hpp"
#include "base/temporary_directory.hpp"
#include "control/control_server.hpp"
#include "host/system_tree.hpp"
#include "host/usbfs_protocol.h"
#include "host/usbfs_server.hpp"
#include "pad/signature.hpp"
#include "program/command.hpp"
#include "program/options.hpp"
#include "usb/bus.hpp"

#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

namespace fs = std::filesystem;

constexpr int exit_usage = 2;
constexpr int exit_trouble = 125;

// Beside this program in the build tree, in a directory of its own when installed.
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

std::string usbfs_library() {
    return companion(VXPAD_USBFS_BUILT, VXPAD_USBFS_INSTALLED);
}

std::shared_ptr<const emulator::Signature> built_in_signature() {
    return std::make_shared<const emulator::Signature>(
        emulator::read_signature(companion(VXPAD_SIGNATURE_BUILT, VXPAD_SIGNATURE_INSTALLED)));
}

std::string sysfs_library() {
    if (!fs::exists(VXPAD_UMOCKDEV_PRELOAD)) {
        throw std::runtime_error(VXPAD_UMOCKDEV_PRELOAD " is missing (package libumockdev0)");
    }
    return VXPAD_UMOCKDEV_PRELOAD;
}

int run(const emulator::Options& options) {
    using namespace emulator;
    EventLoop loop;
    Command command{loop}; // first: from here on no signal leaves anything behind
    const TemporaryDirectory directory;
    const auto usbfs_path = directory.path() / "usbfs";
    const auto control_path =
        options.control_path.empty() ? directory.path() / "control" : fs::absolute(options.control_path);
    Bus bus{loop, options.verbose};
    const SystemTree tree{loop, bus, directory.path()};
    const UsbfsServer usbfs{loop, bus, usbfs_path};
    const ControlServer control{loop, bus, control_path};
    const auto signature = built_in_signature();
    for (auto pad : options.pads) {
        if (!pad.pen.signature) {
            pad.pen.signature = signature;
        }
        bus.add(pad);
    }
    for (const auto& [number, fault] : options.faults) {
        bus.find(number)->faults.add(fault);
    }
    for (const auto& port : bus.ports()) {
        bus.plug(*port);
    }
    command.start(
        options.command,
        {usbfs_library() + ":" + sysfs_library(),
         {{VXPAD_ENV_USBFS, usbfs_path}, {VXPAD_ENV_CONTROL, control_path}, {VXPAD_ENV_TESTBED, directory.path()}}});
    loop.run();
    return command.result();
}

} // namespace

int main(int argc, char* argv[]) {
    try {
        const auto options = emulator::parse_options({argv + 1, argv + argc});
        if (options.help) {
            std::cout << emulator::help_text();
            return 0;
        }
        return run(options);
    } catch (const std::invalid_argument& error) {
        std::cerr << "vxpad-emulator: " << error.what() << "\nTry: vxpad-emulator --help\n";
        return exit_usage;
    } catch (const std::exception& error) {
        std::cerr << "vxpad-emulator: " << error.what() << "\n";
        return exit_trouble;
    }
}
