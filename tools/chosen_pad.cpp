#include "chosen_pad.hpp"

#include "added_ids.hpp"
#include "advice.hpp"
#include "messages.hpp"
#include "search_watch.hpp"
#include "usb_bus.hpp"

#include <stdexcept>
#include <vector>

namespace vxpadctl {

namespace {

std::vector<Pad> describe_found(const Session& session) {
    std::vector<Pad> found;
    for (unsigned int number = 1; number <= session.pad_count(); ++number) {
        try {
            found.push_back(describe_pad(number));
        } catch (const LibraryError&) {
            found.emplace_back(); // one that has failed since
        }
    }
    return found;
}

} // namespace

MissingPads look_for_missing_pads(const Session& session) {
    const AddedIds added = read_added_ids();
    const std::vector<SearchedId> ids = searched_ids(added.ids);
    const std::vector<BusDevice> on_bus = find_on_bus(ids);
    const std::vector<BusDevice>& before = session.before().on_bus;
    std::vector<std::string> reasons;
    if (on_bus.size() > session.pad_count() || before.size() > session.pad_count()) {
        reasons = reasons_for_missing(before, on_bus, describe_found(session));
    }
    std::string explanation = explain_missing_pads(session.pad_count(), on_bus, ids, find_likely_pads(ids), reasons);
    if (!explanation.empty()) {
        for (const std::string& complaint : added.complaints) {
            explanation += "\n" + say(Message::left_out, {complaint});
        }
    }
    return {on_bus.size(), explanation};
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
