// The fixed commands on the two pads that differ from all others: type 1 sends no replies and type 8 is slow.
#include "pad_test.hpp"
#include "vxpadcom/internals.h"

#include <memory>

using namespace pads;

namespace {

constexpr int slow_pad = 1;
constexpr int oldest_pad = 2;

// An open record outside of the library's own list, which is not to be had.
class Record {
  public:
    Record(int pad, unsigned int type) {
        device_.pad_type = type;
        device_.hid = hid_open_dev((port_of(pad, pad == slow_pad ? "SLOW" : "OLDEST") + ":1.0").c_str());
        EXPECT_NE(device_.hid, nullptr);
    }
    ~Record() { hid_close_dev(device_.hid); }
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    vx_device* get() { return &device_; }

  private:
    vx_device device_{};
};

class ClassicPads : public PluggedPads {};

TEST_F(ClassicPads, TakeTheirTimeBeforeAMode) {
    Record record{slow_pad, 8};
    int result = 0;
    const auto seconds = seconds_of([&] { result = core_set_pad_mode(record.get(), 3, 2); });
    EXPECT_EQ(result, 3);
    EXPECT_GE(seconds, 1.0 + 2 * 0.3) << "a second before the command, and two polls that still name the old mode";
    EXPECT_LT(seconds, patience(10));
    EXPECT_EQ(state_of(slow_pad, "mode"), "3");
    EXPECT_EQ(state_of(slow_pad, "mode-option"), "2");
    EXPECT_EQ(__core_get_pad_mode(record.get()), 3);
}

TEST_F(ClassicPads, TakeAShortModeCommandWithAMark) {
    Record record{oldest_pad, 1};
    EXPECT_EQ(core_set_pad_mode(record.get(), 4, 0), 0);
    Bytes command{1, 4, 0};
    command.resize(40);
    command[38] = 0xf0;
    command[39] = 0xa5;
    EXPECT_EQ(take_log(oldest_pad), (std::vector{feature_line("out", 0, command)})) << "and no reply is fetched";
    EXPECT_EQ(state_of(oldest_pad, "mode"), "4");
}

TEST_F(ClassicPads, AreNotAskedForAStatusThatTheyDoNotHave) {
    Record record{oldest_pad, 1};
    flags_status status{};
    status.flags[5] = 7;
    EXPECT_EQ(__core_get_status(record.get(), &status), 0);
    EXPECT_EQ(Bytes(std::begin(status.flags), std::end(status.flags)), Bytes(14));
    EXPECT_TRUE(take_log(oldest_pad).empty());
}

TEST_F(ClassicPads, TellTheirVersionOverTheBus) {
    Record record{slow_pad, 8};
    dev_fw_version version{};
    EXPECT_EQ(core_read_version(record.get(), &version), 0);
    EXPECT_EQ((Bytes{static_cast<unsigned char>(version.major), static_cast<unsigned char>(version.minor),
                     static_cast<unsigned char>(version.patch)}),
              (Bytes{4, 5, 6}));
    EXPECT_EQ(version.revision, 0x10203U);
    EXPECT_STREQ(version.manufacturer, "ZYXW");
}

TEST_F(ClassicPads, TakeARectangle) {
    Record record{slow_pad, 8};
    EXPECT_EQ(core_create_signature_rectangle(record.get(), 1, 0x202, 0xffff, 4, 0x01020304), 0);
    EXPECT_EQ(state_of(slow_pad, "rectangle"), "1,514,65535,4,16909060");
}

TEST_F(ClassicPads, WorkThroughTheListOfPads) {
    Initialize();
    unsigned int reply = 0;
    ASSERT_EQ(GetDeviceCount(&reply), 2);
    EXPECT_EQ(serial_number(1), u"OLDEST");
    EXPECT_EQ(serial_number(2), u"SLOW");
    EXPECT_TRUE(take_log(oldest_pad).empty());
    for (const unsigned int device : {1U, 2U}) {
        for (const unsigned int interface : {0U, 1U}) {
            EXPECT_EQ(set_feature(device, interface, report(65, 0x80)), 0);
            EXPECT_EQ(read(GetFeature, device, interface).result, 0);
        }
    }
    EXPECT_EQ(read(ReadFile, 1, 1, 21).reply, reply_untouched); // it is selected and listened to
    to_pad("input", oldest_pad, "1 0102030405060708090a0b0c0d0e0f1011121314");
    const auto answer = next_input(1, 1, 21);
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.reply, 21U);
    EXPECT_EQ(answer.buffer.back(), 20);
}

} // namespace
