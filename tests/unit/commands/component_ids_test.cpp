// Which components a pad has.
#include "ssp_pad_test.hpp"

namespace core_test {
namespace {

class ComponentIdsTest : public SspPadTest {
  protected:
    int id_of(int type) { return ssp_common_component_id_get_id(device(), type); }
};

TEST_F(ComponentIdsTest, IdIsThePositionInTheList) {
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

TEST_F(ComponentIdsTest, FirstOfEqualTypesCounts) {
    model.components = {9, 11, 11};
    EXPECT_EQ(id_of(11), 1);
}

TEST_F(ComponentIdsTest, TableKeepsTheFirst128Types) {
    model.components.assign(200, 1);
    model.components[127] = 11;
    model.components[128] = 3;
    EXPECT_EQ(id_of(11), 127);
    EXPECT_EQ(id_of(3), -2);
    EXPECT_EQ(device()->modes_id_table[0], 0U); // what stands behind the table is left alone
}

TEST_F(ComponentIdsTest, CountIsNotBelievedBeyondTheBytesThatCame) {
    reply_to(component_query, {base(0, list(0x10, 255, {5, 11}))});
    EXPECT_EQ(id_of(11), 1);
    EXPECT_EQ(id_of(3), -2);
    for (std::size_t i = 2; i < 128; ++i) {
        EXPECT_EQ(device()->components_id_table[i], 0);
    }
}

TEST_F(ComponentIdsTest, CountBoundsTheBytesThatCame) {
    reply_to(component_query, {base(0, list(0x10, 1, {5, 11}))});
    EXPECT_EQ(id_of(11), -2);
}

TEST_F(ComponentIdsTest, FailedQueryLeavesTheTableEmptyAndIsAskedAgain) {
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
TEST_F(ComponentIdsTest, LegacyMessageIsNoComponentList) {
    reply_to(component_query, {legacy({3, 0, 0x10, 1, 1, 11})});
    EXPECT_EQ(id_of(11), -1);
    EXPECT_THAT(said(), Says("Error, current message is not a Base Message"));
    EXPECT_EQ(device()->components_id_table[0], 0);
}

// The query goes to no component in particular and is answered by none in particular.
TEST_F(ComponentIdsTest, ListOfAnotherComponentIsRefusedAndNotKept) {
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

TEST_F(ComponentIdsTest, TableSurvivesLaterFailures) {
    know_tables();
    reply_to({1}, {});
    EXPECT_EQ(ssp_biodata_sending(device(), 1), -1);
    EXPECT_EQ(id_of(3), 2);
    EXPECT_THAT(model.asked, SizeIs(1));
}

// It ends behind the header of the message that it began.
TEST_F(ComponentIdsTest, ListWithoutAPayloadIsRefused) {
    device()->receive_ssp_message = [](vx_device* asked, void* data, unsigned int* size, unsigned int, unsigned char,
                                       int) {
        asked->replies_due = 0;
        std::fill_n(static_cast<unsigned char*>(data), 3, 0);
        *size = 3;
        return 0;
    };
    EXPECT_EQ(id_of(11), -1);
    EXPECT_THAT(said(), Says("Error, ssp_base_message_get_data_length() return 0"));
    EXPECT_EQ(device()->components_id_table[0], 0);
    device()->receive_ssp_message = __receive_ssp_message;
    EXPECT_EQ(id_of(11), 1);
}

TEST_F(ComponentIdsTest, TableOfNoPadIsNotAskedFor) {
    EXPECT_EQ(ssp_common_components_id_initialize_table(nullptr), -1);
    EXPECT_THAT(said(), Says("Wrong device pointers, current_device is NULL..."));
    EXPECT_THAT(bus().log(), IsEmpty());
}

// The probe.

TEST_F(ComponentIdsTest, ProbeWaits100MsForAnyBaseMessage) {
    EXPECT_EQ(ssp_common_is_ssp_supported(device()), 1);
    EXPECT_THAT(bus().log(), ElementsAre(bulk_out({0xAA, 0x55, 2, 0, 0, 0, 0x10}), bulk_in(4096, 100)));
    EXPECT_THAT(said(), Says("bm_length: 7 "));
    reply_to(component_query, {base(9, {0})});
    EXPECT_EQ(ssp_common_is_ssp_supported(device()), 1);
    EXPECT_EQ(device()->components_id_table[0], 0); // it does not fill the table
}

TEST_F(ComponentIdsTest, ProbeOfPadsWithoutSsp) {
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

} // namespace
} // namespace core_test
