// Recordings as any file, and as the recorder writes them.
//
// Byte 0: bit 0 the rest is a file; else it is a maker's name (counted) and packets, each with four bytes of time and
// counted. A file that is taken keeps the format's limits, stays what it is when it is written again or when comments
// come in between, and broken off behind a packet it is a recording up to there. What the recorder wrote is read back.
#include "file.hpp"
#include "input.hpp"
#include "packet_export.hpp"
#include "recording_file.hpp"
#include "text.hpp"

#include "base/text.hpp"

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace {

using emulator::RecordedPacket;
using emulator::Recording;

constexpr std::chrono::microseconds longest_time{7L * 24 * 3600 * 1000000};

bool are_equal(const std::vector<RecordedPacket>& one, const std::vector<RecordedPacket>& other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(), [](const auto& left, const auto& right) {
        return left.at == right.at && left.bytes == right.bytes;
    });
}

std::optional<Recording> read(const std::string& text) {
    const std::string& file = fuzz::File::holding(text);
    try {
        return emulator::read_recording(file);
    } catch (const std::invalid_argument& error) {
        fuzz::require_message(error.what(), file);
        return std::nullopt;
    }
}

std::string written(const std::vector<RecordedPacket>& packets) {
    std::string text = "vxpadcom-recording 1\n";
    for (const RecordedPacket& packet : packets) {
        text += std::to_string(packet.at.count()) + " " + emulator::hex(packet.bytes) + "\n";
    }
    return text;
}

std::string with_comments(const std::string& text) {
    std::string result;
    for (const char c : text) {
        result += c;
        if (c == '\n') {
            result += "# 12 ff\n\n";
        }
    }
    return result;
}

std::size_t count(std::string_view text, std::string_view what) {
    std::size_t found = 0;
    for (auto at = text.find(what); at != std::string_view::npos; at = text.find(what, at + what.size())) {
        ++found;
    }
    return found;
}

void require_text(std::string_view text) {
    while (!text.empty()) {
        const auto character = emulator::take_character(text);
        fuzz::require(character && (*character >= U' ' || *character == U'\n'), "text that every program may see");
    }
}

struct Exported {
    std::string text;
    std::size_t packets = 0;
};

// As far as there are packets.
Exported exported(const std::string& text, vxpadctl::ExportFormat format, const char* layout) {
    vxpadctl::Exporter exporter{format, vxpadctl::parse_layout(layout)};
    Exported result;
    try {
        vxpadctl::read_packets(fuzz::File::holding(text),
                               [&](const vxpadctl::RecordedPad& pad, const RecordedPacket& packet) {
                                   result.text += exporter.take(pad, packet);
                                   ++result.packets;
                               });
    } catch (const std::runtime_error&) {
        // what came before it is to be whole all the same
    }
    result.text += exporter.end();
    require_text(result.text);
    fuzz::require(exporter.too_short() <= result.packets, "packets that are too short");
    return result;
}

void check_exports(const std::string& text) {
    const char* layout = "x=0:u8,y=1:u8,pressure=2:u8";
    const Exported csv = exported(text, vxpadctl::csv_format, layout);
    fuzz::require(count(csv.text, "\n") == csv.packets + (csv.packets > 0 ? 1 : 0), "a line for each packet");
    fuzz::require(count(csv.text, ",") == 3 * count(csv.text, "\n"), "columns");
    const Exported json = exported(text, vxpadctl::json_format, layout);
    fuzz::require(json.packets == csv.packets && count(json.text, "\n{\"time\": ") == json.packets, "objects");
    fuzz::require(json.packets == 0 || (json.text.starts_with("{") && json.text.ends_with("}\n]}\n")),
                  "a whole object");
    const Exported inkml = exported(text, vxpadctl::inkml_format, layout);
    fuzz::require(inkml.packets == csv.packets && inkml.text.empty() == (inkml.packets == 0), "a document");
    fuzz::require(count(inkml.text, "<") == count(inkml.text, ">"), "whole tags");
    fuzz::require(count(inkml.text, "<trace ") == count(inkml.text, "</trace>"), "whole traces");
    fuzz::require(inkml.packets == 0 || inkml.text.ends_with("</ink>\n"), "a whole document");
}

void check_file(const std::string& text) {
    check_exports(text);
    const auto recording = read(text);
    if (!recording) {
        return;
    }
    const auto& packets = recording->packets;
    fuzz::require(!packets.empty() && packets.size() <= 1000000, "number of packets");
    std::chrono::microseconds before{0};
    std::size_t longest = 0;
    for (const RecordedPacket& packet : packets) {
        fuzz::require(packet.at >= before && packet.at <= longest_time, "time of a packet");
        fuzz::require(!packet.bytes.empty() && packet.bytes.size() <= 4096, "size of a packet");
        before = packet.at;
        longest = std::max(longest, packet.bytes.size());
    }
    fuzz::require(recording->longest_packet == longest, "longest packet");

    const auto again = read(written(packets));
    fuzz::require(again && are_equal(again->packets, packets), "the same when written again");
    // Up to the first line end there is the line that tells the format.
    const auto commented = read(with_comments(text));
    fuzz::require(commented && are_equal(commented->packets, packets), "the same with comments");
    const std::vector<RecordedPacket> half(packets.begin(),
                                           packets.begin() + static_cast<std::ptrdiff_t>((packets.size() + 1) / 2));
    const auto broken_off = read(written(half));
    fuzz::require(broken_off && are_equal(broken_off->packets, half), "a recording that was broken off");
}

void check_recorder(fuzz::Input& input) {
    vxpadctl::Pad pad{};
    const std::string maker = input.counted_text();
    pad.maker = vxpadctl::to_utf8(std::u16string(maker.begin(), maker.end()));
    pad.product = vxpadctl::to_utf8(std::u16string(maker.rbegin(), maker.rend()));
    const std::chrono::steady_clock::time_point start{std::chrono::hours{1}};
    std::vector<vxpadctl::Packet> packets;
    std::vector<RecordedPacket> wanted;
    std::chrono::microseconds at{0};
    while (!input.has_ended()) {
        const std::chrono::microseconds later{input.word()};
        vxpadctl::Bytes bytes = input.counted();
        bytes.resize(std::clamp<std::size_t>(bytes.size(), 1, 64));
        if (at + later > longest_time) {
            break;
        }
        at += packets.empty() ? std::chrono::microseconds{0} : later;
        packets.push_back({start + at, bytes});
        wanted.push_back({at, bytes});
    }
    if (packets.empty()) {
        return;
    }
    const std::string& file = fuzz::File::holding("");
    {
        vxpadctl::Recorder recorder{file, stdout};
        recorder.begin(pad, 1, 64);
        recorder.put(packets);
        fuzz::require(recorder.count() == packets.size() && recorder.duration() == at, "what the recorder tells");
    }
    fuzz::require(are_equal(vxpadctl::load_recording(file).packets, wanted), "what was recorded");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input{data, size};
    if (input.flag()) {
        check_file(input.rest_as_text());
    } else {
        check_recorder(input);
    }
    return 0;
}
