// vxpad-emulator: plugs virtual USB signature pads in, into one program or into a kernel.
#include "base/companion.hpp"
#include "base/event_loop.hpp"
#include "base/temporary_directory.hpp"
#include "control/control_server.hpp"
#include "control/control_variable.hpp"
#include "control/requests.hpp"
#include "host/host.hpp"
#include "host/surroundings.hpp"
#include "host/usbfs_host.hpp"
#include "host/usbip_server.hpp"
#include "host/vhci_host.hpp"
#include "host/vhci_ports.hpp"
#include "pad/faults.hpp"
#include "pad/pad_settings.hpp"
#include "pad/signature.hpp"
#include "program/command.hpp"
#include "program/help.hpp"
#include "program/options.hpp"
#include "support/id_files.hpp"
#include "usb/bus.hpp"
#include "version_line.hpp"

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr int exit_no_help = 1;
constexpr int exit_usage = 2;
constexpr int exit_trouble = 125;

std::shared_ptr<const emulator::Signature> built_in_signature() {
    return std::make_shared<const emulator::Signature>(
        emulator::read_signature(emulator::companion(VXPAD_SIGNATURE_BUILT, VXPAD_SIGNATURE_INSTALLED)));
}

constexpr const char* control_name = "control";
constexpr std::array<const char*, 2> directory_marks{emulator::UsbfsHost::socket_name, control_name};

std::unique_ptr<emulator::Host> make_host(const emulator::Options& options, emulator::EventLoop& loop,
                                          emulator::Bus& bus, const fs::path& directory) {
    using namespace emulator;
    switch (options.verb) {
    case Verb::serve:
        return std::make_unique<UsbipServer>(loop, bus, options.listen);
    case Verb::attach:
        return std::make_unique<VhciHost>(loop, bus, std::make_unique<VhciPorts>(options.vhci_directory));
    case Verb::run:
        break;
    }
    return std::make_unique<UsbfsHost>(loop, bus, directory);
}

int run(const emulator::Options& options) {
    using namespace emulator;
    EventLoop loop;
    Command command{loop}; // first: from here on no signal leaves anything behind
    std::optional<TemporaryDirectory> directory;
    if (options.verb == Verb::run || options.control_path.empty()) {
        directory.emplace(directory_marks);
    }
    const auto control_path =
        options.control_path.empty() ? directory->path() / control_name : fs::absolute(options.control_path);
    Bus bus{loop, options.verbose};
    const auto host = make_host(options, loop, bus, directory ? directory->path() : fs::path{});
    const ControlServer control{loop, control_path,
                                [&bus](std::string_view request) { return answer_request(bus, request); },
                                [&host] { return host->is_settled(); }};
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
    const auto begin = [&] {
        if (!options.command.empty()) {
            auto surroundings = host->surroundings();
            surroundings.variables.emplace_back(control_variable, control_path);
            if (!options.ids_path.empty()) {
                surroundings.variables.emplace_back(id_files::variable, options.ids_path);
            }
            return command.start(options.command, surroundings);
        }
        std::cout << bus.ports().size() << (bus.ports().size() == 1 ? " pad at " : " pads at ") << host->where()
                  << "\ncontrol socket: " << control_path.string() << std::endl;
    };
    loop.call_when([&host] { return host->is_settled(); }, begin);
    loop.run();
    return command.result();
}

// No COMMAND has run, so 1 is none of its statuses.
int show_help() {
    errno = 0;
    std::cout << emulator::help_text();
    if (std::cout.flush()) {
        return 0;
    }
    std::cerr << "vxpad-emulator: cannot write the help: " << std::strerror(errno) << "\n";
    return exit_no_help;
}

} // namespace

int main(int argc, char* argv[]) {
    try {
        const auto options = emulator::parse_options({argv + 1, argv + argc});
        if (options.help) {
            return show_help();
        }
        if (options.version) {
            std::cout << version_line::of("vxpad-emulator") << std::flush;
            return std::cout ? 0 : exit_trouble;
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
