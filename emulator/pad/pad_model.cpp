#include "pad/pad_model.hpp"

#include <algorithm>

namespace emulator {

namespace {

enum CommandCode : std::uint8_t {
    command_set_mode = 0x01,
    command_read_version = 0x11,
    command_get_status = 0x27,
    command_create_rectangle = 0x65,
    command_write_stream = 0xf8,
    command_read_stream = 0xf9,
};

constexpr std::size_t rectangle_size = 13; // command and parameters

constexpr std::uint8_t status_ok = 0;
constexpr std::uint8_t status_unknown_command = 5;

constexpr std::size_t most_waiting_inputs = 65536;
constexpr std::size_t most_waiting_pen_reports = 4096;

// The oldest model takes a set-mode request of its own length that ends in a mark, and answers nothing.
constexpr unsigned int oldest_type = 1;
constexpr std::size_t oldest_set_mode_size = 40;
constexpr std::array<std::uint8_t, 2> oldest_set_mode_mark{0xf0, 0xa5};

std::uint16_t get16(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return static_cast<std::uint16_t>(bytes[offset] | bytes[offset + 1] << 8);
}

std::uint32_t get32(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return get16(bytes, offset) | static_cast<std::uint32_t>(get16(bytes, offset + 2)) << 16;
}

void put32(FeatureReport& bytes, std::size_t offset, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i) {
        bytes[offset + i] = static_cast<std::uint8_t>(value >> 8 * i);
    }
}

} // namespace

struct PadModel::Command {
    std::uint8_t code;
    std::size_t size; // with its parameters; what follows is zero, or else the report is no command
    bool oldest_has_it;
    void (PadModel::*answer)(std::span<const std::uint8_t> request, FeatureReport& reply);
};

PadModel::PadModel(const PadSettings& settings)
    : settings_{settings}, interfaces_(settings.interfaces), uploads_{settings.interfaces} {}

void PadModel::write_feature(unsigned int interface, std::span<const std::uint8_t> report) {
    static constexpr std::array<Command, 4> commands{{
        {command_set_mode, 3, true, &PadModel::set_mode},
        {command_read_version, 1, false, &PadModel::read_version},
        {command_get_status, 1, false, &PadModel::get_status},
        {command_create_rectangle, rectangle_size, true, &PadModel::create_rectangle},
    }};
    auto& state = interfaces_.at(interface);
    if (!report.empty() && report[0] == command_write_stream && write_stream_) {
        write_stream_(report.subspan(1));
        return;
    }
    FeatureReport request{};
    std::copy_n(report.begin(), std::min(report.size(), request.size()), request.begin());
    state.last_written = request;
    state.reply.reset();
    // What an upload brings may begin with any byte: a command has nothing but zeros behind its parameters.
    const auto is_command = [&](std::uint8_t code, std::size_t size) {
        return request[0] == code && std::all_of(request.begin() + static_cast<std::ptrdiff_t>(size), request.end(),
                                                 [](auto b) { return b == 0; });
    };
    state.reads_stream = is_command(command_read_stream, 1) && settings_.kind == PadKind::hid;
    if (report.empty()) {
        return;
    }
    if (state.reads_stream) {
        ++commands_;
        return;
    }
    const bool oldest = settings_.type == oldest_type;
    const auto* command = std::ranges::find_if(
        commands, [&](const Command& c) { return is_command(c.code, c.size) && (c.oldest_has_it || !oldest); });
    if (oldest && request[0] == command_set_mode) {
        FeatureReport unsent{};
        const bool valid = report.size() == oldest_set_mode_size &&
                           std::ranges::equal(report.last(oldest_set_mode_mark.size()), oldest_set_mode_mark);
        if (valid) {
            set_mode(request, unsent);
        } else {
            uploads_.count(interface, report);
        }
        ++(valid ? commands_ : refused_);
        return;
    }
    if (command == commands.end()) {
        uploads_.count(interface, report);
    }
    if (command == commands.end() && settings_.loop_back) {
        return;
    }
    auto& reply = state.reply.emplace();
    reply[0] = request[0];
    if (command != commands.end()) {
        ++commands_;
        reply[1] = status_ok;
        (this->*command->answer)(request, reply);
    } else {
        ++refused_;
        reply[1] = status_unknown_command;
    }
}

FeatureReport PadModel::read_feature(unsigned int interface) {
    auto& state = interfaces_.at(interface);
    if (state.reads_stream) {
        return stream_report();
    }
    const auto report = state.reply.value_or(state.last_written);
    state.reply.reset();
    return report;
}

void PadModel::write_output(unsigned int /*interface*/, std::span<const std::uint8_t> /*report*/) {
    ++outputs_; // no command uses output reports
}

bool PadModel::queue_input(unsigned int interface, std::span<const std::uint8_t> report) {
    auto& inputs = interfaces_.at(interface).inputs;
    if (report.size() > settings_.input_report_size() || inputs.size() >= most_waiting_inputs) {
        return false;
    }
    auto& input = inputs.emplace_back(report.begin(), report.end());
    input.resize(settings_.input_report_size());
    if (input_callback_) {
        input_callback_(interface);
    }
    return true;
}

void PadModel::send_pen_report(std::span<const std::uint8_t> report) {
    const auto interface = settings_.pen.interface;
    if (interfaces_.at(interface).inputs.size() >= most_waiting_pen_reports || !queue_input(interface, report)) {
        ++inputs_lost_;
    }
}

std::vector<std::uint8_t> PadModel::take_input(unsigned int interface) {
    auto& inputs = interfaces_.at(interface).inputs;
    auto report = std::move(inputs.front());
    inputs.pop_front();
    return report;
}

std::string PadModel::state() const {
    const auto counter = [](const char* name, unsigned int value) {
        return std::string{" "} + name + std::to_string(value);
    };
    std::string text = "mode=" + std::to_string(mode_) + counter("mode-option=", mode_option_) + " rectangle=";
    for (const auto value : rectangle_.values) {
        text += std::to_string(value) + ",";
    }
    text += std::to_string(rectangle_.flag);
    text += counter("commands=", commands_) + counter("refused=", refused_) + counter("outputs=", outputs_);
    for (std::size_t i = 0; i < interfaces_.size(); ++i) {
        text += " inputs-waiting-" + std::to_string(i) + "=" + std::to_string(interfaces_[i].inputs.size());
    }
    return text + counter("inputs-lost=", inputs_lost_);
}

void PadModel::set_mode(std::span<const std::uint8_t> request, FeatureReport&) {
    shown_mode_ = mode_;
    mode_ = request[1];
    mode_option_ = request[2];
    polls_until_shown_ = settings_.mode_delay;
}

void PadModel::read_version(std::span<const std::uint8_t>, FeatureReport& reply) {
    for (std::size_t i = 0; i < settings_.version.numbers.size(); ++i) {
        put32(reply, 4 + 4 * i, settings_.version.numbers[i]);
    }
    std::ranges::copy(settings_.version.manufacturer, reply.begin() + 20);
}

// Bytes 6 to 19 are the pad's flags, of which the sixth is the mode.
void PadModel::get_status(std::span<const std::uint8_t>, FeatureReport& reply) {
    if (polls_until_shown_ > 0) {
        --polls_until_shown_;
    } else {
        shown_mode_ = mode_;
    }
    reply[11] = shown_mode_;
}

void PadModel::create_rectangle(std::span<const std::uint8_t> request, FeatureReport&) {
    for (std::size_t i = 0; i < rectangle_.values.size(); ++i) {
        rectangle_.values[i] = get16(request, 1 + 2 * i);
    }
    rectangle_.flag = get32(request, 9);
}

// Behind code and status the next bytes of the stream, filled up with zeros.
FeatureReport PadModel::stream_report() {
    constexpr std::size_t head = 2;
    FeatureReport report{command_read_stream, status_ok};
    if (read_stream_) {
        std::ranges::copy(read_stream_(report.size() - head), report.begin() + head);
    }
    return report;
}

} // namespace emulator
