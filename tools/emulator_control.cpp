// vxpad-emulator-control: sends a request to the vxpad-emulator under which it runs and prints the answer.
#include "../emulator/control/control_client.hpp"
#include "version_line.hpp"

#include <exception>
#include <iostream>
#include <string>
#include <string_view>

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "Usage: vxpad-emulator-control REQUEST... (vxpad-emulator --help tells the requests)\n";
        return 2;
    }
    if (argc == 2 && std::string_view{argv[1]} == "--version") {
        std::cout << version_line::of("vxpad-emulator-control") << std::flush;
        return std::cout ? 0 : 1;
    }
    std::string request;
    for (int i = 1; i < argc; ++i) {
        request.append(i > 1 ? " " : "").append(argv[i]);
    }
    try {
        const std::string answer = emulator::request(request);
        std::cout << answer << (answer.empty() ? "" : "\n");
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "vxpad-emulator-control: " << error.what() << '\n';
        return 1;
    }
}
