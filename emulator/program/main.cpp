// vxpad-emulator: runs a program with virtual USB signature pads plugged in.
#include "base/companion.hpp"
#include "base/event_loop.hpp"
#include "base/temporary_directory.hpp"
#include "control/control_server.hpp"
#include "control/control_variable.hpp"
#include "control/requests.hpp"
#include "host/surroundings.hpp"
#include "host/usbfs_host.hpp"
#include "pad/faults.hpp"
#include "pad/pad_settings.hpp"
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
#include <string_view>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr int exit_usage = 2;
constexpr int exit_trouble = 125;

std::shared_ptr<const emulator::Signature> built_in_signature() {
    return std::make_shared<const emulator::Signature>(
        emulator::read_signature(emulator::companion(VXPAD_SIGNATURE_BUILT, VXPAD_SIGNATURE_INSTALLED)));
}

int run(const emulator::Options& options) {
    using namespace emulator;
    EventLoop loop;
    Command command{loop}; // first: from here on no signal leaves anything behind
    const TemporaryDirectory directory{UsbfsHost::socket_name};
    const auto control_path =
        options.control_path.empty() ? directory.path() / "control" : fs::absolute(options.control_path);
    Bus bus{loop, options.verbose};
    const UsbfsHost host{loop, bus, directory.path()};
    const ControlServer control{loop, control_path,
                                [&bus](std::string_view request) { return answer_request(bus, request); }};
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
    auto surroundings = host.surroundings();
    surroundings.variables.emplace_back(control_variable, control_path);
    command.start(options.command, surroundings);
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
