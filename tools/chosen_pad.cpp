#include "chosen_pad.hpp"

#include "advice.hpp"
#include "usb_bus.hpp"

#include <stdexcept>
#include <vector>

namespace vxpadctl {

MissingPads look_for_missing_pads(const Session& session) {
    const std::vector<SearchedId> ids = searched_ids();
    const std::vector<BusDevice> on_bus = find_on_bus(ids);
    return {on_bus.size(), explain_missing_pads(session.pad_count(), on_bus, ids)};
}

void expect_pad(const Session& session, const Arguments& arguments) {
    const unsigned int pads = session.pad_count();
    if (arguments.pad <= pads) {
        return;
    }
    const std::string reason = look_for_missing_pads(session).explanation;
    throw std::runtime_error("there is no pad " + std::to_string(arguments.pad) +
                             (pads > 0 ? ", the last one is " + std::to_string(pads) : "") +
                             (reason.empty() ? "" : "\n" + reason));
}

void expect_interface(const Session& session, const Arguments& arguments) {
    expect_pad(session, arguments);
    const unsigned int interfaces = interface_count(arguments.pad);
    if (arguments.interface >= interfaces) {
        throw std::runtime_error("there is no interface " + std::to_string(arguments.interface) + ": pad " +
                                 std::to_string(arguments.pad) + " has " + std::to_string(interfaces) +
                                 ", counted from 0");
    }
}

} // namespace vxpadctl
