// Searches, starts and stops.
#include "scenarios/families.hpp"
#include "scenarios/steps.hpp"

#include <cstddef>
#include <initializer_list>
#include <string>

namespace faults {

namespace {

void start_without_pads(Run& run) {
    expect_pads(run, 0);
    stop(run);
    stop(run);
}

void start_hid(Run& run) {
    plug_hid();
    expect_pads(run, 1);
    stop(run);
}

void start_vcom(Run& run) {
    const VcomPad pad;
    expect_pads(run, 1);
    stop(run);
}

void search_many(Run& run) {
    plug_hid();
    plug_further();
    plug_hid(2);
    const VcomPad third;
    const VcomPad fourth(10, 1);
    expect_pads(run, 4);
    unsigned int device = 0;
    unsigned int seen = 0;
    run.plain("EnumerateDevicesStart", EnumerateDevicesStart(&device));
    while (device != 0 && seen < 16) {
        ++seen;
        run.plain("EnumerateDevicesNext", EnumerateDevicesNext(&device));
    }
    run.expect_healthy(seen == 4, "not all pads are gone through");
    stop(run);
}

void enumerate_searches(Run& run) {
    expect_pads(run, 0);
    plug_hid();
    unsigned int device = 0;
    run.plain("EnumerateDevicesStart", EnumerateDevicesStart(&device));
    run.expect_healthy(device == 1, "the pad is not found");
    stop(run);
}

void second_start_hid(Run& run) {
    HidInterface& former = plug_hid();
    expect_pads(run, 1);
    bus().unplug(former);
    plug_hid(2);
    plug_hid(3);
    expect_pads(run, 2);
    run.expect_healthy(get_feature(run, 2) || set_feature(run, 2), "the new pad does not answer");
    stop(run);
}

void second_start_vcom(Run& run) {
    const VcomPad pad;
    expect_pads(run, 1);
    set_feature(run, 1);
    expect_pads(run, 1);
    run.expect_healthy(set_feature(run, 1) && get_feature(run, 1), "the pad does not answer");
    stop(run);
}

void start_with_unknown_device(Run& run) {
    HidInterface stranger = pad_of_type(9);
    stranger.serial_number.clear();
    stranger.manufacturer.clear();
    bus().plug(stranger);
    for (const std::size_t which : {std::size_t{0}, std::size_t{1}, std::size_t{2}}) {
        UsbDevice without = vcom_pad("usb" + std::to_string(which), which);
        without.configurations = {};
        bus().plug(without);
    }
    expect_pads(run, 1);
    stop(run);
}

void start_with_left_over_answer(Run& run) {
    VcomPad pad;
    pad.bring(core_test::legacy(Bytes(64, 1)));
    pad.bring(base(1, {0x10, 1, 2}));
    expect_pads(run, 1);
    stop(run);
}

void calls_before_the_start(Run& run) {
    const std::initializer_list<int> not_started{VXPCEC_INVALID_PARAMETER};
    set_feature(run, 1);
    receive_message(run, 1);
    unsigned int packets = 0;
    run.api("GetDataPacketsAvailable", GetDataPacketsAvailable(1, 0, &packets), not_started);
    run.api("FlushDataPackets", FlushDataPackets(1, 0), not_started);
    set_handler(run, 1, count_report, nullptr);
    enable(run, 1);
    upload(run, 1, 1);
    run.plain("SetOnDeviceRemovedHandler", SetOnDeviceRemovedHandler(ignore_removal, nullptr));
    stop(run);
}

constexpr Scenario scenarios_here[]{
    {"start-without-pads", start_without_pads},
    {"start-hid", start_hid},
    {"start-vcom", start_vcom},
    {"start-unknown-device", start_with_unknown_device},
    {"start-left-over-answer", start_with_left_over_answer},
    {"search-many", search_many},
    {"search-by-enumerating", enumerate_searches},
    {"second-start-hid", second_start_hid},
    {"second-start-vcom", second_start_vcom},
    {"calls-before-start", calls_before_the_start},
};

} // namespace

std::span<const Scenario> starts() {
    return scenarios_here;
}

} // namespace faults
