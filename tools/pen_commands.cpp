#include "pen_commands.hpp"

#include "chosen_pad.hpp"
#include "interruption.hpp"
#include "layout.hpp"
#include "library.hpp"
#include "packet_export.hpp"
#include "packet_lines.hpp"
#include "packet_meter.hpp"
#include "picture.hpp"
#include "printing.hpp"
#include "reception.hpp"
#include "recording_file.hpp"
#include "signature_plot.hpp"
#include "terminal_view.hpp"
#include "text.hpp"

#include "../emulator/control/control_client.hpp"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <iostream>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace vxpadctl {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

std::unique_ptr<Session> session_for(const Arguments& arguments) {
    note_interruptions();
    auto session = std::make_unique<Session>();
    expect_interface(*session, arguments);
    return session;
}

// Receives until the arguments' limits are reached, the taker wants no more, the pad has gone or a person interrupts.
// The taker is called every moment, also when nothing came, and last with what came while the reception ended. What
// ended it before its time is thrown then.
void follow(std::unique_ptr<Session> session, const Arguments& arguments,
            const std::function<bool(std::span<const Packet> packets)>& take) {
    Reception reception{std::move(session), arguments.pad, arguments.interface};
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(Seconds(arguments.seconds));
    const std::size_t most = arguments.count.value_or(std::numeric_limits<unsigned int>::max());
    std::size_t taken = 0;
    const auto pass = [&](std::vector<Packet> packets) {
        packets.resize(std::min(packets.size(), most - taken));
        taken += packets.size();
        return take(packets);
    };
    bool wanted = true;
    while (wanted && taken < most && Clock::now() < end && !is_interrupted() && !reception.is_pad_gone()) {
        wanted = pass(reception.take(notice_time));
    }
    const bool pulled_out = reception.is_pad_gone() && taken < most;
    reception.end();
    pass(reception.take(std::chrono::milliseconds(0)));

    if (pulled_out) {
        throw LibraryError("pad " + std::to_string(arguments.pad) + " was pulled out, after " +
                           counted(taken, "packet"));
    }
    stop_if_interrupted();
    if (taken == 0) {
        throw std::runtime_error("no packet came");
    }
}

// Tells what came of it, also where it ends before its time.
void telling_at_last(const std::function<void()>& tell, const std::function<void()>& work) {
    try {
        work();
    } catch (const ReaderGone&) {
        throw;
    } catch (...) {
        tell();
        throw;
    }
    tell();
}

// Whether it is time to tell something again.
class Beat {
  public:
    explicit Beat(Clock::duration pause) : pause_{pause}, next_{Clock::now() + pause} {}

    bool is_due() {
        const auto now = Clock::now();
        const bool due = now >= next_;
        while (next_ <= now) {
            next_ += pause_;
        }
        return due;
    }

  private:
    Clock::duration pause_;
    Clock::time_point next_;
};

constexpr auto redraw_pause = std::chrono::milliseconds(100);
constexpr auto line_pause = std::chrono::seconds(1);

std::string facts_of(const Recording& recording) {
    return counted(recording.packets.size(), "packet") + " in " +
           decimal(Seconds(recording.packets.back().at).count(), 3) + " s";
}

// Has a virtual pad of the emulator under which this runs play the file.
void play_on_virtual_pad(const Arguments& arguments, const Recording& recording, std::FILE* results) {
    if (!emulator::is_running()) {
        throw std::runtime_error("--pad is for virtual pads, which there are under vxpad-emulator run");
    }
    const std::string path = fs::absolute(arguments.file).string();
    if (path.find_first_of(" \t\n") != std::string::npos) {
        throw std::runtime_error("a virtual pad plays no file with blanks in its path: " + for_terminal(path));
    }
    emulator::request("replay " + std::to_string(*arguments.virtual_pad) + " " + path);
    print(results, "virtual pad " + std::to_string(*arguments.virtual_pad) + " plays " + facts_of(recording) + "\n");
}

// A file of that name, or the results where it is "-".
struct Output {
    Output(const std::string& chosen, std::FILE* results)
        : name{chosen == "-" ? "the result" : chosen}, owned{chosen == "-" ? nullptr : create_file(chosen)},
          file{owned ? owned.get() : results} {}

    void write(const std::string& text) const {
        print(file, text);
        if (std::ferror(file) != 0) {
            flush();
        }
    }
    void flush() const { vxpadctl::flush(file, name); }

    std::string name;
    OwnedFile owned;
    std::FILE* file;
};

void expect_another_file(const Arguments& arguments) {
    std::error_code ignored; // a file that is not there yet is another one
    if (fs::equivalent(arguments.file, arguments.output, ignored)) {
        throw std::runtime_error("the result would take the place of the recording: " + for_terminal(arguments.file));
    }
}

void tell_too_short(std::size_t packets, const char* what_becomes_of_them) {
    if (packets > 0) {
        std::cerr << "vxpadctl: " << counted(packets, "packet") << " " << what_becomes_of_them
                  << ", too short for the layout\n";
    }
}

void expect_pen(const Layout& layout) {
    for (const char* name : {"x", "y"}) {
        if (find_field(layout, name) == nullptr) {
            throw UsageError(std::string("the layout has no field ") + name);
        }
    }
}

// A packet after the other, as it comes.
void monitor_in_json(std::unique_ptr<Session> session, const Arguments& arguments, Layout layout, std::FILE* results) {
    PacketLines lines{std::move(layout)};
    const auto take = [&](std::span<const Packet> packets) {
        for (const Packet& packet : packets) {
            print(results, lines.line(packet.at, packet.bytes));
        }
        flush(results);
        return true;
    };
    follow(std::move(session), arguments, take);
}

} // namespace

bool monitor(const Arguments& arguments, std::FILE* results) {
    const Layout layout = arguments.json ? chosen_columns(arguments) : chosen_layout(arguments);
    auto session = session_for(arguments);
    if (arguments.json) {
        monitor_in_json(std::move(session), arguments, layout, results);
        return true;
    }
    TerminalView view{results};
    PacketMeter meter{layout, Clock::now()};
    Beat beat{view.is_terminal() ? Clock::duration(redraw_pause) : line_pause};
    const auto tell = [&] {
        if (view.is_terminal()) {
            view.draw(meter.lines(Clock::now()));
        } else {
            print(results, meter.line(Clock::now()) + "\n");
            flush(results);
        }
    };
    const auto take = [&](std::span<const Packet> packets) {
        for (const Packet& packet : packets) {
            meter.take(packet);
        }
        if (beat.is_due()) {
            tell();
        }
        return true;
    };
    telling_at_last(tell, [&] { follow(std::move(session), arguments, take); });
    return true;
}

bool record(const Arguments& arguments, std::FILE* results) {
    auto session = session_for(arguments);
    const Pad pad = describe_pad(arguments.pad);
    const bool to_file = arguments.output != "-";
    Recorder recorder{arguments.output, results};
    recorder.begin(pad, arguments.interface, input_report_size(arguments.pad));

    TerminalView view{results};
    PacketMeter meter{{}, Clock::now()};
    Beat beat{redraw_pause};
    const auto take = [&](std::span<const Packet> packets) {
        recorder.put(packets);
        for (const Packet& packet : packets) {
            meter.take(packet);
        }
        if (to_file && view.is_terminal() && beat.is_due()) {
            view.draw({meter.line(Clock::now())});
        }
        return !recorder.is_full();
    };
    const auto tell = [&] {
        print(to_file ? results : stderr, counted(recorder.count(), "packet") + " in " +
                                              decimal(Seconds(recorder.duration()).count(), 3) + " s recorded in " +
                                              for_terminal(recorder.name()) + "\n");
    };
    telling_at_last(tell, [&] { follow(std::move(session), arguments, take); });
    if (recorder.is_full()) {
        throw std::runtime_error("the recording is full: a file may have 64 MiB and a million packets");
    }
    return true;
}

bool replay(const Arguments& arguments, std::FILE* results) {
    const Layout layout = arguments.json ? chosen_columns(arguments) : chosen_layout(arguments);
    const Field* pressure = find_field(layout, "pressure");
    const Recording recording = load_recording(arguments.file);
    if (arguments.virtual_pad) {
        play_on_virtual_pad(arguments, recording, results);
        return true;
    }
    note_interruptions();
    const auto start = Clock::now();
    for (const RecordedPacket& packet : recording.packets) {
        stop_if_interrupted();
        const Seconds at = packet.at;
        if (!arguments.fast) {
            const auto due = start + std::chrono::duration_cast<Clock::duration>(at / arguments.speed);
            if (due > Clock::now()) {
                flush(results);
                pause_until(due);
            }
        }
        print(results, (arguments.json ? packet_json(packet.at, packet.bytes, layout)
                                       : time_text(packet.at) + "  " + packet_text(packet.bytes, pressure)) +
                           "\n");
        if (std::ferror(results) != 0) {
            flush(results);
        }
    }
    return true;
}

bool plot(const Arguments& arguments, std::FILE* results) {
    const Layout layout = chosen_layout(arguments);
    expect_pen(layout);
    expect_another_file(arguments);
    const Recording recording = load_recording(arguments.file);
    const Signature signature = signature_in(recording.packets, layout);
    tell_too_short(signature.too_short, "left out");
    if (signature.strokes.empty()) {
        for (const char* name : {"x", "y", "pressure"}) {
            if (const Field* field = find_field(layout, name)) {
                expect_within(*field, recording.longest_packet);
            }
        }
        throw std::runtime_error("there is no stroke to draw: no packet has a pressure above 0");
    }
    const std::string drawing = draw_svg(signature.strokes, fs::path(arguments.file).filename().string());
    const std::string picture =
        picture_of(drawing, static_cast<PictureFormat>(*value_of(picture_formats, arguments.format)));
    const Output output{arguments.output, results};
    output.write(picture);
    output.flush();
    return true;
}

bool export_recording(const Arguments& arguments, std::FILE* results) {
    const auto format = static_cast<ExportFormat>(*value_of(export_formats, arguments.format));
    Layout layout = format == inkml_format ? chosen_layout(arguments) : chosen_columns(arguments);
    if (format == inkml_format) {
        expect_pen(layout);
    }
    expect_another_file(arguments);
    Exporter exporter{format, std::move(layout)};
    std::optional<Output> output; // from the first packet on: what is no recording leaves no file behind
    const auto take = [&](const RecordedPad& pad, const RecordedPacket& packet) {
        if (!output) {
            output.emplace(arguments.output.empty() ? "-" : arguments.output, results);
        }
        output->write(exporter.take(pad, packet));
    };
    const auto end = [&] {
        if (output) {
            output->write(exporter.end());
            output->flush();
        }
        tell_too_short(exporter.too_short(), format == inkml_format ? "left out" : "with empty fields");
    };
    telling_at_last(end, [&] { read_packets(arguments.file, take); });
    exporter.expect_all_fields();
    return true;
}

} // namespace vxpadctl
