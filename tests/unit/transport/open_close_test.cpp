// Opening and closing one record.
#include "core_test.hpp"

namespace core_test {
namespace {

class OpenCloseTest : public CoreTest {
  protected:
    HidInterface& pad = bus().plug(pad_of_type(plain_type));
};

TEST_F(OpenCloseTest, OpensByThePath) {
    Record record(pad);
    EXPECT_EQ(__core_open_dev(record.get()), 0);
    EXPECT_NE(record->hid, nullptr);
    EXPECT_THAT(bus().log(), ElementsAre(opened(), blocking()));
}

TEST_F(OpenCloseTest, OpeningTwiceLeavesTheRecordAsItIs) {
    OpenRecord record(pad);
    hid_device_* const handle = record->hid;
    EXPECT_EQ(__core_open_dev(record.get()), 0);
    EXPECT_EQ(core_open_dev(record.get()), 0);
    EXPECT_EQ(record->hid, handle);
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(OpenCloseTest, NullRecordIsReportedByAllFour) {
    EXPECT_EQ(__core_open_dev(nullptr), -1);
    EXPECT_EQ(core_open_dev(nullptr), -1);
    __core_close_dev(nullptr);
    core_close_dev(nullptr);
    EXPECT_GE(times_said("Error, input parameter: device *current_device is "), 4);
    EXPECT_THAT(bus().log(), IsEmpty());
}

// Deliberate: core_open_dev() succeeds for any record, only __core_open_dev() tells.
TEST_F(OpenCloseTest, FailedOpenIsToldOnlyByTheInnerFunction) {
    Record record(pad);
    bus().unplug(pad);
    EXPECT_EQ(__core_open_dev(record.get()), -1);
    EXPECT_THAT(said(), Says("Error, hid_open_dev() returned NULL"));
    forget();
    EXPECT_EQ(core_open_dev(record.get()), 0);
    EXPECT_THAT(said(), Says("Error, hid_open_dev() returned NULL"));
    EXPECT_EQ(record->hid, nullptr);
    EXPECT_EQ(record->was_removed, 0);

    Bytes data(64);
    forget();
    EXPECT_EQ(core_feature_read(record.get(), data.data(), 64), -1);
    EXPECT_THAT(said(), Says("Error, device pointers: *hid and *vcom_handle are NULL"));
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(OpenCloseTest, RecordWithoutAPathHasNothingToOpen) {
    Record record(pad);
    std::memset(record->hid_path, 0, sizeof record->hid_path);
    EXPECT_EQ(__core_open_dev(record.get()), 0);
    EXPECT_EQ(record->hid, nullptr);
    EXPECT_THAT(bus().log(), IsEmpty());
}

// Deliberate: a path counts as set when any of its 256 bytes is, also behind a terminator.
TEST_F(OpenCloseTest, PathIsSetWhenAnyOfItsBytesIs) {
    Record record(pad);
    std::memset(record->hid_path, 0, sizeof record->hid_path);
    record->hid_path[255] = 'x';
    EXPECT_EQ(__core_open_dev(record.get()), -1);
    EXPECT_THAT(first(1, bus().log()), ElementsAre(opened("")));
    record->hid_path[255] = '\0';
}

TEST_F(OpenCloseTest, ClosingForgetsTheHandle) {
    OpenRecord record(pad);
    core_close_dev(record.get());
    EXPECT_EQ(record->hid, nullptr);
    EXPECT_THAT(bus().log(), ElementsAre(paused(50), closed()));
    core_close_dev(record.get());
    __core_close_dev(record.get());
    EXPECT_THAT(bus().log(), SizeIs(2));
}

TEST_F(OpenCloseTest, RecordWithoutALockCanBeOpenedAndClosed) {
    Record record(pad);
    record->device_lock = nullptr;
    EXPECT_EQ(core_open_dev(record.get()), 0);
    core_close_dev(record.get());
    EXPECT_EQ(bus().open_handles(), 0);
}

TEST_F(OpenCloseTest, OnlyThePlainFunctionsTakeTheLock) {
    Record record(pad);
    std::vector<bool> locked;
    bus().hooks.open_path = [&](const std::string&) {
        locked.push_back(record.locked());
        return std::optional(0);
    };
    bus().hooks.usleep = [&](unsigned int) { locked.push_back(record.locked()); };
    core_open_dev(record.get());
    EXPECT_FALSE(record.locked());
    core_close_dev(record.get());
    EXPECT_FALSE(record.locked());
    __core_open_dev(record.get());
    __core_close_dev(record.get());
    EXPECT_THAT(locked, ElementsAre(true, true, false, false));
}

} // namespace
} // namespace core_test
