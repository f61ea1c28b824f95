#include "printing.hpp"

#include <csignal>
#include <stdexcept>
#include <thread>

namespace vxpadctl {

namespace {

volatile std::sig_atomic_t interrupted = 0;

Bytes wait_for(const std::function<std::optional<Bytes>()>& take, std::chrono::milliseconds wait, const char* what) {
    using Clock = std::chrono::steady_clock;
    constexpr auto pause = std::chrono::milliseconds(2);
    const auto deadline = Clock::now() + wait;
    for (;;) {
        if (interrupted != 0)
            throw std::runtime_error("interrupted");
        if (auto bytes = take())
            return *bytes;
        if (Clock::now() >= deadline)
            throw std::runtime_error(std::string("no ") + what + " came within " + std::to_string(wait.count()) +
                                     " ms");
        std::this_thread::sleep_for(pause);
    }
}

} // namespace

void print(std::FILE* file, const std::string& text) {
    std::fputs(text.c_str(), file);
}

void print_sent(const Arguments& arguments, std::size_t size, std::FILE* results) {
    print(results, std::to_string(size) + (size == 1 ? " byte" : " bytes") + " sent to interface " +
                       std::to_string(arguments.interface) + " of pad " + std::to_string(arguments.pad) + "\n");
}

void print_as_it_comes(const Arguments& arguments, std::chrono::milliseconds wait, const char* what,
                       const std::function<std::optional<Bytes>()>& take, std::FILE* results) {
    for (const int signal : {SIGINT, SIGTERM})
        std::signal(signal, [](int) { interrupted = 1; });
    for (unsigned i = 0; i < arguments.count; ++i) {
        const std::string dump = hex_dump(wait_for(take, wait, what));
        print(results, (i > 0 ? "\n" : "") + dump);
        std::fflush(results);
    }
}

} // namespace vxpadctl
