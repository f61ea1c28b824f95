#include "pad/signature.hpp"

#include "base/text.hpp"
#include "base/text_file.hpp"

#include <stdexcept>
#include <string>
#include <string_view>

namespace emulator {

namespace {

std::uint16_t coordinate(std::string_view word) {
    return static_cast<std::uint16_t>(parse_number(word, 10, 0, 0xffff));
}

void lift_pen(Signature& signature) {
    if (!signature.empty() && signature.back().pressure > 0) {
        signature.push_back({signature.back().x, signature.back().y, 0});
    }
}

} // namespace

Signature read_signature(const std::filesystem::path& file) {
    Signature signature;
    read_lines(file, [&](const Words& words) {
        if (words.empty()) {
            return lift_pen(signature);
        }
        if (words[0].starts_with('#')) {
            return;
        }
        if (words.size() != 3) {
            throw std::invalid_argument("a point is given as x y pressure");
        }
        signature.push_back({coordinate(words[0]), coordinate(words[1]), coordinate(words[2])});
    });
    lift_pen(signature);
    if (signature.empty()) {
        throw std::invalid_argument(file.string() + ": no point at all");
    }
    return signature;
}

} // namespace emulator
