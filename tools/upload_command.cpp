#include "upload_command.hpp"

#include "chosen_pad.hpp"
#include "hex.hpp"
#include "interruption.hpp"
#include "printing.hpp"
#include "terminal_view.hpp"
#include "text.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <stdexcept>
#include <vxpadcom/vxpadcom.h>

namespace vxpadctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t largest_file = 64U << 20;
constexpr double bytes_per_kilobyte = 1024;

Bytes contents(const std::string& name) {
    const auto fail = [&](const std::string& why) { throw std::runtime_error(for_terminal(name) + ": " + why); };
    const OwnedFile file{std::fopen(name.c_str(), "re")};
    if (!file) {
        fail(std::strerror(errno));
    }
    Bytes bytes;
    std::array<std::uint8_t, 65536> buffer;
    while (const std::size_t size = std::fread(buffer.data(), 1, buffer.size(), file.get())) {
        bytes.insert(bytes.end(), buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(size));
        if (bytes.size() > largest_file) {
            fail("longer than " + std::to_string(largest_file >> 20) + " MiB");
        }
    }
    if (std::ferror(file.get()) != 0) {
        fail(std::strerror(errno));
    }
    if (bytes.empty()) {
        fail("there is nothing in it");
    }
    return bytes;
}

// Whether the pad has been pulled out, while this exists.
class RemovalWatch {
  public:
    RemovalWatch() { SetOnDeviceRemovedHandler(see, &removed_); }
    ~RemovalWatch() { SetOnDeviceRemovedHandler(nullptr, nullptr); }
    RemovalWatch(const RemovalWatch&) = delete;
    RemovalWatch& operator=(const RemovalWatch&) = delete;

    bool saw_removal() const { return removed_; }

  private:
    static void see(void* removed, unsigned int) { *static_cast<std::atomic<bool>*>(removed) = true; }

    std::atomic<bool> removed_ = false;
};

// The library tells nothing of an upload before its end. So it is given parts that take a moment each.
class Parts {
  public:
    explicit Parts(std::size_t pieces) : next_{pieces} {}

    std::size_t next() const { return next_; }

    void note(std::size_t pieces, Clock::duration time) {
        constexpr std::chrono::duration<double> moment{0.1};
        constexpr double fastest_growth = 4;
        const double growth = moment / std::max<std::chrono::duration<double>>(time, std::chrono::microseconds(1));
        next_ = static_cast<std::size_t>(
            std::max(1.0, std::floor(static_cast<double>(pieces) * std::min(growth, fastest_growth))));
    }

  private:
    std::size_t next_;
};

std::uint32_t chosen_interfaces(const Arguments& arguments) {
    const unsigned int count = interface_count(arguments.pad);
    const std::uint32_t all = count < 32 ? (1U << count) - 1 : ~0U;
    if ((arguments.interface_mask & all) == 0) {
        throw std::runtime_error("none of these interfaces is there: pad " + std::to_string(arguments.pad) + " has " +
                                 std::to_string(count) + ", bit 0 of the mask is the first");
    }
    return arguments.interface_mask & all;
}

std::string speed(std::size_t bytes, double seconds) {
    return decimal(seconds > 0 ? static_cast<double>(bytes) / seconds / bytes_per_kilobyte : 0, 1) + " KB/s";
}

} // namespace

std::string progress_line(std::size_t sent, std::size_t size, double seconds) {
    constexpr std::size_t columns = 40;
    const double part = static_cast<double>(sent) / static_cast<double>(size);
    std::string text = bar(part, columns) + " " + decimal(std::floor(100 * part), 0) + " %  " + speed(sent, seconds);
    if (sent > 0) {
        text += "  " + decimal(std::ceil(seconds * (1 / part - 1)), 0) + " s left";
    }
    return text;
}

bool upload(const Session& session, const Arguments& arguments, std::FILE* results) {
    expect_pad(session, arguments);
    Bytes payload = contents(arguments.file);
    const std::size_t size = payload.size();
    const std::uint32_t interfaces = chosen_interfaces(arguments);
    const std::size_t piece_size = feature_report_size(arguments.pad, 0);
    const std::size_t pieces = (size + piece_size - 1) / piece_size;
    payload.resize(pieces * piece_size);

    note_interruptions();
    const RemovalWatch watch;
    TerminalView view{results};
    constexpr std::size_t first_part = 16;
    Parts parts{first_part};
    const auto start = Clock::now();
    const auto seconds = [&] { return std::chrono::duration<double>(Clock::now() - start).count(); };
    std::size_t sent = 0;
    const auto sent_bytes = [&] { return std::min(sent * piece_size, size); };
    const auto stopped = [&](const std::string& why) {
        return "only " + std::to_string(sent_bytes()) + " of " + std::to_string(size) + " bytes were sent: " + why;
    };
    while (sent < pieces) {
        if (is_interrupted()) {
            throw Interrupted(stopped("interrupted"));
        }
        const std::size_t part = std::min(parts.next(), pieces - sent);
        const auto begin = Clock::now();
        const std::size_t done = upload_pieces(
            arguments.pad, interfaces, std::span(payload).subspan(sent * piece_size, part * piece_size), piece_size);
        sent += done;
        parts.note(part, Clock::now() - begin);
        if (view.is_terminal()) {
            view.draw({progress_line(sent_bytes(), size, seconds())});
        }
        if (done < part) {
            throw std::runtime_error(stopped(watch.saw_removal()
                                                 ? "pad " + std::to_string(arguments.pad) + " was pulled out"
                                                 : "an interface failed (with --trace the library tells more)"));
        }
    }
    print(results,
          counted(size, "byte") + " sent in " + decimal(seconds(), 2) + " s, " + speed(size, seconds()) + "\n");
    return true;
}

} // namespace vxpadctl
