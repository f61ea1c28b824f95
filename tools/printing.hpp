// Results on their way out.
#pragma once

#include "arguments.hpp"
#include "hex.hpp"
#include "packet_lines.hpp"

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace vxpadctl {

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using OwnedFile = std::unique_ptr<std::FILE, CloseFile>;

// Throws std::runtime_error.
OwnedFile create_file(const std::string& name);

// Whoever read the results has enough of them: no failure, but the end.
struct ReaderGone : std::exception {};

void print(std::FILE* file, const std::string& text);

// What has been printed gets there, or this throws ReaderGone or std::runtime_error. The name is for the latter.
void flush(std::FILE* file, const std::string& name = "the result");

void print_sent(const Arguments& arguments, std::size_t size, std::FILE* results);

// Prints bytes as they come: hexadecimal dumps with an empty line in between or, where the arguments say so, a JSON
// line each.
class BytesPrinter {
  public:
    BytesPrinter(const Arguments& arguments, std::FILE* results);
    void print(const Bytes& bytes);

  private:
    std::FILE* results_;
    std::optional<PacketLines> lines_;
    bool is_first_ = true;
};

// Prints what take() brings, as often as the arguments say. It is asked again and again until the time for each is up.
// Throws then, and when interrupted: leaving in order gives the pad back to the system.
void print_as_it_comes(const Arguments& arguments, std::chrono::milliseconds wait, const char* what,
                       const std::function<std::optional<Bytes>()>& take, std::FILE* results);

} // namespace vxpadctl
