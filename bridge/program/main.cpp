// vxpad-bridge: signature pads for applications in a browser.
#include "access/token.hpp"
#include "program/options.hpp"
#include "server/server.hpp"
#include "version_line.hpp"

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vxpadcom/vxpadcom.h>

namespace {

// What is written on a pad is nothing for logs and core files.
void keep_secrets() {
    for (const char* name : {"LIBVXPADCOM_DEBUG", "LIBVXPADCOM_DEBUG_FUNC", "LIBVXPADCOM_DEBUG_MUTEX"}) {
        ::unsetenv(name);
    }
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    ::umask(077);
}

std::string host_of(const bridge::Options& options) {
    if (options.addresses.empty()) {
        return "127.0.0.1";
    }
    const std::string& first = options.addresses.front();
    return first.find(':') == std::string::npos ? first : "[" + first + "]";
}

void serve(const bridge::Options& options) {
    const std::string token = options.token_file ? bridge::read_token(*options.token_file) : bridge::make_token();
    bridge::ServerSettings settings;
    settings.addresses = options.addresses;
    settings.port = options.port;
    settings.origins = options.origins;
    settings.token = token;
    settings.service = {VXPADCOM_VERSION_STRING, options.layout};
    bridge::Server server{std::move(settings)};

    const std::string place = "http://" + host_of(options) + ":" + std::to_string(server.port()) + "/";
    const std::string address = place + "?token=" + token;
    const bridge::PrivateFile file{options.address_file ? *options.address_file : bridge::default_address_file(),
                                   address};
    std::cout << "vxpad-bridge: " << (::isatty(STDOUT_FILENO) != 0 ? address : place) << std::endl;
    server.run();
}

} // namespace

int main(int count, char** arguments) {
    std::signal(SIGPIPE, SIG_IGN); // a reader that leaves must not keep the pads from being left in order
    try {
        const bridge::Options options = bridge::parse_options({arguments + 1, arguments + count});
        if (options.help || options.version) {
            std::cout << (options.help ? bridge::help_text() : version_line::of("vxpad-bridge", vxpadcom_version()));
            return std::cout.flush() ? 0 : 1;
        }
        keep_secrets();
        serve(options);
        return 0;
    } catch (const bridge::UsageError& error) {
        std::cerr << "vxpad-bridge: " << error.what() << "\nTry: vxpad-bridge --help\n";
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "vxpad-bridge: " << error.what() << '\n';
        return 1;
    }
}
