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
    std::fill(std::begin(device()->modes_id_table), std::end(device()->modes_id_table), 0U);
    forget();
    EXPECT_EQ(ssp_common_ct_signpad_initialize_modes_id_table(device()), -1);
    EXPECT_EQ(times_said(one), 1);
}

} // namespace
} // namespace core_test
