// Several pads at a time: nobody's data goes to another, and nobody disturbs another's pad.
#include "receive_test.hpp"

namespace receive_test {
namespace {

// The reply to a feature request tells the pad.
Bytes feature_of(unsigned int device) {
    Bytes report(65);
    unsigned int reply = 0;
    EXPECT_EQ(GetFeature(device, 0, report.data(), 65, &reply), 0);
    return report;
}
std::string serial_of(unsigned int device) {
    std::array<char16_t, 32> text{};
    unsigned int length = 0;
    EXPECT_EQ(GetSerialNumber(device, text.data(), 32, &length), 0);
    return api::narrow(text.data(), length);
}

class Selection : public Receiving {
  protected:
    void SetUp() override {
        Receiving::SetUp();
        const auto guard = bus().lock();
        bus().hooks.get_feature = [this](HidInterface& pad, std::span<unsigned char> report) {
            std::fill(report.begin(), report.end(), static_cast<unsigned char>(&pad == second_ ? 2 : 1));
            return std::optional(static_cast<int>(report.size()));
        };
    }

    static Bytes expected_feature(unsigned int device) {
        Bytes report(65, static_cast<unsigned char>(device));
        report[0] = 0;
        return report;
    }
};

// Another call selects pad 2 between the selection of pad 1 and the core call behind it.
struct Intruder {
    static void log(void*, const char16_t* message) {
        const std::u16string text(message);
        if (text.find(u"Was switched to device: 1") != std::u16string::npos) {
            ++intrusions;
            std::thread([] { EXPECT_EQ(serial_of(2), "SN0002"); }).join();
        }
    }
    static int intrusions;
};
int Intruder::intrusions;

TEST_F(Selection, IsNotTornFromTheRequestBehindIt) {
    Intruder::intrusions = 0;
    RegisterLoggingCallBackProcedure(reinterpret_cast<void*>(Intruder::log), nullptr);
    EXPECT_EQ(serial_of(1), "SN0001");
    EXPECT_EQ(feature_of(1), expected_feature(1));
    unsigned int count = 0;
    EXPECT_EQ(GetEndPointCount(1, &count), 0);
    EXPECT_EQ(count, 2U);
    give(*first_, report_of(1, 0));
    Bytes report(65);
    EXPECT_EQ(ReadFile(1, 0, report.data(), 65, &count), 0);
    EXPECT_EQ(Bytes(report.begin() + 1, report.end()), report_of(1, 0));
    EXPECT_EQ(Intruder::intrusions, 4);
    RegisterLoggingCallBackProcedure(nullptr, nullptr);
}

TEST_F(Selection, OfTwoPadsByTwoThreadsNeverMixes) {
    const auto ask = [](unsigned int device) {
        for (int i = 0; i < 300; ++i) {
            ASSERT_EQ(feature_of(device), expected_feature(device));
            ASSERT_EQ(serial_of(device), device == 1 ? "SN0001" : "SN0002");
        }
    };
    std::thread other(ask, 2);
    ask(1);
    other.join();
}

TEST_F(Selection, ThatFailedMakesTheNextCallAskTheCore) {
    EXPECT_EQ(serial_of(2), "SN0002");
    bus().unplug(*second_);
    bus().hooks.get_feature = {};
    Bytes report(65);
    EXPECT_NE(GetFeature(2, 0, report.data(), 65, &reply_), 0); // finds out
    EXPECT_EQ(serial_of(1), "SN0001");
    bus().take_log();
    EXPECT_EQ(record_of(GetVendorId(2, &reply_)).message, "Error of switching to device: 2");
    EXPECT_EQ(serial_of(1), "SN0001") << "half of the switch to pad 2 has happened";
    EXPECT_THAT(bus().log("hid_open_path"), Contains("hid_open_path(1-1:1.0)")) << "which is a switch back";
    bus().unplug(*first_);
    EXPECT_NE(GetFeature(1, 0, report.data(), 65, &reply_), 0);
    EXPECT_EQ(record_of(GetVendorId(1, &reply_)).message, "Error of getting vendor ID for device: 1")
        << "from now on there is nothing to ask before the request itself";
}

TEST_F(Selection, IsThatOfANewListWhereARemovalMakesTheApplicationSearchAgain) {
    bus().hooks.get_feature = {};
    static int notices;
    notices = 0;
    SetOnDeviceRemovedHandler(
        [](void*, unsigned int device) {
            ++notices;
            EXPECT_EQ(device, 2U);
            EXPECT_EQ(Initialize(), 0);
            EXPECT_EQ(serial_of(1), "SN0001");
        },
        nullptr);
    EXPECT_EQ(serial_of(2), "SN0002");
    bus().unplug(*second_);
    Bytes report(65);
    EXPECT_NE(GetFeature(2, 0, report.data(), 65, &reply_), 0);
    EXPECT_EQ(notices, 1);
    EXPECT_EQ(GetDeviceCount(&reply_), 1);
    EXPECT_EQ(GetFeature(1, 0, report.data(), 65, &reply_), 0);
}

// Receiving from a pad that is not current.

TEST_F(Selection, IsMadeByTheStartOfReceivingAndThenLeftToTheCalls) {
    ASSERT_EQ(SetDataReceivingEnabled(2, 0, 1), 0);
    unsigned int next = 1;
    EXPECT_EQ(EnumerateDevicesNext(&next), 0);
    EXPECT_EQ(next, 0U) << "pad 2 is current, and the last one";
    ASSERT_TRUE(is_read("1-2:1.0"));
    EXPECT_THAT(bus().log("hid_open_path"), ElementsAre("hid_open_path(1-2:1.0)", "hid_open_path(1-2:1.0)"))
        << "the switch and the start";
    bus().take_log();
    EXPECT_EQ(serial_of(1), "SN0001");
    ASSERT_TRUE(is_read("1-2:1.0"));
    EXPECT_EQ(EnumerateDevicesNext(&next), 0);
    EXPECT_EQ(next, 2U) << "pad 1 stays current though pad 2 is read from";
    EXPECT_EQ(serial_of(1), "SN0001");
    ASSERT_EQ(SetDataReceivingEnabled(2, 0, 0), 0);
    EXPECT_EQ(serial_of(1), "SN0001");
    EXPECT_THAT(bus().log("hid_open_path"), Each("hid_open_path(1-1:1.0)")) << "only the calls' own switches reopen";
}

TEST_F(Selection, StillReopensAPadThatNobodyReceivesFrom) {
    EXPECT_EQ(serial_of(2), "SN0002");
    EXPECT_EQ(serial_of(1), "SN0001");
    EXPECT_THAT(bus().log("hid_open_path"), ElementsAre("hid_open_path(1-2:1.0)", "hid_open_path(1-1:1.0)"));
    EXPECT_THAT(bus().log("hid_close"), ElementsAre("hid_close(1-2:1.0)", "hid_close(1-1:1.0)"));
    bus().take_log();
    ASSERT_EQ(SetDataReceivingEnabled(2, 0, 1), 0);
    ASSERT_EQ(SetDataReceivingEnabled(2, 0, 0), 0);
    EXPECT_EQ(serial_of(1), "SN0001");
    bus().take_log();
    EXPECT_EQ(serial_of(2), "SN0002");
    EXPECT_THAT(bus().log("hid_open_path"), ElementsAre("hid_open_path(1-2:1.0)")) << "as before it was received from";
}

TEST_F(Selection, LeavesAPadOpenThatIsReceivedFrom) {
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_TRUE(is_read("1-1:1.0"));
    bus().take_log();
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(serial_of(2), "SN0002");
        EXPECT_EQ(serial_of(1), "SN0001");
        EXPECT_EQ(feature_of(1), expected_feature(1));
    }
    EXPECT_THAT(bus().log("hid_close"), Each("hid_close(1-2:1.0)"));
}

TEST_F(Selection, LeavesAFurtherInterfaceOpenThatIsReceivedFrom) {
    ASSERT_EQ(SetDataReceivingEnabled(1, 1, 1), 0);
    ASSERT_TRUE(is_read("1-1:1.1"));
    bus().take_log();
    EXPECT_EQ(serial_of(2), "SN0002");
    EXPECT_EQ(serial_of(1), "SN0001");
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_TRUE(is_read("1-1:1.0"));
    EXPECT_THAT(bus().log("hid_close"), ElementsAre("hid_close(1-2:1.0)", "hid_close(1-1:1.0)", "hid_close(1-1:1.0)"));
    EXPECT_EQ(SetDataReceivingEnabled(1, 1, 0), 0);
    EXPECT_EQ(serial_of(2), "SN0002");
    EXPECT_EQ(serial_of(1), "SN0001");
    EXPECT_THAT(bus().log("hid_close"), Contains("hid_close(1-1:1.1)")) << "when it is received from no more";
}

TEST_F(Selection, ByAThirdThreadTakesNoReportFromTwoThatReceive) {
    constexpr unsigned int reports = 1'500;
    std::array<Receiver, 2> receivers;
    for (const unsigned int device : {1U, 2U}) {
        ASSERT_EQ(SetOnDataReceivedHandler(device, 0, Receiver::receive, &receivers[device - 1]), 0);
        ASSERT_EQ(SetDataReceivingEnabled(device, 0, 1), 0);
    }
    bus().take_log();
    std::atomic<bool> finished = false;
    std::thread asking([&] {
        while (!finished) {
            for (const unsigned int device : {1U, 2U}) {
                ASSERT_EQ(feature_of(device), expected_feature(device));
            }
        }
    });
    for (unsigned int i = 0; i < reports; ++i) {
        give(*first_, report_of(1, i));
        give(*second_, report_of(2, i));
        if (i % 20 == 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }
    for (Receiver& receiver : receivers) {
        EXPECT_TRUE(receiver.gets(reports));
    }
    finished = true;
    asking.join();
    for (const unsigned int device : {1U, 2U}) {
        const auto all = receivers[device - 1].all();
        ASSERT_EQ(all.size(), reports);
        for (unsigned int i = 0; i < reports; ++i) {
            ASSERT_EQ(all[i].device, device);
            ASSERT_EQ(all[i].bytes, report_of(static_cast<unsigned char>(device), i));
        }
    }
    EXPECT_THAT(bus().log("hid_close"), IsEmpty());
}

TEST_F(Selection, DoesNotFailWhileAnotherCallRecoversThePad) {
    // A failed feature request closes and reopens the pad; whoever reads from it meanwhile waits.
    Receiver receiver;
    ASSERT_EQ(SetOnDataReceivedHandler(1, 0, Receiver::receive, &receiver), 0);
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    {
        const auto guard = bus().lock();
        bus().cost_us["hid_get_feature_report"] = 600'000;
        bus().hooks.get_feature = standins::always{-1};
        bus().hooks.open_path = [](const std::string&) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            return std::optional<int>();
        };
    }
    Bytes report(65);
    for (unsigned int i = 0; i < 10; ++i) {
        EXPECT_NE(GetFeature(1, 0, report.data(), 65, &reply_), 0);
        give(*first_, report_of(1, i));
    }
    EXPECT_TRUE(receiver.gets(10));
    const auto pauses = bus().pauses();
    EXPECT_EQ(std::count(pauses.begin(), pauses.end(), 900'000U), 0);
}

} // namespace
} // namespace receive_test
