#include "messages.hpp"

#include <array>
#include <cstddef>

namespace vxpadctl {

namespace {

constexpr std::array<MessageText, 29> texts{{
    {Message::denied, "a pad ({}) is plugged in, but there is no permission to open {}"},
    {Message::no_node, "a pad ({}) is plugged in, but its device file {} is missing: a container must be given it"},
    {Message::rules_serve_seat,
     "The installed udev rules {} give access to the user who is logged in at this machine's own screen.\n"
     "If that is you, plug the pad in again, or run\n"
     "    sudo udevadm control --reload\n"
     "    sudo udevadm trigger --action=add --subsystem-match=usb"},
    {Message::rules_missing,
     "The udev rules {} give access to the user who is logged in at this machine's own screen.\n"
     "Install them with\n"
     "    sudo install -m 644 {} /etc/udev/rules.d/\n"
     "    sudo udevadm control --reload\n"
     "    sudo udevadm trigger --action=add --subsystem-match=usb"},
    {Message::over_ssh, "You are logged in over ssh and not at the screen: give the pads to a group instead."},
    {Message::tag_missing, "The rules are installed, but udev has not applied them to {}: plug the pad in again."},
    {Message::rule_for_added,
     "For access to pads {}, for the user who is logged in at this machine's own screen, put this line into\n"
     "/etc/udev/rules.d/70-vxpadcom-{}.rules\n"
     "    {}\n"
     "and run\n"
     "    sudo udevadm control --reload\n"
     "    sudo udevadm trigger --action=add --subsystem-match=usb"},
    {Message::busy, "{} is in use by {}. Close that program: only one at a time can use a pad."},
    {Message::busy_with_driver,
     "{} has been taken by the kernel's driver {}. Unbind that one, or use the pad where it is attached to."},
    {Message::busy_with_nobody_seen, "{} is in use by a program of another user. To see which: sudo vxpadctl doctor"},
    {Message::silent,
     "{} does not answer. Plug it out and in again, into a port of the machine itself; try another cable."},
    {Message::silent_or_not_asked,
     "{} has not been found: it does not answer, or a search ended at a pad before it. See to that one first."},
    {Message::unplugged,
     "{} was pulled out meanwhile. Plug it in again; if nobody has touched it, see to cable, port and power."},
    {Message::twin,
     "{} and {} cannot be told apart: same ids, names and serial number. Plug in one of them at a time."},
    {Message::unusable_pads, "{} of the pads plugged in cannot be used:"},
    {Message::unusable_pads_of_any_kind,
     "{} of the pads plugged in cannot be used: in use by another program, no answer, or a twin of another."},
    {Message::see_trace, "To see the library's own account: vxpadctl list --trace"},
    {Message::see_doctor, "To examine each pad: vxpadctl doctor"},
    {Message::no_pad, "no pad found. These USB ids are looked for:\n{}\n"
                      "To try virtual pads: vxpad-emulator run -- vxpadctl list"},
    {Message::likely_pad,
     "{} ({}) is plugged in and may be a pad whose ids nobody has told. If it is one, say so with\n"
     "    sudo vxpadctl ids add {} {} --transport {} --type 16 --name '{}'\n"
     "or put this line into a file /etc/vxpadcom/ids.d/NAME.ids (docs/ids.md tells the types beside 16):\n"
     "    {} {} {} 16 {}"},
    {Message::left_out, "left out: {}"},
    {Message::no_pad_for_doctor, "no pad found. vxpadctl list shows which USB ids are looked for."},
    {Message::no_such_pad, "there is no pad {} on the bus"},
    {Message::waiting, "waiting for {} to answer, for {} s so far"},
    {Message::asking, "waiting for {} to answer, {} of {} s"},
    {Message::no_kernel_messages, "cannot be read ({}). Try: sudo vxpadctl doctor, or journalctl --dmesg"},
    {Message::well, "All is well."},
    {Message::not_well, "{} of {} cannot be used."},
    {Message::bundle_written, "{} holds all of this for those who help. In it are no pen data; serial numbers, users' "
                              "names and home folders are "
                              "masked."},
}};

constexpr bool is_in_order() {
    for (std::size_t i = 0; i < texts.size(); ++i) {
        if (texts[i].message != static_cast<Message>(i)) {
            return false;
        }
    }
    return texts.back().message == Message::bundle_written;
}
static_assert(is_in_order(), "each message has its text at its own place");

} // namespace

std::span<const MessageText> all_messages() {
    return texts;
}

std::string say(Message message, std::initializer_list<std::string_view> values) {
    std::string_view text = texts[static_cast<std::size_t>(message)].text;
    std::string said;
    for (const std::string_view value : values) {
        const std::size_t place = text.find("{}");
        said.append(text.substr(0, place)).append(value);
        text.remove_prefix(place + 2);
    }
    return said.append(text);
}

} // namespace vxpadctl
