// Runs under vxpad-emulator with the pads that CMakeLists.txt plugs in, and looks at them through libusb and
// hidapi.
#include "classic_pads.hpp"
#include "eventually.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <hidapi.h>
#include <libusb.h>
#include <map>
#include <memory>
#include <numeric>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;
using emulator::request;
using namespace pads;

Bytes read_input(const Hid& device, std::chrono::milliseconds time_out) {
    Bytes report(100);
    const int size = hid_read_timeout(device.get(), report.data(), report.size(), static_cast<int>(time_out.count()));
    EXPECT_GE(size, 0);
    report.resize(static_cast<std::size_t>(std::max(size, 0)));
    return report;
}

bool eventually(const std::function<bool()>& condition) {
    return program::eventually(condition, 5s);
}

std::size_t descriptors_of(const std::string& process) {
    const std::filesystem::directory_iterator entries("/proc/" + process + "/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

// A feature report by a control transfer with a time-out of its own.
int control(const UsbHandle& handle, bool in, unsigned char* data, std::uint16_t size, unsigned int time_out) {
    constexpr int type = 0x21; // class request to an interface
    return libusb_control_transfer(handle.get(), static_cast<std::uint8_t>(in ? type | LIBUSB_ENDPOINT_IN : type),
                                   in ? 0x01 : 0x09, 0x0300, 0, data, size, time_out);
}

// ---- enumeration and strings ----

struct Found {
    std::wstring maker, product, serial;
};

std::wstring text(const wchar_t* string) {
    return string == nullptr ? L"(none)" : string;
}

std::map<std::string, Found> enumerate() {
    std::map<std::string, Found> found;
    const std::unique_ptr<hid_device_info, decltype(&hid_free_enumeration)> list(hid_enumerate(0, 0),
                                                                                 &hid_free_enumeration);
    for (const auto* info = list.get(); info != nullptr; info = info->next) {
        char expected[32];
        std::snprintf(expected, sizeof expected, "1.%d", info->interface_number);
        EXPECT_TRUE(std::string{info->path}.ends_with(expected)) << info->path;
        found[info->path] = {text(info->manufacturer_string), text(info->product_string), text(info->serial_number)};
    }
    return found;
}

TEST_F(Pads, EveryInterfaceIsEnumeratedWithItsStrings) {
    const auto found = enumerate();
    for (int interface = 0; interface < main_interfaces; ++interface) {
        const auto& info = found.at(hid_path(main_pad, interface));
        EXPECT_EQ(info.maker, L"Maker, Inc.");
        EXPECT_EQ(info.product, L"Pad");
        EXPECT_EQ(info.serial, L"SN0001");
    }
    EXPECT_EQ(found.at(hid_path(oldest_pad, 0)).serial, L"SN0002");
    EXPECT_FALSE(found.contains(hid_path(oldest_pad, 1)));
    EXPECT_EQ(found.size(), main_interfaces + 1 + 1 + 32);
}

TEST_F(Pads, StringsMayBeLongOddOrMissing) {
    const auto info = enumerate().at(hid_path(strings_pad, 0));
    EXPECT_EQ(info.maker, L"%s%n%d ä€😀\\");
    EXPECT_EQ(info.product, std::wstring(126, L'Ж'));
    EXPECT_EQ(info.serial, L"(none)");
}

TEST_F(Pads, IdsFollowFromTheType) {
    std::map<int, libusb_device_descriptor> found;
    const Usb usb;
    usb.for_each(
        [&](libusb_device* device) { libusb_get_device_descriptor(device, &found[libusb_get_port_number(device)]); });
    EXPECT_NE(found.at(main_pad).idProduct, found.at(oldest_pad).idProduct);
    EXPECT_EQ(found.at(strings_pad).idVendor, 0x1234);
    EXPECT_EQ(found.at(strings_pad).idProduct, 0x5678);
    EXPECT_EQ(found.at(strings_pad).iSerialNumber, 0);
}

TEST_F(Pads, ReportDescriptorTellsTheSizesOfTheReports) {
    const Usb usb;
    for (const auto& [pad, size] : {std::pair{main_pad, 64}, {oldest_pad, 20}}) {
        const auto handle = usb.open(pad);
        ASSERT_TRUE(handle);
        EXPECT_EQ(libusb_detach_kernel_driver(handle.get(), 0), 0);
        unsigned char bytes[256];
        const int length = libusb_control_transfer(handle.get(), 0x81, LIBUSB_REQUEST_GET_DESCRIPTOR, 0x2200, 0, bytes,
                                                   sizeof bytes, 1000);
        ASSERT_GT(length, 18);
        EXPECT_EQ(hex({bytes + 14, bytes + 20}), hex({0x09, 0x02, 0x95, static_cast<unsigned char>(size), 0x81, 0x02}));
    }
}

TEST_F(Pads, MoreInterfacesThanLibusbTakesHideThePadAndNothingElse) {
    const Usb usb;
    bool seen = false;
    usb.for_each([&](libusb_device* device) {
        if (libusb_get_port_number(device) != hostile_pad) {
            return;
        }
        seen = true;
        libusb_config_descriptor* configuration = nullptr;
        EXPECT_LT(libusb_get_active_config_descriptor(device, &configuration), 0);
    });
    EXPECT_TRUE(seen);
    EXPECT_FALSE(enumerate().contains(hid_path(hostile_pad, 0)));
}

TEST_F(Pads, InterfacesThatShareAnEndpointHaveTheirOwnReports) {
    const auto first = open_hid(loop_back_pad, 1);
    const auto last = open_hid(loop_back_pad, 31);
    ASSERT_TRUE(first && last);
    on_pad("input", loop_back_pad, "31 aa");
    on_pad("input", loop_back_pad, "1 bb");
    EXPECT_EQ(read_input(first, 5s).at(0), 0xbb);
    EXPECT_EQ(read_input(last, 5s).at(0), 0xaa);
}

// ---- the pad's commands ----

TEST_F(Pads, FeatureReportReachesThePadUnchanged) {
    Bytes report(64);
    std::iota(report.begin(), report.end(), std::uint8_t{0x80});
    const auto device = open_hid(main_pad, 1);
    ASSERT_TRUE(device);
    EXPECT_EQ(write_feature(device, report), 65);
    EXPECT_EQ(on_pad("log", main_pad), "out feature 1 " + hex(report));
    EXPECT_EQ(on_pad("log", main_pad), "");
}

TEST_F(Pads, UnknownCommandIsRefusedAndThenReadBack) {
    const auto device = open_hid(main_pad, 0);
    const auto refused = ask(device, {0x77, 1, 2});
    ASSERT_TRUE(refused);
    EXPECT_EQ(hex({refused->begin(), refused->begin() + 4}), "77050000");
    const auto written = read_feature(device);
    ASSERT_TRUE(written);
    EXPECT_EQ(hex({written->begin(), written->begin() + 4}), "77010200");
}

TEST_F(Pads, LoopBackGivesBackWhatWasWrittenToTheSameInterface) {
    const auto device = open_hid(loop_back_pad, 7);
    const auto other = open_hid(loop_back_pad, 8);
    Bytes report(64, 0xa5);
    EXPECT_EQ(ask(device, report), report);
    EXPECT_EQ(read_feature(device), report);
    EXPECT_EQ(read_feature(other), Bytes(64));
}

TEST_F(Pads, VersionIsAnswered) {
    const auto device = open_hid(main_pad, 0);
    const auto reply = ask(device, {0x11});
    ASSERT_TRUE(reply);
    EXPECT_EQ(hex({reply->begin(), reply->begin() + 24}), "110000000700000008000000090000000a00000041424344");
}

TEST_F(Pads, ModeIsShownAfterSomePolls) {
    const auto device = open_hid(main_pad, 0);
    const auto mode = [&] {
        const auto reply = ask(device, {0x27});
        return reply ? reply->at(11) : -1;
    };
    EXPECT_EQ(mode(), 0);
    const auto reply = ask(device, {0x01, 6, 2});
    ASSERT_TRUE(reply);
    EXPECT_EQ(hex({reply->begin(), reply->begin() + 2}), "0100");
    EXPECT_EQ((std::array{mode(), mode(), mode(), mode(), mode()}), (std::array{0, 0, 0, 6, 6}));
    EXPECT_NE(on_pad("state", main_pad).find("mode=6 mode-option=2 "), std::string::npos);
}

TEST_F(Pads, RectangleIsKept) {
    const auto device = open_hid(main_pad, 0);
    ASSERT_TRUE(ask(device, {0x65, 1, 0, 2, 1, 3, 0, 4, 0, 0x78, 0x56, 0x34, 0x12}));
    EXPECT_NE(on_pad("state", main_pad).find("rectangle=1,258,3,4,305419896 "), std::string::npos);
}

TEST_F(Pads, MessageStreamIsEmpty) {
    const auto device = open_hid(main_pad, 0);
    Bytes expected(64);
    expected[0] = 0xf9;
    EXPECT_EQ(ask(device, {0xf9}), expected);
}

TEST_F(Pads, OldestPadTakesItsOwnSetModeAndAnswersNothing) {
    const auto device = open_hid(oldest_pad, 0);
    Bytes report(40);
    report[0] = 0x01;
    report[1] = 3;
    EXPECT_EQ(write_feature(device, report, 40), 41);
    EXPECT_NE(on_pad("state", oldest_pad).find("mode=0 "), std::string::npos) << "the mark was missing";
    report[38] = 0xf0;
    report[39] = 0xa5;
    EXPECT_EQ(write_feature(device, report, 40), 41);
    EXPECT_NE(on_pad("state", oldest_pad).find("mode=3 "), std::string::npos);
    report.resize(64);
    EXPECT_EQ(read_feature(device), report) << "no reply: reads what was written";
    EXPECT_EQ(ask(device, {0x11})->at(1), 5);
    EXPECT_EQ(ask(device, {0x27})->at(1), 5);
}

TEST_F(Pads, OutputReportArrives) {
    const auto device = open_hid(main_pad, 0);
    const Bytes report{0, 1, 2, 3};
    EXPECT_EQ(hid_write(device.get(), report.data(), report.size()), 4);
    EXPECT_EQ(on_pad("log", main_pad), "out output 0 010203");
}

// ---- input reports ----

TEST_F(Pads, InputReportsComeInOrderOnTheirInterface) {
    const auto first = open_hid(main_pad, 0);
    const auto second = open_hid(main_pad, 1);
    ASSERT_TRUE(first && second);
    for (unsigned char round = 0; round < 100; ++round) {
        constexpr unsigned char batch = 20; // hidapi keeps 32
        for (unsigned char i = 0; i < batch; ++i) {
            on_pad("input", main_pad, "1 " + hex({round, i}));
        }
        for (unsigned char i = 0; i < batch; ++i) {
            Bytes expected(64);
            expected[0] = round;
            expected[1] = i;
            ASSERT_EQ(read_input(second, 5s), expected);
        }
    }
    EXPECT_TRUE(read_input(first, 0ms).empty());
}

TEST_F(Pads, InputReportOfTheOldestPadIsShort) {
    const auto device = open_hid(oldest_pad, 0);
    on_pad("input", oldest_pad, "0 0102 3");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(hex(read_input(device, 5s)), "0102" + std::string(36, '0'));
    }
    EXPECT_THROW(on_pad("input", oldest_pad, "0 " + std::string(42, '0')), std::runtime_error);
}

TEST_F(Pads, ReadWaitsForAReport) {
    const auto device = open_hid(main_pad, 0);
    const auto start = Clock::now();
    EXPECT_TRUE(read_input(device, 50ms).empty());
    EXPECT_GE(Clock::now() - start, 50ms);
    std::atomic<bool> queued = false;
    std::thread sender{[&] {
        queued = true;
        on_pad("input", main_pad, "0 42");
    }};
    EXPECT_EQ(read_input(device, 5s).at(0), 0x42);
    EXPECT_TRUE(queued);
    sender.join();
    EXPECT_LT(Clock::now() - start, 4s) << "a report must wake the reader";
}

TEST_F(Pads, LargeInputTransferCollectsFullPackets) {
    const Usb usb;
    const auto handle = usb.open(main_pad);
    ASSERT_EQ(libusb_detach_kernel_driver(handle.get(), 0), 0);
    ASSERT_EQ(libusb_claim_interface(handle.get(), 0), 0);
    unsigned char data[256];
    int size = 0;
    on_pad("input", main_pad, "0 11 3");
    EXPECT_EQ(libusb_interrupt_transfer(handle.get(), 0x81, data, 128, &size, 1000), 0);
    EXPECT_EQ(size, 128);
    EXPECT_EQ(libusb_interrupt_transfer(handle.get(), 0x81, data, 128, &size, 50), LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(size, 64) << "a time-out keeps what has come";
    on_pad("input", main_pad, "0 11");
    EXPECT_EQ(libusb_interrupt_transfer(handle.get(), 0x81, data, 10, &size, 1000), LIBUSB_ERROR_OVERFLOW);
}

// ---- faults ----

TEST_F(Pads, StallStrikesAsOftenAsItIsTold) {
    const auto device = open_hid(main_pad, 0);
    on_pad("fault", main_pad, "stall,on=get-feature,count=2,after=1");
    EXPECT_EQ(write_feature(device, {0x11}), 65);
    EXPECT_TRUE(read_feature(device));
    EXPECT_FALSE(read_feature(device));
    EXPECT_FALSE(read_feature(device));
    EXPECT_TRUE(read_feature(device));
    on_pad("log", main_pad);
    on_pad("fault", main_pad, "stall,on=set-feature");
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(write_feature(device, {0x01, 9}), -1);
    }
    EXPECT_TRUE(read_feature(device));
    EXPECT_NE(on_pad("state", main_pad).find("mode=0 "), std::string::npos) << "a stalled report changes nothing";
    on_pad("clear-faults", main_pad);
    EXPECT_TRUE(asks_version(device));
}

TEST_F(Pads, SilenceLastsUntilTheCallerGivesUp) {
    const Usb usb;
    const auto handle = usb.open(main_pad);
    ASSERT_EQ(libusb_detach_kernel_driver(handle.get(), 0), 0);
    on_pad("fault", main_pad, "silence,on=get-feature,count=1");
    unsigned char data[64];
    const auto start = Clock::now();
    EXPECT_EQ(control(handle, true, data, sizeof data, 50), LIBUSB_ERROR_TIMEOUT);
    EXPECT_GE(Clock::now() - start, 50ms);
    EXPECT_EQ(control(handle, true, data, sizeof data, 1000), 64);
}

TEST_F(Pads, GarbageIsTheSameForTheSameSeed) {
    const auto device = open_hid(main_pad, 0);
    const auto garbage = [&](const std::string& seed) {
        on_pad("fault", main_pad, "garbage,on=get-feature,count=1,seed=" + seed);
        return ask(device, {0x11});
    };
    const auto first = garbage("1");
    ASSERT_TRUE(first);
    EXPECT_EQ(first->size(), 64U);
    EXPECT_EQ(garbage("1"), first);
    EXPECT_NE(garbage("2"), first);
    EXPECT_NE(ask(device, {0x11}), first);
}

TEST_F(Pads, ShortReplyIsCut) {
    const auto device = open_hid(main_pad, 0);
    for (const std::size_t size : {10U, 1U, 0U}) {
        on_pad("fault", main_pad, "short=" + std::to_string(size) + ",on=get-feature,count=1");
        const auto reply = ask(device, {0x11});
        ASSERT_TRUE(reply);
        EXPECT_EQ(reply->size(), size);
    }
    // hidapi hides how much of a written report was taken
    on_pad("log", main_pad);
    on_pad("fault", main_pad, "short=5,on=set-feature,count=1");
    EXPECT_EQ(write_feature(device, {0x11, 1, 2, 3, 4, 5}), 65);
    EXPECT_EQ(on_pad("log", main_pad), "out feature 0 1101020304");
}

TEST_F(Pads, DelayedReplyComesLate) {
    const auto device = open_hid(main_pad, 0);
    on_pad("fault", main_pad, "delay=40,on=get-feature");
    const auto start = Clock::now();
    EXPECT_TRUE(asks_version(device));
    EXPECT_GE(Clock::now() - start, 40ms);
}

TEST_F(Pads, CommandAndStatusBytesCanBeWrong) {
    const auto device = open_hid(main_pad, 0);
    on_pad("fault", main_pad, "wrong-command,on=get-feature,count=1");
    on_pad("fault", main_pad, "status=7,on=get-feature,count=2");
    const auto head = [&] {
        const auto reply = ask(device, {0x11});
        return reply ? hex({reply->begin(), reply->begin() + 2}) : "";
    };
    EXPECT_EQ(head(), "1207");
    EXPECT_EQ(head(), "1107");
    EXPECT_EQ(head(), "1100");
}

TEST_F(Pads, StringsAndDescriptorsCanFail) {
    on_pad("fault", main_pad, "stall,on=string");
    EXPECT_EQ(enumerate().at(hid_path(main_pad, 0)).maker, L"(none)");
    on_pad("clear-faults", main_pad);
    const Usb usb;
    const auto handle = usb.open(main_pad);
    unsigned char data[64];
    on_pad("fault", main_pad, "short=7,on=descriptor,count=1");
    EXPECT_EQ(libusb_get_descriptor(handle.get(), LIBUSB_DT_DEVICE, 0, data, sizeof data), 7);
    EXPECT_EQ(libusb_get_descriptor(handle.get(), LIBUSB_DT_DEVICE, 0, data, sizeof data), 18);
    on_pad("fault", main_pad, "stall,count=1"); // any transfer
    EXPECT_LT(libusb_get_descriptor(handle.get(), LIBUSB_DT_DEVICE, 0, data, sizeof data), 0);
}

TEST_F(Pads, InputReportsCanBeSpoilt) {
    const Usb usb;
    const auto handle = usb.open(main_pad);
    ASSERT_EQ(libusb_detach_kernel_driver(handle.get(), 0), 0);
    ASSERT_EQ(libusb_claim_interface(handle.get(), 0), 0);
    unsigned char data[64];
    int size = 0;
    const auto read = [&](const std::string& fault, unsigned int time_out) {
        if (!fault.empty()) {
            on_pad("fault", main_pad, fault + ",on=input,count=1");
        }
        return libusb_interrupt_transfer(handle.get(), 0x81, data, sizeof data, &size, time_out);
    };
    on_pad("input", main_pad, "0 0102 6");
    EXPECT_EQ(read("stall", 1000), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(read("silence", 50), LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(read("short=5", 1000), 0);
    EXPECT_EQ(size, 5);
    EXPECT_EQ(read("short=0", 1000), 0);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(read("garbage", 1000), 0);
    EXPECT_NE(hex({data, data + 64}), "0102" + std::string(124, '0'));
    EXPECT_EQ(read("wrong-command", 1000), 0);
    EXPECT_EQ(hex({data, data + 2}), "0202");
    const auto start = Clock::now();
    EXPECT_EQ(read("delay=40", 1000), 0);
    EXPECT_GE(Clock::now() - start, 40ms);
    EXPECT_EQ(read("", 1000), 0) << "the stalled report was kept";
    EXPECT_EQ(hex({data, data + 2}), "0102");
}

TEST_F(Pads, FaultPullsThePadOutAtItsTransfer) {
    const auto device = open_hid(main_pad, 0);
    on_pad("fault", main_pad, "unplug,on=get-feature,after=2,count=1");
    EXPECT_TRUE(asks_version(device));
    EXPECT_TRUE(asks_version(device));
    EXPECT_FALSE(asks_version(device));
    EXPECT_TRUE(on_pad("state", main_pad).starts_with("plugged=0"));
    EXPECT_FALSE(open_hid(main_pad, 1));
}

// ---- plugging ----

TEST_F(Pads, UnplugEndsAWaitingRead) {
    const auto device = open_hid(main_pad, 0);
    std::atomic<bool> begun = false;
    std::thread reader{[&] {
        unsigned char data[64];
        begun = true;
        const auto start = Clock::now();
        EXPECT_EQ(hid_read_timeout(device.get(), data, sizeof data, 10000), -1);
        EXPECT_LT(Clock::now() - start, 5s);
    }};
    EXPECT_TRUE(eventually([&] { return begun.load(); }));
    on_pad("unplug", main_pad);
    reader.join();
}

TEST_F(Pads, UnplugEndsAWaitingControlTransfer) {
    const Usb usb;
    const auto handle = usb.open(main_pad);
    ASSERT_EQ(libusb_detach_kernel_driver(handle.get(), 0), 0);
    on_pad("fault", main_pad, "silence,on=get-feature");
    std::atomic<int> result = 0;
    std::thread waiting{[&] {
        unsigned char data[64];
        result = control(handle, true, data, sizeof data, 10000);
    }};
    // The next transfer has its turn only when the first is under way: the stalled write below cannot overtake it.
    unsigned char data[64] = {};
    EXPECT_TRUE(eventually([&] { return control(handle, false, data, sizeof data, 20) == LIBUSB_ERROR_TIMEOUT; }));
    const auto start = Clock::now();
    on_pad("unplug", main_pad);
    waiting.join();
    EXPECT_LT(Clock::now() - start, 5s);
    EXPECT_TRUE(result == LIBUSB_ERROR_NO_DEVICE || result == LIBUSB_ERROR_IO) << result;
    EXPECT_EQ(control(handle, true, data, sizeof data, 1000), LIBUSB_ERROR_NO_DEVICE);
}

TEST_F(Pads, UnpluggedPadFailsEverywhereAndComesBack) {
    const Usb usb;
    EXPECT_TRUE(usb.ports().contains(main_pad));
    auto device = open_hid(main_pad, 0);
    on_pad("unplug", main_pad);
    EXPECT_FALSE(usb.ports().contains(main_pad)) << "the list must have changed when the reply has come";
    EXPECT_EQ(write_feature(device, {0x11}), -1);
    EXPECT_FALSE(read_feature(device));
    EXPECT_FALSE(open_hid(main_pad, 0));
    EXPECT_FALSE(enumerate().contains(hid_path(main_pad, 0)));
    EXPECT_THROW(on_pad("unplug", main_pad), std::runtime_error);
    on_pad("plug", main_pad);
    EXPECT_TRUE(usb.ports().contains(main_pad));
    EXPECT_EQ(write_feature(device, {0x11}), -1) << "a handle stays with the device that has gone";
    device = open_hid(main_pad, 0);
    EXPECT_TRUE(asks_version(device));
}

TEST_F(Pads, ReportsThatHaveArrivedSurviveTheUnplug) {
    const Usb usb;
    const auto device = open_hid(main_pad, 0);
    on_pad("input", main_pad, "0 01 5");
    // hidapi's thread has fetched all of them
    EXPECT_TRUE(eventually([&] { return on_pad("state", main_pad).find("inputs-waiting-0=0") != std::string::npos; }));
    on_pad("unplug", main_pad);
    unsigned char data[64];
    int reports = 0;
    while (hid_read_timeout(device.get(), data, sizeof data, 5000) > 0) {
        ++reports;
    }
    EXPECT_EQ(reports, 5);
}

TEST_F(Pads, PluggingLosesNoDescriptors) {
    const auto cycle = [] {
        auto device = open_hid(main_pad, 1);
        ASSERT_TRUE(asks_version(device));
        on_pad("unplug", main_pad);
        EXPECT_FALSE(asks_version(device));
        device.reset();
        on_pad("plug", main_pad);
    };
    cycle();
    const auto emulator_process = std::to_string(getppid());
    const auto before = descriptors_of("self");
    const auto emulator_before = descriptors_of(emulator_process);
    for (int i = 0; i < 200 && !HasFatalFailure(); ++i) {
        cycle();
    }
    // libusb's thread may still be reading about the last event; the emulator closes its ends a moment later.
    EXPECT_TRUE(eventually([&] { return descriptors_of("self") <= before; })) << descriptors_of("self") << before;
    EXPECT_TRUE(eventually([&] { return descriptors_of(emulator_process) <= emulator_before; }));
}

TEST_F(Pads, OpeningAgainAndAgainWorks) {
    open_hid(main_pad, 0); // what the libraries keep
    const auto before = descriptors_of("self");
    for (int i = 0; i < 100; ++i) {
        const auto device = open_hid(main_pad, 0);
        ASSERT_TRUE(device) << "cycle " << i;
        ASSERT_TRUE(asks_version(device));
    }
    EXPECT_TRUE(eventually([&] { return descriptors_of("self") <= before; }));
}

TEST_F(Pads, ManyEventsReachAProcessThatDoesNotReadThem) {
    const Usb usb;
    for (int i = 0; i < 100; ++i) {
        on_pad("unplug", main_pad);
        on_pad("plug", main_pad);
    }
    const auto handle = [&] { return usb.open(main_pad); };
    EXPECT_TRUE(eventually([&] {
        const auto opened = handle();
        unsigned char data[18];
        return opened && libusb_get_descriptor(opened.get(), LIBUSB_DT_DEVICE, 0, data, sizeof data) == 18;
    }));
}

// ---- several users of one pad ----

TEST_F(Pads, InterfaceHasOneUserAtATime) {
    const Usb usb;
    const auto first = usb.open(main_pad);
    const auto second = usb.open(main_pad);
    EXPECT_EQ(libusb_kernel_driver_active(first.get(), 0), 1);
    EXPECT_EQ(libusb_claim_interface(first.get(), 0), LIBUSB_ERROR_BUSY) << "the kernel's driver has it";
    EXPECT_EQ(libusb_detach_kernel_driver(first.get(), 0), 0);
    EXPECT_EQ(libusb_detach_kernel_driver(first.get(), 0), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_claim_interface(first.get(), 0), 0);
    EXPECT_EQ(libusb_claim_interface(second.get(), 0), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_claim_interface(second.get(), 9), LIBUSB_ERROR_NOT_FOUND);
    EXPECT_EQ(libusb_release_interface(first.get(), 0), 0);
    EXPECT_EQ(libusb_claim_interface(second.get(), 0), 0);
    EXPECT_EQ(libusb_set_interface_alt_setting(second.get(), 0, 0), 0);
    EXPECT_EQ(libusb_clear_halt(second.get(), 0x81), 0);
    EXPECT_EQ(libusb_release_interface(second.get(), 0), 0);
    EXPECT_EQ(libusb_attach_kernel_driver(second.get(), 0), 0);
    EXPECT_EQ(libusb_kernel_driver_active(first.get(), 0), 1);
    EXPECT_EQ(libusb_set_auto_detach_kernel_driver(first.get(), 1), 0);
    EXPECT_EQ(libusb_claim_interface(first.get(), 0), 0);
}

TEST_F(Pads, ControlTransfersOfOnePadAreServedInTurn) {
    const Usb usb;
    const auto first = usb.open(main_pad);
    const auto second = usb.open(main_pad);
    ASSERT_EQ(libusb_detach_kernel_driver(first.get(), 0), 0);
    on_pad("fault", main_pad, "delay=100,on=get-feature");
    const auto start = Clock::now();
    std::thread slow{[&] {
        unsigned char data[64];
        EXPECT_EQ(control(first, true, data, sizeof data, 5000), 64);
    }};
    unsigned char data[18];
    EXPECT_TRUE(eventually([&] { return on_pad("log", main_pad).starts_with("in feature 0"); }));
    EXPECT_EQ(libusb_get_descriptor(second.get(), LIBUSB_DT_DEVICE, 0, data, sizeof data), 18);
    EXPECT_GE(Clock::now() - start, 100ms) << "the second transfer overtook the first";
    slow.join();
}

void exchange_many(int interface, unsigned char mark) {
    const auto device = open_hid(loop_back_pad, interface);
    ASSERT_TRUE(device);
    Bytes report(64, mark);
    for (unsigned char i = 0; i < 250; ++i) {
        report[63] = i;
        ASSERT_EQ(ask(device, report), report);
    }
}

// Runs this program again with a task.
pid_t start_child(std::string task, int interface = 0) {
    auto program = std::filesystem::canonical("/proc/self/exe").string();
    auto number = std::to_string(interface);
    char* const argv[] = {program.data(), task.data(), number.data(), nullptr};
    pid_t child = -1;
    EXPECT_EQ(posix_spawn(&child, program.c_str(), nullptr, nullptr, argv, environ), 0);
    return child;
}

TEST_F(Pads, ThreadsAndProcessesDoNotDisturbEachOther) {
    const std::array children{start_child("--exchange", 4), start_child("--exchange", 5)};
    std::thread thread{[] { exchange_many(2, 0xa2); }};
    exchange_many(3, 0xa3);
    thread.join();
    for (const auto child : children) {
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
}

TEST_F(Pads, EveryProcessSeesAPadComeAndGo) {
    const Usb usb;
    const pid_t child = start_child("--unplug");
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_FALSE(usb.ports().contains(main_pad));
}

TEST_F(Pads, KilledProcessLeavesThePadUsable) {
    on_pad("fault", main_pad, "silence,on=get-feature,count=1");
    const pid_t child = start_child("--hang");
    EXPECT_TRUE(eventually([&] { return on_pad("log", main_pad).starts_with("out feature 0 27"); }));
    kill(child, SIGKILL);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    on_pad("clear-faults", main_pad);
    Hid device;
    EXPECT_TRUE(eventually([&] {
        device = open_hid(main_pad, 0);
        return device && asks_version(device);
    }));
}

// ---- control requests ----

TEST_F(Pads, ControlRequestsAreChecked) {
    for (const auto* line : {"nonsense", "", "plug", "plug 0", "plug 99", "plug 1", "fault 1 nonsense", "fault 1 short",
                             "fault 1 stall,on=nothing", "input 1 9 00", "input 1 0 0", "input 1 0 zz"}) {
        EXPECT_THROW(request(line), std::runtime_error) << line;
    }
    EXPECT_NE(request("list").find("2 plugged port=1-2 "), std::string::npos);
}

// What the other processes do.
int run_as_child(const std::string& task, int interface) {
    hid_init();
    if (task == "--exchange") {
        exchange_many(interface, 0xa4);
    } else if (task == "--unplug") {
        const Usb usb;
        on_pad("unplug", main_pad);
        EXPECT_FALSE(usb.ports().contains(main_pad));
    } else if (task == "--hang") {
        ask(open_hid(main_pad, interface), {0x27});
    }
    hid_exit();
    return testing::Test::HasFailure() ? 1 : 0;
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (argc == 3) {
        return run_as_child(argv[1], std::stoi(argv[2]));
    }
    return RUN_ALL_TESTS();
}
