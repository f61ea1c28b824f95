// Pen data as it comes, and uploads.
#include "scenarios/families.hpp"
#include "scenarios/steps.hpp"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <thread>
#include <vector>

namespace faults {

namespace {

void receive_hid(Run& run) {
    HidInterface& pad = plug_hid();
    for (const Bytes& report : reports()) {
        pad.input_reports.push_back(report);
    }
    expect_pads(run, 1);
    run.expect_healthy(receive(run, 1), "not all reports are received");
}

void receive_vcom(Run& run) {
    VcomPad pad(10, 0, 64);
    expect_pads(run, 1);
    pad.model.replace = [done = false](const Bytes& message) mutable -> std::optional<std::vector<Bytes>> {
        if (message == base(1, {0x11, 1, 0}) && !std::exchange(done, true)) {
            return std::vector<Bytes>{base(1, {0x11, 1}), pen(Bytes(64, 7)), pen(Bytes(64, 7)), pen(Bytes(64, 7))};
        }
        return std::nullopt;
    };
    run.expect_healthy(receive(run, 1), "not all reports are received");
}

void receive_without_handler(Run& run) {
    HidInterface& pad = plug_hid();
    for (const Bytes& report : reports()) {
        pad.input_reports.push_back(report);
    }
    expect_pads(run, 1);
    unsigned int packets = 0;
    if (enable(run, 1) == 0) {
        let_threads_work(run, [&] {
            const Truce truce;
            GetDataPacketsAvailable(1, 0, &packets);
            return packets == 3;
        });
    }
    run.expect_healthy(packets == 3, "not all reports are received");
    run.api("GetDataPacketsAvailable", GetDataPacketsAvailable(1, 0, &packets), {VXPCEC_INVALID_PARAMETER});
    run.api("FlushDataPackets", FlushDataPackets(1, 0), {VXPCEC_INVALID_PARAMETER});
    enable(run, 1, false);
    stop(run);
}

void receive_from_two(Run& run) {
    HidInterface& first = plug_hid();
    HidInterface& second = plug_hid(2);
    for (const Bytes& report : reports()) {
        first.input_reports.push_back(report);
        second.input_reports.push_back(report);
    }
    expect_pads(run, 2);
    std::atomic<int> count = 0;
    bool all = true;
    for (const unsigned int device : {1U, 2U}) {
        all = set_handler(run, device, count_report, &count) == 0 && enable(run, device) == 0 && all;
    }
    if (all) {
        let_threads_work(
            run, [&] { return count >= 6; }, 120);
    }
    run.expect_healthy(count == 6, "not all reports are received");
    set_feature(run, 1);
    stop(run);
}

void receiving_restarted(Run& run) {
    HidInterface& pad = plug_hid();
    for (const Bytes& report : reports()) {
        pad.input_reports.push_back(report);
    }
    expect_pads(run, 1);
    std::atomic<int> count = 0;
    std::atomic<int> other = 0;
    set_handler(run, 1, count_report, &count);
    enable(run, 1);
    enable(run, 1);
    set_handler(run, 1, count_report, &other);
    const int enabled = enable(run, 1);
    if (enabled == 0) {
        let_threads_work(
            run,
            [&] {
                const auto guard = bus().lock();
                return pad.input_reports.empty();
            },
            10);
    }
    run.expect_healthy(enabled == 0, "receiving does not start again");
    stop(run);
}

void stop_while_receiving(Run& run) {
    plug_hid();
    const VcomPad pad(10, 0, 64);
    expect_pads(run, 2);
    std::atomic<int> count = 0;
    set_handler(run, 1, count_report, &count);
    set_handler(run, 2, count_report, &count);
    enable(run, 1);
    enable(run, 2);
    stop(run);
}

void start_while_receiving(Run& run) {
    plug_hid();
    expect_pads(run, 1);
    std::atomic<int> count = 0;
    set_handler(run, 1, count_report, &count);
    enable(run, 1);
    expect_pads(run, 1);
    run.expect_healthy(set_feature(run, 1), "the pad does not answer");
    stop(run);
}

void upload_hid(Run& run) {
    plug_hid();
    expect_pads(run, 1);
    run.expect_healthy(upload(run, 1, 1), "not everything is sent");
    stop(run);
}

void upload_over_two(Run& run) {
    plug_hid();
    plug_further();
    expect_pads(run, 1);
    run.expect_healthy(upload(run, 1, 3), "not everything is sent");
    stop(run);
}

void upload_vcom(Run& run) {
    const VcomPad pad;
    expect_pads(run, 1);
    run.expect_healthy(upload(run, 1, 1), "not everything is sent");
    stop(run);
}

void stop_while_uploading(Run& run) {
    plug_hid();
    expect_pads(run, 1);
    std::atomic<bool> over = false;
    {
        const auto guard = bus().lock();
        // As soon as the first piece is under way the application ends the library.
        bus().hooks.send_feature = [&](HidInterface&, std::span<const unsigned char> report) {
            if (report[1] == 3) {
                for (int i = 0; i < 20 && !over; ++i) {
                    std::this_thread::sleep_for(std::chrono::microseconds(50));
                }
            }
            return std::optional<int>();
        };
    }
    std::thread uploading([&] {
        const Bytes pieces(std::size_t{65} * 6, 3);
        unsigned int reply = 0;
        WriteFileBuffer(1, 1, pieces.data(), static_cast<unsigned int>(pieces.size()), &reply);
    });
    stop(run);
    over = true;
    uploading.join();
}

constexpr Scenario scenarios_here[]{
    {"receive-hid", receive_hid},
    {"receive-vcom", receive_vcom},
    {"receive-without-handler", receive_without_handler},
    {"receive-from-two", receive_from_two},
    {"receive-restarted", receiving_restarted},
    {"stop-while-receiving", stop_while_receiving},
    {"start-while-receiving", start_while_receiving},
    {"upload-hid", upload_hid},
    {"upload-two-interfaces", upload_over_two},
    {"upload-vcom", upload_vcom},
    {"stop-while-uploading", stop_while_uploading},
};

} // namespace

std::span<const Scenario> receiving() {
    return scenarios_here;
}

} // namespace faults
