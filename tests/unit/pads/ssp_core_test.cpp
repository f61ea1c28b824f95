// Messages to the current pad and its interfaces by number, and its pen data on and off.
#include "ssp_test.hpp"

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <unistd.h>

namespace core_test {
namespace {

const Bytes component_query{0, 0, 0, 0x10};

// A call on another thread that is started, once, from inside a hook.
class OtherThread {
  public:
    // Whether the call has its result while the hook still holds the first thread up.
    template <class Call> void start(Call call, std::chrono::milliseconds bound = std::chrono::milliseconds(100)) {
        if (started_.exchange(true)) {
            return;
        }
        result_ = std::async(std::launch::async, call);
        waited_ = result_.wait_for(bound) == std::future_status::timeout;
    }
    bool waited() const { return waited_; }
    int result() { return result_.valid() ? result_.get() : -1000; }

  private:
    std::atomic<bool> started_{false};
    bool waited_ = false;
    std::future<int> result_;
};

class SspCoreTest : public CoreTest {
  protected:
    SspCoreTest() {
        bus().cost_us["libusb_bulk_transfer"] = 1000;
        bus().cost_us["hid_get_feature_report"] = 1000;
    }

    // The library's registry with a VCOM pad, current and open.
    void start(unsigned int pad_type = 10) {
        model = described_as(pad_type);
        model.attach(pad);
        core_initialize();
        ASSERT_GE(core_looking_for_devices(), 1);
        model.asked.clear();
        forget();
    }
    int send(unsigned int interface, Bytes message) {
        return core_send_ssp_message(interface, message.data(), static_cast<int>(message.size()));
    }
    Received receive_from(unsigned int interface, unsigned int time_out = 100) {
        Bytes buffer(64);
        unsigned int size = 64;
        const int result = core_receive_ssp_message(interface, buffer.data(), &size, time_out);
        return result == 0 ? Received{0, part(buffer, 0, size)} : Received{result};
    }

    UsbDevice& pad = bus().plug(vcom_pad());
    SspPad model;
};

TEST_F(SspCoreTest, WithoutARegistryOrPadNothingIsDone) {
    EXPECT_EQ(send(0, {1}), -1);
    EXPECT_EQ(receive_from(0).result, -1);
    core_clear_ssp_input_queue();
    EXPECT_EQ(core_enable_ssp_biodata_sending(), -1);
    EXPECT_EQ(core_disable_ssp_biodata_sending(), -1);
    EXPECT_EQ(times_said("error: dev_shared is NULL..."), 5);
    core_initialize();
    EXPECT_EQ(send(0, {1}), -1);
    EXPECT_EQ(receive_from(0).result, -1);
    core_clear_ssp_input_queue();
    EXPECT_EQ(core_enable_ssp_biodata_sending(), -1);
    EXPECT_EQ(core_disable_ssp_biodata_sending(), -1);
    EXPECT_EQ(times_said("error: dev_shared->current_device is NULL..."), 5);
}

TEST_F(SspCoreTest, InterfaceZeroIsThePadItselfAndNotOpened) {
    start();
    EXPECT_EQ(send(0, component_query), 0);
    EXPECT_EQ(receive_from(0), (Received{0, base(0, model.component_list())}));
    EXPECT_THAT(bus().log("libusb_open"), IsEmpty());
    EXPECT_EQ(times_said("Going to call lock_dev_and_send_ssp_message(data_size: 4)"), 1);
    EXPECT_EQ(times_said("Going to call lock_dev_and_send_ssp_message(data_size: 64)"), 1); // receiving says so, too
}

TEST_F(SspCoreTest, ArgumentsOfTheRequests) {
    start();
    Bytes data(4);
    unsigned int none = 0;
    unsigned int four = 4;
    EXPECT_EQ(core_send_ssp_message(9, nullptr, 0), -1);
    EXPECT_EQ(core_send_ssp_message(9, data.data(), 0), -1);
    EXPECT_EQ(core_send_ssp_message(9, data.data(), 4), -1);
    EXPECT_EQ(core_receive_ssp_message(9, nullptr, nullptr, 100), -1);
    EXPECT_EQ(core_receive_ssp_message(9, data.data(), nullptr, 100), -1);
    EXPECT_EQ(core_receive_ssp_message(9, data.data(), &none, 100), -1);
    EXPECT_EQ(core_receive_ssp_message(9, data.data(), &four, 100), -1);
    const std::string out = "send_ssp_message_to_interface->";
    const std::string in = "receive_ssp_message_from_interface->";
    EXPECT_THAT(said(), ElementsAre(HasSubstr(out + "data of VXPAD_vx_ioctl() is NULL"),
                                    HasSubstr(out + "data_size of VXPAD_vx_ioctl() <= 0"),
                                    HasSubstr(out + "interface_number > count of interfaces"),
                                    HasSubstr(in + "data of VXPAD_vx_ioctl() is NULL"),
                                    HasSubstr(in + "data_size of VXPAD_vx_ioctl() <= 0"),
                                    HasSubstr(in + "data_size of VXPAD_vx_ioctl() <= 0"),
                                    HasSubstr(in + "interface_number > count of interfaces")));
    EXPECT_THAT(bus().log(), IsEmpty());
}

// The count itself passes and names an empty record.
TEST_F(SspCoreTest, CountOfInterfacesItselfPassesAndFails) {
    start();
    EXPECT_EQ(send(1, {1}), -1);
    EXPECT_EQ(receive_from(1).result, -1);
    EXPECT_EQ(times_said("interface_number > count of interfaces"), 0);
    EXPECT_EQ(send(2, {1}), -1);
    EXPECT_EQ(receive_from(2).result, -1);
    EXPECT_EQ(times_said("interface_number > count of interfaces"), 2);
}

TEST_F(SspCoreTest, FurtherInterfaceIsOpenedFirst) {
    bus().unplug(pad);
    bus().plug(pad_of_type(plain_type));
    HidInterface& further = bus().plug(pad_of_type(plain_type, "1-1:1.1", 1));
    core_initialize();
    ASSERT_EQ(core_looking_for_devices(), 1);
    forget();
    EXPECT_EQ(send(1, {0, 0, 0, 0x10}), 0);
    EXPECT_THAT(bus().log(), ElementsAre(opened("1-1:1.1"), blocking("1-1:1.1"),
                                         "hid_send_feature_report(1-1:1.1, 9: 00 f8 aa 55 02 00 00 00 10)"));
    for (const Bytes& report : ssp_reports(framed(base(0, {1})))) {
        further.feature_replies.push_back(report);
    }
    EXPECT_EQ(receive_from(1), (Received{0, base(0, {1})}));
    EXPECT_EQ(bus().log("hid_open_path").size(), 1U);
    const Bytes report(64);
    EXPECT_EQ(core_set_hid_feature_report(1, report.data(), 64), 0);
    EXPECT_EQ(times_said("Going to call "), 0); // of interface 0 only
    EXPECT_EQ(core_set_hid_feature_report(0, report.data(), 64), 0);
    EXPECT_EQ(times_said("Going to call "), 1);
}

// All records of the pad are in use, so the count names none.
TEST_F(SspCoreTest, InterfaceWithoutARecordIsReported) {
    bus().unplug(pad);
    for (int number = 0; number < 9; ++number) {
        bus().plug(pad_of_type(plain_type, "1-1:1." + std::to_string(number), number));
    }
    core_initialize();
    ASSERT_EQ(core_looking_for_devices(), 1);
    ASSERT_EQ(core_get_count_of_hid_interfaces(), 9);
    forget();
    EXPECT_EQ(send(9, {1}), -1);
    EXPECT_EQ(receive_from(9).result, -1);
    EXPECT_EQ(times_said("Error of open interface with number: 8"), 2);
    EXPECT_THAT(bus().log(), IsEmpty());
}

// The beginning of a message that a call had no time to complete.
TEST_F(SspCoreTest, UnfinishedMessageIsGoneWithItsPad) {
    start();
    bus().cost_us["libusb_bulk_transfer"] = 60'000;
    const Bytes stream = framed(base(2, counting(100)));
    for (std::size_t at = 0; at < 90; at += 30) {
        pad.incoming.push_back(part(stream, at, 30));
    }
    EXPECT_EQ(receive_from(0).result, -1);
    EXPECT_THAT(pad.incoming, IsEmpty());
    bus().cost_us["libusb_bulk_transfer"] = 1000;
    ASSERT_EQ(core_looking_for_devices(), 1);
    pad.incoming.push_back(part(stream, 90));
    EXPECT_EQ(receive_from(0).result, -1);
}

TEST_F(SspCoreTest, TimeOutGivesMinusOneAndTwoReopenings) {
    start();
    EXPECT_EQ(receive_from(0).result, -1);
    EXPECT_THAT(bus().log("libusb_open"), SizeIs(2));
    EXPECT_EQ(send(0, component_query), 0);
}

TEST_F(SspCoreTest, RemovedPadGivesMinusTwenty) {
    start();
    bus().unplug(pad);
    EXPECT_EQ(send(0, component_query), -20);
    EXPECT_EQ(receive_from(0).result, -20);
    bus().plug_again(pad);
    EXPECT_EQ(send(0, component_query), -20); // until the next search
    EXPECT_EQ(core_looking_for_devices(), 1);
    EXPECT_EQ(send(0, component_query), 0);
}

TEST_F(SspCoreTest, PadPulledOutAtAnyTransferOfAnExchange) {
    for (int at = 0; at < 3; ++at) {
        bus().plug_again(pad);
        start();
        int transfers = 0;
        bus().hooks.bulk_out = [&](UsbDevice&, std::span<const unsigned char>, int&) {
            if (transfers++ == at) {
                bus().unplug(pad);
            }
            return std::optional<int>();
        };
        bus().hooks.bulk_in = [&](UsbDevice&, std::span<unsigned char>, int&) {
            if (transfers++ == at) {
                bus().unplug(pad);
            }
            return std::optional<int>();
        };
        int result = send(0, component_query);
        if (result == 0) {
            result = receive_from(0).result;
        }
        if (result == 0) {
            result = receive_from(0).result;
        }
        EXPECT_EQ(result, -20) << at;
        EXPECT_EQ(bus().open_handles(), 0);
        bus().hooks = {};
        core_uninitialize();
        EXPECT_EQ(bus().usb_references(), 0);
    }
}

TEST_F(SspCoreTest, ClearingDropsPenDataOnly) {
    start();
    core_clear_ssp_input_queue(); // there may be no queue yet
    pad.incoming.push_back(framed({pen({1}), base(1, {1}), base(1, {2}), pen({2})}));
    EXPECT_EQ(receive_from(0), (Received{0, base(1, {1})}));
    core_clear_ssp_input_queue();
    EXPECT_EQ(receive_from(0), (Received{0, base(1, {2})}));
    Bytes data(64);
    EXPECT_EQ(core_get_hid_input_report(0, data.data(), 64), 0);
}

// Pen data on and off.

TEST_F(SspCoreTest, BiodataOfAVcomPadIsSwitchedByARequest) {
    start();
    EXPECT_EQ(core_enable_ssp_biodata_sending(), 0);
    EXPECT_EQ(core_disable_ssp_biodata_sending(), 0);
    EXPECT_THAT(model.asked, ElementsAre(base(1, {0x11, 1, 0}), base(1, {0x11, 0, 0})));
    EXPECT_THAT(bus().log("libusb_close"), IsEmpty());
}

TEST_F(SspCoreTest, HidPadNeedsNothing) {
    bus().unplug(pad);
    bus().plug(pad_of_type(plain_type));
    core_initialize();
    core_looking_for_devices();
    forget();
    EXPECT_EQ(core_enable_ssp_biodata_sending(), 0);
    EXPECT_EQ(core_disable_ssp_biodata_sending(), 0);
    EXPECT_THAT(bus().log(), IsEmpty());
}

TEST_F(SspCoreTest, PenDataNeedsACurrentPad) {
    for (const auto switch_pen_data : {core_enable_ssp_biodata_sending, core_disable_ssp_biodata_sending}) {
        const standins::OutputCapture errors{STDERR_FILENO};
        core_uninitialize();
        forget();
        EXPECT_EQ(switch_pen_data(), -1);
        EXPECT_THAT(said(), Says("error: dev_shared is NULL..."));
        core_initialize();
        forget();
        EXPECT_EQ(switch_pen_data(), -1);
        EXPECT_THAT(said(), Says("error: dev_shared->current_device is NULL..."));
        EXPECT_THAT(errors.text(), AllOf(HasSubstr("error: dev_shared is NULL..."),
                                         HasSubstr("error: dev_shared->current_device is NULL...")));
    }
}

TEST_F(SspCoreTest, FailedSwitchingReopens) {
    start();
    model.replace = [](const Bytes&) { return std::optional(std::vector<Bytes>{base(1, {0x11, 0})}); };
    OtherThread other;
    bus().hooks.usb = [&](UsbDevice&, std::string_view which) {
        if (which == "libusb_open") {
            other.start([] { return core_clear_ssp_input_queue(), 0; });
        }
        return std::optional<int>();
    };
    EXPECT_EQ(core_enable_ssp_biodata_sending(), -1);
    EXPECT_TRUE(other.waited()); // for the record's lock
    EXPECT_EQ(other.result(), 0);
    EXPECT_THAT(last(2, bus().log()), ElementsAre(usb_closed(), usb_opened()));
    bus().hooks = {};
    bus().unplug(pad);
    EXPECT_EQ(core_enable_ssp_biodata_sending(), -20);
    EXPECT_EQ(core_disable_ssp_biodata_sending(), -20);
}

// While a failed exchange has the pad closed for a moment, other threads wait for it.

struct OtherCall {
    const char* name;
    int (*call)();
    int vcom_result;
    int hid_result;
    bool waits_over_hid;
};
void PrintTo(const OtherCall& one, std::ostream* out) {
    *out << one.name;
}

int write_output_report() {
    const Bytes report(64);
    return core_set_unsync_hid_output_report(0, report.data(), 64);
}
int read_input_report() {
    Bytes report(64);
    return core_get_hid_input_report(0, report.data(), 64);
}

class SspReopeningTest : public SspCoreTest, public testing::WithParamInterface<OtherCall> {};

INSTANTIATE_TEST_SUITE_P(Calls, SspReopeningTest,
                         testing::Values(OtherCall{"OutSize", core_get_max_packet_size_of_out_endpoint, 64, 64, true},
                                         OtherCall{"InSize", core_get_max_packet_size_of_input_report, 512, 64, true},
                                         OtherCall{"OutputReport", write_output_report, 0, 0, true},
                                         OtherCall{"InputReport", read_input_report, 2, 64, true},
                                         OtherCall{"BiodataOn", core_enable_ssp_biodata_sending, 0, 0, false},
                                         OtherCall{"BiodataOff", core_disable_ssp_biodata_sending, 0, 0, false}),
                         testing::PrintToStringParamName());

TEST_P(SspReopeningTest, OverVcomTheCallWaitsForThePad) {
    start();
    OtherThread other;
    bus().hooks.usb = [&](UsbDevice&, std::string_view which) {
        if (which == "libusb_open") {
            {
                const auto guard = bus().lock();
                pad.incoming = {framed(pen({1, 2}))};
            }
            other.start(GetParam().call);
        }
        return std::optional<int>();
    };
    EXPECT_EQ(receive_from(0).result, -1);
    EXPECT_TRUE(other.waited());
    EXPECT_EQ(other.result(), GetParam().vcom_result);
}

TEST_P(SspReopeningTest, OverHidTheCallWaitsForThePadWhereItNeedsIt) {
    bus().unplug(pad);
    bus().plug(pad_of_type(plain_type)).input_reports = {Bytes(64, 7)};
    core_initialize();
    ASSERT_EQ(core_looking_for_devices(), 1);
    OtherThread other;
    bus().hooks.get_feature = always{-1};
    bus().hooks.open_path = [&](const std::string&) {
        using namespace std::chrono_literals;
        other.start(GetParam().call, GetParam().waits_over_hid ? 100ms : 10'000ms);
        return std::optional<int>();
    };
    EXPECT_EQ(receive_from(0).result, -1);
    EXPECT_EQ(other.waited(), GetParam().waits_over_hid);
    EXPECT_EQ(other.result(), GetParam().hid_result);
}

// Other threads may drop pen data and look at sizes while one exchanges messages or its pad is reopened.
TEST_F(SspCoreTest, ThreadsShareAPad) {
    start();
    model.replace = [](const Bytes&) {
        return std::optional(std::vector<Bytes>{pen({1, 2, 3}), base(0, {0x10, 1, 1, 11})});
    };
    std::vector<std::thread> threads;
    std::atomic<bool> done{false};
    threads.emplace_back([&] {
        while (!done) {
            core_clear_ssp_input_queue();
        }
    });
    threads.emplace_back([&] {
        while (!done) {
            EXPECT_EQ(core_get_max_packet_size_of_out_endpoint(), 64);
            EXPECT_EQ(core_get_max_packet_size_of_input_report(), 512);
        }
    });
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(send(0, component_query), 0);
        EXPECT_EQ(receive_from(0).result, 0);
        if (i % 10 == 0) {
            EXPECT_EQ(receive_from(0, 1).result, -1); // closes and reopens
        }
    }
    done = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

} // namespace
} // namespace core_test
