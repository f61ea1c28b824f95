// Files of USB ids that an administrator adds, as bytes: lines "vendor product transport type name" (docs/ids.md).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace id_lines {

enum class Transport : std::uint8_t { hid, vcom };
inline constexpr std::array<std::string_view, 2> transport_names{"hid", "vcom"}; // in the order of Transport

// The model classes whose behaviour the library knows.
inline constexpr std::array<unsigned int, 10> pad_types{1, 8, 9, 10, 11, 12, 13, 15, 16, 17};

inline constexpr std::size_t longest_line = 255;
inline constexpr std::size_t longest_name = 63;

struct Id {
    std::uint16_t vendor_id;
    std::uint16_t product_id;
    Transport transport;
    unsigned int pad_type;
    char name[longest_name + 1];
};

// An empty line and a comment are neither an id nor a reason to complain.
struct Line {
    bool is_id = false;
    Id id = {};
    const char* complaint = nullptr;
};

// A line longer than the longest is bad, whatever stands behind its end.
Line parse(std::string_view line);

// Cuts a file into numbered lines, whatever pieces it comes in. Of a line that is too long it keeps no more than that.
class Cutter {
  public:
    // Calls take(line, number) for each line that ends in these bytes.
    template <typename Take> void put(std::string_view bytes, Take take) {
        for (const char c : bytes) {
            if (c == '\n') {
                end_line(take);
            } else if (size_ < sizeof text_) {
                text_[size_++] = c;
            }
        }
    }

    // The last line need not end.
    template <typename Take> void end(Take take) {
        if (size_ > 0) {
            end_line(take);
        }
    }

    unsigned int number() const { return number_; }

  private:
    template <typename Take> void end_line(Take take) {
        take(std::string_view{text_, size_}, number_);
        ++number_;
        size_ = 0;
    }

    char text_[longest_line + 1];
    std::size_t size_ = 0;
    unsigned int number_ = 1;
};

} // namespace id_lines
