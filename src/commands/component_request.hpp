// Requests to a component of a pad, by its type.
#pragma once

#include "commands/component_link.hpp"
#include "vxpadcom/internals/record.h"

namespace component_request {

enum ComponentType : int { ct_communication = 1, ct_conf_handler = 3, ct_signpad = 11 };

// What is asked of whom, and the texts in which the requests differ.
struct Request {
    ComponentType component;
    unsigned char message_id;
    const char* sender; // its name in the text of a failed send
    const char* no_reply;
};

constexpr const char* component_sender = "make_and_send_ssp_component_data_sequence()";
constexpr const char* data_sender = "make_and_send_ssp_data_sequence()";

// Looks the component up, sends the request with data behind its message id, receives the reply and checks that it is a
// base message from that component with data. What the data must be is the caller's to check.
component_link::Answer perform(const trace::Location& where, vx_device* device, const Request& request,
                               std::span<const unsigned char> data);

// Sends only: the component's id is looked up, the reply left to others.
int send(const trace::Location& where, vx_device* device, const Request& request, std::span<const unsigned char> data);

// The component's id, or a negative result. Says what failed.
int look_up(const trace::Location& where, vx_device* device, ComponentType component);

} // namespace component_request
