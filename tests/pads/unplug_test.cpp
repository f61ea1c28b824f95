// A type 16 pad with two interfaces that is pulled out at any moment. The library's pauses are skipped.
#include "pad_test.hpp"
#include "vxpadcom/internals.h"

#include <algorithm>

using namespace pads;

namespace {

constexpr int pad = 1;

// No single call lasts longer than a command's three attempts and the reopening of the pad, a time-out each.
constexpr double bound = 8;

// Any call, also one that fails.
int bounded(const std::string& name, const std::function<int()>& call) {
    int result = 0;
    EXPECT_LT(seconds_of([&] { result = call(); }), patience(bound)) << name;
    return result;
}

int count() {
    unsigned int reply = 0;
    return GetDeviceCount(&reply);
}

const std::vector<std::string> documented_messages{
    "Error of switching to device: 1",
    "Can not switch to device: 1",
    "Error of getting serial number for device: 1",
    "Error of getting product ID for device: 1",
    "Error of getting device's name for device: 1",
    "Error of getting vendor ID for device: 1",
    "Error of getting device's manufacturer for device: 1",
    "Error of getting bcdDevice for device: 1",
    "Error of getting count of hid interfaces for device: 1",
    "Error of getting max packet size of hid interfaces for device: 1",
    "Error of write HID feature for device: 1",
    "Error of read HID feature for device: 1",
    "Error of set HID output report for device: 1",
    "Error of read HID input report for device: 1",
};

// Whatever state the list is in: every call works or fails as documented.
void expect_documented_results() {
    for (const auto& tested : device_calls()) {
        const auto failed = failure(bounded(tested.name, [&] { return tested.call(1); }));
        if (failed.code != 0) {
            EXPECT_EQ(failed, invalid_handle(tested.name, failed.message));
            EXPECT_TRUE(std::ranges::count(documented_messages, failed.message) == 1) << failed.message;
        }
    }
    unsigned int reply = 0;
    EXPECT_EQ(EnumerateDevicesNext(&reply), 0);
}

void expect_sound_pad() {
    heal();
    EXPECT_EQ(bounded("Initialize", Initialize), 0);
    ASSERT_EQ(count(), 1);
    EXPECT_EQ(number_of([](auto* reply) { return GetEndPointCount(1, reply); }), 2U);
    for (const unsigned int interface : {0U, 1U}) {
        const auto sent = report(65, static_cast<unsigned char>(0x80 + interface));
        EXPECT_EQ(set_feature(1, interface, sent), 0);
        EXPECT_EQ(read(GetFeature, 1, interface).buffer, received(payload(sent)));
        to_pad("input", pad, std::to_string(interface) + " 01");
        EXPECT_EQ(next_input(1, interface).buffer[1], 1);
    }
}

class Unplug : public InitializedPads {
  protected:
    template <typename Prepare, typename Action, typename Check>
    int sweep(Prepare prepare, Action action, Check check) {
        return pull_out_at_each_transfer(
            pad,
            [&] {
                heal();
                prepare();
            },
            action,
            [&] {
                check();
                expect_sound_pad();
            });
    }
};

TEST_F(Unplug, DuringTheSearch) {
    const int transfers = sweep([] { Deinitialize(); },
                                [] {
                                    EXPECT_EQ(bounded("Initialize", Initialize), 0);
                                    EXPECT_TRUE(IsInitialized());
                                },
                                [] {
                                    EXPECT_LE(count(), 1);
                                    expect_documented_results();
                                    EXPECT_EQ(bounded("Deinitialize", Deinitialize), 0);
                                    EXPECT_EQ(bounded("EnumerateDevicesStart",
                                                      [] {
                                                          unsigned int reply = reply_untouched;
                                                          const int result = EnumerateDevicesStart(&reply);
                                                          EXPECT_EQ(reply, 0U);
                                                          return result;
                                                      }),
                                              0);
                                });
    EXPECT_GT(transfers, 20) << "strings, versions and rectangles";
}

TEST_F(Unplug, DuringASecondSearch) {
    const int transfers =
        sweep([] { EXPECT_EQ(Initialize(), 0); }, [] { EXPECT_EQ(bounded("Initialize", Initialize), 0); },
              [] {
                  EXPECT_LE(count(), 1);
                  expect_documented_results();
              });
    EXPECT_GT(transfers, 20);
}

TEST_F(Unplug, DuringDeinitialize) {
    const int transfers =
        sweep([] { EXPECT_EQ(Initialize(), 0); }, [] { EXPECT_EQ(bounded("Deinitialize", Deinitialize), 0); },
              [] { EXPECT_FALSE(IsInitialized()); });
    EXPECT_EQ(transfers, 2);
}

TEST_F(Unplug, WhileItIsMadeCurrent) {
    const int transfers =
        sweep([] { EXPECT_EQ(Initialize(), 0); },
              [] { EXPECT_GE(bounded("switch", [] { return core_set_device_to_current(nullptr); }), -20); },
              [] { expect_documented_results(); });
    EXPECT_EQ(transfers, 2);
}

struct Transfer {
    const char* function;
    unsigned int interface;
    std::function<int(unsigned int interface)> call;
    const char* failure;
};

void PrintTo(const Transfer& transfer, std::ostream* stream) {
    *stream << transfer.function << " of interface " << transfer.interface;
}

class UnplugTransfer : public Unplug, public testing::WithParamInterface<Transfer> {
  protected:
    static void expect_failure(int result) {
        EXPECT_EQ(failure(result), invalid_handle(GetParam().function, GetParam().failure));
    }
    static int transfer() {
        return bounded(GetParam().function, [] { return GetParam().call(GetParam().interface); });
    }
};

std::vector<Transfer> transfers() {
    const std::vector<Transfer> of_first{
        {"SetFeature", 0, [](unsigned int i) { return set_feature(1, i, report(65, 0x80)); },
         "Error of write HID feature for device: 1"},
        {"GetFeature", 0, [](unsigned int i) { return read(GetFeature, 1, i).result; },
         "Error of read HID feature for device: 1"},
        {"WriteFile", 0, [](unsigned int i) { return write_file(1, i, report(65, 0x80)); },
         "Error of set HID output report for device: 1"},
        {"ReadFile", 0,
         [](unsigned int i) {
             ReadAnswer answer{};
             const auto is_over = [&] {
                 answer = read(ReadFile, 1, i);
                 return answer.result != 0 || answer.reply != reply_untouched;
             };
             EXPECT_TRUE(wait_for(is_over)) << "neither a report nor a failure";
             return answer.result;
         },
         "Error of read HID input report for device: 1"},
    };
    auto all = of_first;
    for (auto transfer : of_first) {
        transfer.interface = 1;
        all.push_back(transfer);
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(All, UnplugTransfer, testing::ValuesIn(transfers()), [](const auto& tested) {
    return tested.param.function + std::to_string(tested.param.interface);
});

TEST_P(UnplugTransfer, DuringTheCall) {
    Removals removals;
    const bool reads_input = std::string(GetParam().function) == "ReadFile";
    int result = 0;
    const int transfers = sweep(
        [&] {
            EXPECT_EQ(Initialize(), 0);
            SetOnDeviceRemovedHandler(nullptr, nullptr);
            if (reads_input) {
                to_pad("input", pad, std::to_string(GetParam().interface) + " 01");
            }
        },
        [&] {
            Removals during;
            result = transfer();
            EXPECT_EQ(during.take(), result == 0 ? std::vector<unsigned int>{} : std::vector<unsigned int>{1});
        },
        [&] {
            expect_failure(result);
            expect_documented_results();
        });
    EXPECT_LE(transfers, 1);
}

// Not at a transfer but between two calls.
TEST_P(UnplugTransfer, BeforeTheCall) {
    EXPECT_EQ(set_feature(1, GetParam().interface, report(65, 0x80)), 0);
    Removals removals;
    to_pad("unplug", pad);
    expect_failure(transfer());
    EXPECT_EQ(removals.take(), std::vector<unsigned int>{1});
    expect_documented_results();
    EXPECT_EQ(number_of(EnumerateDevicesStart), 1U) << "the list stays as it is";
    expect_sound_pad();
}

// hidapi hands out what had arrived before it tells of the removal.
TEST_F(Unplug, LosesNoInputThatHasArrived) {
    EXPECT_EQ(read(ReadFile, 1, 0).reply, reply_untouched);
    to_pad("input", pad, "0 01");
    to_pad("input", pad, "0 02");
    ASSERT_TRUE(wait_for([] { return state_of(pad, "inputs-waiting-0") == "0"; }));
    to_pad("input", pad, "0 03");
    ASSERT_TRUE(wait_for([] { return state_of(pad, "inputs-waiting-0") == "0"; }));
    to_pad("unplug", pad);
    EXPECT_EQ(read(ReadFile, 1, 0).buffer[1], 1);
    EXPECT_EQ(read(ReadFile, 1, 0).buffer[1], 2);
    expect_sound_pad();
}

TEST_F(Unplug, IsFoundByTheFirstCallThatNeedsThePad) {
    Removals removals;
    to_pad("unplug", pad);
    EXPECT_EQ(serial_number(1), u"SN0001") << "known without asking the pad";
    EXPECT_EQ(removals.take(), std::vector<unsigned int>{});
    EXPECT_NE(bounded("SetFeature", [] { return set_feature(1, 0, report(65, 0x80)); }), 0);
    EXPECT_EQ(removals.take(), std::vector<unsigned int>{1});

    // From then on every call that asks for the pad fails and reports the removal.
    for (const auto& tested : device_calls()) {
        const int result = bounded(tested.name, [&] { return tested.call(1); });
        const bool asks = tested.failure != nullptr;
        EXPECT_EQ(failure(result), asks ? invalid_handle(tested.name, tested.failure + std::string("1")) : Failure{});
        EXPECT_EQ(removals.take(), std::vector<unsigned int>(asks ? 1 : 0, 1U)) << tested.name;
    }
    to_pad("plug", pad);
    EXPECT_NE(set_feature(1, 0, report(65, 0x80)), 0) << "removed it stays until the next search";
    expect_sound_pad();
}

TEST_F(Unplug, IsReportedToNobodyWithoutAHandler) {
    { const Removals forgotten; }
    to_pad("unplug", pad);
    EXPECT_NE(set_feature(1, 0, report(65, 0x80)), 0);
    expect_sound_pad();
}

TEST_F(Unplug, IsNotReportedToAHandlerOfAnEarlierSearch) {
    Removals removals;
    Initialize();
    to_pad("unplug", pad);
    EXPECT_NE(set_feature(1, 0, report(65, 0x80)), 0);
    EXPECT_EQ(removals.take(), std::vector<unsigned int>{});
}

// The callback may use the library: it finds the pad gone, as every call does.
TEST_F(Unplug, LetsTheHandlerAskTheLibrary) {
    std::vector<Failure> failures;
    SetOnDeviceRemovedHandler(
        [](void* user, unsigned int device) {
            SetOnDeviceRemovedHandler(nullptr, nullptr);
            unsigned int reply = 0;
            EXPECT_EQ(GetDeviceCount(&reply), 1);
            EXPECT_TRUE(IsInitialized());
            EXPECT_EQ(number_of(EnumerateDevicesStart), 1U);
            static_cast<std::vector<Failure>*>(user)->push_back(failure(GetVendorId(device, &reply)));
        },
        &failures);
    to_pad("unplug", pad);
    EXPECT_NE(set_feature(1, 0, report(65, 0x80)), 0);
    EXPECT_EQ(failures, (std::vector{invalid_handle("GetVendorId", "Error of getting vendor ID for device: 1")}));
}

TEST_F(Unplug, CostsOneCallWhenThePadIsBackAtOnce) {
    Removals removals;
    EXPECT_EQ(set_feature(1, 1, report(65, 0x80)), 0);
    to_pad("unplug", pad);
    to_pad("plug", pad);
    for (const unsigned int interface : {0U, 1U}) {
        EXPECT_EQ(failure(set_feature(1, interface, report(65, 0x90))),
                  invalid_handle("SetFeature", "Error of write HID feature for device: 1"));
        EXPECT_EQ(set_feature(1, interface, report(65, 0x90)), 0) << "the interface has been opened again";
        EXPECT_EQ(read(GetFeature, 1, interface).buffer, received(payload(report(65, 0x90))));
    }
    EXPECT_EQ(removals.take(), std::vector<unsigned int>{});
}

} // namespace
