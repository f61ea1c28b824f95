// The data callback: what it is given, when it is asked for again, what it may do.
#include "receive_test.hpp"
#include "support/lines.hpp"

#include <cstdio>
#include <sstream>

namespace receive_test {
namespace {

class DataCallback : public Receiving {
  protected:
    int receive_into(Receiver& receiver, unsigned int device = 1, unsigned int interface = 0) {
        return SetOnDataReceivedHandler(device, interface, Receiver::receive, &receiver);
    }
    void start(Receiver& receiver, unsigned int device = 1, unsigned int interface = 0) {
        ASSERT_EQ(receive_into(receiver, device, interface), 0);
        ASSERT_EQ(SetDataReceivingEnabled(device, interface, 1), 0);
    }
    // The pauses of callback threads, in order.
    static std::vector<unsigned int> pauses() {
        std::vector<unsigned int> chosen;
        for (const unsigned int pause : bus().pauses()) {
            if (pause != 50 && pause != 500 && pause != 900'000) {
                chosen.push_back(pause);
            }
        }
        return chosen;
    }

    Receiver receiver_;
    Receiver other_;
};

TEST_F(DataCallback, GetsEveryReportInOrderWithItsPadAndInterface) {
    start(receiver_, 1, 1);
    for (unsigned int i = 0; i < 300; ++i) {
        give(*further_, report_of(9, i));
    }
    ASSERT_TRUE(receiver_.gets(300));
    const auto all = receiver_.all();
    ASSERT_EQ(all.size(), 300U);
    for (unsigned int i = 0; i < 300; ++i) {
        EXPECT_EQ(all[i].user_specific, &receiver_);
        EXPECT_EQ(all[i].device, 1U);
        EXPECT_EQ(all[i].interface_number, 1U);
        EXPECT_EQ(all[i].bytes, report_of(9, i));
    }
    EXPECT_EQ(available(1, 1), 0U);
}

TEST_F(DataCallback, GetsSixtyFourBytesThatAreZeroBehindAShortReport) {
    HidInterface& small = bus().plug(standins::pad_of_type(1, "1-3:1.0", 0, L"SN0003"));
    ASSERT_EQ(Initialize(), 0);
    start(receiver_, 3);
    for (unsigned int i = 0; i < 20; ++i) {
        give(small, report_of(3, i, 20));
    }
    ASSERT_TRUE(receiver_.gets(20));
    for (unsigned int i = 0; i < 20; ++i) {
        Bytes expected = report_of(3, i, 20);
        expected.resize(64);
        EXPECT_EQ(receiver_.all()[i].bytes, expected);
    }
}

TEST_F(DataCallback, SeesNothingOfAShortReportThatFailed) {
    start(receiver_);
    give(*first_, Bytes(63, 0xEE)); // writes 63 bytes, and is refused
    give(*first_, report_of(1, 0));
    ASSERT_TRUE(receiver_.gets(1));
    EXPECT_EQ(receiver_.all()[0].bytes, report_of(1, 0));
}

TEST_F(DataCallback, WaitsHalfASecondUntilThereIsAQueue) {
    ASSERT_EQ(receive_into(receiver_), 0);
    ASSERT_TRUE(comes_true([] { return pauses().size() > 3; }));
    EXPECT_THAT(pauses(), Each(500'000U));
}

TEST_F(DataCallback, AsksLessAndLessOftenWhileTheQueueIsEmpty) {
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_EQ(receive_into(receiver_), 0);
    ASSERT_TRUE(comes_true([] { return pauses().size() > 205; }));
    auto taken = pauses();
    for (unsigned int i = 0; i < 205; ++i) {
        EXPECT_EQ(taken[i], std::min(1'500 * (i + 1), 300'000U));
    }
    give(*first_, report_of(1, 0));
    ASSERT_TRUE(receiver_.gets(1));
    ASSERT_TRUE(comes_true([] { return pauses().back() < 300'000; }));
    taken = pauses();
    const auto again = std::find(taken.begin() + 205, taken.end(), 1'500U);
    ASSERT_NE(again, taken.end()) << "a frame brings the short pause back";
    EXPECT_EQ(*(again - 1), 300'000U);
}

TEST_F(DataCallback, AsksAgainAtOnceAfterAFrame) {
    for (unsigned int i = 0; i < 10; ++i) {
        give(*first_, report_of(1, i));
    }
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_TRUE(comes_true([] { return available() == 10; }));
    receiver_.then = [](const Received&) { EXPECT_THAT(pauses(), IsEmpty()); };
    ASSERT_EQ(receive_into(receiver_), 0);
    EXPECT_TRUE(receiver_.gets(10));
}

TEST_F(DataCallback, IsLoggedWithItsPointers) {
    const LogCapture& log = overhear();
    ASSERT_EQ(receive_into(receiver_), 0);
    std::array<char, 200> text{};
    std::snprintf(text.data(), text.size(),
                  "Pointer %p with user_specific %p was set like callback for receive input reports",
                  reinterpret_cast<void*>(Receiver::receive), static_cast<void*>(&receiver_));
    EXPECT_EQ(log.count(text.data()), 1);
    EXPECT_EQ(log.count("already started"), 0);
}

TEST_F(DataCallback, IsRegisteredWhenItsThreadRuns) {
    std::string output;
    {
        const standins::EnvironmentGuard on(lines::function_switch, "1");
        const standins::OutputCapture capture(STDOUT_FILENO);
        for (const unsigned int device : {1U, 2U}) {
            for (unsigned int interface = 0; interface < 8; ++interface) {
                EXPECT_EQ(receive_into(receiver_, device, interface), 0);
            }
        }
        output = capture.text();
    }
    int registered = 0;
    int running = 0;
    for (const std::string& text : lines::texts(lines::parse_output(output))) {
        running += text == "pirc_routine(): enter." ? 1 : 0;
        registered += text == "SetOnDataReceivedHandler(): exit. returned int: 0." ? 1 : 0;
        EXPECT_LE(registered, running) << text;
    }
    EXPECT_EQ(registered, 16);
}

TEST_F(DataCallback, IsReplacedForTheNextFrame) {
    start(receiver_);
    give(*first_, report_of(1, 0));
    ASSERT_TRUE(receiver_.gets(1));
    const LogCapture& log = overhear();
    ASSERT_EQ(receive_into(other_), 0);
    EXPECT_EQ(log.count("receive input report thread already started "), 1);
    give(*first_, report_of(1, 1));
    ASSERT_TRUE(other_.gets(1));
    EXPECT_EQ(other_.all()[0].bytes, report_of(1, 1));
    EXPECT_EQ(receiver_.count(), 1U);
}

TEST_F(DataCallback, TakenAwayEndsBothThreads) {
    start(receiver_);
    ASSERT_TRUE(is_read("1-1:1.0"));
    const LogCapture& log = overhear();
    ASSERT_EQ(SetOnDataReceivedHandler(1, 0, nullptr, nullptr), 0);
    EXPECT_TRUE(comes_true([&] { return log.count("SetDataReceivingEnabled(1, 0, 0)") == 1; }));
    EXPECT_TRUE(is_quiet("1-1:1.0"));
    EXPECT_EQ(log.count("info: pirc_routine(): processing_input_report_callback == NULL: 1"), 1);
    give(*first_, report_of(1, 0));
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(receiver_.count(), 0U);
}

TEST_F(DataCallback, NullWhereNoThreadRunsStartsOneThatStopsReceiving) {
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_TRUE(is_read("1-1:1.0"));
    const LogCapture& log = overhear();
    ASSERT_EQ(SetOnDataReceivedHandler(1, 0, nullptr, nullptr), 0);
    EXPECT_EQ(log.count("already started"), 0);
    EXPECT_TRUE(comes_true([&] { return log.count("SetDataReceivingEnabled(1, 0, 0)") == 1; }));
    EXPECT_TRUE(is_quiet("1-1:1.0"));
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    EXPECT_TRUE(is_read("1-1:1.0"));
}

// The callback thread sleeps while the application changes its mind.
TEST_F(DataCallback, ThreadThatEndsLeavesReceivingAloneThatWasStartedAnew) {
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    const auto ended = std::make_shared<Gate>();
    {
        const auto guard = bus().lock();
        bus().hooks.usleep = [this, ended](unsigned int microseconds) {
            if (microseconds == 1'500) {
                EXPECT_TRUE(gates[0].pass());
                open_at_the_end_of_this_thread(ended);
            } else {
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            }
        };
    }
    ASSERT_EQ(receive_into(receiver_), 0);
    ASSERT_TRUE(gates[0].somebody_waits());
    const LogCapture& log = overhear();
    ASSERT_EQ(SetOnDataReceivedHandler(1, 0, nullptr, nullptr), 0);
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0); // restarts
    gates[0].open();
    EXPECT_TRUE(ended->pass());
    EXPECT_EQ(log.count("SetDataReceivingEnabled(1, 0, 0)"), 1);
    EXPECT_TRUE(is_read("1-1:1.0"));
    ASSERT_EQ(receive_into(other_), 0);
    give(*first_, report_of(1, 5));
    EXPECT_TRUE(other_.gets(1));
}

TEST_F(DataCallback, SetAgainBeforeItsThreadLooksKeepsTheThread) {
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    {
        const auto guard = bus().lock();
        bus().hooks.usleep = [this](unsigned int microseconds) {
            if (microseconds == 1'500) {
                EXPECT_TRUE(gates[0].pass());
            } else {
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            }
        };
    }
    ASSERT_EQ(receive_into(receiver_), 0);
    ASSERT_TRUE(gates[0].somebody_waits());
    ASSERT_EQ(SetOnDataReceivedHandler(1, 0, nullptr, nullptr), 0);
    ASSERT_EQ(receive_into(other_), 0);
    gates[0].open();
    give(*first_, report_of(1, 5));
    EXPECT_TRUE(other_.gets(1));
    EXPECT_TRUE(is_read("1-1:1.0"));
}

// What a callback may do.

TEST_F(DataCallback, MayUseTheLibrary) {
    receiver_.then = [this](const Received&) {
        unsigned int value = 0;
        Bytes report(65);
        std::array<char16_t, 32> text{};
        EXPECT_EQ(GetDeviceCount(&value), 2);
        EXPECT_EQ(GetFeature(1, 0, report.data(), 65, &value), 0);
        EXPECT_EQ(SetFeature(1, 1, report.data(), 65, &value), 0);
        EXPECT_EQ(GetSerialNumber(2, text.data(), 32, &value), 0);
        EXPECT_EQ(api::narrow(text.data(), value), "SN0002");
        EXPECT_EQ(EnumerateDevicesStart(&value), 0);
        EXPECT_EQ(GetDataPacketsAvailable(1, 0, &value), 0);
        EXPECT_EQ(FlushDataPackets(1, 0), 0);
        EXPECT_EQ(WriteFileBuffer(1, 1, report.data(), 65, &value), 0);
        EXPECT_TRUE(IsInitialized());
        SetOnDeviceRemovedHandler(nullptr, nullptr);
        RegisterLoggingCallBackProcedure(nullptr, nullptr);
        gates[0].open();
    };
    start(receiver_);
    give(*first_, report_of(1, 0));
    EXPECT_TRUE(gates[0].pass());
}

TEST_F(DataCallback, MayStopAndStartReceiving) {
    std::atomic<unsigned int> returned = 0;
    receiver_.then = [&](const Received&) {
        EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
        EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
        EXPECT_EQ(SetDataReceivingEnabled(2, 0, 1), 0);
        ++returned;
    };
    start(receiver_);
    for (unsigned int i = 0; i < 5; ++i) {
        give(*first_, report_of(1, i));
        ASSERT_TRUE(comes_true([&] { return returned > i; }));
    }
    EXPECT_TRUE(is_read("1-2:1.0"));
}

TEST_F(DataCallback, MayRemoveItself) {
    receiver_.then = [](const Received&) { EXPECT_EQ(SetOnDataReceivedHandler(1, 0, nullptr, nullptr), 0); };
    start(receiver_);
    give(*first_, report_of(1, 0));
    ASSERT_TRUE(receiver_.gets(1));
    EXPECT_TRUE(is_quiet("1-1:1.0"));
    EXPECT_EQ(receiver_.count(), 1U);
}

TEST_F(DataCallback, MayReplaceItself) {
    receiver_.then = [this](const Received&) { EXPECT_EQ(receive_into(other_), 0); };
    start(receiver_);
    for (unsigned int i = 0; i < 3; ++i) {
        give(*first_, report_of(1, i));
    }
    ASSERT_TRUE(other_.gets(2));
    EXPECT_EQ(receiver_.count(), 1U);
}

TEST_F(DataCallback, ThatIsSlowLosesNothingAndDelaysOnlyItself) {
    receiver_.then = [this](const Received&) { EXPECT_TRUE(gates[0].pass()); };
    start(receiver_);
    start(other_, 2);
    for (unsigned int i = 0; i < 200; ++i) {
        give(*first_, report_of(1, i));
        give(*second_, report_of(2, i));
    }
    ASSERT_TRUE(gates[0].somebody_waits());
    ASSERT_TRUE(other_.gets(200));
    EXPECT_EQ(receiver_.count(), 1U);
    gates[0].open();
    ASSERT_TRUE(receiver_.gets(200));
    for (unsigned int i = 0; i < 200; ++i) {
        EXPECT_EQ(receiver_.all()[i].bytes, report_of(1, i));
    }
}

TEST_F(DataCallback, HasReturnedWhenDeinitializeReturns) {
    static std::atomic<bool> inside;
    inside = false;
    receiver_.then = [](const Received&) {
        inside = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        unsigned int value = 0;
        GetDeviceCount(&value); // the tear-down leaves the list's lock free
        inside = false;
    };
    start(receiver_);
    give(*first_, report_of(1, 0));
    ASSERT_TRUE(receiver_.gets(1));
    EXPECT_EQ(Deinitialize(), 0);
    EXPECT_FALSE(inside);
}

TEST_F(DataCallback, OfEveryInterfaceEndsWithTheLibrary) {
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(Initialize(), 0);
        start(receiver_);
        start(receiver_, 1, 1);
        start(other_, 2);
        EXPECT_EQ(Deinitialize(), 0);
        bus().take_log();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        EXPECT_THAT(bus().log(), IsEmpty());
    }
}

TEST_F(DataCallback, OfBeforeIsForgottenByInitialize) {
    start(receiver_);
    ASSERT_EQ(Initialize(), 0);
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    give(*first_, report_of(1, 0));
    ASSERT_TRUE(comes_true([] { return available() == 1; }));
    EXPECT_EQ(receiver_.count(), 0U);
    ASSERT_EQ(receive_into(other_), 0);
    EXPECT_TRUE(other_.gets(1));
}

// A logging callback may use the library too, whatever its thread is doing.

struct Logger {
    static void log(void*, const char16_t*) {
        ++messages;
        unsigned int value = 0;
        GetDeviceCount(&value);
        GetDataPacketsAvailable(1, 0, &value);
        IsInitialized();
        GetVendorId(2, &value);
    }
    static std::atomic<int> messages;
};
std::atomic<int> Logger::messages;

TEST_F(DataCallback, LoggingCallbackMayUseTheLibraryWhileThreadsAreStartedAndStopped) {
    Logger::messages = 0;
    ASSERT_EQ(RegisterLoggingCallBackProcedure(reinterpret_cast<void*>(Logger::log), nullptr), 0);
    for (int i = 0; i < 5; ++i) {
        start(receiver_);
        give(*first_, report_of(1, static_cast<unsigned int>(i)));
        ASSERT_TRUE(receiver_.gets(static_cast<std::size_t>(i) + 1));
        ASSERT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
    }
    unsigned int value = 0;
    IsInitialized(); // logs with a lock held
    GetDataPacketsAvailable(1, 0, &value);
    FlushDataPackets(1, 0);
    start(receiver_);
    EXPECT_EQ(Deinitialize(), 0);
    EXPECT_GT(Logger::messages, 0);
}

TEST_F(DataCallback, LoggingCallbackMayUseAnotherPadThanTheCallThatItIsTold) {
    const Interruption& selected = interrupt("GetVendorId(): Was switched to device: 1", [] {
        Bytes report(65);
        unsigned int value = 0;
        EXPECT_EQ(GetFeature(2, 0, report.data(), 65, &value), 0);
        EXPECT_EQ(EnumerateDevicesNext(&value), 0);
        EXPECT_EQ(value, 0U) << "pad 2 is current";
    });
    EXPECT_EQ(GetVendorId(1, &reply_), 0);
    EXPECT_TRUE(selected.happened());
    EXPECT_THAT(bus().log("hid_open_path"), ElementsAre("hid_open_path(1-2:1.0)"));
}

// Those that the library wrote, without what stands in front of their kind.
Lines info_lines(const std::string& output) {
    Lines lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);) {
        if (const auto begin = line.find(" info: "); begin != std::string::npos) {
            lines.push_back(line.substr(begin + 1) + '\n');
        }
    }
    return lines;
}

TEST_F(DataCallback, LoggingCallbackGetsMessagesInTheOrderInWhichTheyWereSaid) {
    const standins::EnvironmentGuard on("LIBVXPADCOM_DEBUG", "1");
    const standins::OutputCapture output(STDOUT_FILENO);
    const LogCapture& log = overhear();
    const std::string before = output.text();
    EXPECT_EQ(GetVendorId(2, &reply_), 0); // says most of it with the list locked
    const Lines said = info_lines(output.text().substr(before.size()));
    EXPECT_GT(said.size(), 5U);
    EXPECT_EQ(log.messages(), said);
}

TEST_F(DataCallback, LoggingCallbackGetsWhatTheTearDownSaidBeforeItIsForgotten) {
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    const LogCapture& log = overhear();
    EXPECT_EQ(Deinitialize(), 0);
    EXPECT_EQ(log.count("Going to clear queue for device: 1, interface: 0"), 1);
}

} // namespace
} // namespace receive_test
