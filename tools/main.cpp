// vxpadctl: finds USB signature pads and exchanges reports with them.
#include "arguments.hpp"
#include "command_line.hpp"
#include "commands.hpp"
#include "help.hpp"
#include "interruption.hpp"
#include "library.hpp"
#include "printing.hpp"
#include "version_line.hpp"
#include "vxpadcom/vxpadcom.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <system_error>
#include <unistd.h>

namespace {

enum ExitStatus { exit_done = 0, exit_failed = 1, exit_usage = 2, exit_interrupted = 130 };

// The library traces to standard output. That becomes standard error, and the results go where standard output was.
std::FILE* part_trace_from_results() {
    vxpadctl::turn_on_tracing();
    std::FILE* results = ::fdopen(::dup(STDOUT_FILENO), "w");
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
    return results;
}

int run(const vxpadctl::Arguments& arguments) {
    if (arguments.command == nullptr) {
        vxpadctl::print(stdout, arguments.help ? vxpadctl::help_text(arguments.help_topic)
                                               : version_line::of("vxpadctl", vxpadcom_version()));
        vxpadctl::flush(stdout);
        return exit_done;
    }
    if (!arguments.trace) {
        vxpadctl::send_error_lines_to_syslog();
    }
    std::FILE* results = arguments.trace ? part_trace_from_results() : stdout;
    if (results == nullptr) {
        throw std::system_error(errno, std::generic_category(), "cannot write the result");
    }
    const bool done = arguments.command->run(arguments, results);
    vxpadctl::flush(results);
    return done ? exit_done : exit_failed;
}

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN); // a reader that leaves must not keep a pad from being left in order
    try {
        return run(vxpadctl::parse_arguments({argv + 1, argv + argc}));
    } catch (const vxpadctl::UsageError& error) {
        std::cerr << "vxpadctl: " << error.what() << "\nTry: vxpadctl --help\n";
        return exit_usage;
    } catch (const vxpadctl::ReaderGone&) {
        return exit_done;
    } catch (const vxpadctl::Interrupted& error) {
        std::cerr << "vxpadctl: " << error.what() << '\n';
        return exit_interrupted;
    } catch (const std::exception& error) {
        std::cerr << "vxpadctl: " << error.what() << '\n';
        return exit_failed;
    }
}
