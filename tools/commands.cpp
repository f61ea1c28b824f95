#include "commands.hpp"

#include "chosen_pad.hpp"
#include "pad_output.hpp"
#include "pen_commands.hpp"
#include "printing.hpp"
#include "ssp_commands.hpp"
#include "upload_command.hpp"

#include <algorithm>
#include <array>
#include <iostream>

namespace vxpadctl {

namespace {

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

void print_feature_report(const Arguments& arguments, std::FILE* results) {
    const unsigned int size = arguments.length.value_or(feature_report_size(arguments.pad, arguments.interface));
    print(results, hex_dump(get_feature(arguments.pad, arguments.interface, size)));
}

bool feature_get(const Session& session, const Arguments& arguments, std::FILE* results) {
    expect_interface(session, arguments);
    print_feature_report(arguments, results);
    return true;
}

Bytes payload_to_send(const Arguments& arguments) {
    Bytes payload = arguments.bytes;
    if (arguments.fill) {
        payload.resize(std::max<std::size_t>(payload.size(), feature_report_size(arguments.pad, arguments.interface)));
    }
    return payload;
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

struct Entry {
    Command command;
    bool (*run)(const Session& session, const Arguments& arguments, std::FILE* results);
};

constexpr std::array<Entry, 20> entries{{
    {Command::list, list},
    {Command::info, info},
    {Command::feature_get, feature_get},
    {Command::feature_set, feature_set},
    {Command::report_read, report_read},
    {Command::report_write, report_write},
    {Command::ssp_send, ssp_send},
    {Command::ssp_receive, ssp_receive},
    {Command::ssp_components, ssp_components},
    {Command::ssp_modes, ssp_modes},
    {Command::ssp_description, ssp_description},
    {Command::ssp_connection, ssp_connection},
    {Command::config_set, config_set},
    {Command::config_persist, config_persist},
    {Command::config_state, config_state},
    {Command::button_input, button_input},
    {Command::button_event, button_event},
    {Command::button_set, button_set},
    {Command::button_refresh, button_refresh},
    {Command::upload, upload},
}};

// These see to a session themselves.
struct OwnSessionEntry {
    Command command;
    bool (*run)(const Arguments& arguments, std::FILE* results);
};

constexpr std::array<OwnSessionEntry, 4> own_session_entries{{
    {Command::monitor, monitor},
    {Command::record, record},
    {Command::replay, replay},
    {Command::plot, plot},
}};

} // namespace

bool run_command(const Arguments& arguments, std::FILE* results) {
    const auto own = std::ranges::find(own_session_entries, arguments.command, &OwnSessionEntry::command);
    if (own != own_session_entries.end()) {
        return own->run(arguments, results);
    }
    const Session session;
    const auto entry = std::ranges::find(entries, arguments.command, &Entry::command);
    return entry == entries.end() || entry->run(session, arguments, results);
}

} // namespace vxpadctl
