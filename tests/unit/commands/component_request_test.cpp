// What requests to components have in common.
#include "ssp_pad_test.hpp"

namespace core_test {
namespace {

class ComponentRequestTest : public SspPadTest {};

// On purpose: log filters know the one and the other.
TEST_F(ComponentRequestTest, TwoWordingsTellOfAMissingReply) {
    struct Case {
        int (*run)(vx_device* device);
        const char* text;
    };
    constexpr const char* one = "Error, function receive_ssp_message_and_get_data() return NULL";
    constexpr const char* other = "Error, receive_ssp_message_and_get_data() return NULL";
    know_tables();
    reply_to({}, {});
    for (const auto& [run, text] :
         {Case{ssp_common_get_conf_state, one}, Case{ssp_common_get_user_input, one},
          Case{ssp_common_doc_view_buttons_refresh, one}, Case{ssp_common_get_pad_description, other},
          Case{ssp_common_ct_communication_get_current_connection, other},
          Case{[](vx_device* asked) { return ssp_biodata_sending(asked, 1); }, other}}) {
        forget();
        EXPECT_EQ(run(device()), -1);
        EXPECT_EQ(times_said(text), 1) << text;
    }
    for (const auto initialize :
         {ssp_common_ct_signpad_initialize_modes_id_table, ssp_common_components_id_initialize_table}) {
        if (initialize == ssp_common_components_id_initialize_table) {
            std::fill(std::begin(device()->components_id_table), std::end(device()->components_id_table), 0U);
        }
        std::fill(std::begin(device()->modes_id_table), std::end(device()->modes_id_table), 0U);
        forget();
        EXPECT_EQ(initialize(device()), -1);
        EXPECT_EQ(times_said(one), 1);
    }
}

// Every request to a component, with a beginning of its message that names it.
struct Asked {
    const char* name;
    int (*run)(vx_device* device);
    Bytes message;
    bool asks_a_mode = false;
    int of_no_component = -2;
};
void PrintTo(const Asked& asked, std::ostream* out) {
    *out << asked.name;
}

class EveryComponentRequest : public ComponentRequestTest, public testing::WithParamInterface<Asked> {
  protected:
    int run() { return GetParam().run(device()); }

    // A change of the configuration waits for the handler before and behind its own message.
    int result_of_replies(const std::vector<Bytes>& replies) {
        know_tables();
        std::fill(std::begin(device()->modes_id_table), std::end(device()->modes_id_table), 0U);
        ssp_common_ct_signpad_initialize_modes_id_table(device());
        if (GetParam().message[3] == 0x12 && !GetParam().asks_a_mode) {
            std::fill(std::begin(device()->modes_id_table), std::end(device()->modes_id_table), 0U);
        }
        reply_to(GetParam().message, replies);
        return run();
    }
    unsigned char component() const { return GetParam().message[0]; }
    unsigned char message_id() const { return GetParam().message[3]; }
};

TEST_P(EveryComponentRequest, OfNoRecordIsMinusOne) {
    EXPECT_EQ(GetParam().run(nullptr), -1);
    EXPECT_THAT(said(), Says("Wrong device pointers, current_device is NULL..."));
}

TEST_P(EveryComponentRequest, ToAComponentThatIsMissingFails) {
    model.components = {5};
    EXPECT_EQ(run(), GetParam().of_no_component);
    EXPECT_THAT(said(), Says("Error of getting Component ID, ssp_common_component_id_get_id() return -2"));
    EXPECT_THAT(model.asked, ElementsAre(component_query));
}

TEST_P(EveryComponentRequest, WithoutAListOfComponentsIsMinusOne) {
    reply_to(component_query, {base(0, {0x10, 0, 1, 5})});
    EXPECT_EQ(run(), -1);
    EXPECT_THAT(said(), Says("Error of getting Component ID, ssp_common_component_id_get_id() return -1"));
}

TEST_P(EveryComponentRequest, WithoutAReplyOrWithAWrongOneIsMinusOne) {
    const unsigned char other = component() == 1 ? 2 : 1;
    for (const std::vector<Bytes>& replies : std::vector<std::vector<Bytes>>{
             {},
             {legacy({message_id(), 1})},
             {base(other, {message_id(), 1, 1, 1, 1, 1})},
             {base(component(), {0x77, 1, 1, 1, 1, 1})},
             {base(component(), {message_id(), 2, 1, 1, 1, 1})},
         }) {
        EXPECT_EQ(result_of_replies(replies), -1) << (replies.empty() ? "none" : describe(replies[0]));
    }
}

TEST_P(EveryComponentRequest, ForAModeThatIsMissingIsMinusTwo) {
    model.modes = {99};
    if (GetParam().asks_a_mode) {
        EXPECT_EQ(run(), -2);
        EXPECT_THAT(said(), Says("Error of getting ct_signpad Mode ID, ssp_common_ct_signpad_get_mode_id() return -2"));
    } else {
        EXPECT_GE(run(), 0);
    }
}

// Neither on a fresh record, whose tables are asked for first, nor later.
TEST_P(EveryComponentRequest, ThatSucceedsSaysNoError) {
    model.replace = [](const Bytes& message) -> std::optional<std::vector<Bytes>> {
        if (message == base(3, {0x10, 0, 0})) { // the connection's type may be 0
            return std::vector<Bytes>{base(3, {0x10, 1, 0})};
        }
        return std::nullopt;
    };
    for (int time = 0; time < 2; ++time) {
        forget();
        EXPECT_GE(run(), 0);
        for (const std::string& message : said()) {
            EXPECT_THAT(message, Not(StartsWith("error:")));
        }
    }
}

// Once as it is cut from the stream, once as it is checked.
TEST_P(EveryComponentRequest, LogsTheHeaderOfEachReplyTwice) {
    model.asked.clear();
    forget();
    EXPECT_GE(run(), 0);
    const auto replies = static_cast<long>(model.asked.size());
    EXPECT_EQ(times_said("struct ssp_base_message_header->type_and_component_id: "), 2 * replies);
    EXPECT_EQ(times_said("struct ssp_base_message_header->length: "), 2 * replies);
}

INSTANTIATE_TEST_SUITE_P(
    Requests, EveryComponentRequest,
    testing::Values(Asked{"State", ssp_common_get_conf_state, {2, 0, 0, 0x10}},
                    Asked{
                        "SetVariable",
                        [](vx_device* device) { return ssp_common_set_configuration_variable(device, "key", "value"); },
                        {2, 60, 0, 0x14}},
                    Asked{"PersistVariable",
                          [](vx_device* device) { return ssp_common_persist_configuration_variable(device, "key"); },
                          {2, 60, 0, 0x17}},
                    Asked{"Description", ssp_common_get_pad_description, {1, 2, 0, 0x10}},
                    Asked{"Connection", ssp_common_ct_communication_get_current_connection, {3, 2, 0, 0x10}},
                    Asked{"PenData", [](vx_device* device) { return ssp_biodata_sending(device, 1); }, {1, 2, 0, 0x11}},
                    Asked{"Modes", ssp_common_ct_signpad_initialize_modes_id_table, {1, 2, 0, 0x12}, false, -1},
                    Asked{"UserInput", ssp_common_get_user_input, {1, 2, 0, 0x13}, true},
                    Asked{"ButtonEvent",
                          [](vx_device* device) { return ssp_common_get_button_event(device, 5); },
                          {1, 2, 0, 0x13},
                          true},
                    Asked{"SignatureButtons", ssp_common_signature_buttons_refresh, {1, 2, 0, 0x13}, true},
                    Asked{"DocumentButtons", ssp_common_doc_view_buttons_refresh, {1, 2, 0, 0x13}, true},
                    Asked{"SigningButtons", ssp_common_doc_sign_buttons_refresh, {1, 2, 0, 0x13}, true}),
    [](const auto& tested) { return std::string(tested.param.name); });

class SentOnlyRequest : public ComponentRequestTest {};

TEST_F(SentOnlyRequest, FailsAsTheOthersDo) {
    EXPECT_EQ(ssp_common_ct_communication_set_current_connection(nullptr, 1), -1);
    model.components = {5};
    EXPECT_EQ(ssp_common_ct_communication_set_current_connection(device(), 1), -2);
    EXPECT_THAT(model.asked, ElementsAre(component_query)) << "nothing is sent to nobody";
    record.emplace(pad, 15U);
    reply_to(component_query, {base(0, {0x10, 0, 1, 5})});
    EXPECT_EQ(ssp_common_ct_communication_set_current_connection(device(), 1), -1);
}

TEST_F(SentOnlyRequest, ThatSucceedsSaysNoError) {
    EXPECT_EQ(ssp_common_ct_communication_set_current_connection(device(), 0), 0);
    EXPECT_EQ(ssp_common_is_ssp_supported(device()), 1);
    EXPECT_EQ(ssp_common_component_id_get_id(device(), 11), 1);
    EXPECT_EQ(ssp_common_check_configuration_state(device()), 0);
    for (const std::string& message : said()) {
        EXPECT_THAT(message, Not(StartsWith("error:")));
    }
}

} // namespace
} // namespace core_test
