#include "pad_commands.hpp"

#include "chosen_pad.hpp"
#include "hex.hpp"
#include "pad_output.hpp"
#include "printing.hpp"
#include "ssp_commands.hpp"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <iostream>
#include <optional>
#include <vector>

namespace vxpadctl {

namespace {

void print_feature_report(const Arguments& arguments, std::FILE* results) {
    const unsigned int size = arguments.length.value_or(feature_report_size(arguments.pad, arguments.interface));
    print(results, hex_dump(get_feature(arguments.pad, arguments.interface, size)));
}

Bytes payload_to_send(const Arguments& arguments) {
    Bytes payload = arguments.bytes;
    if (arguments.fill) {
        payload.resize(std::max<std::size_t>(payload.size(), feature_report_size(arguments.pad, arguments.interface)));
    }
    return payload;
}

} // namespace

bool list(const Session& session, const Arguments& arguments, std::FILE* results) {
    std::vector<Pad> pads;
    bool complete = true;
    for (unsigned int number = 1; number <= session.pad_count(); ++number) {
        try {
            pads.push_back(describe_pad(number));
        } catch (const LibraryError& error) {
            complete = false;
            std::cerr << "vxpadctl: pad " << number << ": " << error.what() << '\n';
        }
    }
    if (arguments.json) {
        print(results, pad_list_json(pads));
    } else if (!pads.empty()) {
        print(results, pad_table(pads));
    }

    const MissingPads missing = look_for_missing_pads(session);
    if (!missing.explanation.empty()) {
        std::cerr << "vxpadctl: " << missing.explanation << '\n';
    }
    return complete && missing.on_bus <= pads.size();
}

bool info(const Session& session, const Arguments& arguments, std::FILE* results) {
    expect_pad(session, arguments);
    const Pad pad = describe_pad(arguments.pad);
    const std::optional<SspFacts> ssp = ssp_facts(arguments.pad);
    print(results, arguments.json ? pad_info_json(pad, ssp) + "\n" : pad_details(pad, ssp));
    return true;
}

bool feature_get(const Session& session, const Arguments& arguments, std::FILE* results) {
    expect_interface(session, arguments);
    print_feature_report(arguments, results);
    return true;
}

bool feature_set(const Session& session, const Arguments& arguments, std::FILE* results) {
    expect_interface(session, arguments);
    const Bytes payload = payload_to_send(arguments);
    set_feature(arguments.pad, arguments.interface, payload);
    if (arguments.reply) {
        print_feature_report(arguments, results);
    } else {
        print_sent(arguments, payload.size(), results);
    }
    return true;
}

bool report_write(const Session& session, const Arguments& arguments, std::FILE* results) {
    expect_interface(session, arguments);
    const Bytes payload = payload_to_send(arguments);
    write_report(arguments.pad, arguments.interface, payload);
    print_sent(arguments, payload.size(), results);
    return true;
}

// The library takes what is waiting and never waits itself.
bool report_read(const Session& session, const Arguments& arguments, std::FILE* results) {
    expect_interface(session, arguments);
    const unsigned int size = input_report_size(arguments.pad);
    print_as_it_comes(
        arguments, std::chrono::milliseconds(arguments.wait), "input report",
        [&] { return take_report(arguments.pad, arguments.interface, size); }, results);
    return true;
}

} // namespace vxpadctl
