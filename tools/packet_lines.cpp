#include "packet_lines.hpp"

#include "text.hpp"

#include "../emulator/base/text.hpp"

#include <stdexcept>

namespace vxpadctl {

namespace {

constexpr int microsecond_digits = 6;

} // namespace

Layout chosen_layout(const Arguments& arguments) {
    if (arguments.layout_file.empty()) {
        return arguments.layout;
    }
    try {
        return read_layout(arguments.layout_file);
    } catch (const std::invalid_argument& error) {
        throw std::runtime_error(for_terminal(error.what()));
    }
}

Layout chosen_columns(const Arguments& arguments) {
    Layout layout = chosen_layout(arguments);
    if (find_field(layout, "time") != nullptr) {
        throw UsageError("the layout has a field time, as the time of a packet is called here: give it another name");
    }
    return layout;
}

std::string time_text(std::chrono::microseconds at) {
    return decimal(std::chrono::duration<double>(at).count(), microsecond_digits);
}

std::string packet_json(std::chrono::microseconds at, std::span<const std::uint8_t> packet, const Layout& layout) {
    std::string text = "{\"time\": " + time_text(at);
    for (const Field& field : layout) {
        const auto value = field.read(packet);
        text += ", " + json_string(field.name) + ": " + (value ? std::to_string(*value) : "null");
    }
    if (layout.empty()) {
        text += ", \"bytes\": " + json_string(emulator::hex(packet));
    }
    return text + "}";
}

std::string PacketLines::line(std::chrono::steady_clock::time_point at, std::span<const std::uint8_t> packet) {
    first_ = first_.value_or(at);
    return packet_json(std::chrono::duration_cast<std::chrono::microseconds>(at - *first_), packet, layout_) + "\n";
}

} // namespace vxpadctl
