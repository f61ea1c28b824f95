#include "printing.hpp"

#include "interruption.hpp"
#include "text.hpp"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace vxpadctl {

namespace {

Bytes wait_for(const std::function<std::optional<Bytes>()>& take, std::chrono::milliseconds wait, const char* what) {
    using Clock = std::chrono::steady_clock;
    constexpr auto pause = std::chrono::milliseconds(2);
    const auto deadline = Clock::now() + wait;
    for (;;) {
        stop_if_interrupted();
        if (auto bytes = take()) {
            return *bytes;
        }
        if (Clock::now() >= deadline) {
            throw std::runtime_error(std::string("no ") + what + " came within " + std::to_string(wait.count()) +
                                     " ms");
        }
        std::this_thread::sleep_for(pause);
    }
}

[[noreturn]] void fail_to_write(const std::string& name) {
    throw std::runtime_error("cannot write " + for_terminal(name) + ": " + std::strerror(errno));
}

} // namespace

OwnedFile create_file(const std::string& name) {
    OwnedFile file{std::fopen(name.c_str(), "we")};
    if (!file) {
        fail_to_write(name);
    }
    return file;
}

void print(std::FILE* file, const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), file);
}

void flush(std::FILE* file, const std::string& name) {
    if (std::fflush(file) == 0 && std::ferror(file) == 0) {
        return;
    }
    if (errno == EPIPE) {
        throw ReaderGone();
    }
    fail_to_write(name);
}

void print_sent(const Arguments& arguments, std::size_t size, std::FILE* results) {
    print(results, counted(size, "byte") + " sent to interface " + std::to_string(arguments.interface) + " of pad " +
                       std::to_string(arguments.pad) + "\n");
}

BytesPrinter::BytesPrinter(const Arguments& arguments, std::FILE* results) : results_{results} {
    if (arguments.json) {
        lines_.emplace(chosen_columns(arguments));
    }
}

void BytesPrinter::print(const Bytes& bytes) {
    const std::string text =
        lines_ ? lines_->line(std::chrono::steady_clock::now(), bytes) : (is_first_ ? "" : "\n") + hex_dump(bytes);
    is_first_ = false;
    vxpadctl::print(results_, text);
    flush(results_);
}

void print_as_it_comes(const Arguments& arguments, std::chrono::milliseconds wait, const char* what,
                       const std::function<std::optional<Bytes>()>& take, std::FILE* results) {
    note_interruptions();
    BytesPrinter printer{arguments, results};
    for (unsigned int i = 0; i < arguments.count.value_or(1); ++i) {
        printer.print(wait_for(take, wait, what));
    }
}

} // namespace vxpadctl
