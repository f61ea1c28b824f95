// Requests to the components of a pad, and their replies. The pad is reached through its record's two entries only.
#pragma once

#include "support/owners.hpp"
#include "support/trace.hpp"

#include <optional>

namespace component_request {

enum ComponentType : int { ct_communication = 1, ct_conf_handler = 3, ct_signpad = 11 };

constexpr unsigned char protocol_success = 1;
constexpr int device_lost = -4; // LIBUSB_ERROR_NO_DEVICE, by whichever transport

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
Answer receive(trace::Location where, vx_device* device, unsigned int time_out);

// The same, where answers to earlier requests that are still due are passed over. What else does not match is given to
// the caller to refuse.
Answer receive_from(trace::Location where, vx_device* device, unsigned int time_out, int id, unsigned char message_id);

// A request and the texts by which the families differ.
struct Request {
    ComponentType component;
    unsigned char message_id;
    std::span<const unsigned char> data; // behind the message id
    const char* sender;                  // its name in the text of a failed send
    const char* no_reply;
};

constexpr const char* component_sender = "make_and_send_ssp_component_data_sequence()";
constexpr const char* data_sender = "make_and_send_ssp_data_sequence()";
constexpr const char* no_reply = "Error, function receive_ssp_message_and_get_data() return NULL";

// Looks the component up, sends the request, receives the reply and checks that it is a base message from that
// component with data. What the data must be is the caller's to check.
Answer perform(trace::Location where, vx_device* device, const Request& request);

// Sends only: the component's id is looked up, the reply left to others.
int send(trace::Location where, vx_device* device, const Request& request);

// Only some pads have signpad modes and buttons.
bool has_signpad_modes(const vx_device& device);

// The checks and texts that the families share.
bool is_missing(trace::Location where, const vx_device* device);
bool is_from(trace::Location where, const Reply& reply, int id);
bool has_header(const unsigned char* payload, int message_id);

} // namespace component_request
