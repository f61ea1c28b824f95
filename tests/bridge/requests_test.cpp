#include "protocol/messages.hpp"
#include "protocol/requests.hpp"

#include <array>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace {

using bridge::Ask;
using bridge::parse_request;
using testing::ElementsAre;

std::optional<std::int64_t> id_of_refused(const std::string& text) {
    try {
        parse_request(text);
        ADD_FAILURE() << text;
    } catch (const bridge::BadRequest& error) {
        EXPECT_STRNE(error.what(), "");
        return error.id;
    }
    return std::nullopt;
}

TEST(Requests, AreTakenApart) {
    const auto request = parse_request(R"({"ask":"start","pad":3,"interface":1,"layout":"x=2:u16le","id":7})");
    EXPECT_EQ(request.id, 7);
    EXPECT_EQ(request.ask, Ask::start);
    EXPECT_EQ(request.pad, 3U);
    EXPECT_EQ(request.interface, 1U);
    ASSERT_TRUE(request.layout);
    EXPECT_EQ(request.layout->at(0).name, "x");

    EXPECT_THAT(parse_request(R"({"id":0,"ask":"write","pad":1,"bytes":"00fFa5"})").bytes, ElementsAre(0, 0xff, 0xa5));
    const auto ssp = parse_request(R"({"id":1,"ask":"ssp","pad":1,"bytes":"00000010"})");
    EXPECT_EQ(ssp.ask, Ask::ssp);
    EXPECT_THAT(ssp.bytes, ElementsAre(0, 0, 0, 0x10));
    EXPECT_EQ(ssp.timeout, std::chrono::seconds(1));
    EXPECT_EQ(parse_request(R"({"id":1,"ask":"ssp","pad":1,"bytes":"00","timeout":1})").timeout.count(), 1);
    EXPECT_EQ(parse_request(R"({"id":1,"ask":"ssp","pad":1,"bytes":"00","timeout":2000})").timeout,
              bridge::longest_wait);
    const auto upload = parse_request(R"({"id":1,"ask":"upload","pad":1,"size":16777216,"interfaces":[0,3,3]})");
    EXPECT_EQ(upload.interfaces, 9U);
    EXPECT_EQ(upload.size, bridge::longest_upload);
    EXPECT_EQ(parse_request(R"({"id":1,"ask":"upload","pad":1,"size":1})").interfaces, bridge::all_interfaces);
    EXPECT_EQ(parse_request(R"({"id":9007199254740992,"ask":"list"})").id, std::int64_t{1} << 53);
}

TEST(Requests, TellTheIdOfWhatIsRefused) {
    EXPECT_EQ(id_of_refused(R"({"id":5,"ask":"dance"})"), 5);
    EXPECT_EQ(id_of_refused(R"({"id":5,"ask":"list","more":1})"), 5);
    EXPECT_EQ(id_of_refused(R"({"id":5.5,"ask":"list"})"), std::nullopt);
    EXPECT_EQ(id_of_refused(R"({"ask":"list"})"), std::nullopt);
    EXPECT_EQ(id_of_refused("{"), std::nullopt);
}

TEST(Messages, TellAPad) {
    const bridge::Pad pad{4, 1, {"A\"B", "\xff", "é", 0xfff0, 0x10, {64, 20}}};
    const std::string facts = R"("pad":4,"maker":"A\"B","product":")"
                              "\xef\xbf\xbd"
                              R"(","serial":"é","vendor_id":"fff0","product_id":"0010","report_bytes":[64,20])";
    EXPECT_EQ(bridge::plugged(pad), R"({"event":"plugged",)" + facts + "}");
    EXPECT_EQ(bridge::pads_told(1, std::array{pad}), R"({"id":1,"ok":true,"pads":[{)" + facts + "}]}");
    EXPECT_EQ(bridge::pads_told(1, {}), R"({"id":1,"ok":true,"pads":[]})");
    EXPECT_EQ(bridge::pad_told(2, pad, std::array{1U}), R"({"id":2,"ok":true,)" + facts + R"(,"receiving":[1]})");
}

TEST(Messages, TellPenData) {
    const auto layout = vxpadctl::parse_layout("x=0:u16le,z=1:i8,late=2:u8");
    const bridge::PenPacket packet{4, 1, std::chrono::microseconds(12), {0x01, 0x80}};
    EXPECT_EQ(
        bridge::pen_data(4, 1, std::array{&packet}, layout),
        R"({"event":"pen","pad":4,"interface":1,"packets":[{"us":12,"bytes":"0180","fields":{"x":32769,"z":-128}}]})");
    EXPECT_EQ(bridge::pen_data(4, 1, std::array{&packet}, {}),
              R"({"event":"pen","pad":4,"interface":1,"packets":[{"us":12,"bytes":"0180","fields":{}}]})");
}

TEST(Messages, TellTheRest) {
    EXPECT_EQ(bridge::done(3), R"({"id":3,"ok":true})");
    EXPECT_EQ(bridge::bytes_told(3, std::array<unsigned char, 2>{0, 255}), R"({"id":3,"ok":true,"bytes":"00ff"})");
    EXPECT_EQ(bridge::upload_done(3, 5), R"({"id":3,"ok":true,"sent":5})");
    EXPECT_EQ(bridge::failed({}, "busy", "it\n"), R"({"id":null,"ok":false,"error":"busy","message":"it\n"})");
    EXPECT_EQ(bridge::welcome("1.2", ""), R"({"event":"welcome","version":"1.2","layout":""})");
    EXPECT_EQ(bridge::unplugged(3), R"({"event":"unplugged","pad":3})");
    EXPECT_EQ(bridge::upload_progress(3, 1, 2), R"({"event":"progress","id":3,"sent":1,"total":2})");
}

} // namespace
