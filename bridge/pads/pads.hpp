// The pads under names that last: a pad keeps its number until it is unplugged, and no other one ever gets it.
#pragma once

#include "pads/pen_inbox.hpp"

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>
#include <vxpadcom/vxpadcom.hpp>

namespace bridge {

// What a pad says about itself; texts in UTF-8.
struct PadFacts {
    std::string maker;
    std::string product;
    std::string serial;
    unsigned int vendor_id = 0;
    unsigned int product_id = 0;
    std::vector<std::size_t> report_bytes; // of each interface

    bool operator==(const PadFacts&) const = default;
};

struct Pad {
    unsigned int id;
    unsigned int number; // the library's, until the next search
    PadFacts facts;
};

// A pad that is not there, or one that was pulled out.
struct NoSuchPad : std::runtime_error {
    using runtime_error::runtime_error;
};

// None came in time.
struct NoReply : std::runtime_error {
    using runtime_error::runtime_error;
};

// What happens by itself. All may be called on any thread.
struct PadEvents {
    std::function<void(const Pad&)> plugged;
    std::function<void(unsigned int pad)> unplugged;
    std::function<void()> pen;    // the inbox has something
    std::function<void()> settle; // Pads::settle() wants to be called
};

// For one thread, unless a function says otherwise. Those with a pad throw NoSuchPad and vxpadcom::error.
class Pads {
  public:
    explicit Pads(PadEvents events);
    ~Pads();
    Pads(const Pads&) = delete;
    Pads& operator=(const Pads&) = delete;

    // To be called every now and then. A search ends all receiving, so one that has become due waits for the end of
    // that, and what is plugged in meanwhile is found then.
    void look();

    // Tells of pads that were found unplugged.
    void settle();

    const std::vector<Pad>& list() const { return pads_; }
    Pad ask_facts(unsigned int id);
    bool is_receiving(unsigned int id, unsigned int interface) const { return receivers_.contains({id, interface}); }

    vxpadcom::byte_buffer get_feature(unsigned int id, unsigned int interface, std::optional<std::size_t> size);
    void set_feature(unsigned int id, unsigned int interface, std::span<const std::uint8_t> report);
    void write(unsigned int id, unsigned int interface, std::span<const std::uint8_t> report);

    // Sends an SSP message and gives the pad's reply to it. Throws NoReply as well.
    vxpadcom::byte_buffer ask_ssp(unsigned int id, unsigned int interface, std::span<const std::uint8_t> message,
                                  std::chrono::milliseconds time_out);

    // Starting what runs and stopping what does not is no failure. After the stop everything that was received is in
    // the inbox.
    void start(unsigned int id, unsigned int interface);
    void stop(unsigned int id, unsigned int interface);

    // Sends the beginning of the data, as much as takes a moment, and returns how much that was. Throws
    // std::runtime_error as well.
    std::size_t upload_part(unsigned int id, std::uint32_t interfaces, std::span<const std::uint8_t> data);

    PenInbox& inbox() { return inbox_; } // for any thread

  private:
    static constexpr std::size_t most_numbers = 16; // of the library
    using Receivers = std::map<std::pair<unsigned int, unsigned int>, std::unique_ptr<vxpadcom::receiver>>;

    const Pad& find(unsigned int id) const;
    vxpadcom::pad reach(unsigned int id, unsigned int interface) const;
    template <typename Call> auto tell_removal(unsigned int id, const Call& call) const;
    void search();
    void note_removed(unsigned int number);

    PadEvents events_;
    PenInbox inbox_;
    std::array<std::atomic<bool>, most_numbers> removed_{};
    std::vector<Pad> pads_;
    unsigned int last_id_ = 0;
    std::set<std::string> devices_;
    bool is_search_due_ = true;
    std::optional<std::chrono::steady_clock::time_point> second_search_;
    std::optional<vxpadcom::session> session_;
    Receivers receivers_; // the last: they end before the session
};

} // namespace bridge
