// The two message shapes.
#include "ssp_test.hpp"

#include <cstdlib>

namespace core_test {
namespace {

using SspBaseMessageTest = CoreTest;

TEST_F(SspBaseMessageTest, FirstByteTellsTheShapes) {
    struct Shape {
        unsigned char first;
        int is_old;
        int is_biodata;
    };
    for (const auto& [first, is_old, is_biodata] :
         {Shape{0x00, 0, 0}, Shape{0x7F, 0, 0}, Shape{0x40, 0, 0}, Shape{0x80, 1, 0}, Shape{0xBF, 1, 0},
          Shape{0xC0, 1, 1}, Shape{0xFF, 1, 1}}) {
        const unsigned char message[] = {first, 0, 0, 0};
        EXPECT_EQ(ssp_base_message_is_it_old_message(message), is_old) << int{first};
        EXPECT_EQ(ssp_base_message_is_it_biodata(message), is_biodata) << int{first};
    }
    const unsigned char message[] = {0xA5};
    ssp_base_message_is_it_old_message(message);
    EXPECT_THAT(said(), Says("10100101"));
}

TEST_F(SspBaseMessageTest, NullMessageGivesMinusOne) {
    EXPECT_EQ(ssp_base_message_is_it_old_message(nullptr), -1);
    EXPECT_EQ(ssp_base_message_is_it_biodata(nullptr), -1);
    EXPECT_EQ(ssp_base_message_check_component_id(nullptr, 0), -1);
}

TEST_F(SspBaseMessageTest, LowEightBitsOfTheComponentIdAreCompared) {
    const unsigned char message[] = {0x10};
    EXPECT_EQ(ssp_base_message_check_component_id(message, 0x10), 0);
    EXPECT_EQ(ssp_base_message_check_component_id(message, 0x110), 0);
    EXPECT_EQ(ssp_base_message_check_component_id(message, 0x11), -1);
    EXPECT_EQ(ssp_base_message_check_component_id(message, -1), -1);
    EXPECT_THAT(said(), Says("ssp_bm_header->type_and_component_id: 10"));
    const unsigned char last[] = {0x7F};
    EXPECT_EQ(ssp_base_message_check_component_id(last, 127), 0);
}

TEST_F(SspBaseMessageTest, LengthFieldIsOneLessThanThePayload) {
    const auto length_of = [](unsigned char low, unsigned char high) {
        const unsigned char message[] = {0, low, high};
        return ssp_base_message_get_data_length(message);
    };
    EXPECT_EQ(length_of(0, 0), 1);
    EXPECT_EQ(length_of(0x34, 0x12), 0x1235);
    EXPECT_EQ(length_of(0xFF, 0xFF), 65'536);
    EXPECT_THAT(said(), AllOf(Says("struct ssp_base_message_header->type_and_component_id: 0"),
                              Says("struct ssp_base_message_header->length: 65535")));
}

TEST_F(SspBaseMessageTest, LegacyLengthIsInTheLowSixBitsAndIsNotTraced) {
    const auto length_of = [](unsigned char first) { return ssp_base_message_old_message_get_data_length(&first); };
    EXPECT_EQ(length_of(0x80), 1);
    EXPECT_EQ(length_of(0xBF), 64);
    EXPECT_EQ(length_of(0xC0), 1);
    EXPECT_EQ(length_of(0xFF), 64);
    EXPECT_EQ(length_of(0x05), 6);
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(SspBaseMessageTest, LegacyMessageIsBuiltFromItsPayload) {
    for (const std::size_t size : {1U, 2U, 63U, 64U}) {
        const Bytes payload = counting(size);
        unsigned char* message = nullptr;
        ASSERT_EQ(ssp_base_message_old_message_create(payload.data(), static_cast<unsigned int>(size), &message),
                  static_cast<int>(size + 1));
        EXPECT_EQ(Bytes(message, message + size + 1), legacy(payload));
        std::free(message);
    }
    EXPECT_THAT(said(), AllOf(Says("input parameter data_size: 64"), Says("t_data_size: 00111111 "),
                              Says("message[0]: 10111111 ")));
}

TEST_F(SspBaseMessageTest, LegacyMessageChecksTheSizeBeforeThePayload) {
    unsigned char* message = nullptr;
    const Bytes payload(65);
    EXPECT_EQ(ssp_base_message_old_message_create(nullptr, 0, &message), -1);
    EXPECT_THAT(said(), Says("Error, input parameter: unsigned int data_size is 0"));
    EXPECT_EQ(ssp_base_message_old_message_create(payload.data(), 65, &message), -1);
    EXPECT_THAT(said(), Says("Error, input parameter: unsigned int data_size is 65"));
    EXPECT_EQ(ssp_base_message_old_message_create(nullptr, 64, &message), -1);
    EXPECT_THAT(said(), Says("Error, input parameter: void *data is "));
    EXPECT_EQ(message, nullptr);
    EXPECT_EQ(ssp_base_message_old_message_create(payload.data(), 64, nullptr), -1);
}

} // namespace
} // namespace core_test
