#include "control/requests.hpp"

#include "base/text.hpp"
#include "pad/faults.hpp"
#include "pad/pad_model.hpp"
#include "pad/pad_settings.hpp"
#include "pad/pen_player.hpp"
#include "pad/recording.hpp"
#include "pad/ssp_outbox.hpp"
#include "pad/ssp_pad.hpp"
#include "pad/ssp_stream.hpp"
#include "pad/transfer_log.hpp"
#include "pad/upload_tally.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

namespace emulator {

namespace {

using Words = std::vector<std::string>;

std::string hex16(unsigned int value) {
    return hex(std::array{static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value & 0xff)});
}

// A text that stays in its line, written as the options take it.
std::string in_one_line(std::u16string_view text) {
    std::u16string shown;
    for (const char16_t unit : text) {
        if (unit < u' ' || unit == 0x7f) {
            for (const char digit : "\\u" + hex16(unit)) {
                shown += static_cast<char16_t>(digit);
            }
        } else {
            shown += unit;
        }
    }
    return utf8(shown);
}

Port& port(Bus& bus, const Words& words) {
    const auto number = parse_number(words[1], 10, 1, std::max<std::size_t>(bus.ports().size(), 1));
    auto* port = bus.find(static_cast<unsigned int>(number));
    if (port == nullptr) {
        throw std::invalid_argument("there are no pads");
    }
    return *port;
}

Port& plugged_port(Bus& bus, const Words& words) {
    auto& plugged = port(bus, words);
    if (!plugged.device) {
        throw std::invalid_argument("pad " + words[1] + " is not plugged in");
    }
    return plugged;
}

SspPad& ssp_pad(Bus& bus, const Words& words) {
    auto& plugged = plugged_port(bus, words);
    if (!plugged.ssp) {
        throw std::invalid_argument("pad " + words[1] + " does not speak SSP");
    }
    return *plugged.ssp;
}

// A line for each pad.
std::string list(Bus& bus, const Words&) {
    std::string text;
    for (const auto& port : bus.ports()) {
        const auto& pad = port->settings;
        text += std::to_string(port->number) + (port->device ? " plugged" : " unplugged") + " port=" + port->name() +
                " kind=" + (pad.kind == PadKind::vcom ? "vcom" : "hid") + " address=" + std::to_string(port->address) +
                " type=" + std::to_string(pad.type) + " vendor=" + hex16(pad.vendor_id) +
                " id=" + hex16(pad.product_id) + " interfaces=" + std::to_string(pad.interfaces) +
                " serial=" + in_one_line(pad.serial.value_or(u"")) + "\n";
    }
    return text;
}

std::string plug(Bus& bus, const Words& words) {
    auto& unplugged = port(bus, words);
    if (unplugged.device) {
        throw std::invalid_argument("pad " + words[1] + " is plugged in");
    }
    bus.plug(unplugged);
    return {};
}

std::string unplug(Bus& bus, const Words& words) {
    bus.unplug(plugged_port(bus, words));
    return {};
}

std::string fault(Bus& bus, const Words& words) {
    port(bus, words).faults.add(parse_fault(words[2]));
    return {};
}

std::string clear_faults(Bus& bus, const Words& words) {
    port(bus, words).faults.clear();
    return {};
}

std::string input(Bus& bus, const Words& words) {
    auto& pad = plugged_port(bus, words);
    const auto interface = parse_count(words[2], 0, pad.settings.interfaces - 1);
    const auto report = parse_hex(words[3]);
    const auto count = words.size() > 4 ? parse_number(words[4], 10, 1, 1000000) : 1;
    for (unsigned long i = 0; i < count; ++i) {
        if (!pad.model->queue_input(interface, report)) {
            throw std::invalid_argument(report.size() > pad.settings.input_report_size()
                                            ? "an input report has at most " +
                                                  std::to_string(pad.settings.input_report_size()) + " bytes"
                                            : "too many input reports are waiting");
        }
    }
    return {};
}

std::string log(Bus& bus, const Words& words) {
    return port(bus, words).log.take();
}

std::string state(Bus& bus, const Words& words) {
    auto& pad = port(bus, words);
    return std::string{"plugged="} + (pad.device ? "1 " : "0 ") + (pad.model ? pad.model->state() : "") +
           (pad.device ? " " + pad.pen().state() : "");
}

std::string ssp(Bus& bus, const Words& words) {
    return ssp_pad(bus, words).state();
}

std::string button(Bus& bus, const Words& words) {
    ssp_pad(bus, words).press_button(static_cast<std::uint8_t>(parse_number(words[2], 10, 0, 255)));
    return {};
}

std::string pen(Bus& bus, const Words& words) {
    auto& pad = ssp_pad(bus, words);
    const auto record = parse_hex(words[2]);
    if (record.empty() || record.size() > longest_legacy_payload) {
        throw std::invalid_argument("pen data has 1 to " + std::to_string(longest_legacy_payload) + " bytes");
    }
    pad.send_pen_data(record);
    return {};
}

std::string send(Bus& bus, const Words& words) {
    ssp_pad(bus, words).outbox().send_raw(parse_hex(words[2]));
    return {};
}

std::string play(Bus& bus, const Words& words) {
    auto& pad = plugged_port(bus, words);
    const auto& pen = pad.settings.pen;
    const std::string how_often = words.size() > 2 ? words[2] : "once";
    std::optional<std::uint64_t> count;
    if (how_often == "once") {
        count = pen.signature->size();
    } else if (how_often != "loop") {
        count = parse_number(how_often, 10, 1, 1000000000);
    }
    const auto rate = words.size() > 3 ? words[3] : std::to_string(pen.rate);
    pad.pen().play(count, parse_count(rate, 1, fastest_pen));
    return {};
}

std::string stop(Bus& bus, const Words& words) {
    plugged_port(bus, words).pen().stop();
    return {};
}

std::string replay(Bus& bus, const Words& words) {
    auto& pad = plugged_port(bus, words);
    auto recording = read_recording(words[2]);
    const auto most = pad.settings.kind == PadKind::hid ? pad.settings.input_report_size() : longest_legacy_payload;
    if (recording.longest_packet > most) {
        throw std::invalid_argument(words[2] + ": has packets of " + std::to_string(recording.longest_packet) +
                                    " bytes; the pad sends at most " + std::to_string(most));
    }
    pad.pen().replay(std::move(recording));
    return {};
}

std::string uploads(Bus& bus, const Words& words) {
    auto& pad = port(bus, words);
    return pad.model ? pad.model->uploads().text() : "";
}

std::string reset_uploads(Bus& bus, const Words& words) {
    auto& pad = port(bus, words);
    if (pad.model) {
        pad.model->uploads().reset();
    }
    return {};
}

constexpr std::array<Request, 17> requests{{
    {"list", 1, 1, "list", list, "the pads, a line each"},
    {"plug", 2, 2, "plug N", plug, "puts a pad in; of serve: it can be imported again"},
    {"unplug", 2, 2, "unplug N", unplug, "pulls a pad out; of serve: its connection ends"},
    {"fault", 3, 3, "fault N FAULT", fault, "adds a fault"},
    {"clear-faults", 2, 2, "clear-faults N", clear_faults, "removes all faults of a pad"},
    {"input", 4, 5, "input N INTERFACE HEX [COUNT]", input, "queues an input report, COUNT times"},
    {"log", 2, 2, "log N", log,
     "the reports that crossed the bus since the last time: direction, kind, interface, bytes"},
    {"state", 2, 2, "state N", state, "mode, signature rectangle and counters"},
    {"ssp", 2, 2, "ssp N", ssp,
     "pen data on or off, last mode command, connection type, configuration variables and counters"},
    {"button", 3, 3, "button N VALUE", button, "the user has pressed a button"},
    {"pen", 3, 3, "pen N HEX", pen, "sends a record of pen data, also while it is off"},
    {"send", 3, 3, "send N HEX", send, "puts bytes into the pad's stream as they are"},
    {"play", 2, 4, "play N [COUNT|once|loop] [RATE]", play,
     "plays the signature now: so many packets, once (the default) or until it is stopped; as input reports of a HID "
     "pad, as records in the stream of a VCOM pad"},
    {"stop", 2, 2, "stop N", stop, "ends the playing"},
    {"replay", 3, 3, "replay N FILE", replay, "plays a recording in the same way"},
    {"uploads", 2, 2, "uploads N", uploads,
     "what has been written that is no command: reports, gaps and duplicates in their numbers, checksum"},
    {"reset-uploads", 2, 2, "reset-uploads N", reset_uploads, "counts them from zero"},
}};

} // namespace

std::span<const Request> all_requests() {
    return requests;
}

std::string answer_request(Bus& bus, std::string_view request) {
    std::istringstream stream{std::string{request}};
    Words words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    try {
        const auto* found =
            std::ranges::find_if(requests, [&](const auto& each) { return !words.empty() && each.name == words[0]; });
        if (found == requests.end()) {
            std::string usages;
            for (const auto& each : requests) {
                usages += (usages.empty() ? "" : ", ") + std::string{each.usage};
            }
            throw std::invalid_argument("unknown request; there are " + usages);
        }
        if (words.size() < found->least_words || words.size() > found->most_words) {
            throw std::invalid_argument("usage: " + std::string{found->usage});
        }
        auto text = found->run(bus, words);
        while (text.ends_with('\n')) {
            text.pop_back();
        }
        return text.empty() ? "ok" : "ok " + text;
    } catch (const std::exception& error) {
        return std::string{"error "} + error.what();
    }
}

} // namespace emulator
