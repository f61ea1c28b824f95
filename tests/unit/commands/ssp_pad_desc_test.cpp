// What the pad says of itself, and its connection type.
#include "ssp_pad_test.hpp"

namespace core_test {
namespace {

class SspPadDescTest : public SspPadTest {
  protected:
    int describe_with(const Bytes& payload) {
        reply_to(base(1, {0x10, 0, 0}), {base(1, payload)});
        return ssp_common_get_pad_description(device());
    }
    std::string serial_number() { return text_of(device()->serial_number); }
};

TEST_F(SspPadDescTest, DescriptionFillsTheRecord) {
    model.vendor_id = 0x89ABCDEF;
    model.product_id = 0x01020304;
    EXPECT_EQ(ssp_common_get_pad_description(device()), 0);
    EXPECT_EQ(device()->vendor_id, 0x89ABCDEF);
    EXPECT_EQ(device()->product_id, 0x01020304U);
    EXPECT_EQ(serial_number(), "SN0300");
}

TEST_F(SspPadDescTest, EveryFieldOfADescriptionIsTraced) {
    model.vendor_id = 0x89ABCDEF;
    model.product_id = 0x01020304;
    const Bytes reply = model.description() + Bytes(20, 'X'); // behind the serial number
    EXPECT_EQ(ct_signpad_get_pad_description_reply_check(reply.data(), 0x10), 0);
    Lines fields;
    for (const std::string& line : said()) {
        const std::string name = "struct ct_signpad_get_pad_description_reply: header->";
        if (const auto at = line.find(name); at != std::string::npos) {
            fields.push_back(line.substr(at + name.size(), line.find_last_not_of('\n') + 1 - at - name.size()));
        }
    }
    EXPECT_THAT(fields, ElementsAre("message_id: 0x10", "protocol_result: 0x1", "vendor_id: 0x89abcdef",
                                    "product_id: 0x1020304", "version_major: 0x1", "version_minor: 0x2",
                                    "version_patch: 0x3", "version_revision: 0x4", "version_manufacturer_id: 0x5",
                                    "serial_length: 6", "serial_number SN0300"));
}

TEST_F(SspPadDescTest, EmptySerialNumberReplacesAnOldOne) {
    model.serial_number = "LONG0001";
    ssp_common_get_pad_description(device());
    model.serial_number = "S2";
    ssp_common_get_pad_description(device());
    EXPECT_EQ(serial_number(), "S2");
    model.serial_number = "";
    model.vendor_id = 0x1234;
    model.product_id = 0x5678;
    EXPECT_EQ(ssp_common_get_pad_description(device()), 0);
    EXPECT_EQ(serial_number(), "");
    EXPECT_EQ(device()->vendor_id, 0x1234U);
    EXPECT_EQ(device()->product_id, 0x5678U);
}

TEST_F(SspPadDescTest, LongestSerialNumberFitsItsField) {
    std::strcpy(device()->hid_path, "untouched");
    model.serial_number = std::string(255, 'S');
    EXPECT_EQ(ssp_common_get_pad_description(device()), 0);
    EXPECT_EQ(serial_number(), std::string(255, 'S'));
    EXPECT_STREQ(device()->hid_path, "untouched");
    device()->hid_path[0] = '\0';
    std::memset(device()->hid_path, 0, sizeof device()->hid_path);
}

TEST_F(SspPadDescTest, LengthOfTheSerialNumberIsNotBelieved) {
    Bytes payload = model.description();
    payload[30] = 255;
    EXPECT_EQ(describe_with(payload), 0);
    EXPECT_EQ(serial_number(), "SN0300"); // as far as it came
    payload[30] = 2;
    EXPECT_EQ(describe_with(payload), 0);
    EXPECT_EQ(serial_number(), "SN");
}

TEST_F(SspPadDescTest, RefusedDescriptionLeavesTheRecordAsItIs) {
    ssp_common_get_pad_description(device());
    for (const std::size_t at : {0U, 1U}) {
        Bytes payload = model.description();
        payload[at] = 9;
        payload[2] = 0x99;
        payload[31] = 'X';
        EXPECT_EQ(describe_with(payload), -1);
        EXPECT_EQ(device()->vendor_id, model.vendor_id);
        EXPECT_EQ(serial_number(), "SN0300");
    }
    EXPECT_THAT(said(), Says("Error, check data by ct_signpad_get_pad_description_reply_check(data: 0x"));
}

TEST_F(SspPadDescTest, DescriptionCheck) {
    Bytes payload = model.description();
    payload.resize(31 + 255);
    EXPECT_EQ(ct_signpad_get_pad_description_reply_check(payload.data(), 0x10), 0);
    EXPECT_EQ(ct_signpad_get_pad_description_reply_check(payload.data(), 0x11), -1);
    payload[1] = 0;
    EXPECT_EQ(ct_signpad_get_pad_description_reply_check(payload.data(), 0x10), -1);
}

// Connection.

TEST_F(SspPadDescTest, ConnectionTypeIsASignedByte) {
    know_tables();
    for (const int type : {0, 1, 127}) {
        reply_to({3, 2, 0, 0x10}, {base(3, {0x10, 1, static_cast<unsigned char>(type)})});
        EXPECT_EQ(ssp_common_ct_communication_get_current_connection(device()), type);
    }
    for (const unsigned char type : Bytes{0x80, 0xFF}) {
        reply_to({3, 2, 0, 0x10}, {base(3, {0x10, 1, type})});
        EXPECT_EQ(ssp_common_ct_communication_get_current_connection(device()), -1);
    }
    EXPECT_THAT(said(), AllOf(Says("Incorrect type value -128"), Says("Incorrect type value -1"),
                              Says("Error, incorrect type: -1 from "
                                   "ct_communication_get_current_connection_type_from_reply_message()")));
}

TEST_F(SspPadDescTest, ConnectionReplyCheck) {
    const auto type_in = [](const Bytes& payload) {
        return ct_communication_get_current_connection_type_from_reply_message(payload.data());
    };
    EXPECT_EQ(type_in({0x10, 1, 5}), 5);
    EXPECT_EQ(type_in({0x11, 1, 5}), -1);
    EXPECT_EQ(type_in({0x10, 3, 5}), -1);
    EXPECT_THAT(said(),
                AllOf(Says("Wrong message_id, it is 17, but must be 16"), Says("Wrong Protocol Result 3, must be 1")));
}

TEST_F(SspPadDescTest, SettingTheConnectionDoesNotWaitForAReply) {
    know_tables();
    reply_to({3, 2, 0, 0x11}, {base(3, {0x11, 1})});
    EXPECT_EQ(ssp_common_ct_communication_set_current_connection(device(), 0x102), 0);
    EXPECT_THAT(model.asked, ElementsAre(base(3, {0x11, 2, 0})));
    EXPECT_THAT(bus().log(), SizeIs(1));
    // The reply that comes anyway is nobody's; the next send drops what was queued of it.
    pad.incoming.push_back(framed(pen({1})));
    EXPECT_EQ(receive(device(), pen_data), (Received{0, pen({1})}));
    EXPECT_EQ(queued(device()->ssp_command_messages), 1);
    model.replace = nullptr;
    EXPECT_EQ(ssp_common_ct_communication_get_current_connection(device()), 2);
}

TEST_F(SspPadDescTest, SettingTheConnectionGivesTheSendsResult) {
    know_tables();
    bus().hooks.bulk_out = always{LIBUSB_ERROR_PIPE};
    EXPECT_EQ(ssp_common_ct_communication_set_current_connection(device(), 1), LIBUSB_ERROR_PIPE);
    model.components = {11};
    EXPECT_EQ(ssp_common_ct_communication_set_current_connection(nullptr, 1), -1);
}

} // namespace
} // namespace core_test
