// Receiving from VCOM pads: pen data is switched on and off, and comes as messages.
#include "session/receive_trace_points.hpp"

namespace receive_test {
namespace {

using core_test::base;
using core_test::counting;
using core_test::described_as;
using core_test::framed;
using core_test::pen;
using core_test::SspPad;
using core_test::unframed;

const Bytes pen_data_on = base(1, {0x11, 1, 0});
const Bytes pen_data_off = base(1, {0x11, 0, 0});

// Two VCOM pads with reports of 64 bytes.
class VcomReceiving : public api::Test, protected Overhearing {
  protected:
    void SetUp() override {
        Test::SetUp();
        bus().cost_us["libusb_bulk_transfer"] = 1000;
        for (std::size_t i = 0; i < 2; ++i) {
            UsbDevice pad = standins::vcom_pad("usb" + std::to_string(i + 1), i);
            pad.configurations = {{{{{0x81, 64}, {0x01, 64}}}}};
            pads_[i] = &bus().plug(std::move(pad));
            models_[i] = described_as(10);
            models_[i].serial_number = "SN030" + std::to_string(i);
            models_[i].attach(*pads_[i]);
        }
        ASSERT_EQ(Initialize(), 0);
        unsigned int reply = 0;
        ASSERT_EQ(GetDeviceCount(&reply), 2);
        // libusb lists the pads in this order; pad 1 is the first.
        const auto guard = bus().lock();
        for (UsbDevice* pad : pads_) {
            pad->outgoing.clear();
        }
        pause_briefly();
    }

    // The switches of pen data that a pad was sent.
    static std::vector<bool> switches(const UsbDevice& pad) {
        const auto guard = bus().lock();
        std::vector<bool> seen;
        for (const Bytes& sent : pad.outgoing) {
            const Bytes message = unframed(sent);
            if (message == pen_data_on || message == pen_data_off) {
                seen.push_back(message == pen_data_on);
            }
        }
        return seen;
    }
    static void bring(UsbDevice& pad, const Bytes& report) {
        const auto guard = bus().lock();
        pad.incoming.push_back(framed(pen(report)));
    }

    // Pen data that comes while a reply is awaited is put aside in the core.
    void put_aside(const Bytes& report) {
        bring(*pads_[0], report);
        std::array<unsigned char, 200> buffer{};
        unsigned int reply = 0;
        EXPECT_NE(ReceiveSspMessage(1, 0, buffer.data(), 200, 10, &reply), 0) << "pen data is no reply";
    }
    // Takes a report that was put aside; empty: there is none.
    static Bytes taken_out() {
        std::array<unsigned char, 65> buffer{};
        unsigned int reply = 0;
        EXPECT_EQ(ReadFile(1, 0, buffer.data(), 65, &reply), 0);
        return reply == 0 ? Bytes() : Bytes(buffer.begin() + 1, buffer.end());
    }

    // The next receive thread of pad 1 ends by itself, and then does something before it switches pen data off.
    static void at_the_end_of_the_next_thread(std::function<void()> act) {
        const auto guard = bus().lock();
        bus().hooks.usleep = [act, is_next = true](unsigned int microseconds) mutable {
            if (microseconds == 500 && std::atomic_ref(is_next).exchange(false)) {
                catch_removing_device(-20, 1, 0); // asks it to end
                thread_local std::function<void()> step;
                step = [act] {
                    do_at_trace_points(nullptr);
                    act();
                };
                do_at_trace_points(&step);
            }
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        };
    }

    std::array<UsbDevice*, 2> pads_{};
    std::array<SspPad, 2> models_;
};

TEST_F(VcomReceiving, SwitchesPenDataOnBeforeTheStartReturnsAndOffAtTheEnd) {
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    EXPECT_THAT(switches(*pads_[0]), ElementsAre(true));
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
    EXPECT_TRUE(comes_true([&] { return switches(*pads_[0]) == std::vector<bool>{true, false}; }));
    EXPECT_THAT(switches(*pads_[1]), IsEmpty());
}

TEST_F(VcomReceiving, SwitchesThePadThatIsStartedThoughAnotherIsCurrent) {
    ASSERT_EQ(SetDataReceivingEnabled(2, 0, 1), 0);
    EXPECT_THAT(switches(*pads_[1]), ElementsAre(true));
    EXPECT_EQ(SetDataReceivingEnabled(2, 0, 0), 0);
    EXPECT_TRUE(comes_true([&] { return switches(*pads_[1]) == std::vector<bool>{true, false}; }));
    EXPECT_THAT(switches(*pads_[0]), IsEmpty());
}

TEST_F(VcomReceiving, LateEndOfAFormerCallbackThreadTakesNothingFromTheNextStart) {
    static std::array<Gate, 2> gates; // threads may pass them behind a failure
    const auto ended = std::make_shared<Gate>();
    interrupt("processing_input_report_callback == NULL: 1", [ended] {
        open_at_the_end_of_this_thread(ended);
        EXPECT_TRUE(gates[0].pass());
    });
    Receiver receiver;
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_EQ(SetOnDataReceivedHandler(1, 0, Receiver::receive, &receiver), 0);
    ASSERT_EQ(SetOnDataReceivedHandler(1, 0, nullptr, nullptr), 0);
    ASSERT_TRUE(gates[0].somebody_waits()) << "it is going to stop the first start";
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    {
        const auto guard = bus().lock();
        bus().hooks.usleep = [](unsigned int microseconds) {
            if (microseconds == 500) {
                EXPECT_TRUE(gates[1].pass());
            }
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        };
    }
    ASSERT_TRUE(gates[1].somebody_waits());
    put_aside(counting(64));
    gates[0].open();
    ASSERT_TRUE(ended->pass());
    gates[1].open();
    ASSERT_EQ(SetOnDataReceivedHandler(1, 0, Receiver::receive, &receiver), 0);
    EXPECT_TRUE(receiver.gets(1)) << "it was dropped, or nobody reads";
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
    EXPECT_EQ(Deinitialize(), 0); // before the receiver goes
}

TEST_F(VcomReceiving, NeverSwitchesOffBehindTheNextStart) {
    std::vector<bool> expected;
    for (int i = 0; i < 30; ++i) {
        ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
        ASSERT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
        expected.insert(expected.end(), {true, false});
    }
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    expected.push_back(true);
    EXPECT_EQ(switches(*pads_[0]), expected);
}

TEST_F(VcomReceiving, DoesNotStartWhileItsPredecessorHasYetToSwitchOff) {
    const auto gate = std::make_shared<Gate>();
    at_the_end_of_the_next_thread([gate] { EXPECT_TRUE(gate->pass()); });
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_TRUE(gate->somebody_waits());
    const LogCapture& log = overhear();
    std::thread starter([] { EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0); });
    EXPECT_TRUE(comes_true([&] { return log.count("Going to clear queue") > 0; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(log.count("Going to clear queue"), 1) << "it waits, and does not try again and again";
    EXPECT_THAT(switches(*pads_[0]), ElementsAre(true));
    gate->open();
    starter.join();
    EXPECT_THAT(switches(*pads_[0]), ElementsAre(true, false, true));
    Deinitialize();
}

TEST_F(VcomReceiving, NeverStartsBehindAnotherStartThatWasStoppedMeanwhile) {
    std::shared_ptr<Gate> intruded;
    std::shared_ptr<Gate> started;
    const auto start = [&] {
        EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
        started->open();
    };
    const auto start_and_stop = [&] {
        EXPECT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
        EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
        intruded->open();
    };
    const auto prepare = [&] {
        EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
        intruded = std::make_shared<Gate>();
        started = std::make_shared<Gate>();
        at_the_end_of_the_next_thread([intruded, started] {
            intruded->pass_within(std::chrono::milliseconds(10));
            started->pass_within(std::chrono::milliseconds(5)); // time enough for the start to go wrong
        });
    };
    EXPECT_GT(interrupt_everywhere(start, start_and_stop, prepare), 3U);
    Deinitialize();
    const std::vector<bool> seen = switches(*pads_[0]);
    for (std::size_t i = 0; i < seen.size(); ++i) {
        ASSERT_EQ(seen[i], i % 2 == 0) << "switch " << i;
    }
}

TEST_F(VcomReceiving, SwitchesOffBeforeDeinitializeReturns) {
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_EQ(SetDataReceivingEnabled(2, 0, 1), 0);
    EXPECT_EQ(Deinitialize(), 0);
    for (const UsbDevice* pad : pads_) {
        EXPECT_THAT(switches(*pad), ElementsAre(true, false));
    }
    EXPECT_EQ(bus().open_handles(), 0);
}

TEST_F(VcomReceiving, DeinitializeWaitsUntilPenDataIsSwitchedOff) {
    Gate switching;
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    {
        const auto guard = bus().lock();
        bus().hooks.bulk_out = [&](UsbDevice&, std::span<const unsigned char> data, int&) {
            if (unframed(Bytes(data.begin(), data.end())) == pen_data_off) {
                EXPECT_TRUE(switching.pass());
            }
            return std::optional<int>();
        };
    }
    std::thread stopper([] { EXPECT_EQ(Deinitialize(), 0); });
    ASSERT_TRUE(switching.somebody_waits());
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_TRUE(IsInitialized()) << "the tear-down waits for the thread";
    switching.open();
    stopper.join();
    EXPECT_FALSE(IsInitialized());
    EXPECT_THAT(switches(*pads_[0]), ElementsAre(true, false));
}

TEST_F(VcomReceiving, DeliversPenDataOfBothPads) {
    std::array<Receiver, 2> receivers;
    for (const unsigned int device : {1U, 2U}) {
        ASSERT_EQ(SetOnDataReceivedHandler(device, 0, Receiver::receive, &receivers[device - 1]), 0);
        ASSERT_EQ(SetDataReceivingEnabled(device, 0, 1), 0);
    }
    for (unsigned int i = 0; i < 100; ++i) {
        for (const unsigned int device : {1U, 2U}) {
            bring(*pads_[device - 1], report_of(static_cast<unsigned char>(device), i));
        }
    }
    for (const unsigned int device : {1U, 2U}) {
        ASSERT_TRUE(receivers[device - 1].gets(100));
        for (unsigned int i = 0; i < 100; ++i) {
            ASSERT_EQ(receivers[device - 1].all()[i].bytes, report_of(static_cast<unsigned char>(device), i));
        }
    }
    Deinitialize();
}

TEST_F(VcomReceiving, FailsToSwitchOnAndCarriesOn) {
    models_[0].replace = [](const Bytes& message) {
        return message == pen_data_on ? std::optional(std::vector<Bytes>{base(1, {0x11, 0})}) : std::nullopt;
    };
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    EXPECT_EQ(record_of(1), (Record{invalid_handle, "start_routine", "Error of send ssp message for device: 1"}));
    bring(*pads_[0], report_of(1, 0));
    unsigned int count = 0;
    EXPECT_TRUE(comes_true([&] { return GetDataPacketsAvailable(1, 0, &count) == 0 && count == 1; }));
    Deinitialize();
}

TEST_F(VcomReceiving, DropsPenDataFromBeforeTheStart) {
    put_aside(report_of(1, 99));
    Receiver receiver;
    ASSERT_EQ(SetOnDataReceivedHandler(1, 0, Receiver::receive, &receiver), 0);
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    bring(*pads_[0], report_of(1, 0));
    ASSERT_TRUE(receiver.gets(1));
    EXPECT_EQ(receiver.all()[0].bytes, report_of(1, 0));
    Deinitialize();
}

TEST_F(VcomReceiving, DropsPenDataThatComesWhileItStarts) {
    unsigned int vendor_id = 0;
    ASSERT_EQ(GetVendorId(2, &vendor_id), 0); // so that the start has to select its pad
    const Interruption& selected =
        interrupt("core_set_device_to_current(): device with Pad Settings: ", [&] { put_aside(report_of(1, 99)); });
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    EXPECT_TRUE(selected.happened());
    Receiver receiver;
    ASSERT_EQ(SetOnDataReceivedHandler(1, 0, Receiver::receive, &receiver), 0);
    bring(*pads_[0], report_of(1, 0));
    ASSERT_TRUE(receiver.gets(1));
    EXPECT_EQ(receiver.all()[0].bytes, report_of(1, 0));
    Deinitialize();
}

TEST_F(VcomReceiving, DropsWhatTheCoreHoldsWhenItIsFlushedOrStopped) {
    put_aside(report_of(1, 1));
    EXPECT_EQ(taken_out(), report_of(1, 1));
    put_aside(report_of(1, 2));
    EXPECT_EQ(FlushDataPackets(1, 0), 0);
    EXPECT_THAT(taken_out(), IsEmpty());
    put_aside(report_of(1, 3));
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0) << "though it was never enabled";
    EXPECT_THAT(taken_out(), IsEmpty());
    put_aside(report_of(1, 4));
    EXPECT_EQ(FlushDataPackets(2, 0), 0);
    EXPECT_EQ(SetDataReceivingEnabled(2, 0, 0), 0);
    EXPECT_EQ(taken_out(), report_of(1, 4)) << "another pad's is left alone";
}

TEST_F(VcomReceiving, DropsWhatTheCoreHoldsWhenItsCallbackIsTakenAway) {
    const auto ended = std::make_shared<Gate>();
    put_aside(report_of(1, 1));
    interrupt("processing_input_report_callback == NULL", [&] { open_at_the_end_of_this_thread(ended); });
    ASSERT_EQ(SetOnDataReceivedHandler(1, 0, nullptr, nullptr), 0);
    ASSERT_TRUE(ended->pass());
    EXPECT_THAT(taken_out(), IsEmpty()) << "though receiving was never enabled";
}

// Whoever comes second waits like the first, but what comes behind the first one's return is not his to drop.
TEST_F(VcomReceiving, IsStoppedByTheFirstOfTwo) {
    bool met = false;
    for (int round = 0; round < 100 && !met; ++round) {
        const auto pause = std::make_shared<Gate>();
        const auto first_returned = std::make_shared<Gate>();
        {
            const auto guard = bus().lock();
            bus().hooks.usleep = [pause](unsigned int) { EXPECT_TRUE(pause->pass()); };
        }
        ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
        ASSERT_TRUE(pause->somebody_waits());
        const Interruption& second = interrupt(
            "info: stop_thread(): other therad was here, silent return from stop_thread()...", [&, first_returned] {
                EXPECT_TRUE(first_returned->pass());
                put_aside(report_of(1, 5));
            });
        const auto stop = [&] {
            EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
            first_returned->open();
        };
        std::thread one(stop);
        std::thread other(stop);
        std::this_thread::sleep_for(std::chrono::milliseconds(5)); // both wait by now, or in the next round
        pause->open();
        one.join();
        other.join();
        met = second.happened();
        EXPECT_EQ(taken_out(), met ? report_of(1, 5) : Bytes());
    }
    EXPECT_TRUE(met);
    Deinitialize();
}

TEST_F(VcomReceiving, ReadsPacketsThatAreLargerThanAReportIntoLargeFrames) {
    // A report is shorter than such a packet and therefore refused, but nothing is written beyond its frame.
    Deinitialize();
    bus().reset();
    bus().cost_us["libusb_bulk_transfer"] = 1000;
    UsbDevice& pad = bus().plug(standins::vcom_pad());
    models_[0].attach(pad);
    ASSERT_EQ(Initialize(), 0);
    pause_briefly();
    const LogCapture& log = overhear();
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    bring(pad, report_of(1, 0));
    EXPECT_TRUE(comes_true([&] { return log.count("Error of read HID input report for device: 1") == 1; }));
    Deinitialize();
}

TEST_F(VcomReceiving, EndsWhenThePadIsPulledOut) {
    static std::atomic<int> notices;
    notices = 0;
    SetOnDeviceRemovedHandler([](void*, unsigned int device) { notices += device == 1 ? 1 : 100; }, nullptr);
    ASSERT_EQ(SetDataReceivingEnabled(1, 0, 1), 0);
    ASSERT_EQ(SetDataReceivingEnabled(2, 0, 1), 0);
    bus().unplug(*pads_[0]);
    EXPECT_TRUE(comes_true([] { return notices > 0; }));
    EXPECT_EQ(SetDataReceivingEnabled(1, 0, 0), 0);
    bring(*pads_[1], report_of(2, 0));
    unsigned int count = 0;
    EXPECT_TRUE(comes_true([&] { return GetDataPacketsAvailable(2, 0, &count) == 0 && count == 1; }));
    EXPECT_LT(notices, 100);
    Deinitialize();
}

} // namespace
} // namespace receive_test
