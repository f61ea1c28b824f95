// Messages to and from components.
#include "ssp_pad_test.hpp"

#include <cstdlib>

namespace core_test {
namespace {

class ComponentLinkTest : public SspPadTest {};

TEST_F(ComponentLinkTest, ComponentRequestIsBuiltAsABaseMessage) {
    EXPECT_EQ(make_and_send_ssp_component_data_sequence(device(), 7, 0x12, 3, 4, nullptr, 0), 0);
    EXPECT_THAT(model.asked, ElementsAre(Bytes{7, 2, 0, 0x12, 3, 4}));
    const Bytes extra = counting(300);
    EXPECT_EQ(make_and_send_ssp_component_data_sequence(device(), 0x107, 0x12, 3, 4, extra.data(), 300), 0);
    EXPECT_EQ(model.asked.back(), (Bytes{7, 0x2E, 1, 0x12, 3, 4}) + extra);
    EXPECT_EQ(model.asked.back().size(), 306U);
}

TEST_F(ComponentLinkTest, DataRequestIsBuiltAsABaseMessage) {
    EXPECT_EQ(make_and_send_ssp_data_sequence(device(), 2, 0x10, nullptr, 0), 0);
    EXPECT_THAT(model.asked, ElementsAre(Bytes{2, 0, 0, 0x10}));
    const Bytes data = counting(60);
    EXPECT_EQ(make_and_send_ssp_data_sequence(device(), 2, 0x14, data.data(), 60), 0);
    EXPECT_EQ(model.asked.back(), (Bytes{2, 60, 0, 0x14}) + data);
}

TEST_F(ComponentLinkTest, DataBeyondTheLengthFieldIsNotSent) {
    const Bytes data(70'000);
    EXPECT_LT(make_and_send_ssp_data_sequence(device(), 2, 0x10, data.data(), 65'536), 0);
    EXPECT_LT(make_and_send_ssp_component_data_sequence(device(), 2, 0x10, 0, 0, data.data(), 65'534), 0);
    EXPECT_LT(make_and_send_ssp_component_data_sequence(device(), 2, 0x10, 0, 0, data.data(), 0xFFFFFFFF), 0);
    EXPECT_THAT(bus().log(), IsEmpty());
    EXPECT_EQ(make_and_send_ssp_data_sequence(device(), 2, 0x10, data.data(), 65'535), 0);
    EXPECT_EQ(model.asked.back().size(), 65'539U);
}

TEST_F(ComponentLinkTest, ReplyComesInABufferOfTheCallers) {
    pad.incoming.push_back(framed(base(4, {0x55, 1, 2})));
    unsigned char* const reply = receive_ssp_message_and_get_data(device());
    ASSERT_NE(reply, nullptr);
    EXPECT_EQ(Bytes(reply, reply + 1024), base(4, {0x55, 1, 2}) + Bytes(1018));
    std::free(reply);
    EXPECT_EQ(receive_ssp_message_and_get_data(device()), nullptr);
    EXPECT_EQ(receive_ssp_message_and_get_data(nullptr), nullptr);
}

// Through the record's entries, with the flags of a reply.
TEST_F(ComponentLinkTest, TransportIsReachedThroughTheRecord) {
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

TEST_F(ComponentLinkTest, NothingIsSentWithoutAPadOrItsEntry) {
    unsigned char byte = 0;
    EXPECT_EQ(send_ssp_message(nullptr, &byte, 1), -1);
    EXPECT_THAT(said(), Says("Wrong device pointers, current_device is NULL..."));
    device()->send_ssp_message = nullptr;
    EXPECT_EQ(send_ssp_message(device(), &byte, 1), -1);
    EXPECT_THAT(said(), Says("Wrong function pointer, current_device->send_ssp_message is NULL..."));
    device()->send_ssp_message = __send_ssp_message;
    EXPECT_THAT(bus().log(), IsEmpty());
}

} // namespace
} // namespace core_test
