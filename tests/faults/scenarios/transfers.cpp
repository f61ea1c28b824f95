// What pads tell of themselves, and single reports.
#include "scenarios/families.hpp"
#include "scenarios/steps.hpp"

#include <array>

namespace faults {

namespace {

void facts_hid(Run& run) {
    plug_hid();
    expect_pads(run, 1);
    ask_facts(run);
    stop(run);
}

void facts_vcom(Run& run) {
    const VcomPad pad;
    expect_pads(run, 1);
    ask_facts(run);
    stop(run);
}

void features_hid(Run& run) {
    plug_hid();
    expect_pads(run, 1);
    run.expect_healthy(set_feature(run, 1) && get_feature(run, 1), "the report does not come back");
    stop(run);
}

void features_vcom(Run& run) {
    const VcomPad pad;
    expect_pads(run, 1);
    run.expect_healthy(set_feature(run, 1) && get_feature(run, 1), "the report does not come back");
    stop(run);
}

void output_hid(Run& run) {
    plug_hid();
    expect_pads(run, 1);
    run.expect_healthy(write_file(run, 1), "the report is not sent");
    stop(run);
}

void output_vcom(Run& run) {
    const VcomPad pad;
    expect_pads(run, 1);
    run.expect_healthy(write_file(run, 1), "the report is not sent");
    stop(run);
}

void input_hid(Run& run) {
    HidInterface& pad = plug_hid();
    for (const Bytes& report : reports()) {
        pad.input_reports.push_back(report);
    }
    expect_pads(run, 1);
    run.expect_healthy(read_file(run, 1) && read_file(run, 1) && read_file(run, 1) && !read_file(run, 1),
                       "the reports are not read");
    stop(run);
}

void input_vcom(Run& run) {
    VcomPad pad;
    expect_pads(run, 1);
    for (const Bytes& report : reports()) {
        pad.bring(pen(report));
    }
    run.expect_healthy(read_file(run, 1) && read_file(run, 1) && read_file(run, 1) && !read_file(run, 1),
                       "the reports are not read");
    stop(run);
}

void further_interface(Run& run) {
    plug_hid();
    plug_further();
    expect_pads(run, 1);
    run.expect_healthy(set_feature(run, 1, 1) && get_feature(run, 1, 1) && set_feature(run, 1), "no report comes back");
    run.api("SetFeature", SetFeature(1, 2, "\0\1", 2, nullptr), {VXPCEC_INVALID_PARAMETER});
    set_feature(run, 1, 2);
    stop(run);
}

void switching(Run& run) {
    plug_hid();
    plug_hid(2);
    const VcomPad third;
    expect_pads(run, 3);
    bool all = true;
    for (const unsigned int device : {1U, 3U, 2U, 3U, 1U}) {
        all = set_feature(run, device) && get_feature(run, device) && all;
    }
    run.expect_healthy(all, "a pad does not answer");
    stop(run);
}

void long_reports(Run& run) {
    HidInterface& pad = plug_hid();
    expect_pads(run, 1);
    pad.feature_replies.push_back(Bytes(300, 9));
    std::array<unsigned char, 301> report{};
    unsigned int reply = 0;
    const int got = run.api("GetFeature", GetFeature(1, 0, report.data(), 301, &reply));
    run.expect_healthy(got == 0 && reply == 301, "the report is not read");
    run.api("SetFeature", SetFeature(1, 0, report.data(), 301, &reply));
    stop(run);
}

constexpr Scenario scenarios_here[]{
    {"facts-hid", facts_hid},        {"facts-vcom", facts_vcom},
    {"features-hid", features_hid},  {"features-vcom", features_vcom},
    {"features-long", long_reports}, {"features-further-interface", further_interface},
    {"output-hid", output_hid},      {"output-vcom", output_vcom},
    {"input-hid", input_hid},        {"input-vcom", input_vcom},
    {"switching", switching},
};

} // namespace

std::span<const Scenario> transfers() {
    return scenarios_here;
}

} // namespace faults
