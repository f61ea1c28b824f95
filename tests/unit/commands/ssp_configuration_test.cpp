// Configuration variables and buttons.
#include "ssp_pad_test.hpp"

namespace core_test {
namespace {

const Bytes state_query = base(2, {0x10});

Bytes text_bytes(const std::string& text, std::size_t size) {
    Bytes bytes(text.begin(), text.end());
    bytes.resize(size);
    return bytes;
}
Bytes set_message(const std::string& key, const std::string& value) {
    return base(2, Bytes{0x14} + text_bytes(key, 40) + text_bytes(value, 20));
}

class SspConfigurationTest : public SspPadTest {
  protected:
    // States that the handler goes through, the last for ever; other messages get the pad's own answers.
    void states(std::vector<int> values) {
        model.replace = [values = std::move(values),
                         at = std::size_t{0}](const Bytes& message) mutable -> std::optional<std::vector<Bytes>> {
            if (message != state_query) {
                return std::nullopt;
            }
            const int state = values[std::min(at++, values.size() - 1)];
            return std::vector<Bytes>{base(2, {0x10, 1, static_cast<unsigned char>(state)})};
        };
    }
    int wait() { return ssp_common_check_configuration_state(device()); }
    int set(const std::string& key, const std::string& value) {
        return ssp_common_set_configuration_variable(device(), key.c_str(), value.c_str());
    }
};

TEST_F(SspConfigurationTest, WaitEndsWithAnIdleHandler) {
    know_tables();
    for (const int state : {0, 3, 4}) {
        states({state});
        model.asked.clear();
        EXPECT_EQ(wait(), state);
        EXPECT_THAT(model.asked, ElementsAre(state_query));
    }
    EXPECT_THAT(bus().pauses(), IsEmpty());
}

TEST_F(SspConfigurationTest, WaitPausesWhileTheHandlerIsBusy) {
    know_tables();
    states({1, 2, 1, 3});
    EXPECT_EQ(wait(), 3);
    EXPECT_EQ(bus().pauses(), (Pauses{600, 1800, 5400}));
    EXPECT_THAT(said(), Says("state == CHS_WAITING || state == CHS_RUNNING, going to try again after usleep(1800)"));
}

TEST_F(SspConfigurationTest, WaitGivesUpAfterTenSecondsAndOvershootsTheCapOnce) {
    know_tables();
    bus().cost_us.clear();
    states({2});
    const auto started = bus().now_us();
    EXPECT_EQ(wait(), 2);
    const Pauses pauses = bus().pauses();
    const Pauses beginning{600, 1800, 5400, 16'200, 48'600, 145'800, 437'400, 1'312'200};
    ASSERT_GT(pauses.size(), beginning.size());
    EXPECT_EQ(Pauses(pauses.begin(), pauses.begin() + 8), beginning);
    EXPECT_THAT(Pauses(pauses.begin() + 8, pauses.end()), Each(500'000U));
    // 1968 ms, then 500 each up to the limit
    EXPECT_EQ(pauses.size(), 8U + 17U);
    EXPECT_GE(bus().now_us() - started, 10'000'000);
    EXPECT_LE(bus().now_us() - started, 10'600'000);
}

TEST_F(SspConfigurationTest, WaitRepeatsOnUnknownStatesAndFailures) {
    know_tables();
    states({7, 255, 1, 0});
    EXPECT_EQ(wait(), 0);
    EXPECT_EQ(bus().pauses(), (Pauses{600})); // only busy states are paused for
    EXPECT_THAT(model.asked, SizeIs(4));

    int queries = 0;
    model.replace = [&](const Bytes&) -> std::optional<std::vector<Bytes>> {
        if (++queries == 1) {
            return std::vector<Bytes>{base(2, {0x10, 0, 0})};
        }
        return std::nullopt;
    };
    EXPECT_EQ(wait(), 0);
    EXPECT_EQ(queries, 2);
}

// As for a busy handler: a pad that refuses the query would be asked thousands of times a second.
TEST_F(SspConfigurationTest, WaitPausesBetweenQueriesThatFail) {
    know_tables();
    bus().cost_us["libusb_bulk_transfer"] = 100;
    reply_to(state_query, {base(2, {0x10, 0, 0})});
    const auto started = bus().now_us();
    EXPECT_LT(wait(), 0);
    const Pauses pauses = bus().pauses();
    const Pauses beginning{600, 1800, 5400, 16'200, 48'600, 145'800, 437'400, 1'312'200};
    EXPECT_EQ(pauses.size(), 8U + 17U);
    EXPECT_EQ(Pauses(pauses.begin(), pauses.begin() + 8), beginning);
    EXPECT_THAT(model.asked, SizeIs(pauses.size()));
    EXPECT_GE(bus().now_us() - started, 10'000'000);
    EXPECT_THAT(said(), Says("query of the state failed with -1, going to try again after usleep(600)"));
}

TEST_F(SspConfigurationTest, WaitPausesWhereThePadHasNoHandler) {
    model.components = {5, 11};
    know_tables();
    EXPECT_LT(wait(), 0);
    EXPECT_THAT(bus().pauses(), SizeIs(8U + 17U));
    EXPECT_LE(times_said("Error of getting Component ID"), 30);
}

// What is told is the last state that the handler had.
TEST_F(SspConfigurationTest, WaitWhoseQueriesFailBehindABusyHandlerTellsThatItWasBusy) {
    know_tables();
    int queries = 0;
    model.replace = [&](const Bytes&) {
        return std::optional(
            std::vector<Bytes>{base(2, {0x10, static_cast<unsigned char>(++queries == 1 ? 1 : 0), 2})});
    };
    EXPECT_EQ(wait(), 2);
    EXPECT_GT(queries, 10);
}

TEST_F(SspConfigurationTest, ChangeWhoseWaitGotNoAnswerIsAFailure) {
    know_tables();
    int queries = 0;
    model.replace = [&](const Bytes& message) -> std::optional<std::vector<Bytes>> {
        if (message != state_query || ++queries == 1) {
            return std::nullopt;
        }
        return std::vector<Bytes>{base(2, {0x10, 0, 0})};
    };
    EXPECT_EQ(set("k", "v"), -1);
    EXPECT_THAT(said(), Says("Error, ssp_common_get_configuration_state() return -1"));
    queries = 0;
    EXPECT_EQ(ssp_common_persist_configuration_variable(device(), "k"), -1);
    // The wait before it is not the change's own.
    queries = 0;
    model.replace = [&](const Bytes& message) -> std::optional<std::vector<Bytes>> {
        if (message != state_query || model.asked.size() > 30) {
            return std::nullopt;
        }
        return ++queries > 25 ? std::nullopt : std::optional(std::vector<Bytes>{base(2, {0x10, 0, 0})});
    };
    model.asked.clear();
    EXPECT_EQ(set("k", "v"), 0);
}

TEST_F(SspConfigurationTest, WaitEndsWithALostPadAtOnce) {
    know_tables();
    bus().unplug(pad);
    const auto started = bus().now_us();
    EXPECT_EQ(wait(), -4);
    EXPECT_LE(bus().now_us() - started, 100'000);
}

TEST_F(SspConfigurationTest, WaitEndsWithAPadThatIsPulledOutDuringAQuery) {
    know_tables();
    model.replace = [this](const Bytes&) {
        bus().unplug(pad);
        return std::optional(std::vector<Bytes>{});
    };
    const auto started = bus().now_us();
    EXPECT_EQ(wait(), -4);
    EXPECT_LE(bus().now_us() - started, 100'000);
}

// No query of a closed record takes time: without the mark the wait would spin for its whole limit.
TEST_F(SspConfigurationTest, WaitAndSetOfARemovedRecordEndAtOnce) {
    know_tables();
    core_close_dev(device());
    device()->was_removed = 1;
    bus().hooks.usb = always{LIBUSB_ERROR_NO_DEVICE};
    forget();
    const auto started = bus().now_us();
    EXPECT_EQ(wait(), -4);
    EXPECT_LE(times_said("Error"), 5);
    forget();
    EXPECT_EQ(set("k", "v"), -1);
    EXPECT_LE(times_said("Error"), 10);
    EXPECT_EQ(ssp_common_persist_configuration_variable(device(), "k"), -1);
    EXPECT_LE(bus().now_us() - started, 10'000);
    EXPECT_THAT(bus().log("libusb_bulk_transfer"), IsEmpty());
}

TEST_F(SspConfigurationTest, OtherTypesDoNotWait) {
    for (const unsigned int type : {0U, 8U, 14U, 18U}) {
        device()->pad_type = type;
        EXPECT_EQ(wait(), 0);
    }
    EXPECT_THAT(bus().log(), IsEmpty());
    EXPECT_EQ(ssp_common_check_configuration_state(nullptr), -1);
}

TEST_F(SspConfigurationTest, SetWaitsSetsAndWaits) {
    know_tables();
    EXPECT_EQ(set("a.key", "value"), 0);
    EXPECT_THAT(model.asked, ElementsAre(state_query, set_message("a.key", "value"), state_query));
    EXPECT_EQ(model.asked[1].size(), 64U);
}

TEST_F(SspConfigurationTest, SetWorksOnOtherTypesWithoutTheWaits) {
    device()->pad_type = 9;
    know_tables();
    EXPECT_EQ(set("a.key", "value"), 0);
    EXPECT_THAT(model.asked, ElementsAre(set_message("a.key", "value")));
}

TEST_F(SspConfigurationTest, LongKeysAndValuesAreCut) {
    know_tables();
    const std::string key(50, 'k');
    const std::string value(25, 'v');
    EXPECT_EQ(set(key, value), 0);
    EXPECT_EQ(model.asked[1], base(2, Bytes{0x14} + Bytes(40, 'k') + Bytes(20, 'v')));
    EXPECT_EQ(set(std::string(40, 'k'), std::string(20, 'v')), 0);
    EXPECT_EQ(model.asked[4], model.asked[1]);
}

TEST_F(SspConfigurationTest, PersistSendsTheKeyOnly) {
    know_tables();
    EXPECT_EQ(ssp_common_persist_configuration_variable(device(), "a.key"), 0);
    EXPECT_THAT(model.asked, ElementsAre(state_query, base(2, Bytes{0x17} + text_bytes("a.key", 60)), state_query));
}

TEST_F(SspConfigurationTest, FailedStateAfterwardsIsAFailure) {
    know_tables();
    states({0, 1, 4});
    EXPECT_EQ(set("k", "v"), -1);
    EXPECT_THAT(said(), Says("Error, ssp_common_get_configuration_state() return 4"));
    states({4, 3}); // a failure of before does not matter
    EXPECT_EQ(set("k", "v"), 0);
    states({4});
    EXPECT_EQ(ssp_common_persist_configuration_variable(device(), "k"), -1);
}

TEST_F(SspConfigurationTest, RefusedChangeIsAFailureAndNotWaitedFor) {
    know_tables();
    for (const Bytes& wrong : {Bytes{0x14, 0}, Bytes{0x17, 1}, Bytes{0x14}}) {
        reply_to({2, 60, 0, 0x14}, {base(2, wrong)});
        model.asked.clear();
        EXPECT_EQ(set("k", "v"), -1);
        EXPECT_THAT(model.asked, SizeIs(2));
    }
    EXPECT_THAT(said(), Says("Error, cmduni_reply_check_cc() return -1"));
}

TEST_F(SspConfigurationTest, FailedSendIsReported) {
    know_tables();
    device()->pad_type = 9;
    bus().hooks.bulk_out = always{LIBUSB_ERROR_PIPE};
    EXPECT_EQ(set("k", "v"), -1);
    EXPECT_THAT(said(), Says("Error of make_and_send_ssp_data_sequence(), it returns -9"));
    EXPECT_EQ(ssp_common_persist_configuration_variable(device(), "k"), -1);
    bus().hooks.bulk_out = always{LIBUSB_ERROR_NO_DEVICE};
    EXPECT_EQ(set("k", "v"), -1);
    EXPECT_EQ(ssp_common_persist_configuration_variable(device(), "k"), -1);
    EXPECT_EQ(device()->was_removed, 1);
}

TEST_F(SspConfigurationTest, MissingHandlerGivesMinusTwoWithoutAWait) {
    model.components = {5, 11};
    EXPECT_EQ(set("k", "v"), -2);
    EXPECT_THAT(model.asked, ElementsAre(component_query));
}

TEST_F(SspConfigurationTest, MissingArguments) {
    EXPECT_EQ(ssp_common_set_configuration_variable(nullptr, "k", "v"), -1);
    EXPECT_LT(ssp_common_set_configuration_variable(device(), nullptr, "v"), 0);
    EXPECT_LT(ssp_common_set_configuration_variable(device(), "k", nullptr), 0);
    EXPECT_EQ(ssp_common_persist_configuration_variable(nullptr, "k"), -1);
    EXPECT_EQ(ssp_common_set_button_state(nullptr, 205, 1, 1, 0), -1);
}

// Buttons.

struct Button {
    unsigned char code;
    unsigned int mode;
    const char* key;
};
const Button buttons[] = {
    {205, 5, "vx.pad.mode.5.button.rotate.config"},    {200, 5, "vx.pad.mode.5.button.zoom.in.config"},
    {201, 5, "vx.pad.mode.5.button.zoom.out.config"},  {202, 5, "vx.pad.mode.5.button.next.config"},
    {203, 5, "vx.pad.mode.5.button.prev.config"},      {204, 5, "vx.pad.mode.5.button.ssig.config"},
    {99, 5, "vx.pad.mode.5.button.rotate.180.config"}, {209, 5, "vx.pad.mode.5.button.rotate.90.config"},
    {205, 0, "vx.pad.mode.0.button.rotate.config"},    {202, 0, "vx.pad.mode.0.button.next.config"},
    {203, 0, "vx.pad.mode.0.button.prev.config"},      {206, 0, "vx.pad.mode.0.button.ok.config"},
    {207, 0, "vx.pad.mode.0.button.repeat.config"},    {208, 0, "vx.pad.mode.0.button.cancel.config"},
    {99, 0, "vx.pad.mode.0.button.rotate.180.config"}, {209, 0, "vx.pad.mode.0.button.rotate.90.config"},
    {205, 6, "vx.pad.mode.6.button.rotate.config"},    {202, 6, "vx.pad.mode.6.button.next.config"},
    {203, 6, "vx.pad.mode.6.button.prev.config"},      {206, 6, "vx.pad.mode.6.button.ok.config"},
    {207, 6, "vx.pad.mode.6.button.repeat.config"},    {208, 6, "vx.pad.mode.6.button.cancel.config"},
    {99, 6, "vx.pad.mode.6.button.rotate.180.config"}, {209, 6, "vx.pad.mode.6.button.rotate.90.config"},
};

TEST_F(SspConfigurationTest, EveryButtonOfEveryModeHasItsKey) {
    know_tables();
    for (unsigned int mode = 0; mode < 8; ++mode) {
        for (unsigned int code = 0; code < 256; ++code) {
            const auto button = std::find_if(std::begin(buttons), std::end(buttons),
                                             [&](const Button& one) { return one.code == code && one.mode == mode; });
            model.asked.clear();
            const int result = ssp_common_set_button_state(device(), static_cast<unsigned char>(code), 1, 255, mode);
            if (button == std::end(buttons)) {
                EXPECT_EQ(result, -1) << code << ", " << mode;
                EXPECT_THAT(model.asked, IsEmpty());
            } else {
                EXPECT_EQ(result, 0) << code << ", " << mode;
                ASSERT_EQ(model.asked.size(), 3U);
                EXPECT_EQ(model.asked[1], set_message(button->key, "01000000FF000000"));
            }
        }
    }
}

// Not even what components there are is asked for.
TEST_F(SspConfigurationTest, ButtonThatAModeLacksFailsWithoutTraffic) {
    for (const auto& [code, mode] : {std::pair{206, 5U}, std::pair{200, 0U}, std::pair{204, 6U}, std::pair{205, 1U}}) {
        EXPECT_EQ(ssp_common_set_button_state(device(), static_cast<unsigned char>(code), 1, 1, mode), -1);
        EXPECT_THAT(bus().log(), IsEmpty()) << code << ", " << mode;
    }
}

TEST_F(SspConfigurationTest, OnlyType17RotatesBy180) {
    for (const unsigned int type : {15U, 16U}) {
        device()->pad_type = type;
        know_tables();
        EXPECT_EQ(ssp_common_set_button_state(device(), 205, 1, 255, 0), 0);
        EXPECT_EQ(model.asked[1], set_message("vx.pad.mode.0.button.rotate.config", "01000000FF000000"));
    }
    device()->pad_type = 17;
    know_tables();
    EXPECT_EQ(ssp_common_set_button_state(device(), 205, 0x89ABCDEF, 0x10, 0), 0);
    EXPECT_EQ(model.asked[1], set_message("vx.pad.mode.0.button.rotate.180.config", "EFCDAB8910000000"));
}

TEST_F(SspConfigurationTest, FailedVariableIsReportedByTheButton) {
    know_tables();
    reply_to({2, 60, 0, 0x14}, {base(2, {0x14, 0})});
    EXPECT_EQ(ssp_common_set_button_state(device(), 205, 1, 2, 0), -1);
    EXPECT_THAT(said(), Says("Error of , ssp_common_set_configuration_variable() it returns -1"));
}

TEST_F(SspConfigurationTest, KeyLookUpEndsAtTheFirstZeroCode) {
    const vx_conf_key table[] = {{1, 5, "one"}, {2, 5, "two"}, {2, 5, "late"}, {0, 0, ""}, {3, 5, "behind"}};
    EXPECT_STREQ(get_conf_var_string_for_code(table, 2, 5), "two");
    EXPECT_EQ(get_conf_var_string_for_code(table, 2, 6), nullptr);
    EXPECT_EQ(get_conf_var_string_for_code(table, 3, 5), nullptr);
    EXPECT_EQ(get_conf_var_string_for_code(table, 0, 0), nullptr);
    EXPECT_EQ(get_conf_var_string_for_code(nullptr, 1, 5), nullptr);
}

TEST_F(SspConfigurationTest, HexString) {
    const Bytes data{0x01, 0xAB, 0x00, 0xFF};
    char text[12];
    std::memset(text, 'x', sizeof text);
    EXPECT_EQ(get_hex_string_from_data_for_conf_var_set(text, 10, data.data(), 4), text);
    EXPECT_STREQ(text, "01AB00FF");
    EXPECT_EQ(text[9], '\0'); // all of the string is cleared
    EXPECT_EQ(text[10], 'x');
    // Exactly twice the size leaves no room for a terminator.
    std::memset(text, 'x', sizeof text);
    EXPECT_EQ(get_hex_string_from_data_for_conf_var_set(text, 8, data.data(), 4), text);
    EXPECT_EQ(std::string(text, 9), "01AB00FFx");
}

TEST_F(SspConfigurationTest, HexStringChecksItsSizes) {
    const Bytes data(4);
    char text[8];
    EXPECT_EQ(get_hex_string_from_data_for_conf_var_set(text, 0, data.data(), 0), nullptr);
    EXPECT_THAT(said(), Says("Wrong data_size parameter, it is: 0"));
    EXPECT_EQ(get_hex_string_from_data_for_conf_var_set(text, 8, data.data(), -1), nullptr);
    EXPECT_EQ(get_hex_string_from_data_for_conf_var_set(text, 0, data.data(), 4), nullptr);
    EXPECT_THAT(said(), Says("Wrong string_size parameter, it is: 0"));
    EXPECT_EQ(get_hex_string_from_data_for_conf_var_set(text, -8, data.data(), 4), nullptr);
    EXPECT_EQ(get_hex_string_from_data_for_conf_var_set(text, 7, data.data(), 4), nullptr);
    EXPECT_THAT(said(), Says("Wrong string_size parameter, it is: 7, but data_size: 4"));
    EXPECT_EQ(get_hex_string_from_data_for_conf_var_set(text, 8, data.data(), 0x7FFFFFFF), nullptr);
}

TEST_F(SspConfigurationTest, HexStringNeedsBothBuffers) {
    const Bytes data(4);
    char text[8];
    std::memset(text, 'x', sizeof text);
    EXPECT_EQ(get_hex_string_from_data_for_conf_var_set(nullptr, 8, data.data(), 4), nullptr);
    EXPECT_EQ(get_hex_string_from_data_for_conf_var_set(text, 8, nullptr, 4), nullptr);
    EXPECT_EQ(std::string(text, sizeof text), "xxxxxxxx");
}

TEST_F(SspConfigurationTest, ReplyChecks) {
    EXPECT_EQ(cmduni_reply_check_cc(Bytes{0x14, 1}.data(), 0x14), 0);
    EXPECT_EQ(cmduni_reply_check_cc(Bytes{0x14, 2}.data(), 0x14), -1);
    EXPECT_EQ(cmduni_reply_check_cc(Bytes{0x15, 1}.data(), 0x14), -1);
    EXPECT_EQ(ct_conf_handler_cmd_conf_state_get(Bytes{0x10, 1, 4}.data(), 0x10), 4);
    EXPECT_EQ(ct_conf_handler_cmd_conf_state_get(Bytes{0x10, 1, 200}.data(), 0x10), 200);
    EXPECT_EQ(ct_conf_handler_cmd_conf_state_get(Bytes{0x10, 0, 4}.data(), 0x10), -1);
    EXPECT_EQ(ct_conf_handler_cmd_conf_state_get(Bytes{0x11, 1, 4}.data(), 0x10), -1);
}

} // namespace
} // namespace core_test
