// Signatures as any file, against a plain reading of its lines.
#include "file.hpp"
#include "input.hpp"
#include "pad/signature.hpp"

#include <optional>
#include <stdexcept>

namespace {

using emulator::PenPoint;
using emulator::Signature;

std::vector<std::string> words_of(const std::string& line) {
    std::vector<std::string> words(1);
    for (const char c : line) {
        if (c != ' ' && c != '\t' && c != '\r') {
            words.back() += c;
        } else if (!words.back().empty()) {
            words.emplace_back();
        }
    }
    if (words.back().empty()) {
        words.pop_back();
    }
    return words;
}

std::optional<std::uint16_t> number(const std::string& word) {
    std::uint64_t value = 0;
    for (const char c : word) {
        if (c < '0' || c > '9' || value > 0xFFFF) {
            return std::nullopt;
        }
        value = 10 * value + static_cast<std::uint64_t>(c - '0');
    }
    return value > 0xFFFF ? std::nullopt : std::optional{static_cast<std::uint16_t>(value)};
}

void lift(Signature& signature) {
    if (!signature.empty() && signature.back().pressure != 0) {
        PenPoint point = signature.back();
        point.pressure = 0;
        signature.push_back(point);
    }
}

std::optional<Signature> read_plainly(const std::string& text) {
    Signature signature;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        const auto words = words_of(text.substr(start, end - start));
        start = end + 1;
        if (words.empty()) {
            lift(signature);
        } else if (words[0][0] != '#') {
            if (words.size() != 3 || !number(words[0]) || !number(words[1]) || !number(words[2])) {
                return std::nullopt;
            }
            signature.push_back({*number(words[0]), *number(words[1]), *number(words[2])});
        }
    }
    lift(signature);
    return signature.empty() ? std::nullopt : std::optional{signature};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = fuzz::Input{data, size}.rest_as_text();
    const std::string& file = fuzz::File::holding(text);
    const std::optional<Signature> wanted = read_plainly(text);
    try {
        const Signature signature = emulator::read_signature(file);
        fuzz::require(wanted.has_value(), "a signature");
        fuzz::require(std::equal(signature.begin(), signature.end(), wanted->begin(), wanted->end(),
                                 [](const PenPoint& one, const PenPoint& other) {
                                     return one.x == other.x && one.y == other.y && one.pressure == other.pressure;
                                 }),
                      "points");
        fuzz::require(signature.back().pressure == 0, "a pen that is lifted in the end");
    } catch (const std::invalid_argument& error) {
        fuzz::require_message(error.what(), file);
        fuzz::require(!wanted, "no signature");
    }
    return 0;
}
