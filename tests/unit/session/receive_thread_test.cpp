// The receive thread: what it asks of the pad, when it pauses, how it starts and ends.
#include "receive_test.hpp"

namespace receive_test {
namespace {

const std::string first_path = "1-1:1.0";
const std::string further_path = "1-1:1.1";
const std::string second_path = "1-2:1.0";

Lines one_read(const std::string& path, unsigned int size = 64) {
    return {"hid_set_nonblocking(" + path + ", 1)", "hid_read(" + path + ", " + std::to_string(size) + ")",
            "hid_set_nonblocking(" + path + ", 0)"};
}

// A thread under test whose reads are let through one by one.
class ReceiveThread : public Receiving {
  protected:
    Lines log_of_first_reads(unsigned int device, unsigned int interface, std::size_t lines) {
        EXPECT_EQ(SetDataReceivingEnabled(device, interface, 1), 0);
        EXPECT_TRUE(comes_true([&] { return bus().log().size() >= lines; }));
        Lines log = bus().log();
        log.resize(lines);
        return log;
    }
};

TEST_F(ReceiveThread, ReopensThePadAndReadsEvery500Microseconds) {
    const Lines log = log_of_first_reads(1, 0, 12);
    Lines expected{"usleep(50)", "hid_close(1-1:1.0)", "hid_open_path(1-1:1.0)", "hid_set_nonblocking(1-1:1.0, 0)"};
    for (int i = 0; i < 2; ++i) {
        for (const std::string& line : one_read(first_path)) {
            expected.push_back(line);
        }
        expected.emplace_back("usleep(500)");
    }
    EXPECT_EQ(log, expected);
}

TEST_F(ReceiveThread, OpensAFurtherInterfaceForItself) {
    const Lines log = log_of_first_reads(1, 1, 10);
    Lines expected{"usleep(50)",
                   "hid_close(1-1:1.0)",
                   "hid_open_path(1-1:1.0)",
                   "hid_set_nonblocking(1-1:1.0, 0)",
                   "hid_open_path(1-1:1.1)",
                   "hid_set_nonblocking(1-1:1.1, 0)"};
    for (const std::string& line : one_read(further_path)) {
        expected.push_back(line);
    }
    expected.emplace_back("usleep(500)");
    EXPECT_EQ(log, expected);
}

TEST_F(ReceiveThread, PausesAsLongAfterAReportAsAfterNone) {
    for (unsigned int i = 0; i < 5; ++i) {
        give(*first_, report_of(1, i));
    }
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_TRUE(comes_true([&] { return available() == 5 && times("hid_read(1-1:1.0, 64)") > 7; }));
    SetDataReceivingEnabled(1, 0, 0);
    for (const unsigned int pause : bus().pauses()) {
        EXPECT_TRUE(pause == 500 || pause == 50) << pause;
    }
}

TEST_F(ReceiveThread, PausesLongAfterAFailureAndGoesOn) {
    bus().hooks.read = standins::results({-1, 20});
    give(*first_, report_of(1, 0));
    const LogCapture& log = overhear();
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_TRUE(comes_true([&] { return available() == 1; }));
    SetDataReceivingEnabled(1, 0, 0);
    const auto pauses = bus().pauses();
    EXPECT_EQ(std::count(pauses.begin(), pauses.end(), 900'000U), 2);
    for (const int handle : {1, 2}) {
        EXPECT_EQ(record_of(handle),
                  (Record{invalid_handle, "read_file", "Error of read HID input report for device: 1"}));
    }
    EXPECT_EQ(log.count("error: start_routine(): ReadFile() return exception 1"), 1);
    EXPECT_EQ(log.count("error: start_routine(): ReadFile() return exception 2"), 1);
}

TEST_F(ReceiveThread, LogsItsStartUpAndItsEnd) {
    const LogCapture& log = overhear();
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    EXPECT_EQ(log.count("info: start_routine(): the queue size before starting thread is: 0"), 1);
    EXPECT_EQ(log.count("info: start_routine(): "), 2) << "and what tells of pen data";
    EXPECT_EQ(log.count("info: start_routine(): Sending of SSP Biodata was enabled"), 1) << "the start waits for it";
    SetDataReceivingEnabled(1, 0, 0);
    EXPECT_TRUE(
        comes_true([&] { return log.count("info: start_routine(): Sending of SSP Biodata was disabled") == 1; }));
}

TEST_F(ReceiveThread, QueuesReportsOfASmallPadWithTheirLength) {
    bus().plug(standins::pad_of_type(1, "1-3:1.0", 0, L"SN0003"));
    Deinitialize();
    pause_briefly();
    ASSERT_EQ(Initialize(), 0);
    unsigned int count = 0;
    ASSERT_EQ(GetDeviceCount(&count), 3);
    ASSERT_EQ(SetDataReceivingEnabled(3, 0, 1), 0);
    EXPECT_TRUE(comes_true([&] { return times("hid_read(1-3:1.0, 20)") > 0; }));
}

TEST_F(ReceiveThread, CountsWhatWaitsAndDropsItOnRequest) {
    for (unsigned int i = 0; i < 3; ++i) {
        give(*first_, report_of(1, i));
    }
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_TRUE(comes_true([&] { return available() == 3; }));
    const LogCapture& log = overhear();
    EXPECT_EQ(FlushDataPackets(2, 0), 0);
    EXPECT_EQ(log.count("Going to clear queue"), 0) << "there is none";
    EXPECT_EQ(available(), 3U);
    EXPECT_EQ(FlushDataPackets(1, 0), 0);
    EXPECT_EQ(log.count("info: flush_data_packets(): Going to clear queue for device: 1, interface: 0"), 1);
    EXPECT_EQ(available(), 0U);
    EXPECT_EQ(log.count("info: GetDataPacketsAvailable(): OUTPUT: *result: 0"), 1);
}

TEST_F(ReceiveThread, KeepsItsFramesWhenItIsStopped) {
    give(*first_, report_of(1, 0));
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_TRUE(comes_true([&] { return available() == 1; }));
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
    EXPECT_EQ(available(), 1U);
}

TEST_F(ReceiveThread, RestartsAndDropsTheFramesQueuedSoFar) {
    give(*first_, report_of(1, 0));
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_TRUE(comes_true([&] { return available() == 1; }));
    const LogCapture& log = overhear();
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    EXPECT_EQ(available(), 0U);
    EXPECT_EQ(log.count("Sending of SSP Biodata was disabled"), 1);
    EXPECT_EQ(log.count("Sending of SSP Biodata was enabled"), 1);
    EXPECT_TRUE(is_read(first_path));
}

TEST_F(ReceiveThread, ReadsNoMoreWhenTheStopReturns) {
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_TRUE(is_read(first_path));
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
        const std::size_t before = times("hid_read(1-1:1.0, 64)");
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        EXPECT_EQ(times("hid_read(1-1:1.0, 64)"), before);
        ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    }
}

TEST_F(ReceiveThread, StopsOneInterfaceAndLeavesTheOther) {
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_EQ(SetDataReceivingEnabled(1, 1, 1), 0);
    ASSERT_TRUE(is_read(first_path));
    ASSERT_TRUE(is_read(further_path));
    EXPECT_EQ(times("hid_close(1-1:1.0)"), 1U) << "what the first holds is not thrown away by the second start";
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
    EXPECT_TRUE(is_quiet(first_path));
    EXPECT_TRUE(is_read(further_path));
}

TEST_F(ReceiveThread, IsStoppedByTwoAtATime) {
    for (int i = 0; i < 30; ++i) {
        ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
        std::thread other([] { EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0); });
        EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
        other.join();
        EXPECT_TRUE(is_quiet(first_path));
    }
}

TEST_F(ReceiveThread, IsStartedByThreeAtATimeAndOnlyOneIsLeft) {
    for (int i = 0; i < 10; ++i) {
        std::vector<std::thread> starters;
        for (int k = 0; k < 3; ++k) {
            starters.emplace_back([] { EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0); });
        }
        for (std::thread& starter : starters) {
            starter.join();
        }
        ASSERT_TRUE(is_read(first_path));
        EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
        EXPECT_TRUE(is_quiet(first_path));
    }
}

TEST_F(ReceiveThread, BearsManyStartsAndStopsWhileDataStreams) {
    bus().hooks.read = [](HidInterface&, std::span<unsigned char> report) {
        std::fill(report.begin(), report.end(), static_cast<unsigned char>(7));
        return std::optional(static_cast<int>(report.size()));
    };
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
        ASSERT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
        bus().take_log();
    }
}

TEST_F(ReceiveThread, OfEveryInterfaceEndsWithTheLibrary) {
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(Initialize(), 0);
        ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
        ASSERT_EQ(SetDataReceivingEnabled(1, 1, 1), 0);
        ASSERT_EQ(SetDataReceivingEnabled(2, 0, 1), 0);
        ASSERT_TRUE(is_read(further_path));
        EXPECT_EQ(Deinitialize(), 0);
        EXPECT_EQ(bus().open_handles(), 0);
        bus().take_log();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        EXPECT_THAT(bus().log(), IsEmpty());
    }
}

TEST_F(ReceiveThread, OfBeforeIsGoneAfterInitialize) {
    ASSERT_EQ(SetDataReceivingEnabled(1, 1, 1), 0);
    ASSERT_EQ(Initialize(), 0);
    EXPECT_EQ(available(1, 1), preset) << "the queue is gone too";
    EXPECT_TRUE(is_quiet(further_path));
    ASSERT_EQ(SetDataReceivingEnabled(1, 1, 1), 0);
    EXPECT_TRUE(is_read(further_path));
}

// A removal.

class RemovedWhileReceiving : public Receiving {
  protected:
    void SetUp() override {
        Receiving::SetUp();
        notices = 0;
        on_removal = {};
        SetOnDeviceRemovedHandler(
            [](void*, unsigned int device) {
                EXPECT_EQ(device, 1U);
                if (++notices == 1 && on_removal) {
                    on_removal();
                }
            },
            nullptr);
    }
    void TearDown() override {
        Receiving::TearDown();
        on_removal = {};
    }

    void pull_out_first() {
        bus().unplug(*first_);
        bus().unplug(*further_);
    }
    // The last that a receive thread says, of a pad that is there or not.
    static bool has_ended(const LogCapture& log) {
        return comes_true([&] {
            return log.count("info: start_routine(): Sending of SSP Biodata was disabled") +
                       log.count("error: start_routine(): Error of send ssp message for device: 1") >
                   0;
        });
    }

    static std::atomic<int> notices;
    static std::function<void()> on_removal;
};
std::atomic<int> RemovedWhileReceiving::notices;
std::function<void()> RemovedWhileReceiving::on_removal;

TEST_F(RemovedWhileReceiving, MayStopItselfInTheCallbackButNotStart) {
    static std::atomic<int> stopped;
    static std::atomic<int> started;
    stopped = started = 1;
    const LogCapture& log = overhear();
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    on_removal = [] {
        started = SetDataReceivingEnabled(1, 0, 1);
        stopped = SetDataReceivingEnabled(1, 0, 0);
    };
    pull_out_first();
    EXPECT_TRUE(has_ended(log));
    EXPECT_GE(notices, 1);
    EXPECT_EQ(stopped, 0);
    EXPECT_EQ(started, -1);
    EXPECT_EQ(log.count("error: start_thread(): receiving cannot be started by a callback that its own thread runs"),
              1);
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0) << "nobody waits for it twice";
}

TEST_F(RemovedWhileReceiving, EndsTheThreadAndTellsTheApplicationOnIt) {
    static std::thread::id thread;
    thread = {};
    on_removal = [] { thread = std::this_thread::get_id(); };
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    pull_out_first();
    ASSERT_TRUE(comes_true([] { return notices > 0; }));
    EXPECT_TRUE(is_quiet("1-1:1.0"));
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0) << "who comes after the end does not wait for ever";
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
    EXPECT_NE(thread, std::this_thread::get_id());
    EXPECT_NE(thread, std::thread::id());
    EXPECT_EQ(record_of(1), (Record{invalid_handle, "read_file", "Error of read HID input report for device: 1"}));
}

TEST_F(RemovedWhileReceiving, EndsTheThreadOfAFurtherInterface) {
    ASSERT_EQ(SetDataReceivingEnabled(1, 1, 1), 0);
    ASSERT_TRUE(is_read("1-1:1.1"));
    const LogCapture& log = overhear();
    bus().unplug(*further_);
    ASSERT_TRUE(comes_true([] { return notices > 0; }));
    EXPECT_TRUE(has_ended(log)) << "an interface that is lost is not read, ended or not";
}

TEST_F(RemovedWhileReceiving, OfThePadEndsTheThreadOfAnInterfaceThatCanStillBeRead) {
    bus().hooks.usleep = [this](unsigned int microseconds) {
        if (microseconds == 500) {
            EXPECT_TRUE(gates[0].pass());
        }
    };
    ASSERT_EQ(SetDataReceivingEnabled(1, 1, 1), 0);
    ASSERT_TRUE(gates[0].somebody_waits());
    bus().unplug(*first_);
    Bytes report(65);
    EXPECT_NE(GetFeature(1, 0, report.data(), 65, &reply_), 0); // finds out
    const LogCapture& log = overhear();
    gates[0].open();
    EXPECT_TRUE(has_ended(log));
    EXPECT_EQ(log.count("error: read_file(): Error of switching to device: 1"), 1);
    EXPECT_EQ(log.count("error: start_routine(): ReadFile() return exception "), 1);
}

TEST_F(RemovedWhileReceiving, EndsTheThreadWithoutAnyoneToBeTold) {
    SetOnDeviceRemovedHandler(nullptr, nullptr);
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    const LogCapture& log = overhear();
    pull_out_first();
    EXPECT_TRUE(has_ended(log));
    EXPECT_EQ(log.count("error: start_routine(): ReadFile() return exception 1"), 1);
    EXPECT_EQ(record_of(1), (Record{invalid_handle, "read_file", "Error of read HID input report for device: 1"}));
    EXPECT_EQ(notices, 0);
}

TEST_F(RemovedWhileReceiving, LetsTheCallbackAskTheCurrentPad) {
    static std::string settings;
    settings.clear();
    on_removal = [] {
        std::array<char, 256> text{};
        EXPECT_GT(core_get_pad_settings(text.data()), 0);
        settings = text.data();
    };
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    const LogCapture& log = overhear();
    ASSERT_EQ(GetVendorId(2, &reply_), 0); // pad 2 is current, pad 1 is served
    pull_out_first();
    EXPECT_TRUE(has_ended(log));
    EXPECT_THAT(settings, HasSubstr("SN0002"));
}

TEST_F(RemovedWhileReceiving, FoundByACallEndsTheThreadsOfAllInterfaces) {
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_EQ(SetDataReceivingEnabled(1, 1, 1), 0);
    ASSERT_TRUE(is_read("1-1:1.0"));
    ASSERT_TRUE(is_read("1-1:1.1"));
    pull_out_first();
    Bytes report(65);
    EXPECT_NE(GetFeature(1, 0, report.data(), 65, &reply_), 0);
    EXPECT_TRUE(is_quiet("1-1:1.0"));
    EXPECT_TRUE(is_quiet("1-1:1.1"));
}

TEST_F(RemovedWhileReceiving, DoesNotDisturbTheOtherPad) {
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_EQ(SetDataReceivingEnabled(2, 0, 1), 0);
    pull_out_first();
    ASSERT_TRUE(comes_true([] { return notices > 0; }));
    EXPECT_TRUE(is_read("1-2:1.0"));
}

TEST_F(RemovedWhileReceiving, FoundAtTheStartStopsTheThreadToo) {
    pull_out_first();
    Bytes report(65);
    EXPECT_NE(GetFeature(1, 0, report.data(), 65, &reply_), 0); // finds out
    bus().plug_again(*first_);
    bus().take_log();
    notices = 0;
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    EXPECT_GE(notices, 1);
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
    EXPECT_THAT(bus().log("hid_read"), IsEmpty());
    EXPECT_EQ(record_of(2), (Record{invalid_handle, "start_routine", "Error of send ssp message for device: 1"}));
}

TEST_F(RemovedWhileReceiving, LeavesTheCallbackFreeToUseTheLibrary) {
    std::atomic<bool> has_ended = false;
    on_removal = [&] {
        unsigned int value = 0;
        EXPECT_EQ(GetDeviceCount(&value), 2);
        EXPECT_TRUE(IsInitialized());
        EXPECT_EQ(GetVendorId(2, &value), 0);
        EXPECT_EQ(GetDataPacketsAvailable(1, 0, &value), 0);
        EXPECT_EQ(FlushDataPackets(1, 0), 0);
        EXPECT_EQ(SetDataReceivingEnabled(2, 0, 1), 0);
        EXPECT_EQ(SetOnDataReceivedHandler(1, 0, nullptr, nullptr), 0);
        has_ended = true;
    };
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    pull_out_first();
    EXPECT_TRUE(comes_true([&] { return has_ended.load(); }));
    EXPECT_TRUE(is_read("1-2:1.0"));
}

TEST_F(RemovedWhileReceiving, LeavesTheCallbackFreeWhileItsThreadIsBeingStopped) {
    on_removal = [this] {
        EXPECT_TRUE(gates[0].pass());
        unsigned int value = 0;
        EXPECT_EQ(GetDeviceCount(&value), 2);
        EXPECT_EQ(GetVendorId(2, &value), 0);
        gates[1].open();
    };
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    pull_out_first();
    ASSERT_TRUE(gates[0].somebody_waits());
    std::thread stopper([] { EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // the stopper waits by now, or soon
    gates[0].open();
    EXPECT_TRUE(gates[1].pass());
    stopper.join();
}

TEST_F(RemovedWhileReceiving, LeavesTheCallbackFreeDuringTheTearDown) {
    on_removal = [this] {
        EXPECT_TRUE(gates[0].pass());
        unsigned int value = 0;
        GetDeviceCount(&value);
        EXPECT_EQ(SetDataReceivingEnabled(2, 0, 1), -1) << "nothing is started any more";
        EXPECT_NE(SetOnDataReceivedHandler(2, 0, Receiver::receive, nullptr), 0);
    };
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    pull_out_first();
    ASSERT_TRUE(gates[0].somebody_waits());
    std::thread stopper([] { EXPECT_EQ(Deinitialize(), 0); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    gates[0].open();
    stopper.join();
    EXPECT_EQ(bus().open_handles(), 0);
}

TEST_F(RemovedWhileReceiving, ComesAndGoesManyTimes) {
    for (int i = 0; i < 50; ++i) {
        notices = 0;
        ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
        pull_out_first();
        ASSERT_TRUE(comes_true([] { return notices > 0; }));
        bus().plug_again(*first_);
        bus().plug_again(*further_);
        ASSERT_EQ(Initialize(), 0);
        SetOnDeviceRemovedHandler([](void*, unsigned int) { ++notices; }, nullptr);
        bus().take_log();
    }
}

} // namespace
} // namespace receive_test
