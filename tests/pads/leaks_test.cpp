// A pad that comes and goes must leave nothing behind. The library's pauses are skipped.
#include "ssp_pad_test.hpp"

#include <string_view>

using namespace pads;

namespace {

constexpr int pad = 1; // HID, two interfaces
constexpr int vcom_pad = 2;

void exchange() {
    for (const unsigned int interface : {0U, 1U}) {
        EXPECT_EQ(set_feature(1, interface, report(65, 0x80)), 0);
        EXPECT_EQ(read(GetFeature, 1, interface).result, 0);
        EXPECT_EQ(read(ReadFile, 1, interface).result, 0);
    }
}

void exchange_with_vcom_pad() {
    EXPECT_EQ(exchange_messages(components_request), (MessageAnswer{{}, components_reply}));
    EXPECT_EQ(set_feature(1, 0, report(65, 0x80)), 0);
    EXPECT_EQ(read(GetFeature, 1, 0).result, 0);
    to_pad("pen", vcom_pad, "01");
    EXPECT_EQ(read(ReadFile, 1, 0, 2).reply, 2U);
    put_into_stream(vcom_pad, framed(components_reply) + framed(components_reply) + framed(pen_message({1, 2})));
    EXPECT_EQ(receive_message().failure, Failure{}); // and the rest stays in the queues
}

struct Cycle {
    const char* name;
    void (*run)();
    int pad = 1; // the only one that is plugged in
};

void PrintTo(const Cycle& cycle, std::ostream* stream) {
    *stream << cycle.name;
}

class Leaks : public PluggedPads, public testing::WithParamInterface<Cycle> {
  protected:
    void SetUp() override { plug_only({GetParam().pad}); }
};

INSTANTIATE_TEST_SUITE_P(All, Leaks,
                         testing::Values(Cycle{"Use",
                                               [] {
                                                   Initialize();
                                                   exchange();
                                               }},
                                         Cycle{"SearchTwice",
                                               [] {
                                                   Initialize();
                                                   exchange();
                                                   Initialize();
                                               }},
                                         Cycle{"Failures",
                                               [] {
                                                   Initialize();
                                                   for (int i = 0; i < 100; ++i) {
                                                       EXPECT_NE(set_feature(1, 7, report(65, 0x80)), 0);
                                                   }
                                               }},
                                         Cycle{"UnplugAndUse",
                                               [] {
                                                   Initialize();
                                                   exchange();
                                                   to_pad("unplug", pad);
                                                   for (const unsigned int interface : {0U, 1U, 0U, 1U}) {
                                                       EXPECT_NE(set_feature(1, interface, report(65, 0x80)), 0);
                                                   }
                                                   to_pad("plug", pad);
                                                   Initialize();
                                                   exchange();
                                               }},
                                         Cycle{"UnplugAndStop",
                                               [] {
                                                   Initialize();
                                                   exchange();
                                                   to_pad("unplug", pad);
                                                   Deinitialize();
                                                   to_pad("plug", pad);
                                               }},
                                         Cycle{"UnplugDuringTheSearch",
                                               [] {
                                                   static int transfer = 0;
                                                   to_pad("fault", pad,
                                                          "unplug,count=1,after=" + std::to_string(transfer++ % 48));
                                                   Initialize();
                                                   to_pad("clear-faults", pad);
                                                   if (!is_plugged(pad)) {
                                                       to_pad("plug", pad);
                                                   }
                                               }},
                                         Cycle{"SearchThatEndsEarly",
                                               [] {
                                                   to_pad("fault", pad, "wrong-command,on=get-feature,count=3");
                                                   Initialize();
                                                   to_pad("fault", pad, "wrong-command,on=get-feature,count=3,after=1");
                                                   Initialize();
                                                   to_pad("clear-faults", pad);
                                               }},
                                         Cycle{"Reopen",
                                               [] {
                                                   Initialize();
                                                   for (const unsigned int interface : {0U, 1U, 0U}) {
                                                       to_pad("fault", pad, "stall,on=set-feature,count=13");
                                                       set_feature(1, interface, report(65, 0x80));
                                                       to_pad("clear-faults", pad);
                                                       EXPECT_EQ(set_feature(1, interface, report(65, 0x80)), 0);
                                                   }
                                               }},
                                         Cycle{"VcomUse",
                                               [] {
                                                   Initialize();
                                                   exchange_with_vcom_pad();
                                                   Initialize();
                                               },
                                               vcom_pad},
                                         Cycle{"VcomFailures",
                                               [] {
                                                   Initialize();
                                                   for (int i = 0; i < 5; ++i) {
                                                       receive_message(1); // closes the pad and opens it again
                                                       put_into_stream(vcom_pad, framed({0x00, 0xff, 0xff, 0x10}));
                                                       receive_message(1);
                                                       to_pad("fault", vcom_pad, "stall,on=bulk-out,count=3");
                                                       EXPECT_EQ(send_message(components_request), send_failure);
                                                   }
                                               },
                                               vcom_pad},
                                         Cycle{"VcomSearchInVain",
                                               [] {
                                                   to_pad("fault", vcom_pad, "wrong-result,after=2,count=1");
                                                   Initialize();
                                                   to_pad("fault", vcom_pad, "replace=00000010,after=1,count=1");
                                                   Initialize();
                                                   to_pad("clear-faults", vcom_pad);
                                               },
                                               vcom_pad},
                                         Cycle{"UnplugVcomAndUse",
                                               [] {
                                                   Initialize();
                                                   exchange_with_vcom_pad();
                                                   to_pad("unplug", vcom_pad);
                                                   for (int i = 0; i < 3; ++i) {
                                                       EXPECT_EQ(send_message(components_request), send_failure);
                                                   }
                                                   to_pad("plug", vcom_pad);
                                                   Initialize();
                                                   exchange_with_vcom_pad();
                                               },
                                               vcom_pad},
                                         Cycle{"UnplugVcomDuringTheSearch",
                                               [] {
                                                   static int transfer = 0;
                                                   to_pad("fault", vcom_pad,
                                                          "unplug,count=1,after=" + std::to_string(transfer++ % 24));
                                                   Initialize();
                                                   to_pad("clear-faults", vcom_pad);
                                                   if (!is_plugged(vcom_pad)) {
                                                       to_pad("plug", vcom_pad);
                                                   }
                                               },
                                               vcom_pad}),
                         [](const auto& tested) { return tested.param.name; });

TEST_P(Leaks, NothingInFiftyCycles) {
    const auto run = [](int cycles) {
        for (int i = 0; i < cycles; ++i) {
            GetParam().run();
            EXPECT_EQ(Deinitialize(), 0);
        }
    };
    run(3); // what is taken once
    const auto before = resources();
    constexpr int cycles = 50;
    run(cycles);
    const bool replugs = std::string_view{GetParam().name}.starts_with("Unplug");
    expect_no_growth(before, cycles, replugs ? cycles : 0);
}

} // namespace
