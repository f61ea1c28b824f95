#include "scenario.hpp"

#include "calls.hpp"
#include "captures.hpp"
#include "receive_test.hpp"
#include "ssp_test.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace faults {

using core_test::base;
using core_test::described_as;
using core_test::framed;
using core_test::OpenHidSspRecord;
using core_test::OpenRecord;
using core_test::OpenVcomRecord;
using core_test::pen;
using core_test::SspPad;
using core_test::unframed;
using standins::bus;
using standins::Bytes;
using standins::EnvironmentGuard;
using standins::HidInterface;
using standins::LogCapture;
using standins::pad_of_type;
using standins::UsbDevice;
using standins::vcom_pad;

namespace {

// ---- pads

HidInterface& plug_hid(unsigned int number = 1) {
    const std::string port = "1-" + std::to_string(number);
    return bus().plug(pad_of_type(9, port + ":1.0", 0, L"SN000" + std::to_wstring(number)));
}
HidInterface& plug_further(unsigned int number = 1) {
    return bus().plug(pad_of_type(9, "1-" + std::to_string(number) + ":1.1", 1, L"SN000" + std::to_wstring(number)));
}

// A VCOM pad and what answers for it.
struct VcomPad {
    explicit VcomPad(unsigned int pad_type = 16, std::size_t which = 0, std::uint16_t packet = 512)
        : model{described_as(pad_type)} {
        UsbDevice plugged = vcom_pad("usb" + std::to_string(which + 1), which);
        plugged.configurations = {{{{{0x81, packet}, {0x01, 64}}}}};
        model.serial_number += std::to_string(which);
        device = &bus().plug(std::move(plugged));
        device->answer = [this](UsbDevice& asked, const Bytes& sent) {
            const auto guard = bus().lock();
            const Bytes message = unframed(sent);
            if (message.size() < ((message.empty() || (message[0] & 0x80) != 0) ? 2U : 4U)) {
                return;
            }
            for (const Bytes& reply : model.answer(message)) {
                asked.incoming.push_back(framed(reply));
            }
        };
    }
    ~VcomPad() {
        const auto guard = bus().lock();
        device->answer = {};
    }
    VcomPad(const VcomPad&) = delete;
    VcomPad& operator=(const VcomPad&) = delete;

    void bring(const Bytes& message) {
        const auto guard = bus().lock();
        device->incoming.push_back(framed(message));
    }

    SspPad model;
    UsbDevice* device;
};

// ---- steps

int start(Run& run) {
    run.plain("Initialize", Initialize());
    unsigned int reply = 0;
    return run.plain("GetDeviceCount", GetDeviceCount(&reply));
}

void stop(Run& run) {
    run.plain("Deinitialize", Deinitialize());
}

void expect_pads(Run& run, int count) {
    run.expect_healthy(start(run) == count, "not all pads are found");
}

bool set_feature(Run& run, unsigned int device, unsigned int interface = 0) {
    const std::array<unsigned char, 65> report{0, 9, 8, 7};
    unsigned int reply = 0;
    return run.api("SetFeature", SetFeature(device, interface, report.data(), 65, &reply)) == 0 && reply == 65;
}

bool get_feature(Run& run, unsigned int device, unsigned int interface = 0) {
    std::array<unsigned char, 65> report{};
    unsigned int reply = 0;
    return run.api("GetFeature", GetFeature(device, interface, report.data(), 65, &reply)) == 0 && reply == 65 &&
           report[1] == 9;
}

bool write_file(Run& run, unsigned int device) {
    const std::array<unsigned char, 65> report{0, 5};
    unsigned int reply = 0;
    return run.api("WriteFile", WriteFile(device, 0, report.data(), 65, &reply)) == 0 && reply == 65;
}

bool read_file(Run& run, unsigned int device) {
    std::array<unsigned char, 65> report{};
    unsigned int reply = 0;
    return run.api("ReadFile", ReadFile(device, 0, report.data(), 65, &reply)) == 0 && reply == 65 && report[1] == 7;
}

bool send_message(Run& run, unsigned int device, const Bytes& message) {
    return run.api("SendSspMessage",
                   SendSspMessage(device, 0, message.data(), static_cast<unsigned int>(message.size()))) == 0;
}

unsigned int receive_message(Run& run, unsigned int device, unsigned int time_out = 200) {
    std::array<unsigned char, 256> message{};
    unsigned int reply = 0;
    const int result =
        run.api("ReceiveSspMessage", ReceiveSspMessage(device, 0, message.data(), message.size(), time_out, &reply));
    return result == 0 ? reply : 0;
}

const Bytes component_query{0, 0, 0, 0x10};

void ignore_removal(void*, unsigned int) {}

void count_call(void* counter, unsigned int) {
    ++*static_cast<std::atomic<int>*>(counter);
}

void count_report(void* counter, unsigned int, unsigned int, const void*, unsigned int) {
    ++*static_cast<std::atomic<int>*>(counter);
}

// Until it comes true. Where something has failed it need not, once the library's threads have had their time.
void let_threads_work(const Run& run, const std::function<bool()>& done, unsigned int for_naps = 40) {
    const unsigned int first = naps();
    const std::chrono::milliseconds longest{run.is_healthy() ? 10'000 : 200};
    const auto end = std::chrono::steady_clock::now() + longest;
    while (!done() && (run.is_healthy() || naps() - first < for_naps) && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
}

int set_handler(Run& run, unsigned int device, vxpad_data_callback callback, void* user_specific) {
    return run.api("SetOnDataReceivedHandler", SetOnDataReceivedHandler(device, 0, callback, user_specific),
                   {VXPCEC_INVALID_PARAMETER});
}

int enable(Run& run, unsigned int device, bool enabled = true) {
    return run.receiving(SetDataReceivingEnabled(device, 0, enabled ? 1 : 0));
}

// Receives what the pad has.
bool receive(Run& run, unsigned int device, int wanted = 3) {
    std::atomic<int> count = 0;
    const int handler = set_handler(run, device, count_report, &count);
    if (const int enabled = enable(run, device); enabled == 0 && handler == 0) {
        let_threads_work(run, [&] { return count >= wanted; });
    }
    enable(run, device, false);
    set_handler(run, device, nullptr, nullptr);
    const bool complete = count == wanted;
    stop(run); // the count is ours
    return complete;
}

std::vector<Bytes> reports() {
    return std::vector<Bytes>(3, Bytes(64, 7));
}

bool upload(Run& run, unsigned int device, unsigned int mask) {
    const Bytes pieces(std::size_t{65} * 6, 3);
    unsigned int reply = 0;
    const int result = run.api("WriteFileBuffer", WriteFileBuffer(device, mask, pieces.data(),
                                                                  static_cast<unsigned int>(pieces.size()), &reply));
    run.expect(reply <= pieces.size(), "WriteFileBuffer has sent more than there is");
    return result == 0 && reply == pieces.size();
}

// The position that an upload leaves behind is gone when one has come to its end.
void end_uploads() {
    const Bytes one(std::size_t{65} * 6, 3);
    unsigned int reply = 0;
    WriteFileBuffer(1, 1, one.data(), static_cast<unsigned int>(one.size()), &reply);
}

bool text_of(Run& run, const char* function, int (*get)(unsigned int, char16_t*, int, unsigned int*)) {
    std::array<char16_t, 64> text{};
    unsigned int reply = 0;
    return run.api(function, get(1, text.data(), 64, &reply)) == 0 && reply > 0;
}

bool number_of(Run& run, const char* function, int (*get)(unsigned int, unsigned int*)) {
    unsigned int reply = 0;
    return run.api(function, get(1, &reply)) == 0;
}

void ask_facts(Run& run) {
    bool all = text_of(run, "GetSerialNumber", GetSerialNumber) && text_of(run, "GetVendorName", GetVendorName);
    std::array<char16_t, 64> text{};
    unsigned int reply = 0;
    all = run.api("GetProductName", GetProductName(1, 0, text.data(), 64, &reply)) == 0 && all;
    all = run.api("GetProductId", GetProductId(1, 0, &reply)) == 0 && all;
    all = run.api("GetFeatureReportSize", GetFeatureReportSize(1, 0, &reply)) == 0 && reply == 65 && all;
    all = number_of(run, "GetVendorId", GetVendorId) && all;
    all = number_of(run, "GetUsbVersion", GetUsbVersion) && all;
    all = number_of(run, "GetUsedTransportProtocol", GetUsedTransportProtocol) && all;
    all = number_of(run, "GetBytesToSend", GetBytesToSend) && all;
    all = number_of(run, "GetEndPointCount", GetEndPointCount) && all;
    all = run.api("SetUsedTransportProtocol", SetUsedTransportProtocol(1, 1)) == 0 && all;
    run.expect_healthy(all, "a fact is missing");
}

// A pad of the test's own, as the search would leave it, for the building blocks.
template <typename Use> void with_vcom_record(Use use) {
    VcomPad pad;
    OpenVcomRecord record(*pad.device, 16);
    use(record.get(), pad);
}

template <typename Use> void with_hid_record(unsigned int type, Use use) {
    HidInterface& pad = bus().plug(pad_of_type(type));
    OpenRecord record(pad, type);
    use(record.get(), pad);
}

// ---- the scenarios

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

void round_trip_hid(Run& run) {
    SspPad model = described_as(9);
    model.attach(plug_hid());
    expect_pads(run, 1);
    run.expect_healthy(send_message(run, 1, component_query) && receive_message(run, 1) > 0, "no answer comes");
    bus().hooks.send_feature = {};
    stop(run);
}

void round_trip_vcom(Run& run) {
    const VcomPad pad;
    expect_pads(run, 1);
    run.expect_healthy(send_message(run, 1, component_query) && receive_message(run, 1) > 0, "no answer comes");
    stop(run);
}

void answer_never_comes(Run& run) {
    VcomPad pad;
    plug_hid();
    expect_pads(run, 2);
    run.expect_healthy(receive_message(run, 1, 30) == 0 && receive_message(run, 2, 30) == 0, "something came");
    stop(run);
}

void answer_in_pieces(Run& run) {
    VcomPad pad;
    expect_pads(run, 1);
    const Bytes stream = framed(base(1, Bytes(150, 0x55)));
    {
        const auto guard = bus().lock();
        for (std::size_t at = 0; at < stream.size(); at += 30) {
            pad.device->incoming.push_back(core_test::part(stream, at, 30));
        }
    }
    run.expect_healthy(receive_message(run, 1) == 153, "the message is not whole");
    stop(run);
}

void answers_among_pen_data(Run& run) {
    VcomPad pad;
    expect_pads(run, 1);
    for (const Bytes& report : reports()) {
        pad.bring(pen(report));
    }
    pad.bring(base(1, {0x10, 1, 2}));
    pad.bring(pen(Bytes(64, 7)));
    run.expect_healthy(receive_message(run, 1) > 0, "no message comes");
    run.expect_healthy(read_file(run, 1), "no report comes");
    stop(run);
}

void answer_cut_at_the_end(Run& run) {
    VcomPad pad;
    expect_pads(run, 1);
    {
        const auto guard = bus().lock();
        pad.device->incoming.push_back(core_test::part(framed(base(1, Bytes(60, 1))), 0, 20));
    }
    run.expect_healthy(receive_message(run, 1) == 0, "half a message came");
    pad.bring(base(1, {0x10, 1, 2}));
    receive_message(run, 1);
    stop(run);
}

void components_vcom(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad&) {
        run.core("ssp_common_is_ssp_supported", ssp_common_is_ssp_supported(device));
        run.core("ssp_common_components_id_initialize_table", ssp_common_components_id_initialize_table(device));
        const int id = run.core("ssp_common_component_id_get_id", ssp_common_component_id_get_id(device, 11));
        run.expect_healthy(id == 1, "the component is not found");
    });
}

void components_hid(Run& run) {
    HidInterface& pad = bus().plug(pad_of_type(16));
    SspPad model = described_as(16);
    model.attach(pad);
    OpenHidSspRecord record(pad, 16);
    run.core("ssp_common_components_id_initialize_table", ssp_common_components_id_initialize_table(record.get()));
    const int id = run.core("ssp_common_component_id_get_id", ssp_common_component_id_get_id(record.get(), 3));
    run.expect_healthy(id == 2, "the component is not found");
    run.core("ssp_common_get_conf_state", ssp_common_get_conf_state(record.get()));
}

void description(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad& pad) {
        const int got = run.core("ssp_common_get_pad_description", ssp_common_get_pad_description(device));
        run.expect_healthy(got == 0 && device->serial_number == pad.model.serial_number, "no description comes");
    });
}

void connection_type(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad& pad) {
        pad.model.components = {5, 11, 3, 1, 4};
        run.core("ssp_common_ct_communication_get_current_connection",
                 ssp_common_ct_communication_get_current_connection(device));
        run.core("ssp_common_ct_communication_set_current_connection",
                 ssp_common_ct_communication_set_current_connection(device, 1));
    });
}

void modes(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad&) {
        run.core("ssp_common_ct_signpad_initialize_modes_id_table",
                 ssp_common_ct_signpad_initialize_modes_id_table(device));
        const int id = run.core("ssp_common_ct_signpad_get_mode_id", ssp_common_ct_signpad_get_mode_id(device, 6));
        run.expect_healthy(id == 3, "the mode is not found");
    });
}

void buttons(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad&) {
        const int pressed = run.core("ssp_common_get_button_event", ssp_common_get_button_event(device, 5));
        run.expect_healthy(pressed == 0x77, "the button is not told");
        run.core("ssp_common_get_user_input", ssp_common_get_user_input(device));
    });
}

void set_variable(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad&) {
        const int set = run.core("ssp_common_set_configuration_variable",
                                 ssp_common_set_configuration_variable(device, "key", "value"));
        run.expect_healthy(set == 0, "the variable is not set");
    });
}

void persist_variable(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad&) {
        const int persisted = run.core("ssp_common_persist_configuration_variable",
                                       ssp_common_persist_configuration_variable(device, "key"));
        run.expect_healthy(persisted == 0, "the variable is not persisted");
    });
}

void wait_for_handler(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad& pad) {
        pad.model.replace = [queries = 0](const Bytes& message) mutable -> std::optional<std::vector<Bytes>> {
            if (message != base(2, {0x10})) {
                return std::nullopt;
            }
            return std::vector<Bytes>{base(2, {0x10, 1, static_cast<unsigned char>(++queries < 3 ? 2 : 3)})};
        };
        const int state =
            run.core("ssp_common_check_configuration_state", ssp_common_check_configuration_state(device));
        run.expect_healthy(state == 3, "the handler is not waited for");
    });
}

void button_states(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad&) {
        run.core("ssp_common_set_button_state", ssp_common_set_button_state(device, 1, 0, 1, 5));
        run.core("ssp_common_doc_view_buttons_refresh", ssp_common_doc_view_buttons_refresh(device));
        run.core("ssp_common_signature_buttons_refresh", ssp_common_signature_buttons_refresh(device));
        run.core("ssp_common_doc_sign_buttons_refresh", ssp_common_doc_sign_buttons_refresh(device));
    });
}

void pen_data_switch(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad&) {
        const int on = run.core("core_ssp_biodata_sending", core_ssp_biodata_sending(device, 1));
        const int off = run.core("core_ssp_biodata_sending", core_ssp_biodata_sending(device, 0));
        run.expect_healthy(on >= 0 && off >= 0, "pen data is not switched");
    });
}

void ask_legacy(Run& run, vx_device* device) {
    dev_fw_version version{};
    flags_status status{};
    run.core("core_read_version", core_read_version(device, &version));
    run.core("__core_get_status", __core_get_status(device, &status));
    run.core("core_set_pad_mode", core_set_pad_mode(device, 2, 0));
    run.core("__core_get_pad_mode", __core_get_pad_mode(device));
    run.core("core_create_signature_rectangle", core_create_signature_rectangle(device, 1, 2, 3, 4, 5));
}

void legacy_hid(Run& run) {
    with_hid_record(9, [&](vx_device* device, HidInterface& pad) {
        ask_legacy(run, device);
        run.expect_healthy(pad.mode == 2, "the mode is not set");
    });
}

void legacy_vcom(Run& run) {
    with_vcom_record([&](vx_device* device, VcomPad& pad) {
        ask_legacy(run, device);
        run.expect_healthy(pad.model.mode == 2, "the mode is not set");
    });
}

void mode_type_8(Run& run) {
    with_hid_record(8, [&](vx_device* device, HidInterface& pad) {
        run.core("core_set_pad_mode", core_set_pad_mode(device, 2, 1));
        run.expect_healthy(pad.mode == 2, "the mode is not set");
    });
}

void reports_of_a_record(Run& run) {
    with_hid_record(9, [&](vx_device* device, HidInterface& pad) {
        Bytes report(64, 4);
        run.core("core_feature_write", core_feature_write(device, report.data(), 64));
        run.core("core_output_write", core_output_write(device, report.data(), 64));
        pad.input_reports.push_back(report);
        const int read = run.core("core_input_read", core_input_read(device, report.data(), 64));
        run.expect_healthy(read == 64, "the report is not read");
    });
}

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

void with_logging_callback(Run& run) {
    plug_hid();
    const VcomPad second;
    expect_pads(run, 2);
    {
        const LogCapture log;
        run.expect_healthy(set_feature(run, 1) && write_file(run, 2), "a pad does not answer");
        start(run);
    }
    stop(run);
}

void with_trace_lines(Run& run) {
    const EnvironmentGuard information("LIBVXPADCOM_DEBUG", "1");
    const EnvironmentGuard functions("LIBVXPADCOM_DEBUG_FUNC", "1");
    const EnvironmentGuard locks("LIBVXPADCOM_DEBUG_MUTEX", "1");
    plug_hid();
    start(run);
    stop(run);
}

void records_and_texts(Run& run) {
    plug_hid();
    expect_pads(run, 1);
    std::array<char16_t, 64> text{};
    unsigned int reply = 0;
    const int handle = GetFeature(9, 0, text.data(), 65, &reply);
    run.api("GetFeature", handle);
    const auto number = static_cast<unsigned int>(handle);
    for (const auto& [function, get] : std::initializer_list<std::pair<const char*, decltype(&GetExceptionName)>>{
             {"GetExceptionType", GetExceptionType},
             {"GetExceptionName", GetExceptionName},
             {"GetExceptionMessage", GetExceptionMessage},
             {"TranslateErrorCode", TranslateErrorCode}}) {
        run.api(function, get(number, text.data(), 64, &reply), {VXPCEC_UNKNOWN});
    }
    run.api("GetExceptionCode", GetExceptionCode(number, &reply), {VXPCEC_UNKNOWN});
    run.api("GetExceptionCode", GetExceptionCode(62, &reply), {VXPCEC_UNKNOWN});
    run.api("SayHello", SayHello(u"hello", text.data(), 64, &reply), {VXPCEC_INVALID_PARAMETER});
    stop(run);
}

void wrong_arguments(Run& run) {
    plug_hid();
    expect_pads(run, 1);
    const std::initializer_list<int> wrong{VXPCEC_INVALID_PARAMETER};
    std::array<unsigned char, 65> report{};
    unsigned int reply = 0;
    run.api("SetFeature", SetFeature(1, 0, nullptr, 65, &reply), wrong);
    run.api("GetFeature", GetFeature(1, 0, report.data(), 1, &reply), wrong);
    run.api("WriteFile", WriteFile(1, 0, report.data(), 65, nullptr), wrong);
    run.api("ReadFile", ReadFile(1, 0, nullptr, 65, &reply), wrong);
    run.api("WriteFileBuffer", WriteFileBuffer(1, 1, nullptr, 65, &reply), wrong);
    run.api("SendSspMessage", SendSspMessage(1, 0, nullptr, 4), wrong);
    run.api("ReceiveSspMessage", ReceiveSspMessage(1, 0, nullptr, 4, 10, &reply), wrong);
    run.api("GetSerialNumber", GetSerialNumber(1, nullptr, 4, &reply), wrong);
    run.api("SetOnDataReceivedHandler", SetOnDataReceivedHandler(99, 0, nullptr, nullptr));
    run.api("GetFeature", GetFeature(99, 0, report.data(), 65, &reply));
    run.api("GetFeature", GetFeature(1, 77, report.data(), 65, &reply));
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

void files(Run& run) {
    std::array<char, 32> name{"/tmp/vxpad-faults-XXXXXX"};
    const int made = mkstemp(name.data());
    run.expect(made >= 0, "no file can be made here");
    close(made);
    const Bytes content(5000, 1);
    const long saved = save_file(name.data(), content.data(), 5000);
    run.plain("save_file", static_cast<int>(saved));
    run.expect(saved == 5000 || saved == -1, "save_file returns something else");
    unsigned int size = 0;
    unsigned char* const loaded = load_file(name.data(), &size);
    run.plain("load_file", loaded == nullptr ? -1 : static_cast<int>(size));
    run.expect_healthy(loaded != nullptr && size == 5000, "the file does not come back");
    given_up(loaded);
    unlink(name.data());
}

void queues(Run& run) {
    uni_queue* const queue = init_uni_queue();
    run.plain("init_uni_queue", queue == nullptr ? -1 : 0);
    if (queue == nullptr) {
        return;
    }
    for (int i = 0; i < 3; ++i) {
        void* const data = Malloc(10);
        if (run.plain("add_uni_frame", add_uni_frame(queue, data, 10)) != 1) {
            given_up(data);
        }
    }
    unsigned int length = 0;
    given_up(get_uni_frame(queue, &length));
    run.plain("get_uni_queue_size", get_uni_queue_size(queue));
    destroy_uni_queue(queue);
}

} // namespace

const std::vector<Scenario>& scenarios() {
    static const std::vector<Scenario> all{
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
        {"facts-hid", facts_hid},
        {"facts-vcom", facts_vcom},
        {"features-hid", features_hid},
        {"features-vcom", features_vcom},
        {"features-long", long_reports},
        {"features-further-interface", further_interface},
        {"output-hid", output_hid},
        {"output-vcom", output_vcom},
        {"input-hid", input_hid},
        {"input-vcom", input_vcom},
        {"switching", switching},
        {"round-trip-hid", round_trip_hid},
        {"round-trip-vcom", round_trip_vcom},
        {"answer-never", answer_never_comes},
        {"answer-in-pieces", answer_in_pieces},
        {"answer-among-pen-data", answers_among_pen_data},
        {"answer-cut", answer_cut_at_the_end},
        {"components-hid", components_hid},
        {"components-vcom", components_vcom},
        {"description", description},
        {"connection-type", connection_type},
        {"modes", modes},
        {"buttons", buttons},
        {"configuration-set", set_variable},
        {"configuration-persist", persist_variable},
        {"configuration-wait", wait_for_handler},
        {"configuration-buttons", button_states},
        {"pen-data-switch", pen_data_switch},
        {"legacy-hid", legacy_hid},
        {"legacy-vcom", legacy_vcom},
        {"legacy-mode-type-8", mode_type_8},
        {"record-reports", reports_of_a_record},
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
        {"pulled-hid", pulled_hid},
        {"pulled-vcom", pulled_vcom},
        {"pulled-while-receiving", pulled_while_receiving},
        {"pulled-while-searching", pulled_while_searching},
        {"removed-callback-searches", removed_callback_searches},
        {"logging-callback", with_logging_callback},
        {"trace-lines", with_trace_lines},
        {"records-and-texts", records_and_texts},
        {"wrong-arguments", wrong_arguments},
        {"files", files},
        {"queues", queues},
    };
    return all;
}

void live_on(Run& run) {
    HidInterface& first = plug_hid();
    first.input_reports.push_back(Bytes(64, 7));
    const VcomPad second;
    run.expect_healthy(start(run) == 2, "afterwards a start does not find both pads");
    end_uploads();
    run.expect_healthy(set_feature(run, 1) && get_feature(run, 1), "afterwards the HID pad does not answer");
    run.expect_healthy(set_feature(run, 2) && get_feature(run, 2), "afterwards the VCOM pad does not answer");
    run.expect_healthy(receive(run, 1, 1), "afterwards no report is received");
}

} // namespace faults
