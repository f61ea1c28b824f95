// What people are told about pads that cannot be used. docs/troubleshooting.md explains each.
#pragma once

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

namespace vxpadctl {

enum class Message {
    denied,
    no_node,
    rules_serve_seat,
    rules_missing,
    over_ssh,
    tag_missing,
    rule_for_added,
    busy,
    busy_with_driver,
    busy_with_nobody_seen,
    silent,
    silent_or_not_asked,
    unplugged,
    twin,
    unusable_pads,
    unusable_pads_of_any_kind,
    see_trace,
    see_doctor,
    no_pad,
    likely_pad,
    left_out,
    no_pad_for_doctor,
    no_such_pad,
    waiting,
    asking,
    no_kernel_messages,
    well,
    not_well,
    bundle_written,
};

struct MessageText {
    Message message;
    std::string_view text; // "{}" stands for what say() puts there
};

// In the order of Message.
std::span<const MessageText> all_messages();

std::string say(Message message, std::initializer_list<std::string_view> values = {});

} // namespace vxpadctl
