#include "commands.hpp"

#include "advice.hpp"
#include "library.hpp"
#include "pad_output.hpp"
#include "usb_bus.hpp"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iostream>
#include <thread>

namespace vxpadctl {

namespace {

using Clock = std::chrono::steady_clock;

void print(std::FILE* file, const std::string& text) {
    std::fputs(text.c_str(), file);
}

// Throws unless there is such a pad.
void expect_pad(const Session& session, unsigned pad) {
    const unsigned pads = session.pad_count();
    if (pad <= pads)
        return;
    const std::vector<UsbId> ids = searched_ids();
    const std::string reason = explain_missing_pads(pads, find_on_bus(ids), ids);
    throw std::runtime_error("there is no pad " + std::to_string(pad) +
                             (pads > 0 ? ", the last one is " + std::to_string(pads) : "") +
                             (reason.empty() ? "" : "\n" + reason));
}

void expect_interface(const Session& session, const Arguments& arguments) {
    expect_pad(session, arguments.pad);
    const unsigned interfaces = interface_count(arguments.pad);
    if (arguments.interface >= interfaces)
        throw std::runtime_error("there is no interface " + std::to_string(arguments.interface) + ": pad " +
                                 std::to_string(arguments.pad) + " has " + std::to_string(interfaces) +
                                 ", counted from 0");
}

bool list(const Session& session, const Arguments& arguments, std::FILE* results) {
    std::vector<Pad> pads;
    bool complete = true;
    for (unsigned number = 1; number <= session.pad_count(); ++number) {
        try {
            pads.push_back(describe_pad(number));
        } catch (const LibraryError& error) {
            complete = false;
            std::cerr << "vxpadctl: pad " << number << ": " << error.what() << '\n';
        }
    }
    if (arguments.json)
        print(results, pad_list_json(pads));
    else if (!pads.empty())
        print(results, pad_table(pads));

    const std::vector<UsbId> ids = searched_ids();
    const std::vector<BusDevice> on_bus = find_on_bus(ids);
    if (const std::string reason = explain_missing_pads(session.pad_count(), on_bus, ids); !reason.empty())
        std::cerr << "vxpadctl: " << reason << '\n';
    return complete && on_bus.size() <= pads.size();
}

bool info(const Session& session, const Arguments& arguments, std::FILE* results) {
    expect_pad(session, arguments.pad);
    const Pad pad = describe_pad(arguments.pad);
    print(results, arguments.json ? pad_json(pad) + "\n" : pad_details(pad));
    return true;
}

void print_feature_report(const Arguments& arguments, std::FILE* results) {
    const unsigned size = arguments.length.value_or(feature_report_size(arguments.pad, arguments.interface));
    print(results, hex_dump(get_feature(arguments.pad, arguments.interface, size)));
}

bool feature_get(const Session& session, const Arguments& arguments, std::FILE* results) {
    expect_interface(session, arguments);
    print_feature_report(arguments, results);
    return true;
}

Bytes payload_to_send(const Arguments& arguments) {
    Bytes payload = arguments.bytes;
    if (arguments.fill)
        payload.resize(std::max<std::size_t>(payload.size(), feature_report_size(arguments.pad, arguments.interface)));
    return payload;
}

void print_sent(const Arguments& arguments, std::size_t size, std::FILE* results) {
    print(results, std::to_string(size) + (size == 1 ? " byte" : " bytes") + " sent to interface " +
                       std::to_string(arguments.interface) + " of pad " + std::to_string(arguments.pad) + "\n");
}

bool feature_set(const Session& session, const Arguments& arguments, std::FILE* results) {
    expect_interface(session, arguments);
    const Bytes payload = payload_to_send(arguments);
    set_feature(arguments.pad, arguments.interface, payload);
    if (arguments.reply)
        print_feature_report(arguments, results);
    else
        print_sent(arguments, payload.size(), results);
    return true;
}

bool report_write(const Session& session, const Arguments& arguments, std::FILE* results) {
    expect_interface(session, arguments);
    const Bytes payload = payload_to_send(arguments);
    write_report(arguments.pad, arguments.interface, payload);
    print_sent(arguments, payload.size(), results);
    return true;
}

volatile std::sig_atomic_t interrupted = 0;

// Leaving in order gives the pad back to the system.
void leave_in_order_when_interrupted() {
    for (const int signal : {SIGINT, SIGTERM})
        std::signal(signal, [](int) { interrupted = 1; });
}

// The library takes what is waiting and never waits itself.
Bytes wait_for_report(const Arguments& arguments, unsigned size) {
    constexpr auto pause = std::chrono::milliseconds(2);
    const auto deadline = Clock::now() + std::chrono::milliseconds(arguments.wait);
    for (;;) {
        if (auto report = take_report(arguments.pad, arguments.interface, size))
            return *report;
        if (interrupted != 0)
            throw std::runtime_error("interrupted");
        if (Clock::now() >= deadline)
            throw std::runtime_error("no input report came within " + std::to_string(arguments.wait) + " ms");
        std::this_thread::sleep_for(pause);
    }
}

bool report_read(const Session& session, const Arguments& arguments, std::FILE* results) {
    expect_interface(session, arguments);
    const unsigned size = input_report_size(arguments.pad);
    leave_in_order_when_interrupted();
    for (unsigned i = 0; i < arguments.count; ++i) {
        const std::string dump = hex_dump(wait_for_report(arguments, size));
        print(results, (i > 0 ? "\n" : "") + dump);
        std::fflush(results);
    }
    return true;
}

} // namespace

bool run_command(const Arguments& arguments, std::FILE* results) {
    const Session session;
    switch (arguments.command) {
    case Command::list:
        return list(session, arguments, results);
    case Command::info:
        return info(session, arguments, results);
    case Command::feature_get:
        return feature_get(session, arguments, results);
    case Command::feature_set:
        return feature_set(session, arguments, results);
    case Command::report_read:
        return report_read(session, arguments, results);
    case Command::report_write:
        return report_write(session, arguments, results);
    case Command::help:
    case Command::version:
        break;
    }
    return true;
}

} // namespace vxpadctl
