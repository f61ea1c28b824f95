#include "pen_commands.hpp"

#include "chosen_pad.hpp"
#include "interruption.hpp"
#include "layout.hpp"
#include "library.hpp"
#include "packet_meter.hpp"
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
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace vxpadctl {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

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

void write_file(const std::string& name, const std::string& text, std::FILE* results) {
    if (name == "-") {
        print(results, text);
        return;
    }
    const OwnedFile file = create_file(name);
    print(file.get(), text);
    flush(file.get(), name);
}

} // namespace

bool monitor(const Arguments& arguments, std::FILE* results) {
    const Layout layout = chosen_layout(arguments);
    auto session = session_for(arguments);
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
    const Layout layout = chosen_layout(arguments);
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
        print(results, decimal(at.count(), 6) + "  " + packet_text(packet.bytes, pressure) + "\n");
        if (std::ferror(results) != 0) {
            flush(results);
        }
    }
    return true;
}

bool plot(const Arguments& arguments, std::FILE* results) {
    const Layout layout = chosen_layout(arguments);
    for (const char* name : {"x", "y"}) {
        if (find_field(layout, name) == nullptr) {
            throw UsageError(std::string("the layout has no field ") + name);
        }
    }
    const Recording recording = load_recording(arguments.file);
    const Signature signature = signature_in(recording.packets, layout);
    if (signature.too_short > 0) {
        std::cerr << "vxpadctl: " << counted(signature.too_short, "packet") << " left out, too short for the layout\n";
    }
    if (signature.strokes.empty()) {
        throw std::runtime_error("there is no stroke to draw: no packet has a pressure above 0");
    }
    write_file(arguments.output, draw_svg(signature.strokes, fs::path(arguments.file).filename().string()), results);
    return true;
}

} // namespace vxpadctl
