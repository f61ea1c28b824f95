// The pad's side of every command: what its firmware does with the reports that reach it. Knows nothing of USB.
#pragma once

#include "pad/pad_settings.hpp"
#include "pad/upload_tally.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace emulator {

inline constexpr std::size_t feature_report_size = 64;
using FeatureReport = std::array<std::uint8_t, feature_report_size>;

struct SignatureRectangle {
    std::array<std::uint16_t, 4> values{};
    std::uint32_t flag = 0;
};

class PadModel {
  public:
    explicit PadModel(const PadSettings& settings);

    const PadSettings& settings() const { return settings_; }

    // A written feature report is a request; the next read hands out the reply.
    void write_feature(unsigned int interface, std::span<const std::uint8_t> report);
    FeatureReport read_feature(unsigned int interface);

    void write_output(unsigned int interface, std::span<const std::uint8_t> report);

    // Input reports wait here until the host fetches them. A short one is filled up with zeros; false when it is too
    // long or too many are waiting.
    bool queue_input(unsigned int interface, std::span<const std::uint8_t> report);
    void send_pen_report(std::span<const std::uint8_t> report); // an input report too, lost when too many are waiting
    bool has_input(unsigned int interface) const { return !interfaces_.at(interface).inputs.empty(); }
    std::vector<std::uint8_t> take_input(unsigned int interface);

    // Called when an input report has been queued.
    void on_input(std::function<void(unsigned int interface)> callback) { input_callback_ = std::move(callback); }

    // Feature reports also carry the pieces of a message stream, of a pad that has one.
    void connect_stream(std::function<void(std::span<const std::uint8_t>)> write,
                        std::function<std::vector<std::uint8_t>(std::size_t most)> read) {
        write_stream_ = std::move(write);
        read_stream_ = std::move(read);
    }

    UploadTally& uploads() { return uploads_; }

    std::string state() const; // "mode=1 rectangle=..." for the control socket

  private:
    struct Interface {
        FeatureReport last_written{};
        std::optional<FeatureReport> reply;
        bool reads_stream = false; // until another report is written
        std::deque<std::vector<std::uint8_t>> inputs;
    };
    struct Command;

    void set_mode(std::span<const std::uint8_t> request, FeatureReport& reply);
    void read_version(std::span<const std::uint8_t> request, FeatureReport& reply);
    void get_status(std::span<const std::uint8_t> request, FeatureReport& reply);
    void create_rectangle(std::span<const std::uint8_t> request, FeatureReport& reply);
    FeatureReport stream_report();

    PadSettings settings_;
    std::vector<Interface> interfaces_;
    std::function<void(unsigned int)> input_callback_;
    std::function<void(std::span<const std::uint8_t>)> write_stream_;
    std::function<std::vector<std::uint8_t>(std::size_t)> read_stream_;
    std::uint8_t mode_ = 0;
    std::uint8_t shown_mode_ = 0; // what the status tells while a mode change is under way
    unsigned int polls_until_shown_ = 0;
    std::uint8_t mode_option_ = 0;
    SignatureRectangle rectangle_;
    unsigned int commands_ = 0;
    unsigned int refused_ = 0;
    unsigned int outputs_ = 0;
    unsigned int inputs_lost_ = 0;
    UploadTally uploads_;
};

} // namespace emulator
