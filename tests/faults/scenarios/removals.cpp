// Pads that are pulled out.
#include "scenarios/families.hpp"
#include "scenarios/steps.hpp"

#include <atomic>
#include <optional>
#include <span>

namespace faults {

namespace {

void pulled_hid(Run& run) {
    HidInterface& pad = plug_hid();
    expect_pads(run, 1);
    std::atomic<int> told = 0;
    run.plain("SetOnDeviceRemovedHandler", SetOnDeviceRemovedHandler(count_call, &told));
    bus().unplug(pad);
    run.expect_healthy(!set_feature(run, 1) && told == 1, "the loss is not told");
    run.expect_healthy(!get_feature(run, 1), "a pad that has gone answers");
    bus().plug_again(pad);
    expect_pads(run, 1);
    run.expect_healthy(set_feature(run, 1), "the pad does not answer again");
    stop(run);
}

void pulled_vcom(Run& run) {
    VcomPad pad;
    expect_pads(run, 1);
    std::atomic<int> told = 0;
    run.plain("SetOnDeviceRemovedHandler", SetOnDeviceRemovedHandler(count_call, &told));
    bus().unplug(*pad.device);
    run.expect_healthy(!get_feature(run, 1) && told == 1, "the loss is not told");
    send_message(run, 1, component_query);
    receive_message(run, 1);
    read_file(run, 1);
    bus().plug_again(*pad.device);
    expect_pads(run, 1);
    run.expect_healthy(set_feature(run, 1), "the pad does not answer again");
    stop(run);
}

void pulled_while_receiving(Run& run) {
    HidInterface& pad = plug_hid();
    expect_pads(run, 1);
    std::atomic<int> told = 0;
    std::atomic<int> count = 0;
    run.plain("SetOnDeviceRemovedHandler", SetOnDeviceRemovedHandler(count_call, &told));
    set_handler(run, 1, count_report, &count);
    if (enable(run, 1) == 0) {
        bus().unplug(pad);
        let_threads_work(run, [&] { return told > 0; });
        run.expect_healthy(told > 0, "the loss is not told");
    }
    stop(run);
}

void pulled_while_searching(Run& run) {
    HidInterface& pad = plug_hid();
    plug_hid(2);
    {
        const auto guard = bus().lock();
        bus().hooks.get_feature = [&pad, times = 0](HidInterface& asked, std::span<unsigned char>) mutable {
            if (&asked == &pad && ++times == 2) {
                bus().unplug(pad);
            }
            return std::optional<int>();
        };
    }
    start(run);
    set_feature(run, 2);
    bus().hooks.get_feature = {};
    stop(run);
}

void removed_callback_searches(Run& run) {
    HidInterface& pad = plug_hid();
    plug_hid(2);
    expect_pads(run, 2);
    run.plain("SetOnDeviceRemovedHandler",
              SetOnDeviceRemovedHandler([](void*, unsigned int) { Initialize(); }, nullptr));
    bus().unplug(pad);
    const bool first = set_feature(run, 1);
    unsigned int reply = 0;
    const int count = run.plain("GetDeviceCount", GetDeviceCount(&reply));
    run.expect_healthy(!first && count == 1, "the callback has not searched");
    set_feature(run, 1);
    stop(run);
}

constexpr Scenario scenarios_here[]{
    {"pulled-hid", pulled_hid},
    {"pulled-vcom", pulled_vcom},
    {"pulled-while-receiving", pulled_while_receiving},
    {"pulled-while-searching", pulled_while_searching},
    {"removed-callback-searches", removed_callback_searches},
};

} // namespace

std::span<const Scenario> removals() {
    return scenarios_here;
}

} // namespace faults
