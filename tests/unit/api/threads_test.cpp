// Several threads inside the library at a time. The thread sanitizer is the stricter judge of these.
#include "api_test.hpp"

#include <atomic>
#include <barrier>
#include <functional>
#include <thread>

using api::record_of;
using standins::bus;
using standins::Bytes;

namespace {

class Threads : public api::TwoPads {
  protected:
    // Runs every task over and over on a thread of its own. No task is more than one round ahead of another.
    static void run(const std::vector<std::function<void()>>& tasks, int times = 60) {
        std::barrier round(static_cast<std::ptrdiff_t>(tasks.size()));
        std::vector<std::thread> threads;
        for (const auto& task : tasks) {
            threads.emplace_back([&task, &round, times] {
                for (int i = 0; i < times; ++i) {
                    task();
                    round.arrive_and_wait();
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    static void fail_and_read(int (*fail)(), const std::string& function) {
        const int handle = fail();
        EXPECT_GE(handle, 1);
        EXPECT_LE(handle, 63);
        unsigned int code = 0;
        EXPECT_EQ(GetExceptionCode(static_cast<unsigned int>(handle), &code), 0);
        std::array<char16_t, 256> text{};
        unsigned int units = 0;
        EXPECT_EQ(GetExceptionName(static_cast<unsigned int>(handle), text.data(), 256, &units), 0);
        EXPECT_EQ(api::narrow(text.data(), units - 1), function);
    }
};

TEST_F(Threads, FileAndReadTheirOwnRecords) {
    // The rounds keep a record from being overwritten before it is read.
    run({[] { fail_and_read([] { return GetDeviceCount(nullptr); }, "GetDeviceCount"); },
         [] { fail_and_read([] { return EnumerateDevicesNext(nullptr); }, "EnumerateDevicesNext"); },
         [] { fail_and_read([] { return GetVendorId(1, nullptr); }, "GetVendorId"); },
         [] { fail_and_read([] { return SetFeature(1, 0, nullptr, 1, nullptr); }, "SetFeature"); },
         [] { fail_and_read([] { return TranslateErrorCode(1, nullptr, 1, nullptr); }, "TranslateErrorCode"); }});
}

TEST_F(Threads, ComposeNumberedMessagesWithoutMixingThem) {
    const auto expect_message = [](unsigned int device) {
        unsigned int reply = 0;
        const api::Record record = record_of(GetVendorId(device, &reply));
        EXPECT_EQ(record.message, "Error of switching to device: " + std::to_string(device));
    };
    run({[&] { expect_message(20); }, [&] { expect_message(31); }, [&] { expect_message(42); }});
}

TEST_F(Threads, ExchangeReportsWithOnePad) {
    run({[] {
             const Bytes report(65, 1);
             unsigned int reply = 0;
             EXPECT_EQ(SetFeature(1, 0, report.data(), 65, &reply), 0);
         },
         [] {
             Bytes report(65);
             unsigned int reply = 0;
             EXPECT_EQ(GetFeature(1, 0, report.data(), 65, &reply), 0);
         },
         [] {
             Bytes report(65);
             unsigned int reply = 0;
             EXPECT_EQ(ReadFile(1, 1, report.data(), 65, &reply), 0);
         },
         [] {
             std::array<char16_t, 16> text{};
             unsigned int reply = 0;
             EXPECT_EQ(GetSerialNumber(1, text.data(), 16, &reply), 0);
             EXPECT_EQ(api::narrow(text.data(), reply), "SN0001");
         }});
}

TEST_F(Threads, StartAndStopTogether) {
    run({[] { EXPECT_EQ(Initialize(), 0); }, [] { EXPECT_EQ(Initialize(), 0); }, [] { EXPECT_EQ(Deinitialize(), 0); },
         [] { IsInitialized(); },
         [] {
             unsigned int reply = 0;
             EXPECT_GE(GetDeviceCount(&reply), 0);
         }},
        10);
}

TEST_F(Threads, MeetARemovedPadTogether) {
    static std::atomic<int> notices;
    notices = 0;
    SetOnDeviceRemovedHandler([](void*, unsigned int device) { notices += device == 1 ? 1 : 100; }, nullptr);
    bus().unplug(*first_);
    bus().unplug(*further_);
    std::atomic<int> failures = 0;
    run({[&] {
             Bytes report(65);
             unsigned int reply = 0;
             failures += GetFeature(1, 0, report.data(), 65, &reply) != 0 ? 1 : 0;
         },
         [&] {
             Bytes report(65);
             unsigned int reply = 0;
             failures += ReadFile(1, 0, report.data(), 65, &reply) != 0 ? 1 : 0;
         },
         [] {
             unsigned int reply = 0;
             GetEndPointCount(1, &reply);
         }},
        5);
    EXPECT_EQ(failures, 10);
    EXPECT_GE(notices, 1);
    EXPECT_LE(notices, 15);
}

} // namespace
