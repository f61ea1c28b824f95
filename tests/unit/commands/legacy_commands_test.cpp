// The fixed commands in 64-byte feature reports.
#include "core_test.hpp"

#include VXPADCOM_USB_IDS_FILE

namespace core_test {
namespace {

Bytes reply(std::initializer_list<unsigned char> start) {
    Bytes bytes(start);
    bytes.resize(64);
    return bytes;
}

Bytes status_reply(unsigned char mode, unsigned char error = 0) {
    Bytes bytes = reply({0x27, error, 0xee, 0xee, 0xee, 0xee});
    for (std::size_t i = 6; i < 20; ++i) {
        bytes[i] = static_cast<unsigned char>(100 + i);
    }
    bytes[11] = mode;
    return bytes;
}

class LegacyCommandsTest : public CoreTest {
  protected:
    void answer(const Bytes& bytes, std::size_t times = 1) {
        pad.feature_replies.insert(pad.feature_replies.end(), times, bytes);
    }

    // The pauses that the commands make between attempts, without those inside of transfers.
    static Pauses attempts_pauses() {
        Pauses pauses = bus().pauses();
        std::erase_if(pauses, [](unsigned int pause) { return pause % 1000 != 0; });
        return pauses;
    }

    static std::size_t count(const std::string& line) {
        const Lines log = bus().log();
        return static_cast<std::size_t>(std::count(log.begin(), log.end(), line));
    }

    HidInterface& pad = bus().plug(pad_of_type(plain_type));
};

const Pauses three_pauses{1000, 3000, 7000};

// What version, status and rectangle have in common.

struct Command {
    const char* name;
    int (*run)(vx_device* device);
    unsigned char code;
    const char* wrong_echo;
    bool locks;
};

void PrintTo(const Command& command, std::ostream* out) {
    *out << command.name;
}

class CommonAttemptTest : public LegacyCommandsTest, public testing::WithParamInterface<Command> {
  protected:
    std::string request() const {
        Bytes bytes(65);
        bytes[1] = GetParam().code;
        return "hid_send_feature_report(" + path + ", " + describe(bytes) + ")";
    }
};

INSTANTIATE_TEST_SUITE_P(
    All, CommonAttemptTest,
    testing::Values(Command{"version",
                            [](vx_device* device) {
                                dev_fw_version version{};
                                return core_read_version(device, &version);
                            },
                            0x11, "command in in_report_version not VX_CMD_READ_VERSION", true},
                    Command{"status",
                            [](vx_device* device) {
                                flags_status status{};
                                return __core_get_status(device, &status);
                            },
                            0x27, "value command in in_report_status not VX_CMD_GET_STATUS", false},
                    Command{"rectangle",
                            [](vx_device* device) { return core_create_signature_rectangle(device, 0, 0, 0, 0, 0); },
                            0x65, "command in in_report_general not VX_CMD_CREATE_SIGNATURE_RECTANGLE", true}),
    [](const auto& test) { return test.param.name; });

TEST_P(CommonAttemptTest, SendsTheCommandAndReadsOneReply) {
    OpenRecord record(pad);
    EXPECT_EQ(GetParam().run(record.get()), 0);
    EXPECT_THAT(bus().log(), ElementsAre(request(), asked()));
    EXPECT_FALSE(record.locked());
}

TEST_P(CommonAttemptTest, WrongEchoIsTriedAgain) {
    OpenRecord record(pad);
    answer(reply({static_cast<unsigned char>(GetParam().code + 1), 0}));
    EXPECT_EQ(GetParam().run(record.get()), 0);
    EXPECT_THAT(bus().log(), ElementsAre(request(), asked(), paused(1000), request(), asked()));
    EXPECT_EQ(times_said(GetParam().wrong_echo), 1);
    EXPECT_EQ(times_said("failed, going to try again after usleep(1000)"), 1);
    EXPECT_THAT(said(), Not(Says("end of attempts")));
}

TEST_P(CommonAttemptTest, ThreeWrongEchoesEndTheCommand) {
    OpenRecord record(pad);
    answer(reply({0x12, 0}), 4);
    EXPECT_EQ(GetParam().run(record.get()), -1);
    EXPECT_EQ(count(request()), 3U);
    EXPECT_EQ(count(asked()), 3U);
    EXPECT_EQ(attempts_pauses(), three_pauses);
    EXPECT_EQ(times_said(GetParam().wrong_echo), 3);
    for (const char* const pause : {"1000", "3000", "7000"}) {
        EXPECT_EQ(times_said(std::string("failed, going to try again after usleep(") + pause + ")"), 1);
    }
    EXPECT_EQ(times_said("end of attempts, exit with error..."), 1);
    EXPECT_FALSE(record.locked());
}

TEST_P(CommonAttemptTest, DeviceErrorIsTracedWithItsTextAndTriedAgain) {
    OpenRecord record(pad);
    answer(reply({GetParam().code, 5}));
    answer(reply({GetParam().code, 200}));
    EXPECT_EQ(GetParam().run(record.get()), 0);
    EXPECT_THAT(said(), Says("error: device: function not implemented"));
    EXPECT_THAT(said(), Says("error: device: unknown error"));
    EXPECT_EQ(attempts_pauses(), (Pauses{1000, 3000}));
}

TEST_P(CommonAttemptTest, FailedWriteIsTriedAgainWithoutARead) {
    OpenRecord record(pad);
    bus().hooks.send_feature = results(tries_until_time_out, -1);
    EXPECT_EQ(GetParam().run(record.get()), 0);
    EXPECT_THAT(said(), Says("usb_feature_write() failed with return code -1"));
    EXPECT_EQ(count(request()), tries_until_time_out + 1);
    EXPECT_EQ(count(asked()), 1U);
    EXPECT_EQ(attempts_pauses(), Pauses{1000});
}

TEST_P(CommonAttemptTest, FailedReadIsTriedAgainFromTheWriteOn) {
    OpenRecord record(pad);
    bus().hooks.get_feature = results(tries_until_time_out, -1);
    EXPECT_EQ(GetParam().run(record.get()), 0);
    EXPECT_THAT(said(), Says("core_feature_read() failed with return code -1"));
    EXPECT_EQ(count(request()), 2U);
    EXPECT_EQ(attempts_pauses(), Pauses{1000});
}

TEST_P(CommonAttemptTest, ClosedRecordFailsThreeTimes) {
    Record record(pad);
    EXPECT_EQ(GetParam().run(record.get()), -1);
    EXPECT_EQ(attempts_pauses(), three_pauses);
    EXPECT_EQ(times_said("Error, device pointers: *hid and *vcom_handle are NULL"), 3);
}

TEST_P(CommonAttemptTest, ShortReplyForEverEndsTheCommand) {
    OpenRecord record(pad);
    bus().hooks.get_feature = always{3};
    bus().cost_us["hid_get_feature_report"] = 10'000;
    EXPECT_EQ(GetParam().run(record.get()), -1);
    EXPECT_EQ(count(request()), 3U);
}

TEST_P(CommonAttemptTest, LockIsHeldOverAllAttemptsAndPausesOrNotTouched) {
    OpenRecord record(pad);
    answer(reply({0x12}), 2);
    std::vector<bool> locked;
    bus().hooks.usleep = [&](unsigned int) { locked.push_back(record.locked()); };
    bus().hooks.send_feature = [&](HidInterface&, std::span<const unsigned char>) -> std::optional<int> {
        locked.push_back(record.locked());
        return std::nullopt;
    };
    EXPECT_EQ(GetParam().run(record.get()), 0);
    EXPECT_THAT(locked, SizeIs(5));
    EXPECT_THAT(locked, Each(GetParam().locks));
    EXPECT_FALSE(record.locked());
}

TEST_P(CommonAttemptTest, RecordWithoutALockWorks) {
    OpenRecord record(pad);
    record->device_lock = nullptr;
    EXPECT_EQ(GetParam().run(record.get()), 0);
}

TEST_P(CommonAttemptTest, NullRecordIsRefused) {
    EXPECT_EQ(GetParam().run(nullptr), -1);
    EXPECT_THAT(bus().log(), IsEmpty());
}

// Version.

TEST_F(LegacyCommandsTest, VersionNumbersAreLittleEndian) {
    OpenRecord record(pad);
    answer(reply({0x11, 0,    0xee, 0xee, // command, status, unused
                  0x04, 0x03, 0x02, 0x01, // major
                  0x01, 0x00, 0x00, 0x00, // minor
                  0x00, 0x00, 0x00, 0x80, // patch
                  0xff, 0xff, 0xff, 0xff, // revision
                  'W',  'X',  'Y',  'Z',  'n'}));
    dev_fw_version version{};
    version.manufacturer[4] = '!';
    EXPECT_EQ(core_read_version(record.get(), &version), 0);
    EXPECT_EQ(version.major, 0x01020304U);
    EXPECT_EQ(version.minor, 1U);
    EXPECT_EQ(version.patch, 0x80000000U);
    EXPECT_EQ(version.revision, 0xffffffffU);
    EXPECT_EQ(std::string(version.manufacturer, 5), "WXYZ!"); // four characters, no terminator
}

TEST_F(LegacyCommandsTest, VersionArgumentsAreChecked) {
    dev_fw_version version{};
    EXPECT_EQ(core_read_version(nullptr, &version), -1);
    EXPECT_THAT(said(), Says("Error of parameter device *current_device is NULL"));
    OpenRecord record(pad);
    EXPECT_EQ(core_read_version(record.get(), nullptr), -1);
    EXPECT_THAT(said(), Says("Error of parameter dev_fw_version *dev_fw_v is NULL"));
    EXPECT_THAT(bus().log(), IsEmpty());
    EXPECT_FALSE(record.locked());
}

// The model is recognised by its ids: the search asks before it has derived the type.
TEST_F(LegacyCommandsTest, OneModelIsNeverAskedForItsVersion) {
    HidInterface& classic = bus().plug(pad_of_type(1, "classic"));
    OpenRecord record(classic, 0);
    dev_fw_version version{};
    EXPECT_EQ(core_read_version(record.get(), &version), 0);
    EXPECT_EQ(version.major, 1U);
    EXPECT_EQ(version.minor, 31U);
    EXPECT_THAT(bus().log(), IsEmpty());
    EXPECT_FALSE(record.locked());
}

TEST_F(LegacyCommandsTest, OtherModelsAreAskedWhateverTheirType) {
    HidInterface& eight = bus().plug(pad_of_type(8, "eight"));
    OpenRecord record(eight, 1);
    dev_fw_version version{};
    EXPECT_EQ(core_read_version(record.get(), &version), 0);
    EXPECT_EQ(version.major, 2U);
    EXPECT_THAT(bus().log("hid_send_feature_report"), SizeIs(1));
}

// Status and mode.

TEST_F(LegacyCommandsTest, StatusIsBytes6To19OfTheReply) {
    OpenRecord record(pad);
    answer(status_reply(42));
    flags_status status{};
    EXPECT_EQ(__core_get_status(record.get(), &status), 0);
    EXPECT_THAT(status.flags, ElementsAre(106, 107, 108, 109, 110, 42, 112, 113, 114, 115, 116, 117, 118, 119));
}

TEST_F(LegacyCommandsTest, StatusArgumentsAreChecked) {
    flags_status status{};
    EXPECT_EQ(__core_get_status(nullptr, &status), -1);
    EXPECT_THAT(said(), Says("Error of parameter device *current_device is NULL"));
    OpenRecord record(pad);
    EXPECT_EQ(__core_get_status(record.get(), nullptr), -1);
    EXPECT_THAT(said(), Says("Error of parameter flags_status *status is NULL"));
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(LegacyCommandsTest, StatusOfTypeOneIsZeroWithoutTraffic) {
    OpenRecord record(pad, 1);
    flags_status status;
    std::memset(&status, 0xee, sizeof status);
    EXPECT_EQ(__core_get_status(record.get(), &status), 0);
    EXPECT_THAT(status.flags, Each(0));
    EXPECT_EQ(__core_get_pad_mode(record.get()), 0);
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(LegacyCommandsTest, StatusStopsOnceThePadIsRemoved) {
    OpenRecord record(pad);
    bus().unplug(pad);
    flags_status status{};
    EXPECT_EQ(__core_get_status(record.get(), &status), -1);
    EXPECT_EQ(record->was_removed, 1);
    EXPECT_EQ(count(sent("27")), tries_until_time_out); // the first attempt only
    EXPECT_EQ(attempts_pauses(), Pauses{1000});
    EXPECT_EQ(times_said("failed, going to try again after usleep(1000)"), 1);
    EXPECT_THAT(said(), Not(Says("device pointers")));
}

TEST_F(LegacyCommandsTest, OtherCommandsUseUpTheirAttemptsOnARemovedPad) {
    OpenRecord record(pad);
    bus().unplug(pad);
    dev_fw_version version{};
    EXPECT_EQ(core_read_version(record.get(), &version), -1);
    EXPECT_EQ(record->was_removed, 1);
    EXPECT_EQ(times_said("Error, device pointers: *hid and *vcom_handle are NULL"), 2);
    EXPECT_EQ(attempts_pauses(), three_pauses);
}

TEST_F(LegacyCommandsTest, PadModeIsAnUnsignedByte) {
    OpenRecord record(pad);
    for (const int mode : {0, 3, 127, 128, 255}) {
        answer(status_reply(static_cast<unsigned char>(mode)));
        EXPECT_EQ(__core_get_pad_mode(record.get()), mode);
    }
}

TEST_F(LegacyCommandsTest, PadModeFailsWithTheStatus) {
    OpenRecord record(pad);
    answer(reply({0x28}), 3);
    EXPECT_EQ(__core_get_pad_mode(record.get()), -1);
    EXPECT_THAT(said(), Says("__core_get_status() return -1"));
    EXPECT_EQ(attempts_pauses(), three_pauses);
}

// Setting the mode.

constexpr std::array confirming_types{8U, 9U, 10U, 11U, 12U, 13U, 15U, 16U, 17U};

class SetPadModeTest : public LegacyCommandsTest {};

class ConfirmedModeTest : public SetPadModeTest, public testing::WithParamInterface<unsigned int> {};

INSTANTIATE_TEST_SUITE_P(Types, ConfirmedModeTest, testing::ValuesIn(confirming_types));

TEST_P(ConfirmedModeTest, IsConfirmedByTheStatus) {
    OpenRecord record(pad, GetParam());
    EXPECT_EQ(core_set_pad_mode(record.get(), 3, 7), 3);
    Lines expected{sent("01 03 07"), asked(), sent("27"), asked()};
    if (GetParam() == 8) {
        expected.insert(expected.begin(), paused(1'000'000));
    }
    EXPECT_EQ(bus().log(), expected);
    EXPECT_THAT(said(), Says("*** going to set pad mode 3"));
    EXPECT_THAT(said(), Says("Device status mode: 3"));
    EXPECT_FALSE(record.locked());
}

TEST_P(ConfirmedModeTest, DeviceErrorIsTriedAgain) {
    OpenRecord record(pad, GetParam());
    answer(reply({0x01, 27}));
    EXPECT_EQ(core_set_pad_mode(record.get(), 3, 0), 3);
    EXPECT_EQ(count(sent("01 03")), 2U);
    EXPECT_THAT(said(), Says("error: device: switch mode not allowed"));
    Pauses expected{1000};
    if (GetParam() == 8) { // a second before each write
        expected = {1'000'000, 1000, 1'000'000};
    }
    EXPECT_EQ(bus().pauses(), expected);
}

// Types without confirmation: the device's error byte is not looked at either.
TEST_F(SetPadModeTest, UnknownTypesAreDoneWithTheEcho) {
    for (const unsigned int type : {0U, 2U, 7U, 14U, 18U}) {
        OpenRecord record(pad, type);
        answer(reply({0x01, 27}));
        EXPECT_GE(core_set_pad_mode(record.get(), 3, 0), 0);
        EXPECT_THAT(bus().log(), ElementsAre(sent("01 03"), asked()));
        EXPECT_THAT(said(), Not(Says("error: device:")));
    }
}

// Deliberate: type 1 gets a short request with a mark at its end and never replies.
TEST_F(SetPadModeTest, RequestToTypeOneIs40BytesLongAndHasNoReply) {
    OpenRecord record(pad, 1);
    EXPECT_GE(core_set_pad_mode(record.get(), 3, 7), 0);
    Bytes report(41);
    report[1] = 0x01;
    report[2] = 3;
    report[3] = 7;
    report[39] = 0xf0;
    report[40] = 0xa5;
    EXPECT_THAT(bus().log(), ElementsAre("hid_send_feature_report(" + path + ", " + describe(report) + ")"));
    EXPECT_FALSE(record.locked());
}

TEST_F(SetPadModeTest, WrongEchoesEndTheCommandAfterThreeAttempts) {
    OpenRecord record(pad);
    answer(reply({0x02}), 3);
    EXPECT_EQ(core_set_pad_mode(record.get(), 3, 0), -1);
    EXPECT_EQ(count(sent("01 03")), 3U);
    EXPECT_EQ(bus().pauses(), three_pauses);
    EXPECT_EQ(times_said("command in in_report_general not VX_CMD_SET_PAD_MODE"), 3);
    EXPECT_EQ(times_said("end of attempts, exit with error..."), 1);
    EXPECT_FALSE(record.locked());
}

TEST_F(SetPadModeTest, TypeEightWaitsASecondBeforeEveryWrite) {
    OpenRecord record(pad, 8);
    answer(reply({0x02}), 3);
    EXPECT_EQ(core_set_pad_mode(record.get(), 3, 0), -1);
    EXPECT_EQ(bus().pauses(), (Pauses{1'000'000, 1000, 1'000'000, 3000, 1'000'000, 7000}));
}

TEST_F(SetPadModeTest, FailedWritesEndTheCommandAfterThreeAttempts) {
    for (const unsigned int type : {plain_type, 1U}) {
        OpenRecord record(pad, type);
        bus().hooks.send_feature = always{-1};
        EXPECT_EQ(core_set_pad_mode(record.get(), 3, 0), -1);
        EXPECT_THAT(bus().log("hid_send_feature_report"), SizeIs(3 * tries_until_time_out));
        EXPECT_THAT(bus().log("hid_get_feature_report"), IsEmpty());
        EXPECT_EQ(attempts_pauses(), three_pauses);
        EXPECT_FALSE(record.locked());
    }
}

TEST_F(SetPadModeTest, FailedReadIsTriedAgainFromTheWriteOn) {
    OpenRecord record(pad);
    bus().hooks.get_feature = results(tries_until_time_out, -1);
    EXPECT_EQ(core_set_pad_mode(record.get(), 3, 0), 3);
    EXPECT_EQ(count(sent("01 03")), 2U);
    EXPECT_EQ(attempts_pauses(), Pauses{1000});
}

TEST_F(SetPadModeTest, RemovedPadUsesUpTheAttempts) {
    OpenRecord record(pad);
    bus().unplug(pad);
    EXPECT_EQ(core_set_pad_mode(record.get(), 3, 0), -1);
    EXPECT_EQ(record->was_removed, 1);
    EXPECT_EQ(attempts_pauses(), three_pauses);
    EXPECT_FALSE(record.locked());
}

// Deliberate: as long as the pad answers, whatever mode it names, there is no time limit.
TEST_F(SetPadModeTest, PadInAnotherModeIsPolledUntilItChanges) {
    OpenRecord record(pad);
    answer(reply({0x01, 0}));
    answer(status_reply(1), 100);
    answer(status_reply(3));
    EXPECT_EQ(core_set_pad_mode(record.get(), 3, 0), 3);
    EXPECT_EQ(count(sent("01 03")), 1U);
    EXPECT_EQ(count(sent("27")), 101U);
    EXPECT_EQ(bus().pauses(), Pauses(100, 300'000));
    EXPECT_EQ(times_said("Device status mode: 1"), 100);
}

// The lock is held all the time: the callback hears nothing before its end, and not all.
TEST_F(SetPadModeTest, PadThatStaysInAnotherModeIsComplainedOfOnStandardError) {
    constexpr std::size_t polls = 130;
    answer(reply({0x01}));
    answer(status_reply(2), polls);
    answer(status_reply(3));
    OpenRecord record(pad);
    const standins::OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(core_set_pad_mode(record.get(), 3, 0), 3);
    for (const char* times : {"32", "64", "128"}) {
        EXPECT_THAT(errors.text(), HasSubstr(std::string("the pad named mode 2, not 3, ") + times + " times"));
    }
    EXPECT_EQ(times_said("it is asked on"), 3);
}

TEST_F(SetPadModeTest, MessagesOfALongWaitAreBoundedAndSayHowManyWereLeftOut) {
    constexpr std::size_t polls = 3000;
    answer(reply({0x01}));
    answer(status_reply(2), polls);
    answer(status_reply(3));
    OpenRecord record(pad);
    forget();
    const standins::OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(core_set_pad_mode(record.get(), 3, 0), 3);
    EXPECT_THAT(errors.text(), HasSubstr("more than 1000 messages wait for the logging callback"));
    const Lines heard = said();
    ASSERT_EQ(heard.size(), 1001U);
    EXPECT_THAT(heard.front(), HasSubstr("*** going to set pad mode 3"));
    EXPECT_THAT(heard[500], HasSubstr(" messages were left out here\n"));
    EXPECT_EQ(times_said("Device status mode: 3"), 1) << "the last messages are kept";
    EXPECT_GE(std::stoul(heard[500].substr(heard[500].find("(): ") + 4)), 2000U);

    forget();
    answer(reply({0x01}));
    answer(status_reply(3));
    EXPECT_EQ(core_set_pad_mode(record.get(), 3, 0), 3);
    EXPECT_EQ(times_said("left out"), 0) << "the next call begins anew";
    EXPECT_EQ(times_said("*** going to set pad mode 3"), 1);
}

TEST_F(SetPadModeTest, FailedStatusQueriesAreCountedAndEndTheCommand) {
    OpenRecord record(pad);
    answer(reply({0x01, 0}));
    answer(reply({0x28}), 20);
    EXPECT_EQ(core_set_pad_mode(record.get(), 3, 0), -1);
    EXPECT_EQ(count(sent("01 03")), 1U);
    EXPECT_EQ(count(sent("27")), 9U); // three queries of three attempts each
    // Each query pauses by itself, then the command does, with pauses that grow from query to query.
    EXPECT_EQ(bus().pauses(), (Pauses{1000, 3000, 7000, 1000, 1000, 3000, 7000, 3000, 1000, 3000, 7000, 7000}));
    EXPECT_EQ(times_said("error: __core_get_pad_mode() return -1"), 3);
    EXPECT_THAT(said(), Says("elapsed_time: 11, time_out: 3000"));
    EXPECT_EQ(times_said("end of attempts, exit with error..."), 4); // three queries and the command
    EXPECT_FALSE(record.locked());
}

TEST_F(SetPadModeTest, ConfirmationSurvivesAFailedQuery) {
    OpenRecord record(pad);
    answer(reply({0x01, 0}));
    answer(reply({0x28}), 3);
    answer(status_reply(3));
    EXPECT_EQ(core_set_pad_mode(record.get(), 3, 0), 3);
    EXPECT_EQ(bus().pauses(), (Pauses{1000, 3000, 7000, 1000}));
}

TEST_F(SetPadModeTest, StatusThatFailsSlowlyEndsTheCommandToo) {
    OpenRecord record(pad);
    bus().hooks.get_feature = [](HidInterface& asked_pad, std::span<unsigned char>) -> std::optional<int> {
        if (asked_pad.last_request[0] == 0x27) {
            return -1;
        }
        return std::nullopt;
    };
    EXPECT_EQ(core_set_pad_mode(record.get(), 3, 0), -1);
    EXPECT_FALSE(record.locked());
}

TEST_F(SetPadModeTest, PadPulledOutWhileItIsConfirmedEndsTheCommand) {
    OpenRecord record(pad);
    answer(reply({0x01, 0}));
    answer(status_reply(1), 5);
    bus().hooks.usleep = [&](unsigned int pause) {
        if (pause == 300'000) {
            bus().unplug(pad);
        }
    };
    EXPECT_EQ(core_set_pad_mode(record.get(), 3, 0), -1);
    EXPECT_EQ(record->was_removed, 1);
    EXPECT_FALSE(record.locked());
}

TEST_F(SetPadModeTest, LockIsHeldThroughoutIncludingTheConfirmation) {
    OpenRecord record(pad, 8);
    answer(reply({0x01, 0}));
    answer(status_reply(1), 2);
    answer(status_reply(3));
    std::vector<bool> locked;
    bus().hooks.usleep = [&](unsigned int) { locked.push_back(record.locked()); };
    EXPECT_EQ(core_set_pad_mode(record.get(), 3, 0), 3);
    EXPECT_THAT(locked, ElementsAre(true, true, true));
    EXPECT_FALSE(record.locked());
}

TEST_F(SetPadModeTest, ModeZeroIsAModeToo) {
    OpenRecord record(pad);
    EXPECT_EQ(core_set_pad_mode(record.get(), 0, 0), 0);
    EXPECT_THAT(bus().log(), ElementsAre(sent("01"), asked(), sent("27"), asked()));
}

TEST_F(SetPadModeTest, NullRecordIsRefused) {
    EXPECT_EQ(core_set_pad_mode(nullptr, 3, 0), -1);
    EXPECT_THAT(bus().log(), IsEmpty());
}

// Signature rectangle.

TEST_F(LegacyCommandsTest, RectangleValuesAreLittleEndianInArgumentOrder) {
    OpenRecord record(pad);
    EXPECT_EQ(core_create_signature_rectangle(record.get(), 0x0201, 0x0403, 0x0605, 0x0807, 0x0c0b0a09), 0);
    EXPECT_THAT(bus().log(), ElementsAre(sent("65 01 02 03 04 05 06 07 08 09 0a 0b 0c"), asked()));
}

TEST_F(LegacyCommandsTest, FailedRectangleReopensTheInterface) {
    OpenRecord record(pad);
    answer(reply({0x66}), 3);
    EXPECT_EQ(core_create_signature_rectangle(record.get(), 1, 2, 3, 4, 5), -1);
    EXPECT_THAT(last(5, bus().log()), ElementsAre(paused(7000), paused(50), closed(), opened(), blocking()));
    EXPECT_EQ(record->was_removed, 0);
    EXPECT_FALSE(record.locked());
}

TEST_F(LegacyCommandsTest, RectangleThatCannotReopenGivesMinusTwenty) {
    OpenRecord record(pad);
    answer(reply({0x66}), 3);
    bus().hooks.open_path = always{-1};
    EXPECT_EQ(core_create_signature_rectangle(record.get(), 0, 0, 0, 0, 0), -20);
    EXPECT_EQ(record->was_removed, 1);
    EXPECT_EQ(record->hid, nullptr);
    EXPECT_FALSE(record.locked());
}

} // namespace
} // namespace core_test
