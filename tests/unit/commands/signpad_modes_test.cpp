// Modes of a pad's signpad, and its buttons.
#include "ssp_pad_test.hpp"

namespace core_test {
namespace {

class SignpadModesTest : public SspPadTest {
  protected:
    int mode_of(int type) { return ssp_common_ct_signpad_get_mode_id(device(), type); }
};

TEST_F(SignpadModesTest, ModeIdIsThePositionInTheList) {
    EXPECT_EQ(mode_of(13), 0);
    EXPECT_EQ(mode_of(5), 1);
    EXPECT_EQ(mode_of(0), 2);
    EXPECT_EQ(mode_of(6), 3);
    EXPECT_EQ(mode_of(14), -2);
    EXPECT_THAT(model.asked, ElementsAre(component_query, mode_query));
}

TEST_F(SignpadModesTest, ModeTypesAreLittleEndianWords) {
    model.modes = {0x0D000000, 0x0D0D, 13};
    EXPECT_EQ(mode_of(13), 2);
    EXPECT_EQ(mode_of(0x0D0D), 1);
}

// A caller's number names no type that it cannot hold.
TEST_F(SignpadModesTest, ModeTypesBeyondAnIntAreNobodys) {
    model.modes = {0xFFFFFFFF, 0x8000000D, 13};
    EXPECT_EQ(mode_of(13), 2);
    EXPECT_EQ(mode_of(-1), -2);
    EXPECT_EQ(mode_of(static_cast<int>(0x8000000D)), -2);
}

// The length of the list takes both bytes of the header's field.
TEST_F(SignpadModesTest, ListOfMoreThan255BytesIsReadWhole) {
    for (const std::size_t count : {64U, 65U, 100U}) {
        model.modes.assign(count, 99);
        model.modes[31] = 5;
        EXPECT_EQ(mode_of(5), 31) << count;
        std::fill(std::begin(device()->modes_id_table), std::end(device()->modes_id_table), 0U);
    }
}

TEST_F(SignpadModesTest, TableKeepsTheFirst32Modes) {
    model.modes.assign(40, 99);
    model.modes[31] = 5;
    model.modes[32] = 6;
    EXPECT_EQ(mode_of(5), 31);
    EXPECT_EQ(mode_of(6), -2);
}

// Behind the list zeros follow, and 0 is a mode type.
TEST_F(SignpadModesTest, ModeThatIsNotListedIsNotFoundBehindTheList) {
    model.modes = {13, 5};
    EXPECT_EQ(mode_of(0), -2);
    EXPECT_EQ(mode_of(5), 1);
    EXPECT_EQ(device()->count_of_modes, 2);
    EXPECT_EQ(ssp_common_get_button_event(device(), 0), -2);
    EXPECT_EQ(ssp_common_signature_buttons_refresh(device()), -2);
}

TEST_F(SignpadModesTest, ModeOfTypeZeroMayStandAlone) {
    model.modes = {0};
    EXPECT_EQ(mode_of(0), 0);
    EXPECT_EQ(mode_of(5), -2);
}

TEST_F(SignpadModesTest, TableThatSomebodyElseFilledIsLookedAtAsAWhole) {
    device()->modes_id_table[0] = 5;
    device()->modes_id_table[3] = 6;
    EXPECT_EQ(mode_of(6), 3);
    EXPECT_EQ(mode_of(0), 1);
    EXPECT_THAT(model.asked, IsEmpty());
}

TEST_F(SignpadModesTest, ModeCountIsNotBelievedBeyondTheBytesThatCame) {
    // Two whole entries and a half.
    reply_to(mode_query, {base(1, list(0x12, 255, {5, 0, 0, 0, 13, 0, 0, 0, 6, 0}))});
    EXPECT_EQ(mode_of(13), 1);
    EXPECT_EQ(mode_of(6), -2);
    EXPECT_EQ(device()->modes_id_table[2], 0U);
}

TEST_F(SignpadModesTest, FailedModeQueryLeavesTheTableEmptyAndIsAskedAgain) {
    struct Wrong {
        Bytes payload;
        const char* text;
    };
    for (const auto& [payload, text] :
         {Wrong{{0x13, 1, 1, 5, 0, 0, 0}, "Wrong message_id, it is 19, but must be 18"},
          Wrong{{0x12, 2, 1, 5, 0, 0, 0}, "Wrong Protocol Result 2, must be 1"},
          Wrong{{0x12, 1, 0}, "Incorrect Count modes 0"}, Wrong{{0x12, 1, 1}, "Incorrect Count modes 1"},
          Wrong{{0x12, 1, 1, 5, 0, 0}, "Incorrect Count modes 1"}}) { // not even one whole entry
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

TEST_F(SignpadModesTest, OnlyTypes15To17HaveModes) {
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

TEST_F(SignpadModesTest, NoPadHasNoModes) {
    EXPECT_EQ(ssp_common_ct_signpad_get_mode_id(nullptr, 5), -1);
    EXPECT_EQ(ssp_common_ct_signpad_initialize_modes_id_table(nullptr), -1);
    EXPECT_EQ(times_said("Wrong device pointers, current_device is NULL..."), 2);
}

TEST_F(SignpadModesTest, MissingModeGivesMinusTwo) {
    model.modes = {7};
    EXPECT_EQ(ssp_common_get_user_input(device()), -2);
    EXPECT_EQ(ssp_common_get_button_event(device(), 5), -2);
    EXPECT_EQ(ssp_common_doc_view_buttons_refresh(device()), -2);
    EXPECT_THAT(said(), Says("Error of getting ct_signpad Mode ID, ssp_common_ct_signpad_get_mode_id() return -2"));
}

TEST_F(SignpadModesTest, ButtonEventsExistForThreeModes) {
    for (const int mode : {-1, 1, 4, 7, 13}) {
        EXPECT_EQ(ssp_common_get_button_event(device(), mode), -1);
        EXPECT_THAT(bus().log(), IsEmpty());
    }
}

TEST_F(SignpadModesTest, ReplyOfAnotherModeOrSubCommandIsRefused) {
    know_tables();
    reply_to({1, 2, 0, 0x13}, {base(1, {0x13, 1, 9, 0x10, 7})});
    EXPECT_EQ(ssp_common_get_user_input(device()), -1);
    EXPECT_THAT(said(), AllOf(Says("incorrect reply for CT_SIGNPAD cmd mode_send"),
                              Says("Error, check data by ct_signpad_mode_send_reply_check(data: 0x"),
                              Says("ct_cmd: 19, cts_mode_id: 0)")));
    reply_to({1, 2, 0, 0x13}, {base(1, {0x13, 1, 0, 0x12, 7})});
    EXPECT_EQ(ssp_common_get_user_input(device()), -1);
    EXPECT_THAT(said(), AllOf(Says("Wrong reply message with last event buttons state"), Says("button: -1"),
                              Not(Says("incorrect button value"))));
    forget();
    reply_to({1, 2, 0, 0x13}, {base(1, {0x13, 1, 1, 0x10, 7})});
    EXPECT_EQ(ssp_common_get_button_event(device(), 5), -1);
    EXPECT_THAT(said(), AllOf(Says("Error, incorrect button value -1"), Not(Says("button: -1"))));
    reply_to({1, 2, 0, 0x13}, {base(1, {0x13, 1, 1, 0x11, 7})});
    EXPECT_EQ(ssp_common_doc_view_buttons_refresh(device()), -1);
}

TEST_F(SignpadModesTest, LegacyReplyToAButtonQueryIsDumped) {
    know_tables();
    reply_to({1, 2, 0, 0x13}, {legacy({0x13, 1, 1, 0x12, 7})});
    EXPECT_EQ(ssp_common_get_button_event(device(), 5), -1);
    EXPECT_THAT(said(), Says("[ 84 13 01 01 12 07 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ]"));
}

TEST_F(SignpadModesTest, ButtonIsTraced) {
    ssp_common_get_user_input(device());
    EXPECT_THAT(said(), Says("button: 119"));
}

TEST_F(SignpadModesTest, ReplyChecksLookAtTheirBytes) {
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
