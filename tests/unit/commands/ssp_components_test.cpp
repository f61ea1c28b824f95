// Components of a pad and modes of its signpad.
#include "ssp_pad_test.hpp"

#include <cstdlib>

namespace core_test {
namespace {

class SspComponentsTest : public SspPadTest {
  protected:
    int id_of(int type) { return ssp_common_component_id_get_id(device(), type); }
    int mode_of(int type) { return ssp_common_ct_signpad_get_mode_id(device(), type); }
    static Bytes list(unsigned char id, unsigned char count, const Bytes& entries) {
        return Bytes{id, 1, count} + entries;
    }
};

TEST_F(SspComponentsTest, IdIsThePositionInTheList) {
    EXPECT_EQ(id_of(11), 1);
    EXPECT_EQ(id_of(3), 2);
    EXPECT_EQ(id_of(1), 3);
    EXPECT_EQ(id_of(5), 0);
    EXPECT_EQ(id_of(4), -2);
    EXPECT_EQ(id_of(256 + 11), -2);
    EXPECT_EQ(id_of(-1), -2);
    EXPECT_THAT(model.asked, ElementsAre(component_query));
    EXPECT_THAT(bus().log(), ElementsAre(bulk_out(framed(component_query)), bulk_in(4096, 1000)));
}

TEST_F(SspComponentsTest, FirstOfEqualTypesCounts) {
    model.components = {9, 11, 11};
    EXPECT_EQ(id_of(11), 1);
}

TEST_F(SspComponentsTest, TableKeepsTheFirst128Types) {
    model.components.assign(200, 1);
    model.components[127] = 11;
    model.components[128] = 3;
    EXPECT_EQ(id_of(11), 127);
    EXPECT_EQ(id_of(3), -2);
    EXPECT_EQ(device()->modes_id_table[0], 0U); // what stands behind the table is left alone
}

TEST_F(SspComponentsTest, CountIsNotBelievedBeyondTheBytesThatCame) {
    reply_to(component_query, {base(0, list(0x10, 255, {5, 11}))});
    EXPECT_EQ(id_of(11), 1);
    EXPECT_EQ(id_of(3), -2);
    for (std::size_t i = 2; i < 128; ++i) {
        EXPECT_EQ(device()->components_id_table[i], 0);
    }
}

TEST_F(SspComponentsTest, CountBoundsTheBytesThatCame) {
    reply_to(component_query, {base(0, list(0x10, 1, {5, 11}))});
    EXPECT_EQ(id_of(11), -2);
}

TEST_F(SspComponentsTest, FailedQueryLeavesTheTableEmptyAndIsAskedAgain) {
    struct Wrong {
        Bytes payload;
        const char* text;
    };
    for (const auto& [payload, text] :
         {Wrong{{0x11, 1, 1, 5}, "Wrong message ID, it is 17, but must be 16"},
          Wrong{{0x10, 0, 1, 5}, "Wrong Component Protocol Result 0"},
          Wrong{{0x10, 1, 0}, "Incorrect Component Count 0"}, Wrong{{0x10}, "Wrong Component Protocol Result 0"},
          Wrong{{0x10, 1}, "Incorrect Component Count 0"}, Wrong{{0x10, 1, 1}, "Incorrect Component Count 1"},
          Wrong{{0x10, 1, 0, 11}, "Error, incorrect count of components 0"}}) {
        reply_to(component_query, {base(0, payload)});
        forget();
        EXPECT_EQ(id_of(11), -1);
        EXPECT_THAT(said(), Says(text));
        EXPECT_EQ(device()->components_id_table[0], 0);
        EXPECT_EQ(std::count(model.asked.begin(), model.asked.end(), component_query), 1);
        model.asked.clear();
    }
    model.replace = nullptr;
    EXPECT_EQ(id_of(11), 1);
}

// Its later bytes look like a list.
TEST_F(SspComponentsTest, LegacyMessageIsNoComponentList) {
    reply_to(component_query, {legacy({3, 0, 0x10, 1, 1, 11})});
    EXPECT_EQ(id_of(11), -1);
    EXPECT_THAT(said(), Says("Error, current message is not a Base Message"));
    EXPECT_EQ(device()->components_id_table[0], 0);
}

// The query goes to no component in particular and is answered by none in particular.
TEST_F(SspComponentsTest, ListOfAnotherComponentIsRefusedAndNotKept) {
    for (const unsigned char component : Bytes{1, 0x7F}) {
        reply_to(component_query, {base(component, list(0x10, 2, {11, 5}))});
        forget();
        EXPECT_EQ(id_of(11), -1);
        EXPECT_THAT(said(), Says("Error,  of ssp_base_message_check_component_id() for Base Message"));
        EXPECT_EQ(device()->components_id_table[0], 0);
    }
    model.replace = nullptr;
    EXPECT_EQ(id_of(11), 1);
}

TEST_F(SspComponentsTest, TableSurvivesLaterFailures) {
    know_tables();
    reply_to({1}, {});
    EXPECT_EQ(ssp_biodata_sending(device(), 1), -1);
    EXPECT_EQ(id_of(3), 2);
    EXPECT_THAT(model.asked, SizeIs(1));
}

// The probe.

TEST_F(SspComponentsTest, ProbeWaits100MsForAnyBaseMessage) {
    EXPECT_EQ(ssp_common_is_ssp_supported(device()), 1);
    EXPECT_THAT(bus().log(), ElementsAre(bulk_out({0xAA, 0x55, 2, 0, 0, 0, 0x10}), bulk_in(4096, 100)));
    EXPECT_THAT(said(), Says("bm_length: 7 "));
    reply_to(component_query, {base(9, {0})});
    EXPECT_EQ(ssp_common_is_ssp_supported(device()), 1);
    EXPECT_EQ(device()->components_id_table[0], 0); // it does not fill the table
}

TEST_F(SspComponentsTest, ProbeOfPadsWithoutSsp) {
    EXPECT_EQ(ssp_common_is_ssp_supported(nullptr), -1);
    reply_to(component_query, {legacy({0x10, 1, 1})});
    EXPECT_EQ(ssp_common_is_ssp_supported(device()), 0);
    reply_to(component_query, {});
    const auto started = bus().now_us();
    EXPECT_EQ(ssp_common_is_ssp_supported(device()), 0);
    EXPECT_LE(bus().now_us() - started, 110'000);
    EXPECT_THAT(said(), Says("Error, function __receive_ssp_message() return -7"));
    bus().hooks.bulk_out = always{LIBUSB_ERROR_PIPE};
    EXPECT_EQ(ssp_common_is_ssp_supported(device()), 0);
    EXPECT_THAT(said(), Says("function __send_ssp_message() return -9"));
}

// Building requests.

TEST_F(SspComponentsTest, ComponentRequestIsBuiltAsABaseMessage) {
    EXPECT_EQ(make_and_send_ssp_component_data_sequence(device(), 7, 0x12, 3, 4, nullptr, 0), 0);
    EXPECT_THAT(model.asked, ElementsAre(Bytes{7, 2, 0, 0x12, 3, 4}));
    const Bytes extra = counting(300);
    EXPECT_EQ(make_and_send_ssp_component_data_sequence(device(), 0x107, 0x12, 3, 4, extra.data(), 300), 0);
    EXPECT_EQ(model.asked.back(), (Bytes{7, 0x2E, 1, 0x12, 3, 4}) + extra);
    EXPECT_EQ(model.asked.back().size(), 306U);
}

TEST_F(SspComponentsTest, DataRequestIsBuiltAsABaseMessage) {
    EXPECT_EQ(make_and_send_ssp_data_sequence(device(), 2, 0x10, nullptr, 0), 0);
    EXPECT_THAT(model.asked, ElementsAre(Bytes{2, 0, 0, 0x10}));
    const Bytes data = counting(60);
    EXPECT_EQ(make_and_send_ssp_data_sequence(device(), 2, 0x14, data.data(), 60), 0);
    EXPECT_EQ(model.asked.back(), (Bytes{2, 60, 0, 0x14}) + data);
}

TEST_F(SspComponentsTest, DataBeyondTheLengthFieldIsNotSent) {
    const Bytes data(70'000);
    EXPECT_LT(make_and_send_ssp_data_sequence(device(), 2, 0x10, data.data(), 65'536), 0);
    EXPECT_LT(make_and_send_ssp_component_data_sequence(device(), 2, 0x10, 0, 0, data.data(), 65'534), 0);
    EXPECT_LT(make_and_send_ssp_component_data_sequence(device(), 2, 0x10, 0, 0, data.data(), 0xFFFFFFFF), 0);
    EXPECT_THAT(bus().log(), IsEmpty());
    EXPECT_EQ(make_and_send_ssp_data_sequence(device(), 2, 0x10, data.data(), 65'535), 0);
    EXPECT_EQ(model.asked.back().size(), 65'539U);
}

TEST_F(SspComponentsTest, ReplyComesInABufferOfTheCallers) {
    pad.incoming.push_back(framed(base(4, {0x55, 1, 2})));
    unsigned char* const reply = receive_ssp_message_and_get_data(device());
    ASSERT_NE(reply, nullptr);
    EXPECT_EQ(Bytes(reply, reply + 1024), base(4, {0x55, 1, 2}) + Bytes(1018));
    std::free(reply);
    EXPECT_EQ(receive_ssp_message_and_get_data(device()), nullptr);
    EXPECT_EQ(receive_ssp_message_and_get_data(nullptr), nullptr);
}

// Through the record's entries, with the flags of a reply.
TEST_F(SspComponentsTest, TransportIsReachedThroughTheRecord) {
    static std::vector<unsigned int> seen;
    seen.clear();
    device()->send_ssp_message = [](vx_device*, void*, unsigned int size) {
        seen.push_back(size);
        return 42;
    };
    device()->receive_ssp_message = [](vx_device*, void*, unsigned int*, unsigned int time_out, unsigned char flag,
                                       int selector) {
        seen.insert(seen.end(), {time_out, flag, static_cast<unsigned int>(selector)});
        return -33;
    };
    unsigned char byte = 0;
    unsigned int size = 1;
    EXPECT_EQ(send_ssp_message(device(), &byte, 9), 42);
    EXPECT_EQ(receive_ssp_message(device(), &byte, &size, 77, 1, 1), -33);
    EXPECT_THAT(seen, ElementsAre(9U, 77U, 0U, 0U));
    device()->send_ssp_message = __send_ssp_message;
    device()->receive_ssp_message = __receive_ssp_message;
}

// Modes.

TEST_F(SspComponentsTest, ModeIdIsThePositionInTheList) {
    EXPECT_EQ(mode_of(13), 0);
    EXPECT_EQ(mode_of(5), 1);
    EXPECT_EQ(mode_of(0), 2);
    EXPECT_EQ(mode_of(6), 3);
    EXPECT_EQ(mode_of(14), -2);
    EXPECT_THAT(model.asked, ElementsAre(component_query, mode_query));
}

TEST_F(SspComponentsTest, ModeTypesAreLittleEndianWords) {
    model.modes = {0x0D000000, 0x0D0D, 13};
    EXPECT_EQ(mode_of(13), 2);
    EXPECT_EQ(mode_of(0x0D0D), 1);
}

// A caller's number names no type that it cannot hold.
TEST_F(SspComponentsTest, ModeTypesBeyondAnIntAreNobodys) {
    model.modes = {0xFFFFFFFF, 0x8000000D, 13};
    EXPECT_EQ(mode_of(13), 2);
    EXPECT_EQ(mode_of(-1), -2);
    EXPECT_EQ(mode_of(static_cast<int>(0x8000000D)), -2);
}

// The length of the list takes both bytes of the header's field.
TEST_F(SspComponentsTest, ListOfMoreThan255BytesIsReadWhole) {
    for (const std::size_t count : {64U, 65U, 100U}) {
        model.modes.assign(count, 99);
        model.modes[31] = 5;
        EXPECT_EQ(mode_of(5), 31) << count;
        std::fill(std::begin(device()->modes_id_table), std::end(device()->modes_id_table), 0U);
    }
}

TEST_F(SspComponentsTest, TableKeepsTheFirst32Modes) {
    model.modes.assign(40, 99);
    model.modes[31] = 5;
    model.modes[32] = 6;
    EXPECT_EQ(mode_of(5), 31);
    EXPECT_EQ(mode_of(6), -2);
}

// Behind the list zeros follow, and 0 is a mode type.
TEST_F(SspComponentsTest, ModeThatIsNotListedIsNotFoundBehindTheList) {
    model.modes = {13, 5};
    EXPECT_EQ(mode_of(0), -2);
    EXPECT_EQ(mode_of(5), 1);
    EXPECT_EQ(device()->count_of_modes, 2);
    EXPECT_EQ(ssp_common_get_button_event(device(), 0), -2);
    EXPECT_EQ(ssp_common_signature_buttons_refresh(device()), -2);
}

TEST_F(SspComponentsTest, ModeOfTypeZeroMayStandAlone) {
    model.modes = {0};
    EXPECT_EQ(mode_of(0), 0);
    EXPECT_EQ(mode_of(5), -2);
}

TEST_F(SspComponentsTest, TableThatSomebodyElseFilledIsLookedAtAsAWhole) {
    device()->modes_id_table[0] = 5;
    device()->modes_id_table[3] = 6;
    EXPECT_EQ(mode_of(6), 3);
    EXPECT_EQ(mode_of(0), 1);
    EXPECT_THAT(model.asked, IsEmpty());
}

TEST_F(SspComponentsTest, ModeCountIsNotBelievedBeyondTheBytesThatCame) {
    // Two whole entries and a half.
    reply_to(mode_query, {base(1, list(0x12, 255, {5, 0, 0, 0, 13, 0, 0, 0, 6, 0}))});
    EXPECT_EQ(mode_of(13), 1);
    EXPECT_EQ(mode_of(6), -2);
    EXPECT_EQ(device()->modes_id_table[2], 0U);
}

TEST_F(SspComponentsTest, FailedModeQueryLeavesTheTableEmptyAndIsAskedAgain) {
    struct Wrong {
        Bytes payload;
        const char* text;
    };
    for (const auto& [payload, text] :
         {Wrong{{0x13, 1, 1, 5, 0, 0, 0}, "Wrong message_id, it is 19, but must be 18"},
          Wrong{{0x12, 2, 1, 5, 0, 0, 0}, "Wrong Protocol Result 2, must be 1"},
          Wrong{{0x12, 1, 0}, "Incorrect Count modes 0"}, Wrong{{0x12, 1, 1}, "Incorrect Count modes 1"}}) {
        reply_to(mode_query, {base(1, payload)});
        EXPECT_EQ(mode_of(5), -1);
        EXPECT_THAT(said(), Says(text));
        EXPECT_EQ(device()->modes_id_table[0], 0U);
    }
    EXPECT_THAT(said(), AllOf(Says("Error, incorrect count of modes in component ct_signpad 0"),
                              Says("Can not initialize ct_signpad Mode ID table, "
                                   "ssp_initialize_ct_signpad_modes_id_table() return: -1")));
    model.replace = nullptr;
    EXPECT_EQ(mode_of(5), 1);
}

TEST_F(SspComponentsTest, OnlyTypes15To17HaveModes) {
    for (const unsigned int type : {0U, 1U, 8U, 13U, 14U, 18U}) {
        device()->pad_type = type;
        forget();
        EXPECT_EQ(mode_of(5), -1);
        EXPECT_THAT(bus().log(), IsEmpty()) << type;
        EXPECT_THAT(said(), Says("Getting SSP ct_signpad Mode ID is not supported for current Device"));
        EXPECT_EQ(ssp_common_get_user_input(device()), -1);
        EXPECT_EQ(ssp_common_get_button_event(device(), 0), -1);
        EXPECT_EQ(ssp_common_doc_view_buttons_refresh(device()), -1);
        EXPECT_EQ(ssp_common_signature_buttons_refresh(device()), -1);
        EXPECT_EQ(ssp_common_doc_sign_buttons_refresh(device()), -1);
        EXPECT_EQ(ssp_common_set_button_state(device(), 205, 1, 1, 0), -1);
        EXPECT_THAT(bus().log(), IsEmpty()) << type;
        EXPECT_EQ(device()->components_id_table[0], 0);
    }
    for (const unsigned int type : {15U, 16U, 17U}) {
        device()->pad_type = type;
        std::fill(std::begin(device()->modes_id_table), std::end(device()->modes_id_table), 0U);
        model.asked.clear();
        EXPECT_EQ(mode_of(5), 1);
        EXPECT_THAT(model.asked, Contains(mode_query)) << type;
    }
}

TEST_F(SspComponentsTest, MissingModeGivesMinusTwo) {
    model.modes = {7};
    EXPECT_EQ(ssp_common_get_user_input(device()), -2);
    EXPECT_EQ(ssp_common_get_button_event(device(), 5), -2);
    EXPECT_EQ(ssp_common_doc_view_buttons_refresh(device()), -2);
    EXPECT_THAT(said(), Says("Error of getting ct_signpad Mode ID, ssp_common_ct_signpad_get_mode_id() return -2"));
}

TEST_F(SspComponentsTest, ButtonEventsExistForThreeModes) {
    for (const int mode : {-1, 1, 4, 7, 13}) {
        EXPECT_EQ(ssp_common_get_button_event(device(), mode), -1);
        EXPECT_THAT(bus().log(), IsEmpty());
    }
}

TEST_F(SspComponentsTest, ReplyOfAnotherModeOrSubCommandIsRefused) {
    know_tables();
    reply_to({1, 2, 0, 0x13}, {base(1, {0x13, 1, 9, 0x10, 7})});
    EXPECT_EQ(ssp_common_get_user_input(device()), -1);
    EXPECT_THAT(said(), AllOf(Says("incorrect reply for CT_SIGNPAD cmd mode_send"),
                              Says("Error, check data by ct_signpad_mode_send_reply_check(data: 0x"),
                              Says("ct_cmd: 19, cts_mode_id: 0)")));
    reply_to({1, 2, 0, 0x13}, {base(1, {0x13, 1, 0, 0x12, 7})});
    EXPECT_EQ(ssp_common_get_user_input(device()), -1);
    EXPECT_THAT(said(), Says("Wrong reply message with last event buttons state"));
    reply_to({1, 2, 0, 0x13}, {base(1, {0x13, 1, 1, 0x10, 7})});
    EXPECT_EQ(ssp_common_get_button_event(device(), 5), -1);
    EXPECT_THAT(said(), Says("Error, incorrect button value -1"));
    reply_to({1, 2, 0, 0x13}, {base(1, {0x13, 1, 1, 0x11, 7})});
    EXPECT_EQ(ssp_common_doc_view_buttons_refresh(device()), -1);
}

TEST_F(SspComponentsTest, LegacyReplyToAButtonQueryIsDumped) {
    know_tables();
    reply_to({1, 2, 0, 0x13}, {legacy({0x13, 1, 1, 0x12, 7})});
    EXPECT_EQ(ssp_common_get_button_event(device(), 5), -1);
    EXPECT_THAT(said(), Says("[ 84 13 01 01 12 07 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ]"));
}

TEST_F(SspComponentsTest, ButtonIsTraced) {
    ssp_common_get_user_input(device());
    EXPECT_THAT(said(), Says("button: 119"));
}

TEST_F(SspComponentsTest, ReplyChecksLookAtTheirBytes) {
    EXPECT_EQ(ct_signpad_mode_send_reply_check(Bytes{0x13, 1, 4}.data(), 0x13, 4), 0);
    EXPECT_EQ(ct_signpad_mode_send_reply_check(Bytes{0x12, 1, 4}.data(), 0x13, 4), -1);
    EXPECT_EQ(ct_signpad_mode_send_reply_check(Bytes{0x13, 0, 4}.data(), 0x13, 4), -1);
    EXPECT_EQ(ct_signpad_mode_send_reply_check(Bytes{0x13, 1, 5}.data(), 0x13, 4), -1);
    EXPECT_EQ(ct_signpad_mode_send_reply_check(Bytes{0x13, 1, 0x84}.data(), 0x13, 4), -1);
    EXPECT_EQ(ct_signpad_mode_send_reply_check(Bytes{0x13, 1, 0x84}.data(), 0x13, 0x84), 0);
    EXPECT_EQ(ct_signpad_mode_send_mt_uni_cmd_button_last_event_get(Bytes{0x12, 255}.data(), 0x12), 255);
    EXPECT_EQ(ct_signpad_mode_send_mt_uni_cmd_button_last_event_get(Bytes{0x13, 5}.data(), 0x12), -1);
}

} // namespace
} // namespace core_test
