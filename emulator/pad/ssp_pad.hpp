// The components of a pad that speaks SSP: what its firmware does with the messages that reach it. Knows nothing of
// USB.
#pragma once

#include "base/event_loop.hpp"
#include "pad/faults.hpp"
#include "pad/pad_model.hpp"
#include "pad/pen_player.hpp"
#include "pad/ssp_outbox.hpp"
#include "pad/ssp_stream.hpp"
#include "pad/transfer_log.hpp"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace emulator {

class SspPad {
  public:
    using Bytes = std::vector<std::uint8_t>;

    // The model answers the reports that legacy messages carry.
    SspPad(EventLoop& loop, PadModel& model, FaultList& faults, TransferLog& log);
    ~SspPad();
    SspPad(const SspPad&) = delete;
    SspPad& operator=(const SspPad&) = delete;

    void receive(std::span<const std::uint8_t> stream);
    SspOutbox& outbox() { return outbox_; }

    void press_button(std::uint8_t button);
    void send_pen_data(std::span<const std::uint8_t> record);
    PenPlayer& pen() { return pen_; }

    std::string state() const; // several lines for the control socket

  private:
    using Payload = std::span<const std::uint8_t>; // a request's, from its message id on
    struct Request;

    void handle(std::span<const std::uint8_t> message);
    void handle_base(std::uint8_t component, Payload request);
    void handle_legacy(std::span<const std::uint8_t> message);

    // Each gives what follows message id and result; nothing: refused.
    std::optional<Bytes> list_components(Payload request);
    std::optional<Bytes> describe(Payload request);
    std::optional<Bytes> switch_pen_data(Payload request);
    std::optional<Bytes> list_modes(Payload request);
    std::optional<Bytes> to_mode(Payload request);
    std::optional<Bytes> configuration_state(Payload request);
    std::optional<Bytes> set_variable(Payload request);
    std::optional<Bytes> persist_variable(Payload request);
    std::optional<Bytes> tell_connection(Payload request);
    std::optional<Bytes> set_connection(Payload request);

    bool is_configuring() const { return busy_polls_ > 0; }
    void start_configuring();

    PadModel& model_;
    TransferLog& log_;
    SspOutbox outbox_;
    MessageReader reader_;

    bool biodata_ = false;
    PenPlayer pen_;

    std::uint8_t button_ = 0;
    std::optional<std::uint32_t> last_mode_;
    std::map<std::uint32_t, unsigned int> refreshes_; // by mode type

    unsigned int busy_polls_ = 0;
    std::uint8_t resting_state_ = 0; // of the configuration handler, once it is not busy
    std::map<std::string, std::string> variables_;
    std::set<std::string> persisted_;

    std::uint8_t connection_;
    unsigned int requests_ = 0;
    unsigned int refused_ = 0;
};

} // namespace emulator
