// Pads that speak SSP and are pulled out at any moment, on both transports. The library's pauses are skipped.
#include "ssp_pad_test.hpp"

#include <algorithm>
#include <future>

using namespace pads;

namespace {

// No call lasts longer than a command's three attempts and the reopening of the pad, a time-out each.
constexpr double bound = 8;
constexpr int removed = -20;

const std::vector<unsigned int> the_pad{1};

class SspUnplug : public SspPad {
  protected:
    // Returns how many transfers the action has.
    template <typename Prepare, typename Action, typename Check>
    static int sweep(Prepare prepare, Action action, Check check) {
        return pull_out_at_each_transfer(
            pad(),
            [&] {
                plug_only({pad()});
                prepare();
            },
            [&] { EXPECT_LT(seconds_of(action), patience(bound)); },
            [&] {
                check();
                expect_sound_pad();
            });
    }

    static void expect_removed_pad() {
        const Removals removals;
        EXPECT_EQ(send_message(components_request), send_failure);
        EXPECT_EQ(receive_message(), (MessageAnswer{receive_failure, {}}));
        unsigned int size = 16;
        unsigned char data[16] = {};
        EXPECT_EQ(core_send_ssp_message(0, data, 4), removed);
        EXPECT_EQ(core_receive_ssp_message(0, data, &size, 100), removed);
        EXPECT_EQ(core_get_max_packet_size_of_out_endpoint(), removed);
        for (const auto& [name, call, message] : device_calls()) {
            Removals during;
            const bool asks = message != nullptr;
            EXPECT_EQ(failure(call(1)), asks ? invalid_handle(name, message + std::string("1")) : Failure{}) << name;
            EXPECT_EQ(during.take(), asks ? the_pad : std::vector<unsigned int>{}) << name;
        }
        to_pad("plug", pad());
        EXPECT_EQ(send_message(components_request), send_failure) << "removed it stays until the next search";
    }
};

INSTANTIATE_TEST_SUITE_P(On, SspUnplug, testing::Values(hid, vcom), name_of_transport);

TEST_P(SspUnplug, DuringTheSearch) {
    const auto check = [] {
        unsigned int reply = 0;
        EXPECT_LE(GetDeviceCount(&reply), 1);
        const auto got = exchange_messages(components_request);
        EXPECT_EQ(got.failure.code, static_cast<unsigned int>(VXPCEC_INVALID_HANDLE));
        EXPECT_EQ(Deinitialize(), 0);
    };
    const int transfers = sweep([] { Deinitialize(); }, [] { EXPECT_EQ(Initialize(), 0); }, check);
    EXPECT_GT(transfers, 8);
}

TEST_P(SspUnplug, DuringDeinitialize) {
    sweep([] { initialize(); }, [] { EXPECT_EQ(Deinitialize(), 0); }, [] { EXPECT_FALSE(IsInitialized()); });
}

// ---- the application's calls ----

struct Call {
    Transport transport;
    const char* name;
    int transfers; // at least
    Bytes waiting; // in the pad's stream
    Failure failed;
    std::function<Failure()> run;
};

void PrintTo(const Call& call, std::ostream* stream) {
    *stream << call.name << " over " << call.transport.name;
}

std::vector<Call> calls() {
    std::vector<Call> all;
    const auto long_message = base_message(0x7f, Bytes(300, 0x33));
    for (const auto& transport : {hid, vcom}) {
        all.push_back({transport, "Send", 1, {}, send_failure, [] { return send_message(components_request); }});
        all.push_back({transport, "SendLong", transport.is_vcom() ? 1 : 5, {}, send_failure, [=] {
                           return send_message(long_message);
                       }});
        all.push_back({transport, "Receive", 1, framed(components_reply), receive_failure,
                       [] { return receive_message().failure; }});
    }
    all.push_back(
        {vcom, "SetFeature", 1, {}, invalid_handle("SetFeature", "Error of write HID feature for device: 1"), [] {
             return failure(set_feature(1, 0, report(65, 0x80)));
         }});
    all.push_back(
        {vcom, "GetFeature", 2, {}, invalid_handle("GetFeature", "Error of read HID feature for device: 1"), [] {
             return failure(read(GetFeature, 1, 0).result);
         }});
    all.push_back(
        {vcom, "WriteFile", 1, {}, invalid_handle("WriteFile", "Error of set HID output report for device: 1"), [] {
             return failure(write_file(1, 0, report(65, 0x80)));
         }});
    all.push_back({vcom, "ReadFile", 1, framed(pen_message({1, 2})),
                   invalid_handle("ReadFile", "Error of read HID input report for device: 1"),
                   [] { return failure(read(ReadFile, 1, 0, 3).result); }});
    return all;
}

class SspUnplugCall : public testing::TestWithParam<Call> {
  protected:
    void SetUp() override { prepare(); }
    void TearDown() override {
        Deinitialize();
        plug_only({});
    }

    static int pad() { return GetParam().transport.pad; }

    static void prepare() {
        plug_only({pad()});
        ASSERT_EQ(Initialize(), 0);
        if (!GetParam().waiting.empty()) {
            put_into_stream(pad(), GetParam().waiting);
        }
    }
};

INSTANTIATE_TEST_SUITE_P(All, SspUnplugCall, testing::ValuesIn(calls()), [](const auto& tested) {
    return std::string(tested.param.transport.name) + tested.param.name;
});

TEST_P(SspUnplugCall, EndsAtAnyTransfer) {
    Failure got;
    const int transfers = pull_out_at_each_transfer(
        pad(), [] { prepare(); },
        [&] {
            Removals removals;
            EXPECT_LT(seconds_of([&] { got = GetParam().run(); }), patience(bound));
            EXPECT_EQ(removals.take(), got == Failure{} ? std::vector<unsigned int>{} : the_pad);
        },
        [&] { EXPECT_EQ(got, GetParam().failed); });
    EXPECT_GE(transfers, GetParam().transfers);
}

TEST_P(SspUnplugCall, FindsThePadGone) {
    Removals removals;
    to_pad("unplug", pad());
    EXPECT_EQ(GetParam().run(), GetParam().failed);
    EXPECT_EQ(removals.take(), the_pad);
    EXPECT_EQ(number_of(EnumerateDevicesStart), 1U) << "the list stays as it is";
}

// ---- what it leaves behind ----

TEST_P(SspUnplug, IsSeenByEveryCallFromThenOn) {
    initialize();
    Removals removals;
    to_pad("unplug", pad());
    EXPECT_EQ(exchange_messages(components_request), (MessageAnswer{send_failure, {}}));
    EXPECT_EQ(removals.take(), the_pad);
    expect_removed_pad();
    expect_sound_pad();
}

TEST_P(SspUnplug, EndsAWaitingReceive) {
    initialize();
    Removals removals;
    auto receiving = std::async(std::launch::async, [] { return receive_message(20000); });
    ASSERT_TRUE(wait_for([] { // it asks
        return GetParam().is_vcom() || !take_log(pad()).empty();
    }));
    to_pad("unplug", pad());
    ASSERT_EQ(receiving.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(receiving.get(), (MessageAnswer{receive_failure, {}}));
    EXPECT_EQ(removals.take(), the_pad);
    expect_removed_pad();
    expect_sound_pad();
}

TEST_P(SspUnplug, LosesNoReplyThatHasArrived) {
    initialize();
    put_into_stream(pad(), framed(components_reply) + framed(components_reply));
    EXPECT_EQ(receive_message(), (MessageAnswer{{}, components_reply}));
    to_pad("unplug", pad());
    EXPECT_EQ(receive_message(), (MessageAnswer{{}, components_reply}));
    EXPECT_EQ(receive_message(), (MessageAnswer{receive_failure, {}}));
    expect_sound_pad();
}

// HID pads come back by their path; a VCOM pad's device is another one after it has been away.
TEST_P(SspUnplug, IsOverWithTheNextSearch) {
    for (int i = 0; i < 3; ++i) {
        initialize();
        EXPECT_EQ(exchange_messages(components_request), (MessageAnswer{{}, components_reply}));
        to_pad("unplug", pad());
        to_pad("plug", pad());
        Removals removals;
        EXPECT_EQ(exchange_messages(components_request), (MessageAnswer{send_failure, {}}));
        EXPECT_EQ(removals.take(), GetParam().is_vcom() ? the_pad : std::vector<unsigned int>{});
        if (!GetParam().is_vcom()) {
            EXPECT_EQ(exchange_messages(components_request), (MessageAnswer{{}, components_reply}));
        }
    }
}

// ---- requests to components ----

struct Request {
    const char* name;
    int (*ask)(vx_device* device);
};

const std::vector<Request> requests{
    {"description", ssp_common_get_pad_description},
    {"pen data on", [](vx_device* device) { return core_ssp_biodata_sending(device, 1); }},
    {"user input", ssp_common_get_user_input},
    {"button", [](vx_device* device) { return ssp_common_get_button_event(device, 5); }},
    {"button state", [](vx_device* device) { return ssp_common_set_button_state(device, 200, 1, 1, 5); }},
    {"persist", [](vx_device* device) { return ssp_common_persist_configuration_variable(device, "key"); }},
    {"refresh", ssp_common_doc_view_buttons_refresh},
    {"connection", ssp_common_ct_communication_get_current_connection},
    {"set connection", [](vx_device* device) { return ssp_common_ct_communication_set_current_connection(device, 1); }},
    {"set mode", [](vx_device* device) { return core_set_pad_mode(device, 6, 0); }},
    {"status", __core_get_pad_mode},
    {"components",
     [](vx_device* device) {
         std::fill(std::begin(device->components_id_table), std::end(device->components_id_table),
                   static_cast<unsigned char>(0));
         return ssp_common_components_id_initialize_table(device);
     }},
};

TEST_P(SspUnplug, DuringAnyRequest) {
    for (const auto& [name, ask] : requests) {
        SCOPED_TRACE(name);
        std::unique_ptr<OwnRecord> record;
        int result = 0;
        const int transfers = sweep(
            [&] {
                Deinitialize();
                record = std::make_unique<OwnRecord>();
                ASSERT_EQ(ssp_common_component_id_get_id(record->get(), 11), signpad_id);
            },
            [&, call = ask] { result = call(record->get()); },
            [&] {
                EXPECT_TRUE(result == -1 || result == -4 || result == removed) << result;
                EXPECT_EQ((*record)->was_removed, 1);
                record.reset();
            });
        EXPECT_GE(transfers, 1);
        EXPECT_GE(result, 0) << "in the end it is left alone";
    }
}

// No reply is waited for that cannot come.
TEST_P(SspUnplug, IsSeenByEveryRequestFromThenOn) {
    const OwnRecord record;
    EXPECT_EQ(ssp_common_component_id_get_id(record.get(), 11), signpad_id);
    EXPECT_EQ(ssp_common_ct_signpad_get_mode_id(record.get(), 5), 1);
    to_pad("unplug", pad());
    EXPECT_LT(ssp_common_get_pad_description(record.get()), 0);
    EXPECT_EQ(record->was_removed, 1);
    EXPECT_EQ(ssp_common_check_configuration_state(record.get()), -4);
    for (const auto& [name, ask] : requests) {
        int result = 0;
        EXPECT_LT(seconds_of([&, call = ask] { result = call(record.get()); }), patience(bound)) << name;
        EXPECT_LT(result, 0) << name;
    }
}

} // namespace
