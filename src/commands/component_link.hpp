// Messages to and from a pad's components, and the checks that every reply passes. The pad is reached through its
// record's two entries only.
#pragma once

#include "support/owners.hpp"
#include "support/trace.hpp"
#include "vxpadcom/internals/record.h"

#include <optional>
#include <span>

namespace component_link {

constexpr unsigned char protocol_success = 1;
constexpr unsigned int reply_time_out_ms = 1000;

// Two wordings of a missing reply: log filters know both.
constexpr const char* no_data = "Error, function receive_ssp_message_and_get_data() return NULL";
constexpr const char* nothing_received = "Error, receive_ssp_message_and_get_data() return NULL";

// A reply as it came: at most 1024 bytes, zeros behind them.
class Reply {
  public:
    static constexpr unsigned int capacity = 1024;

    Reply(Owned<unsigned char> message, std::size_t size) : message_{std::move(message)}, size_{size} {}

    const unsigned char* message() const { return message_.get(); }
    // Of a base message: what it announces, as far as it came. Behind it zeros follow, up to the capacity.
    std::span<const unsigned char> payload() const;
    const unsigned char* data() const { return payload().data(); }
    unsigned char* release() { return message_.release(); }

  private:
    Owned<unsigned char> message_;
    std::size_t size_;
};

// What came of a request: a reply, or the failure's code.
struct Answer {
    int result = 0;
    std::optional<Reply> reply;
};

// The pad's reply to what was sent last.
Answer receive(const trace::Location& where, vx_device* device, unsigned int time_out);

// The same, where answers to earlier requests that are still due are passed over. What else does not match is given to
// the caller to refuse.
Answer receive_from(const trace::Location& where, vx_device* device, unsigned int time_out, int id,
                    unsigned char message_id);

bool is_base(const Reply& reply);
bool has_header(const unsigned char* payload, int message_id);

// Each says what is wrong.
bool expect_device(const trace::Location& where, const vx_device* device);
bool expect_from(const trace::Location& where, const Reply& reply,
                 int id); // a base message of the component, with data

} // namespace component_link
