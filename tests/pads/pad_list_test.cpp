// Three pads of different types; the last one has as many interfaces as the library can use.
#include "pad_test.hpp"

using namespace pads;

namespace {

class PadList : public InitializedPads {};
class PadListUninitialized : public PluggedPads {};

int count() {
    unsigned int reply = 0;
    return GetDeviceCount(&reply);
}

std::vector<std::u16string> enumerate() {
    std::vector<std::u16string> serials;
    for (unsigned int device = number_of(EnumerateDevicesStart); device != 0;
         device = number_of(EnumerateDevicesNext)) {
        serials.push_back(serial_number(device));
    }
    return serials;
}

TEST_F(PadListUninitialized, FollowsWhatIsPlugged) {
    using Serials = std::vector<std::u16string>;
    for (const int pad : {1, 2, 3}) {
        to_pad("unplug", pad);
    }
    EXPECT_EQ(Initialize(), 0);
    EXPECT_TRUE(IsInitialized());
    EXPECT_EQ(count(), 0);
    EXPECT_EQ(enumerate(), Serials{});
    EXPECT_EQ(failure(GetBytesToSend(1, nullptr)).code, 258U);
    for (const auto& [name, call, _] : device_calls()) {
        EXPECT_EQ(failure(call(1)), invalid_handle(name, "Error of switching to device: 1"));
    }

    to_pad("plug", 3);
    EXPECT_EQ(count(), 0) << "a pad shows with the next search";
    EXPECT_EQ(enumerate(), Serials{u"C"}) << "which the start of an empty list is";

    to_pad("plug", 1);
    EXPECT_EQ(enumerate(), Serials{u"C"});
    Initialize();
    EXPECT_EQ(count(), 2);
    EXPECT_EQ(enumerate(), (Serials{u"A", u"C"}));

    to_pad("plug", 2);
    Initialize();
    EXPECT_EQ(enumerate(), (Serials{u"A", u"B", u"C"}));

    to_pad("unplug", 1);
    Initialize();
    EXPECT_EQ(enumerate(), (Serials{u"B", u"C"}));
}

TEST_F(PadList, HasACursorThatEveryCallMoves) {
    EXPECT_EQ(number_of(EnumerateDevicesStart), 1U);
    EXPECT_EQ(number_of(EnumerateDevicesNext), 2U);
    EXPECT_EQ(number_of(EnumerateDevicesNext), 3U);
    EXPECT_EQ(number_of(EnumerateDevicesNext), 0U);
    EXPECT_EQ(serial_number(1), u"A");
    EXPECT_EQ(number_of(EnumerateDevicesNext), 2U);
    EXPECT_NE(GetBytesToSend(17, nullptr), 0);
    EXPECT_EQ(number_of(EnumerateDevicesNext), 3U);
}

TEST_F(PadList, CountsInterfaces) {
    const auto interfaces = [](unsigned int device) {
        return number_of([&](auto* reply) { return GetEndPointCount(device, reply); });
    };
    EXPECT_EQ(interfaces(1), 2U);
    EXPECT_EQ(interfaces(2), 1U);
    EXPECT_EQ(interfaces(3), 9U);
}

TEST_F(PadList, SendsReportsToThePadThatIsNamed) {
    for (const int pad : {3, 1, 2, 3, 2, 1}) {
        const auto device = static_cast<unsigned int>(pad);
        const auto sent = report(65, static_cast<unsigned char>(0x80 + pad));
        EXPECT_EQ(set_feature(device, 0, sent), 0);
        for (const int other : {1, 2, 3}) {
            EXPECT_EQ(take_log(other),
                      other == pad ? std::vector{feature_line("out", 0, payload(sent))} : std::vector<std::string>{});
        }
    }
}

TEST_F(PadList, HasAFlagForEachPad) {
    const auto flag = [](unsigned int device) {
        return number_of([&](auto* reply) { return GetUsedTransportProtocol(device, reply); });
    };
    EXPECT_EQ(SetUsedTransportProtocol(2, 1), 0);
    EXPECT_EQ(flag(1), 0U);
    EXPECT_EQ(flag(2), 1U);
    EXPECT_EQ(flag(3), 0U);
}

TEST_F(PadList, ReachesAllNineInterfaces) {
    for (unsigned int interface = 0; interface < 9; ++interface) {
        const auto sent = report(65, static_cast<unsigned char>(0x80 + interface));
        EXPECT_EQ(set_feature(3, interface, sent), 0) << interface;
        EXPECT_EQ(take_log(3), (std::vector{feature_line("out", interface, payload(sent))}));
        to_pad("input", 3, std::to_string(interface) + " 5" + std::to_string(interface));
        EXPECT_EQ(next_input(3, interface).buffer[1], 0x50 + interface);
    }
    for (const unsigned int interface : {9U, 10U, 0xffffffffU}) {
        EXPECT_EQ(failure(set_feature(3, interface, report(65, 0x80))),
                  invalid_handle("SetFeature", "Error of write HID feature for device: 3"));
    }
    EXPECT_TRUE(take_log(3).empty());
}

// A pad that becomes current is opened anew.
TEST_F(PadList, StartsListeningWhenAPadIsSelected) {
    for (const int pad : {1, 3, 1}) {
        const auto device = static_cast<unsigned int>(pad);
        EXPECT_EQ(read(ReadFile, device, 0).reply, reply_untouched);
        to_pad("input", pad, "0 2" + std::to_string(pad));
        EXPECT_EQ(next_input(device, 0).buffer[1], 0x20 + pad);
        EXPECT_EQ(read(ReadFile, device, 0).reply, reply_untouched);
    }
}

TEST_F(PadList, LosesOnePadAndKeepsTheOthers) {
    Removals removals;
    EXPECT_EQ(set_feature(1, 0, report(65, 0x80)), 0);
    to_pad("unplug", 1);
    EXPECT_EQ(set_feature(2, 0, report(65, 0x80)), 0);
    EXPECT_EQ(read(GetFeature, 3, 8).result, 0);
    EXPECT_EQ(removals.take(), std::vector<unsigned int>{});

    // Made current again it cannot be opened.
    for (int time = 0; time < 3; ++time) {
        EXPECT_EQ(failure(set_feature(1, 0, report(65, 0x80))),
                  invalid_handle("SetFeature", "Error of switching to device: 1"));
        EXPECT_EQ(removals.take(), std::vector<unsigned int>{1});
    }
    EXPECT_EQ(set_feature(2, 0, report(65, 0x80)), 0);
    EXPECT_EQ(serial_number(3), u"C");
    EXPECT_EQ(count(), 3) << "the list stays until the next search";
}

TEST_F(PadList, KnowsALostPadWhenItIsSelectedAgain) {
    Removals removals;
    EXPECT_EQ(set_feature(1, 0, report(65, 0x80)), 0);
    to_pad("unplug", 1);
    EXPECT_EQ(failure(set_feature(1, 0, report(65, 0x80))),
              invalid_handle("SetFeature", "Error of write HID feature for device: 1"));
    EXPECT_EQ(removals.take(), std::vector<unsigned int>{1});
    EXPECT_EQ(serial_number(2), u"B");
    EXPECT_EQ(failure(read(ReadFile, 1, 0).result), invalid_handle("ReadFile", "Error of switching to device: 1"));
    EXPECT_EQ(removals.take(), std::vector<unsigned int>{1});
    to_pad("plug", 1);
    Initialize();
    EXPECT_EQ(set_feature(1, 1, report(65, 0x80)), 0);
}

// A pad that does not tell its version ends the search; the ones before it stay.
TEST_F(PadListUninitialized, EndsWithAPadThatAnswersTheWrongCommand) {
    to_pad("fault", 3, "wrong-command,on=get-feature");
    EXPECT_EQ(Initialize(), 0);
    EXPECT_EQ(count(), 2);
    EXPECT_EQ(set_feature(2, 0, report(65, 0x80)), 0);

    to_pad("fault", 1, "status=5,on=get-feature");
    EXPECT_EQ(Initialize(), 0);
    EXPECT_EQ(count(), 0);
    EXPECT_EQ(failure(set_feature(1, 0, report(65, 0x80))),
              invalid_handle("SetFeature", "Error of switching to device: 1"));

    heal();
    EXPECT_EQ(Initialize(), 0);
    EXPECT_EQ(count(), 3);
}

} // namespace
