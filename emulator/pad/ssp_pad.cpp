#include "pad/ssp_pad.hpp"

#include "pad/pad_settings.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

namespace emulator {

namespace {

using Bytes = SspPad::Bytes;

enum ComponentType : std::uint8_t { communication = 1, configuration_handler = 3, signpad = 11 };

constexpr std::uint8_t result_ok = 1;
constexpr std::uint8_t result_refused = 2;

constexpr std::uint8_t components_request = 0x10; // to component 0, without parameters

enum ModeCommand : std::uint8_t { mode_refresh = 0x10, mode_last_button = 0x12 };
constexpr std::uint32_t user_input_mode = 13;

enum ConfigurationState : std::uint8_t { state_waiting = 1, state_running = 2, state_done = 3, state_failed = 4 };
constexpr std::size_t key_size = 40;
constexpr std::size_t value_size = 20;

constexpr std::array<std::uint8_t, 2> report_request{0xc0, 0};

void put32(Bytes& bytes, std::uint32_t value) {
    for (unsigned int shift = 0; shift < 32; shift += 8) {
        bytes.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

// A text field ends at its first zero, if it has one.
std::string text_of(std::span<const std::uint8_t> field) {
    return {field.begin(), std::ranges::find(field, 0)};
}

std::string printable(std::string text) {
    std::ranges::replace_if(
        text, [](char c) { return c <= ' ' || c > '~'; }, '?');
    return text;
}

} // namespace

struct SspPad::Request {
    std::uint8_t component_type;
    std::uint8_t id;
    std::size_t size; // of its payload
    std::optional<Bytes> (SspPad::*answer)(Payload request);
    bool has_reply;
};

SspPad::SspPad(EventLoop& loop, PadModel& model, FaultList& faults, TransferLog& log)
    : model_{model}, log_{log}, outbox_{loop, faults, log}, //
      pen_{loop, model.settings(), PenPacket::ssp_record,
           [this](std::span<const std::uint8_t> record) { send_pen_data(record); }},
      connection_{model.settings().ssp.connection} {
    if (model.settings().kind == PadKind::hid) {
        model.connect_stream([this](std::span<const std::uint8_t> bytes) { receive(bytes); },
                             [this](std::size_t most) { return outbox_.take_bytes(most); });
    }
}

SspPad::~SspPad() {
    model_.connect_stream({}, {});
}

void SspPad::receive(std::span<const std::uint8_t> stream) {
    reader_.feed(stream, [this](std::span<const std::uint8_t> message) { handle(message); });
}

void SspPad::handle(std::span<const std::uint8_t> message) {
    log_.report(false, "ssp", 0, message, "");
    ++requests_;
    if ((message[0] & legacy_message) != 0) {
        handle_legacy(message);
    } else {
        handle_base(message[0], message.subspan(base_header_size));
    }
}

void SspPad::handle_legacy(std::span<const std::uint8_t> message) {
    const bool has_real_reports = model_.settings().kind == PadKind::hid;
    if (!has_real_reports && std::ranges::equal(message, report_request)) {
        outbox_.send(short_message(legacy_message, model_.read_feature(0)), TransferKind::reply);
    } else if (!has_real_reports && (message[0] & pen_message) == legacy_message) {
        model_.write_feature(0, message.subspan(1));
    } else {
        ++refused_;
    }
}

void SspPad::handle_base(std::uint8_t component, Payload request) {
    static constexpr std::array<Request, 9> requests{{
        {signpad, 0x10, 3, &SspPad::describe, true},
        {signpad, 0x11, 3, &SspPad::switch_pen_data, true},
        {signpad, 0x12, 3, &SspPad::list_modes, true},
        {signpad, 0x13, 3, &SspPad::to_mode, true},
        {configuration_handler, 0x10, 1, &SspPad::configuration_state, true},
        {configuration_handler, 0x14, 1 + key_size + value_size, &SspPad::set_variable, true},
        {configuration_handler, 0x17, 1 + key_size + value_size, &SspPad::persist_variable, true},
        {communication, 0x10, 3, &SspPad::tell_connection, true},
        {communication, 0x11, 3, &SspPad::set_connection, false},
    }};
    static constexpr Request components{0, components_request, 1, &SspPad::list_components, true};
    const auto& types = model_.settings().ssp.components;
    const Request* found = nullptr;
    if (component == 0 && request.size() == components.size && request[0] == components.id) {
        found = &components;
    } else if (component < types.size()) {
        const auto* match = std::ranges::find_if(requests, [&](const Request& r) {
            return r.component_type == types[component] && r.id == request[0] && r.size == request.size();
        });
        // Compared here: behind the table there may be anything, also the request above.
        if (match != requests.end()) {
            found = match;
        }
    }
    const bool known = found != nullptr;
    const auto answer = known ? (this->*found->answer)(request) : std::nullopt;
    if (!answer) {
        ++refused_;
    }
    if (known && !found->has_reply && !model_.settings().ssp.answers_set_connection) {
        return;
    }
    Bytes reply{request[0], answer ? result_ok : result_refused};
    if (answer) {
        reply.insert(reply.end(), answer->begin(), answer->end());
    }
    outbox_.send(base_message(component, reply), TransferKind::reply);
}

std::optional<Bytes> SspPad::list_components(Payload) {
    const auto& types = model_.settings().ssp.components;
    Bytes bytes{static_cast<std::uint8_t>(types.size())};
    bytes.insert(bytes.end(), types.begin(), types.end());
    return bytes;
}

std::optional<Bytes> SspPad::describe(Payload) {
    const auto& pad = model_.settings();
    Bytes bytes;
    put32(bytes, pad.ssp.vendor_id);
    put32(bytes, pad.ssp.product_id);
    for (const auto number : pad.version.numbers) {
        put32(bytes, number);
    }
    bytes.insert(bytes.end(), pad.version.manufacturer.begin(), pad.version.manufacturer.end());
    bytes.push_back(static_cast<std::uint8_t>(pad.ssp.serial.size()));
    bytes.insert(bytes.end(), pad.ssp.serial.begin(), pad.ssp.serial.end());
    return bytes;
}

std::optional<Bytes> SspPad::switch_pen_data(Payload request) {
    if (request[1] > 1) {
        return std::nullopt;
    }
    biodata_ = request[1] == 1;
    const auto& pen = model_.settings().pen;
    // On a HID pad it is the input reports that loop.
    if (pen.mode == PenMode::off || (pen.mode == PenMode::loop && model_.settings().kind == PadKind::vcom)) {
        return Bytes{};
    }
    if (!biodata_) {
        pen_.stop();
    } else if (!pen_.is_playing() && pen.rate > 0) {
        pen_.play(std::nullopt, pen.rate);
    }
    return Bytes{};
}

std::optional<Bytes> SspPad::list_modes(Payload) {
    const auto& types = model_.settings().ssp.modes;
    Bytes bytes{static_cast<std::uint8_t>(types.size())};
    for (const auto type : types) {
        put32(bytes, type);
    }
    return bytes;
}

// Of the user-input mode the refresh command reads what the user has done.
std::optional<Bytes> SspPad::to_mode(Payload request) {
    const auto mode = request[1];
    const auto command = request[2];
    const auto& types = model_.settings().ssp.modes;
    if (mode >= types.size() || (command != mode_refresh && command != mode_last_button)) {
        return std::nullopt;
    }
    last_mode_ = types[mode];
    Bytes bytes{mode, command};
    if (command == mode_last_button || types[mode] == user_input_mode) {
        bytes.push_back(button_);
    } else {
        ++refreshes_[types[mode]];
    }
    return bytes;
}

std::optional<Bytes> SspPad::configuration_state(Payload) {
    if (!is_configuring()) {
        return Bytes{resting_state_};
    }
    const bool first = busy_polls_ == model_.settings().ssp.conf_busy;
    --busy_polls_;
    return Bytes{first ? state_waiting : state_running};
}

void SspPad::start_configuring() {
    busy_polls_ = model_.settings().ssp.conf_busy;
    resting_state_ = model_.settings().ssp.conf_fails ? state_failed : state_done;
}

std::optional<Bytes> SspPad::set_variable(Payload request) {
    if (is_configuring()) {
        return std::nullopt;
    }
    start_configuring();
    if (resting_state_ == state_done) {
        variables_[text_of(request.subspan(1, key_size))] = text_of(request.subspan(1 + key_size));
    }
    return Bytes{};
}

std::optional<Bytes> SspPad::persist_variable(Payload request) {
    if (is_configuring()) {
        return std::nullopt;
    }
    start_configuring();
    if (resting_state_ == state_done) {
        persisted_.insert(text_of(request.subspan(1, key_size)));
    }
    return Bytes{};
}

std::optional<Bytes> SspPad::tell_connection(Payload) {
    return Bytes{connection_};
}

std::optional<Bytes> SspPad::set_connection(Payload request) {
    connection_ = request[1];
    return Bytes{};
}

void SspPad::press_button(std::uint8_t button) {
    button_ = button;
}

void SspPad::send_pen_data(std::span<const std::uint8_t> record) {
    outbox_.send(short_message(pen_message, record), TransferKind::pen);
}

std::string SspPad::state() const {
    std::string text = "biodata=" + std::to_string(biodata_) + " pen-records=" + std::to_string(pen_.sent()) +
                       " pen-lost=" + std::to_string(outbox_.lost()) +
                       " mode=" + (last_mode_ ? std::to_string(*last_mode_) : "none") +
                       " button=" + std::to_string(button_) + " connection=" + std::to_string(connection_) +
                       " configuring=" + std::to_string(is_configuring()) + " requests=" + std::to_string(requests_) +
                       " refused=" + std::to_string(refused_) + "\n";
    for (const auto& [mode, count] : refreshes_) {
        text += "refreshed " + std::to_string(mode) + " " + std::to_string(count) + "\n";
    }
    for (const auto& [key, value] : variables_) {
        text += "variable " + printable(key) + " " + printable(value) + "\n";
    }
    for (const auto& key : persisted_) {
        text += "persisted " + printable(key) + "\n";
    }
    return text;
}

} // namespace emulator
