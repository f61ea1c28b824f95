// A pad that misbehaves on request: type 16, two interfaces, gives back what was written to it. The library's pauses
// are skipped.
#include "pad_test.hpp"

#include <algorithm>

using namespace pads;

namespace {

constexpr int pad = 1;

class Faults : public InitializedPads {
  protected:
    void fault(const std::string& what) { to_pad("fault", pad, what); }

    // Nothing of what went wrong has stayed behind.
    void expect_sound_pad() {
        heal();
        for (const unsigned int interface : {0U, 1U}) {
            const auto sent = report(65, static_cast<unsigned char>(0x80 + interface));
            EXPECT_EQ(set_feature(1, interface, sent), 0);
            EXPECT_EQ(read(GetFeature, 1, interface).buffer, received(payload(sent)));
        }
        to_pad("input", pad, "0 0102");
        EXPECT_EQ(next_input(1, 0).buffer[2], 2);
        EXPECT_EQ(removals_.take(), std::vector<unsigned int>{}) << "the pad has been there all the time";
    }

    static int count() {
        unsigned int reply = 0;
        return GetDeviceCount(&reply);
    }

    Removals removals_;
};

struct Transfer {
    const char* function;
    const char* kind;
    std::function<int(unsigned int interface)> call;
    const char* failure;
};

void PrintTo(const Transfer& transfer, std::ostream* stream) {
    *stream << transfer.function;
}

class FaultyTransfer : public Faults, public testing::WithParamInterface<Transfer> {};

INSTANTIATE_TEST_SUITE_P(All, FaultyTransfer,
                         testing::Values(Transfer{"GetFeature", "get-feature",
                                                  [](unsigned int i) { return read(GetFeature, 1, i).result; },
                                                  "Error of read HID feature for device: 1"},
                                         Transfer{"SetFeature", "set-feature",
                                                  [](unsigned int i) { return set_feature(1, i, report(65, 0x90)); },
                                                  "Error of write HID feature for device: 1"},
                                         Transfer{"WriteFile", "set-feature",
                                                  [](unsigned int i) { return write_file(1, i, report(65, 0x90)); },
                                                  "Error of set HID output report for device: 1"}),
                         [](const auto& tested) { return tested.param.function; });

TEST_P(FaultyTransfer, IsTriedAgainAfterAStall) {
    for (const unsigned int interface : {0U, 1U}) {
        fault(std::string("stall,count=3,on=") + GetParam().kind);
        EXPECT_EQ(GetParam().call(interface), 0);
        const auto log = take_log(pad);
        EXPECT_EQ(std::ranges::count_if(log, [](const auto& line) { return line.ends_with(" stall"); }), 3);
        EXPECT_EQ(log.size(), 4U);
    }
    expect_sound_pad();
}

TEST_P(FaultyTransfer, IsGivenUpWhenThePadStalls) {
    for (const unsigned int interface : {0U, 1U}) {
        fault(std::string("stall,on=") + GetParam().kind);
        int result = 0;
        const auto seconds = seconds_of([&] { result = GetParam().call(interface); });
        EXPECT_EQ(failure(result), invalid_handle(GetParam().function, GetParam().failure));
        EXPECT_GE(seconds, 1);
        EXPECT_LT(seconds, patience(3));
        to_pad("clear-faults", pad);
        EXPECT_EQ(GetParam().call(interface), 0) << "the interface has been opened again";
    }
    expect_sound_pad();
}

TEST_P(FaultyTransfer, IsGivenUpWhenThePadStaysSilent) {
    fault(std::string("silence,on=") + GetParam().kind);
    int result = 0;
    const auto seconds = seconds_of([&] { result = GetParam().call(0); });
    EXPECT_EQ(failure(result), invalid_handle(GetParam().function, GetParam().failure));
    EXPECT_GE(seconds, 1);
    EXPECT_LT(seconds, patience(3));
    expect_sound_pad();
}

TEST_F(Faults, LateRepliesAreWaitedFor) {
    EXPECT_EQ(set_feature(1, 0, report(65, 0x80)), 0);
    fault("delay=200,on=get-feature,count=1");
    EXPECT_GE(seconds_of([&] { EXPECT_EQ(read(GetFeature, 1, 0).buffer, received(payload(report(65, 0x80)))); }), 0.2);
    expect_sound_pad();
}

TEST_F(Faults, ShortRepliesAreFetchedAgain) {
    EXPECT_EQ(set_feature(1, 0, report(65, 0x80)), 0);
    fault("short=63,on=get-feature,count=1");
    fault("short=0,on=get-feature,count=1,after=1");
    EXPECT_EQ(read(GetFeature, 1, 0).buffer, received(payload(report(65, 0x80))));
    expect_sound_pad();
}

TEST_F(Faults, RepliesThatStayShortAreGivenUp) {
    for (const auto* what : {"short=63,on=get-feature", "short=0,on=get-feature"}) {
        fault(what);
        ReadAnswer answer{};
        const auto seconds = seconds_of([&] { answer = read(GetFeature, 1, 0); });
        EXPECT_EQ(failure(answer.result), invalid_handle("GetFeature", "Error of read HID feature for device: 1"));
        EXPECT_EQ(answer.reply, reply_untouched);
        EXPECT_EQ(answer.buffer, Bytes(65, untouched));
        EXPECT_GE(seconds, 1);
        EXPECT_LT(seconds, patience(3));
        to_pad("clear-faults", pad);
    }
    expect_sound_pad();
}

TEST_F(Faults, ReportsLongerThanThePadsAreGivenUp) {
    EXPECT_EQ(failure(set_feature(1, 0, report(66, 0x80))),
              invalid_handle("SetFeature", "Error of write HID feature for device: 1"));
    EXPECT_EQ(failure(read(GetFeature, 1, 0, 100).result),
              invalid_handle("GetFeature", "Error of read HID feature for device: 1"));
    expect_sound_pad();
}

// The library does not look into an application's reports.
TEST_F(Faults, NonsenseIsHandedOn) {
    EXPECT_EQ(set_feature(1, 0, report(65, 0x80)), 0);
    fault("wrong-command,on=get-feature,count=1");
    EXPECT_EQ(read(GetFeature, 1, 0).buffer[1], 0x81);
    fault("garbage,on=get-feature,count=1");
    const auto answer = read(GetFeature, 1, 0);
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.buffer[0], 0);
    EXPECT_NE(answer.buffer, received(payload(report(65, 0x80))));
    expect_sound_pad();
}

// Input reports

TEST_F(Faults, ShortInputReportsFail) {
    fault("short=10,on=input,count=1");
    to_pad("input", pad, "0 01");
    const auto answer = next_input(1, 0);
    EXPECT_EQ(failure(answer.result), invalid_handle("ReadFile", "Error of read HID input report for device: 1"));
    EXPECT_EQ(answer.reply, reply_untouched);
    EXPECT_EQ(answer.buffer, Bytes(65, untouched));
    expect_sound_pad();
}

TEST_F(Faults, EmptyAndStalledInputIsNoInput) {
    for (const auto* what : {"short=0,on=input,count=1", "stall,on=input,count=20"}) {
        fault(what);
        to_pad("input", pad, "0 01");
        to_pad("input", pad, "0 02");
        const auto first = next_input(1, 0);
        EXPECT_EQ(first.result, 0) << what;
        if (first.buffer[1] == 1) { // a stall loses nothing
            EXPECT_EQ(next_input(1, 0).buffer[1], 2);
        }
        EXPECT_EQ(read(ReadFile, 1, 0).reply, reply_untouched);
    }
    expect_sound_pad();
}

TEST_F(Faults, SilentInputIsNoInput) {
    fault("silence,on=input");
    to_pad("input", pad, "0 01");
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(read(ReadFile, 1, 0).reply, reply_untouched);
    }
    EXPECT_LT(seconds_of([] { EXPECT_EQ(Initialize(), 0); }), patience(3));
    EXPECT_EQ(count(), 1);
    SetOnDeviceRemovedHandler(nullptr, nullptr);
    heal();
    EXPECT_EQ(next_input(1, 0).buffer[1], 1);
}

// The search

struct SearchCase {
    const char* fault;
    int pads;
    double seconds; // at most
};

void PrintTo(const SearchCase& search, std::ostream* stream) {
    *stream << search.fault;
}

class FaultySearch : public Faults, public testing::WithParamInterface<SearchCase> {};

INSTANTIATE_TEST_SUITE_P(
    All, FaultySearch,
    testing::Values(
        // Every exchange of the version is tried three times, and the two interfaces each have their own.
        SearchCase{"wrong-command,on=get-feature,count=2", 1, 2},
        SearchCase{"wrong-command,on=get-feature,count=3", 0, 2}, SearchCase{"status=5,on=get-feature,count=2", 1, 2},
        SearchCase{"status=255,on=get-feature,count=3", 0, 2}, SearchCase{"garbage,on=get-feature,count=3", 0, 2},
        // The first interface has been registered when the second one fails.
        SearchCase{"wrong-command,on=get-feature,after=1,count=3", 1, 2},
        SearchCase{"stall,on=get-feature,count=2", 1, 2}, SearchCase{"stall,on=set-feature", 0, 7},
        SearchCase{"stall,on=get-feature", 0, 7}, SearchCase{"silence,on=get-feature,count=1", 1, 4},
        SearchCase{"silence,on=set-feature", 0, 6}, SearchCase{"short=0,on=get-feature,count=5", 1, 2},
        // Without its strings the first interface looks like another pad.
        SearchCase{"stall,on=string,after=18,count=9", 2, 2}),
    [](const auto& tested) {
        std::string name = tested.param.fault;
        std::ranges::replace_if(
            name, [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
        return name;
    });

TEST_P(FaultySearch, EndsWithADocumentedResult) {
    Deinitialize();
    fault(GetParam().fault);
    EXPECT_LT(seconds_of([] { EXPECT_EQ(Initialize(), 0); }), patience(GetParam().seconds));
    EXPECT_TRUE(IsInitialized());
    EXPECT_EQ(count(), GetParam().pads);
    if (GetParam().pads == 0) {
        for (const auto& [name, call, _] : device_calls()) {
            EXPECT_EQ(failure(call(1)), invalid_handle(name, "Error of switching to device: 1"));
        }
    }
    to_pad("clear-faults", pad);
    EXPECT_EQ(Initialize(), 0);
    ASSERT_EQ(count(), 1);
    EXPECT_EQ(number_of([](auto* reply) { return GetEndPointCount(1, reply); }), 2U);
    expect_sound_pad();
}

class FaultyStrings : public Faults, public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(All, FaultyStrings,
                         testing::Values("stall,on=string", "short=0,on=string", "short=1,on=string",
                                         "short=2,on=string", "short=3,on=string", "short=5,on=string",
                                         "garbage,seed=1,on=string", "garbage,seed=2,on=string",
                                         "garbage,seed=3,on=string", "garbage,seed=4,on=string,after=20",
                                         "wrong-command,on=string", "status=255,on=string", "silence,on=string,count=1",
                                         "garbage,seed=5,on=descriptor", "stall,on=descriptor"));

// Whatever the strings are, the pad can be used, and no text is longer than it may be.
TEST_P(FaultyStrings, LeaveAUsablePad) {
    Deinitialize();
    fault(GetParam());
    EXPECT_LT(seconds_of([] { EXPECT_EQ(Initialize(), 0); }), patience(4));
    ASSERT_GE(count(), 1);
    for (const auto& [name, call, prefix] : device_calls()) {
        const auto failed = failure(call(1));
        if (failed.code != 0) { // a string may be empty
            EXPECT_EQ(failed, invalid_handle(name, prefix + std::string("1")));
        }
    }
    EXPECT_EQ(set_feature(1, 0, report(65, 0x80)), 0);
    EXPECT_EQ(read(GetFeature, 1, 0).result, 0);

    heal();
    Initialize();
    EXPECT_EQ(serial_number(1), u"SN0001");
    expect_sound_pad();
}

TEST_F(Faults, TheLastCommandEndsWhenThePadStaysSilent) {
    fault("silence,on=get-feature");
    EXPECT_LT(seconds_of([] { EXPECT_EQ(Deinitialize(), 0); }), patience(6));
    EXPECT_FALSE(IsInitialized());
    heal();
    EXPECT_EQ(Initialize(), 0);
    expect_sound_pad();
}

} // namespace
