// What every request to a component does alike: look up, send, receive, check.
#include "ssp_pad_test.hpp"

namespace core_test {
namespace {

Bytes description() {
    return described_as(15).description();
}

const ComponentRequest requests[] = {
    {"UserInput", ssp_common_get_user_input, base(1, {0x13, 0, 0x10}), {0x13, 1, 0, 0x10, 7}, 7, 5},
    {"ButtonOfSignature",
     [](vx_device* device) { return ssp_common_get_button_event(device, 0); },
     base(1, {0x13, 2, 0x12}),
     {0x13, 1, 2, 0x12, 200},
     200,
     5},
    {"ButtonOfDocView",
     [](vx_device* device) { return ssp_common_get_button_event(device, 5); },
     base(1, {0x13, 1, 0x12}),
     {0x13, 1, 1, 0x12, 0},
     0,
     5},
    {"ButtonOfDocSign",
     [](vx_device* device) { return ssp_common_get_button_event(device, 6); },
     base(1, {0x13, 3, 0x12}),
     {0x13, 1, 3, 0x12, 255},
     255,
     5},
    {"RefreshDocView", ssp_common_doc_view_buttons_refresh, base(1, {0x13, 1, 0x10}), {0x13, 1, 1, 0x10}, 0, 4},
    {"RefreshSignature", ssp_common_signature_buttons_refresh, base(1, {0x13, 2, 0x10}), {0x13, 1, 2, 0x10}, 0, 4},
    {"RefreshDocSign", ssp_common_doc_sign_buttons_refresh, base(1, {0x13, 3, 0x10}), {0x13, 1, 3, 0x10}, 0, 4},
    {"State", ssp_common_get_conf_state, base(2, {0x10}), {0x10, 1, 3}, 3, 3},
    {"Description", ssp_common_get_pad_description, base(1, {0x10, 0, 0}), description(), 0, 31},
    {"BiodataOn",
     [](vx_device* device) { return ssp_biodata_sending(device, 1); },
     base(1, {0x11, 1, 0}),
     {0x11, 1},
     0,
     2},
    {"BiodataOff",
     [](vx_device* device) { return ssp_biodata_sending(device, 0); },
     base(1, {0x11, 0, 0}),
     {0x11, 1},
     0,
     2},
    {"BiodataLowByte",
     [](vx_device* device) { return ssp_biodata_sending(device, 0x101); },
     base(1, {0x11, 1, 0}),
     {0x11, 1},
     0,
     2},
    {"Connection", ssp_common_ct_communication_get_current_connection, base(3, {0x10, 0, 0}), {0x10, 1, 127}, 127, 3},
};

class SspRequestTest : public SspPadTest, public testing::WithParamInterface<ComponentRequest> {
  protected:
    const ComponentRequest& request() const { return GetParam(); }
    unsigned char component() const { return request().message[0]; }
    int run() { return request().run(device()); }
    int run_with(std::vector<Bytes> replies) {
        reply_to(request().message, std::move(replies));
        return run();
    }
};

INSTANTIATE_TEST_SUITE_P(All, SspRequestTest, testing::ValuesIn(requests), testing::PrintToStringParamName());

TEST_P(SspRequestTest, SendsItsMessageAndTakesTheReply) {
    know_tables();
    EXPECT_EQ(run_with({base(component(), request().good_payload)}), request().result);
    EXPECT_THAT(bus().log(), ElementsAre(bulk_out(framed(request().message)), bulk_in(4096, 1000)));
    EXPECT_EQ(times_said("Error"), 0);
}

TEST_P(SspRequestTest, PenDataBeforeTheReplyStaysQueued) {
    know_tables();
    EXPECT_EQ(run_with({pen({1}), pen({2}), base(component(), request().good_payload)}), request().result);
    EXPECT_EQ(queued(device()->ssp_input_read), 2);
}

TEST_P(SspRequestTest, LooksItsComponentUpOnce) {
    EXPECT_EQ(run_with({base(component(), request().good_payload)}), request().result);
    EXPECT_EQ(run(), request().result);
    EXPECT_EQ(std::count(model.asked.begin(), model.asked.end(), component_query), 1);
    EXPECT_LE(std::count(model.asked.begin(), model.asked.end(), mode_query), 1);
}

TEST_P(SspRequestTest, LegacyReplyIsRefused) {
    know_tables();
    EXPECT_EQ(run_with({legacy(request().good_payload.size() > 64 ? Bytes{1} : request().good_payload)}), -1);
    EXPECT_THAT(said(), Says("Error, current message is not a Base Message"));
}

TEST_P(SspRequestTest, ReplyOfAnotherComponentIsRefused) {
    know_tables();
    EXPECT_EQ(run_with({base(static_cast<unsigned char>(component() + 4), request().good_payload)}), -1);
    EXPECT_THAT(said(), Says("Error,  of ssp_base_message_check_component_id() for Base Message"));
}

TEST_P(SspRequestTest, ReplyWithTheWrongIdOrResultIsRefused) {
    know_tables();
    for (const std::size_t at : {0U, 1U}) {
        for (const unsigned char wrong : Bytes{0, 2, 0xFF}) {
            Bytes payload = request().good_payload;
            payload[at] = wrong;
            EXPECT_LT(run_with({base(component(), payload)}), 0);
        }
    }
    EXPECT_EQ(times_said("Error, function receive_ssp_message_and_get_data() return NULL"), 0);
}

TEST_P(SspRequestTest, ReplyCutAfterEveryByteReadsNothingElse) {
    know_tables();
    const Bytes& good = request().good_payload;
    ASSERT_LE(request().shortest, good.size());
    for (std::size_t size = 1; size <= good.size(); ++size) {
        EXPECT_EQ(run_with({base(component(), part(good, 0, size))}), size < request().shortest ? -1 : request().result)
            << size;
    }
}

TEST_P(SspRequestTest, ReplyMuchLongerThanTheBufferIsCut) {
    know_tables();
    EXPECT_EQ(run_with({base(component(), request().good_payload + Bytes(3000, 0x41))}), request().result);
    EXPECT_THAT(said(), Says("Error, *len[1024] < data_size["));
}

TEST_P(SspRequestTest, SilentPadFailsWithinTheTimeOut) {
    know_tables();
    const auto started = bus().now_us();
    EXPECT_EQ(run_with({}), -1);
    EXPECT_GE(bus().now_us() - started, 1'000'000);
    EXPECT_LE(bus().now_us() - started, 1'100'000);
    EXPECT_THAT(said(), Says("receive_ssp_message_and_get_data() return NULL"));
    EXPECT_EQ(run_with({base(component(), request().good_payload)}), request().result); // it was reopened
}

TEST_P(SspRequestTest, FailedSendIsTold) {
    know_tables();
    bus().hooks.bulk_out = always{LIBUSB_ERROR_PIPE};
    EXPECT_EQ(run(), -1);
    EXPECT_THAT(said(), Says("data_sequence(), it returns -9"));
}

TEST_P(SspRequestTest, LostPadGivesMinusFour) {
    know_tables();
    bus().unplug(pad);
    EXPECT_EQ(run(), -4);
    EXPECT_EQ(device()->was_removed, 1);
}

// Between the request and its reply; the interface cannot be opened again.
TEST_P(SspRequestTest, PadThatIsPulledOutBeforeItsReplyGivesMinusFour) {
    know_tables();
    model.replace = [this](const Bytes&) {
        bus().unplug(pad);
        return std::optional(std::vector<Bytes>{});
    };
    EXPECT_EQ(run(), -4);
    EXPECT_EQ(device()->was_removed, 1);
    EXPECT_EQ(device()->vcom_handle, nullptr);
}

TEST_P(SspRequestTest, MissingComponentGivesMinusTwo) {
    model.components = {5, 7};
    EXPECT_EQ(run(), -2);
    EXPECT_THAT(said(), Says("Error of getting Component ID, ssp_common_component_id_get_id() return -2"));
    EXPECT_THAT(model.asked, ElementsAre(component_query));
}

TEST_P(SspRequestTest, FailedLookUpIsPassedOn) {
    reply_to(component_query, {base(0, {0x10, 0, 4})});
    EXPECT_EQ(run(), -1);
    EXPECT_THAT(
        said(),
        AllOf(Says("Error of getting Component ID, ssp_common_component_id_get_id() return -1"),
              Says("Can not initialize Components ID table, ssp_common_components_id_initialize_table() return: -1")));
}

TEST_P(SspRequestTest, MissingRecordOrEntryPointIsReported) {
    EXPECT_EQ(request().run(nullptr), -1);
    EXPECT_THAT(said(), Says("Wrong device pointers, current_device is NULL..."));
    know_tables();
    device()->send_ssp_message = nullptr;
    EXPECT_LT(run(), 0);
    EXPECT_THAT(said(), Says("Wrong function pointer, current_device->send_ssp_message is NULL..."));
    device()->send_ssp_message = __send_ssp_message;
    device()->receive_ssp_message = nullptr;
    EXPECT_LT(run(), 0);
    EXPECT_THAT(said(), Says("Wrong function pointer, current_device->receive_ssp_message is NULL..."));
    device()->receive_ssp_message = __receive_ssp_message;
}

// Over HID: the transport's failures are others, and so are their codes.
class SspRequestOverHidTest : public CoreTest, public testing::WithParamInterface<ComponentRequest> {
  protected:
    SspRequestOverHidTest() {
        bus().cost_us["hid_get_feature_report"] = 1000;
        model.attach(pad);
    }
    void TearDown() override {
        record.reset();
        CoreTest::TearDown();
    }

    const ComponentRequest& request() const { return GetParam(); }
    int run() { return request().run(record->get()); }
    int run_with(const std::vector<Bytes>& replies) {
        model.replace = [=](const Bytes& message) {
            return message == GetParam().message ? std::optional(replies) : std::nullopt;
        };
        return run();
    }
    int run_with_good_reply() { return run_with({base(request().message[0], request().good_payload)}); }

    // Lets the tables be filled, so that only the request under test is seen.
    void know_tables() {
        EXPECT_EQ(run_with_good_reply(), request().result);
        model.asked.clear();
        forget();
    }

    HidInterface& pad = bus().plug(pad_of_type(15));
    SspPad model = described_as(15);
    std::optional<OpenHidSspRecord> record{std::in_place, pad, 15};
};

INSTANTIATE_TEST_SUITE_P(All, SspRequestOverHidTest, testing::ValuesIn(requests), testing::PrintToStringParamName());

TEST_P(SspRequestOverHidTest, SendsItsMessageAndTakesTheReply) {
    know_tables();
    EXPECT_EQ(run_with_good_reply(), request().result);
    EXPECT_THAT(model.asked, ElementsAre(request().message));
    EXPECT_EQ(times_said("Error"), 0);
}

TEST_P(SspRequestOverHidTest, SilentPadFailsWithinTheTimeOut) {
    know_tables();
    const auto started = bus().now_us();
    EXPECT_EQ(run_with({}), -1);
    EXPECT_GE(bus().now_us() - started, 1'000'000);
    EXPECT_LE(bus().now_us() - started, 1'100'000);
    EXPECT_EQ((*record)->was_removed, 0);
    EXPECT_EQ(run_with_good_reply(), request().result); // it was reopened
}

TEST_P(SspRequestOverHidTest, FailedSendGivesMinusOne) {
    know_tables();
    bus().hooks.send_feature = always{-1};
    EXPECT_EQ(run(), -1);
    EXPECT_EQ((*record)->was_removed, 0);
    EXPECT_THAT(said(), Says("data_sequence(), it returns -1"));
}

TEST_P(SspRequestOverHidTest, PulledOutPadGivesMinusFour) {
    know_tables();
    bus().unplug(pad);
    EXPECT_EQ(run(), -4);
    EXPECT_EQ((*record)->was_removed, 1);
    EXPECT_THAT(said(), Says("data_sequence(), it returns -20"));
}

TEST_P(SspRequestOverHidTest, PadThatIsPulledOutBeforeItsReplyGivesMinusFour) {
    know_tables();
    model.replace = [this](const Bytes&) {
        bus().unplug(pad);
        return std::optional(std::vector<Bytes>{});
    };
    EXPECT_EQ(run(), -4);
    EXPECT_EQ((*record)->was_removed, 1);
}

} // namespace
} // namespace core_test
