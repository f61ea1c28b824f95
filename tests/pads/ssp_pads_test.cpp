// Pads that speak SSP, as an application and as the library's own building blocks see them, on both transports.
#include "ssp_pad_test.hpp"

#include <algorithm>
#include <cstring>

#include VXPADCOM_USB_IDS_FILE

using namespace pads;

namespace {

class SspTest : public SspPad {
  protected:
    void TearDown() override {
        record_.reset();
        SspPad::TearDown();
    }

    vx_device* record() {
        if (!record_) {
            record_ = std::make_unique<OwnRecord>();
            asked();
        }
        return record_->get();
    }

    // Messages that the pad has got since the last time, in hexadecimal.
    static std::vector<std::string> asked() {
        std::vector<std::string> messages;
        for (const auto& line : take_log(pad(), "ssp")) {
            if (line.starts_with("out ssp 0 ")) {
                messages.push_back(line.substr(10));
            }
        }
        return messages;
    }

    static void reply_instead(const Bytes& message, int after = 0) {
        fault("replace=" + hex(message) + ",count=1,after=" + std::to_string(after));
    }

  private:
    std::unique_ptr<OwnRecord> record_;
};

INSTANTIATE_TEST_SUITE_P(On, SspTest, testing::Values(hid, vcom), name_of_transport);

std::uint32_t product_of_type(std::uint32_t type) {
    return std::ranges::find(usb_ids::shared_products, type, &usb_ids::Product::pad_type)->product_id;
}

// ---- the application ----

TEST_P(SspTest, FactsAreThoseThatThePadTells) {
    initialize();
    const bool is_vcom = GetParam().is_vcom();
    EXPECT_EQ(serial_number(1), is_vcom ? u"TOLD16" : u"H17") << "a VCOM pad's description, not its string";
    EXPECT_EQ(text_of([](auto... rest) { return GetProductName(1, 0, rest...); }), is_vcom ? u"Counter" : u"Desk ");
    EXPECT_EQ(text_of([](auto... rest) { return GetVendorName(1, rest...); }), u"Quillon");
    EXPECT_EQ(number_of([](auto* reply) { return GetVendorId(1, reply); }), usb_ids::shared_vendors[0]);
    EXPECT_EQ(number_of([](auto* reply) { return GetProductId(1, 0, reply); }), product_of_type(is_vcom ? 16 : 17));
    EXPECT_EQ(number_of([](auto* reply) { return GetUsbVersion(1, reply); }), 0U);
    EXPECT_EQ(number_of([](auto* reply) { return GetEndPointCount(1, reply); }), 1U);
    EXPECT_EQ(number_of([](auto* reply) { return GetFeatureReportSize(1, 0, reply); }), 65U);
    EXPECT_EQ(core_get_max_packet_size_of_input_report(), 64);
    EXPECT_EQ(number_of([](auto* reply) { return GetBytesToSend(1, reply); }), 0U);
    char settings[256] = {};
    EXPECT_GT(core_get_pad_settings(settings), 0);
    EXPECT_TRUE(std::string(settings).starts_with(is_vcom ? "000000000000000001VCOM: Quillon Counter("
                                                          : "000000000000000001HID: Quillon Desk "))
        << settings;
    EXPECT_EQ(number_of(EnumerateDevicesStart), 1U);
    EXPECT_EQ(number_of(EnumerateDevicesNext), 0U);
}

TEST_P(SspTest, MessagesGoThereAndBack) {
    initialize();
    EXPECT_EQ(exchange_messages(components_request), (MessageAnswer{{}, components_reply}));
    asked();
    EXPECT_EQ(send_message(components_request), Failure{});
    EXPECT_EQ(receive_message(1000, 4), (MessageAnswer{{}, {0x00, 0x06, 0x00, 0x10}})) << "a longer message is cut";
    EXPECT_EQ(asked(), std::vector<std::string>{hex(components_request)});
    EXPECT_EQ(receive_message(30).failure, receive_failure) << "its rest does not come later";
    EXPECT_EQ(exchange_messages(components_request), (MessageAnswer{{}, components_reply}));
}

TEST_P(SspTest, WrongArgumentsDoNotReachThePad) {
    initialize();
    asked();
    unsigned char byte = 0;
    unsigned int reply = reply_untouched;
    const auto wrong = [](const char* function, const std::string& what) {
        return invalid_parameter(function, "Error of input parameters, " + what);
    };
    EXPECT_EQ(failure(SendSspMessage(1, 0, nullptr, 0)), wrong("SendSspMessage", "const void *src is NULL"));
    EXPECT_EQ(failure(SendSspMessage(1, 0, &byte, 0)), wrong("SendSspMessage", "const unsigned int src_length is 0"));
    EXPECT_EQ(failure(ReceiveSspMessage(9, 0, &byte, 2, 100, nullptr)),
              wrong("ReceiveSspMessage", "unsigned int *reply is NULL"));
    EXPECT_EQ(failure(ReceiveSspMessage(9, 0, nullptr, 2, 100, &reply)),
              wrong("ReceiveSspMessage", "const void *dst is NULL"));
    EXPECT_EQ(failure(ReceiveSspMessage(9, 0, &byte, 1, 100, &reply)),
              wrong("ReceiveSspMessage", "const unsigned int dst_length is <= 1"));
    EXPECT_EQ(failure(SendSspMessage(2, 0, &byte, 1)),
              invalid_handle("SendSspMessage", "Error of switching to device: 2"));
    for (const unsigned int interface : {1U, 2U, 0xffffffffU}) {
        EXPECT_EQ(failure(SendSspMessage(1, interface, &byte, 1)), send_failure) << interface;
        unsigned char buffer[2];
        EXPECT_EQ(failure(ReceiveSspMessage(1, interface, buffer, 2, 100, &reply)), receive_failure) << interface;
    }
    EXPECT_EQ(reply, reply_untouched);
    EXPECT_EQ(asked(), std::vector<std::string>{});
    EXPECT_EQ(exchange_messages(components_request), (MessageAnswer{{}, components_reply}));
}

TEST_P(SspTest, SilenceEndsWithTheTimeOut) {
    initialize();
    MessageAnswer answer;
    const auto seconds = seconds_of([&] { answer = receive_message(150); });
    EXPECT_EQ(answer, (MessageAnswer{receive_failure, {}}));
    EXPECT_GE(seconds, 0.15);
    EXPECT_LT(seconds, patience(1));
    EXPECT_LT(seconds_of([] { EXPECT_EQ(receive_message(0).failure, receive_failure); }), patience(1));
    EXPECT_EQ(exchange_messages(components_request), (MessageAnswer{{}, components_reply}));
}

TEST_P(SspTest, MessagesOfOneReadWaitForTheirTurn) {
    initialize();
    const auto first = base_message(1, {0x10, 1});
    const auto second = base_message(2, {0x10, 2});
    put_into_stream(pad(), framed(first) + framed(pen_message({1})) + framed(second));
    EXPECT_EQ(receive_message(), (MessageAnswer{{}, first}));
    EXPECT_EQ(receive_message(0), (MessageAnswer{{}, second})) << "without a transfer";
    put_into_stream(pad(), framed(first) + framed(second));
    EXPECT_EQ(receive_message(), (MessageAnswer{{}, first}));
    EXPECT_EQ(exchange_messages(components_request), (MessageAnswer{{}, components_reply}))
        << "a request drops the replies before it";
}

TEST_P(SspTest, LongMessagesArriveWhole) {
    initialize();
    for (const std::size_t size : {1U, 55U, 56U, 57U, 61U, 119U, 122U, 255U, 256U, 1000U, 3000U}) {
        const auto payload = Bytes{0x77, 0x00} + numbered_bytes(size, static_cast<unsigned int>(size));
        const auto request = base_message(0x7f, payload);
        asked();
        EXPECT_EQ(exchange_messages(request), (MessageAnswer{{}, base_message(0x7f, {0x77, 2})})) << size;
        EXPECT_EQ(asked(), std::vector<std::string>{hex(request)});
        put_into_stream(pad(), framed(request));
        EXPECT_EQ(receive_message(), (MessageAnswer{{}, request})) << size;
    }
}

TEST_P(SspTest, PenDataDoesNotComeBetweenRequestAndReply) {
    OwnRecord record;
    EXPECT_EQ(core_ssp_biodata_sending(record.get(), 1), 0);
    EXPECT_EQ(ssp_state_of(pad(), "biodata"), "1");
    for (int i = 0; i < 20; ++i) {
        to_pad("pen", pad(), "f0f1");
        EXPECT_EQ(ssp_common_get_pad_description(record.get()), 0);
    }
    EXPECT_EQ(core_ssp_biodata_sending(record.get(), 0), 0);
    EXPECT_EQ(ssp_state_of(pad(), "biodata"), "0");
    int of_mine = 0;
    while (get_uni_queue_size(record->ssp_input_read) > 0) {
        unsigned char data[65] = {};
        unsigned int length = sizeof data;
        ASSERT_EQ(__receive_ssp_message(record.get(), data, &length, 0, 0, 1), 0);
        of_mine += Bytes(data, data + length) == pen_message({0xf0, 0xf1}) ? 1 : 0;
    }
    EXPECT_EQ(of_mine, 20);
}

// ---- components and modes ----

TEST_P(SspTest, ComponentsAreAskedForOnce) {
    EXPECT_EQ(ssp_common_is_ssp_supported(record()), 1);
    asked();
    std::fill(std::begin(record()->components_id_table), std::end(record()->components_id_table),
              static_cast<unsigned char>(0));
    EXPECT_EQ(ssp_common_component_id_get_id(record(), 11), signpad_id);
    EXPECT_EQ(ssp_common_component_id_get_id(record(), 3), handler_id);
    EXPECT_EQ(ssp_common_component_id_get_id(record(), 1), communication_id);
    EXPECT_EQ(ssp_common_component_id_get_id(record(), 5), 0);
    EXPECT_EQ(ssp_common_component_id_get_id(record(), 4), -2);
    EXPECT_EQ(asked(), std::vector<std::string>{hex(components_request)});
}

TEST_P(SspTest, ModesAreAskedForOnce) {
    EXPECT_EQ(ssp_common_ct_signpad_get_mode_id(record(), 0), 0);
    EXPECT_EQ(ssp_common_ct_signpad_get_mode_id(record(), 5), 1);
    EXPECT_EQ(ssp_common_ct_signpad_get_mode_id(record(), 6), 2);
    EXPECT_EQ(ssp_common_ct_signpad_get_mode_id(record(), 13), 3);
    EXPECT_EQ(ssp_common_ct_signpad_get_mode_id(record(), 7), -2);
    const auto messages = asked();
    EXPECT_EQ(std::ranges::count(messages, hex(base_message(signpad_id, {0x12, 0, 0}))), 1);
}

TEST_P(SspTest, WhatThePadLacksIsMissing) {
    std::fill(std::begin(record()->components_id_table), std::end(record()->components_id_table),
              static_cast<unsigned char>(0));
    reply_instead(base_message(0, {0x10, 1, 2, 5, 11}));
    EXPECT_EQ(ssp_common_ct_communication_get_current_connection(record()), -2);
    EXPECT_EQ(ssp_common_ct_communication_set_current_connection(record(), 1), -2);
    EXPECT_EQ(ssp_common_set_configuration_variable(record(), "key", "value"), -2);
    EXPECT_EQ(ssp_common_persist_configuration_variable(record(), "key"), -2);
    EXPECT_EQ(ssp_common_get_conf_state(record()), -2);
    reply_instead(base_message(signpad_id, {0x12, 1, 1, 5, 0, 0, 0}));
    EXPECT_EQ(ssp_common_doc_view_buttons_refresh(record()), 0);
    EXPECT_EQ(ssp_common_doc_sign_buttons_refresh(record()), -2);
    EXPECT_EQ(ssp_common_get_user_input(record()), -2);
    EXPECT_EQ(ssp_common_get_button_event(record(), 6), -2);
}

TEST_P(SspTest, ButtonsArePressedAndRefreshed) {
    for (const int button : {0, 1, 127, 128, 200, 255}) {
        to_pad("button", pad(), std::to_string(button));
        EXPECT_EQ(ssp_common_get_user_input(record()), button);
        for (const int mode : {0, 5, 6}) {
            EXPECT_EQ(ssp_common_get_button_event(record(), mode), button);
        }
    }
    EXPECT_EQ(ssp_common_signature_buttons_refresh(record()), 0);
    EXPECT_EQ(ssp_common_doc_view_buttons_refresh(record()), 0);
    EXPECT_EQ(ssp_common_doc_sign_buttons_refresh(record()), 0);
    for (const auto* line : {"refreshed 0 1", "refreshed 5 1", "refreshed 6 1"}) {
        EXPECT_TRUE(has_ssp_line(pad(), line)) << line;
    }

    asked();
    EXPECT_EQ(ssp_common_get_button_event(record(), 13), -1);
    record()->pad_type = 12;
    EXPECT_EQ(ssp_common_get_user_input(record()), -1);
    EXPECT_EQ(ssp_common_get_button_event(record(), 5), -1);
    EXPECT_EQ(ssp_common_doc_view_buttons_refresh(record()), -1);
    EXPECT_EQ(ssp_common_set_button_state(record(), 200, 1, 1, 5), -1);
    EXPECT_EQ(asked(), std::vector<std::string>{}) << "other types have no buttons to ask for";
    record()->pad_type = 16;
}

// ---- configuration ----

TEST_P(SspTest, ButtonStatesAreConfigurationVariables) {
    EXPECT_EQ(ssp_common_set_button_state(record(), 205, 1, 0x89abcdef, 5), 0);
    EXPECT_TRUE(has_ssp_line(pad(), GetParam().is_vcom()
                                        ? "variable vx.pad.mode.5.button.rotate.config 01000000EFCDAB89"
                                        : "variable vx.pad.mode.5.button.rotate.180.config 01000000EFCDAB89"))
        << to_pad("ssp", pad());
    EXPECT_EQ(ssp_common_set_button_state(record(), 206, 0xffffffff, 0, 0), 0);
    EXPECT_TRUE(has_ssp_line(pad(), "variable vx.pad.mode.0.button.ok.config FFFFFFFF00000000"));
    asked();
    EXPECT_EQ(ssp_common_set_button_state(record(), 206, 1, 1, 5), -1) << "no such button in this mode";
    EXPECT_EQ(asked(), std::vector<std::string>{});
}

TEST_P(SspTest, VariablesAreSetAndPersisted) {
    const std::string key(40, 'k');
    const std::string value(20, 'v');
    EXPECT_EQ(ssp_common_set_configuration_variable(record(), (key + "more").c_str(), (value + "more").c_str()), 0);
    EXPECT_TRUE(has_ssp_line(pad(), "variable " + key + " " + value)) << to_pad("ssp", pad());
    EXPECT_EQ(ssp_common_persist_configuration_variable(record(), (key + "more").c_str()), 0);
    EXPECT_TRUE(has_ssp_line(pad(), "persisted " + key));
    EXPECT_EQ(ssp_common_set_configuration_variable(record(), "", ""), 0);
    asked();
    EXPECT_EQ(ssp_common_set_configuration_variable(record(), nullptr, "value"), -1);
    EXPECT_EQ(ssp_common_set_configuration_variable(record(), "key", nullptr), -1);
    EXPECT_EQ(ssp_common_persist_configuration_variable(record(), nullptr), -1);
    EXPECT_EQ(asked(), std::vector<std::string>{});
}

TEST_P(SspTest, ABusyHandlerIsWaitedFor) {
    const auto state = [](unsigned char number) { return base_message(handler_id, {0x10, 1, number}); };
    EXPECT_EQ(ssp_common_component_id_get_id(record(), 3), handler_id);
    EXPECT_EQ(ssp_common_get_conf_state(record()), 0);
    asked();
    int polls = 0;
    for (const auto number : Bytes{1, 2, 2, 1, 77}) { // 77 is no state: asked again at once
        reply_instead(state(number), polls++);
    }
    reply_instead(state(3), polls++);
    EXPECT_EQ(ssp_common_check_configuration_state(record()), 3);
    EXPECT_EQ(asked().size(), 6U);

    to_pad("clear-faults", pad());
    reply_instead(state(4));
    EXPECT_EQ(ssp_common_check_configuration_state(record()), 4);
    EXPECT_EQ(asked().size(), 1U);
    to_pad("clear-faults", pad());
    reply_instead(state(4), 2);
    EXPECT_EQ(ssp_common_set_configuration_variable(record(), "key", "value"), -1) << "failed after the change";
    to_pad("clear-faults", pad());
    reply_instead(state(4));
    EXPECT_EQ(ssp_common_set_configuration_variable(record(), "key", "value"), 0) << "an older failure";
    to_pad("clear-faults", pad());

    fault("replace=" + hex(state(1)));
    const auto seconds = seconds_of([&] { EXPECT_EQ(ssp_common_check_configuration_state(record()), 1); });
    EXPECT_GE(seconds, 10);
    EXPECT_LT(seconds, patience(13));
}

// ---- description, connection, fixed commands ----

TEST_P(SspTest, DescriptionFillsTheRecord) {
    record()->vendor_id = record()->product_id = 0;
    std::memset(record()->serial_number, 'x', sizeof record()->serial_number);
    EXPECT_EQ(ssp_common_get_pad_description(record()), 0);
    EXPECT_EQ(record()->vendor_id, usb_ids::shared_vendors[0]);
    EXPECT_EQ(record()->product_id, product_of_type(GetParam().is_vcom() ? 16 : 17));
    EXPECT_STREQ(record()->serial_number, GetParam().is_vcom() ? "TOLD16" : "H17");

    Bytes payload{0x10, 1, 0x44, 0x33, 0x22, 0x11, 0x88, 0x77, 0x66, 0x55};
    payload.resize(30);
    payload.push_back(255);
    payload.resize(31 + 255, 's');
    reply_instead(base_message(signpad_id, payload));
    EXPECT_EQ(ssp_common_get_pad_description(record()), 0);
    EXPECT_EQ(record()->vendor_id, 0x11223344U);
    EXPECT_EQ(record()->product_id, 0x55667788U);
    EXPECT_EQ(record()->serial_number, std::string(255, 's')) << "the longest serial number";
}

TEST_P(SspTest, ConnectionTypeIsSetAndRead) {
    EXPECT_EQ(ssp_common_ct_communication_get_current_connection(record()), 0);
    for (const int type : {1, 127}) {
        EXPECT_EQ(ssp_common_ct_communication_set_current_connection(record(), type), 0);
        EXPECT_EQ(ssp_common_ct_communication_get_current_connection(record()), type);
    }
    EXPECT_EQ(ssp_common_ct_communication_set_current_connection(record(), 128), 0);
    EXPECT_EQ(ssp_common_ct_communication_get_current_connection(record()), -1) << "negative as the pad tells it";
}

TEST_P(SspTest, FixedCommandsWorkBesideMessages) {
    EXPECT_EQ(core_set_pad_mode(record(), 6, 2), 6);
    EXPECT_EQ(state_of(pad(), "mode"), "6");
    EXPECT_EQ(state_of(pad(), "mode-option"), "2");
    flags_status status{};
    EXPECT_EQ(__core_get_status(record(), &status), 0);
    EXPECT_EQ(status.flags[5], 6);
    EXPECT_EQ(__core_get_pad_mode(record()), 6);
    dev_fw_version version{};
    EXPECT_EQ(core_read_version(record(), &version), 0);
    EXPECT_EQ(version.patch, GetParam().is_vcom() ? 9U : 3U);
    EXPECT_STREQ(version.manufacturer, GetParam().is_vcom() ? "ABCD" : "VPAD");
    EXPECT_EQ(core_create_signature_rectangle(record(), 1, 2, 3, 4, 5), 0);
    EXPECT_EQ(state_of(pad(), "rectangle"), "1,2,3,4,5");
    EXPECT_EQ(ssp_common_get_pad_description(record()), 0);
}

TEST_P(SspTest, PenDataIsSwitchedOnAndOff) {
    initialize();
    EXPECT_EQ(core_enable_ssp_biodata_sending(), 0);
    EXPECT_EQ(ssp_state_of(pad(), "biodata"), GetParam().is_vcom() ? "1" : "0") << "a HID pad sends it unasked";
    EXPECT_EQ(core_disable_ssp_biodata_sending(), 0);
    EXPECT_EQ(ssp_state_of(pad(), "biodata"), "0");
}

} // namespace
