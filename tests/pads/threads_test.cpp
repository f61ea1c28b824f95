// Several threads on one pad: type 16, five interfaces, gives back what was written to it. The library's pauses are
// skipped.
#include "pad_test.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <barrier>
#include <cstdio>
#include <future>

using namespace pads;

namespace {

constexpr int pad = 1;
constexpr unsigned int thread_count = 4;

class Threads : public InitializedPads {
  protected:
    static void at_once(const std::function<void(unsigned int thread)>& action) { run_at_once(thread_count, action); }
};

// Reports that are the same in every byte: a mixture of two would show.
Bytes uniform(unsigned int value) {
    Bytes bytes(65, static_cast<unsigned char>(value));
    bytes[0] = 0;
    return bytes;
}

void expect_facts() {
    EXPECT_EQ(serial_number(1), u"SN0001");
    EXPECT_EQ(number_of([](auto* reply) { return GetEndPointCount(1, reply); }), 5U);
    EXPECT_EQ(number_of([](auto* reply) { return GetFeatureReportSize(1, 0, reply); }), 65U);
    EXPECT_EQ(SetUsedTransportProtocol(1, 1), 0);
    EXPECT_EQ(number_of([](auto* reply) { return GetUsedTransportProtocol(1, reply); }), 1U);
    unsigned int reply = 0;
    EXPECT_EQ(GetDeviceCount(&reply), 1);
    EXPECT_TRUE(IsInitialized());
}

// Four further interfaces, which each thread opens for itself.
TEST_F(Threads, EachOnAnInterfaceOfItsOwn) {
    at_once([](unsigned int thread) {
        const unsigned int interface = thread + 1;
        for (unsigned int i = 0; i < 200; ++i) {
            const auto sent = uniform(0x80 + thread + 4 * (i % 8));
            EXPECT_EQ(set_feature(1, interface, sent), 0);
            EXPECT_EQ(read(GetFeature, 1, interface).buffer, sent);
            EXPECT_EQ(read(ReadFile, 1, interface).reply, reply_untouched);
            if (i % 10 == 0) {
                expect_facts();
            }
        }
    });
}

TEST_F(Threads, AllOnOneInterface) {
    for (const unsigned int interface : {0U, 3U}) {
        EXPECT_EQ(set_feature(1, interface, uniform(0x80)), 0);
        at_once([&](unsigned int thread) {
            for (unsigned int i = 0; i < 200; ++i) {
                EXPECT_EQ(set_feature(1, interface, uniform(0x80 + thread)), 0);
                const auto answer = read(GetFeature, 1, interface);
                EXPECT_EQ(answer.result, 0);
                EXPECT_EQ(answer.buffer, uniform(answer.buffer[1]));
                EXPECT_LT(answer.buffer[1] - 0x80U, thread_count);
                if (i % 10 == 0) {
                    expect_facts();
                }
            }
        });
    }
}

TEST_F(Threads, ShareTheInputReportsOfOneInterface) {
    constexpr std::size_t reports = 200;
    std::array<std::atomic<unsigned int>, reports> seen{};
    std::atomic<std::size_t> read_so_far{0};
    std::atomic<std::size_t> sent{0};
    constexpr std::size_t most_ahead = 20; // hidapi keeps about thirty
    at_once([&](unsigned int thread) {
        if (thread == 0) {
            for (; sent < reports; ++sent) {
                ASSERT_TRUE(wait_for([&] { return sent - read_so_far < most_ahead; }));
                const unsigned int number = static_cast<unsigned int>(sent);
                char hex[3];
                std::snprintf(hex, sizeof hex, "%02x", number);
                to_pad("input", pad, std::string("1 ") + hex);
            }
            return;
        }
        EXPECT_TRUE(wait_for([&] {
            const auto answer = read(ReadFile, 1, 1);
            EXPECT_EQ(answer.result, 0);
            if (answer.reply != reply_untouched) {
                ++seen.at(answer.buffer[1]);
                ++read_so_far;
            }
            return read_so_far == reports;
        }));
    });
    EXPECT_TRUE(std::ranges::all_of(seen, [](const auto& times) { return times == 1; }));
}

// The ring keeps 63 records: in each round the threads file fewer than that together, and read them.
TEST_F(Threads, FileRecordsOfTheirOwn) {
    constexpr unsigned int records_in_round = 15;
    std::barrier round(thread_count);
    at_once([&](unsigned int thread) {
        const bool writes = thread % 2 == 0;
        const auto expected = writes ? invalid_handle("SetFeature", "Error of write HID feature for device: 1")
                                     : invalid_handle("GetFeature", "Error of read HID feature for device: 1");
        for (unsigned int i = 0; i < 20 * records_in_round; ++i) {
            if (i % records_in_round == 0) {
                round.arrive_and_wait();
            }
            const unsigned int interface = 10 + thread; // there is none
            EXPECT_EQ(failure(writes ? set_feature(1, interface, uniform(1)) : read(GetFeature, 1, interface).result),
                      expected);
        }
    });
}

struct Use {
    const char* name;
    unsigned int (*interface_of)(unsigned int thread);
};

void PrintTo(const Use& use, std::ostream* stream) {
    *stream << use.name;
}

class UnplugUnderThreads : public Threads, public testing::WithParamInterface<Use> {};

INSTANTIATE_TEST_SUITE_P(All, UnplugUnderThreads,
                         testing::Values(Use{"OneInterface", [](unsigned int) { return 0U; }},
                                         Use{"OneFurtherInterface", [](unsigned int) { return 2U; }},
                                         Use{"OwnInterfaces", [](unsigned int thread) { return thread; }}),
                         [](const auto& tested) { return tested.param.name; });

// Every thread sees the removal in a bounded time, whatever it is doing.
TEST_P(UnplugUnderThreads, EndsThemAll) {
    for (int time = 0; time < 5; ++time) {
        std::atomic<unsigned int> removals{0};
        SetOnDeviceRemovedHandler(
            [](void* user, unsigned int device) {
                EXPECT_EQ(device, 1U);
                ++*static_cast<std::atomic<unsigned int>*>(user);
            },
            &removals);
        std::atomic<unsigned int> calls{0};
        std::atomic<unsigned int> over{0};
        auto unplugging = std::async(std::launch::async, [&] {
            EXPECT_TRUE(wait_for([&] { return calls > 100; }));
            to_pad("unplug", pad);
        });
        at_once([&](unsigned int thread) {
            const unsigned int interface = GetParam().interface_of(thread);
            int result = 0;
            EXPECT_TRUE(wait_for([&] {
                ++calls;
                result = thread == 0   ? read(ReadFile, 1, interface).result
                         : thread == 1 ? read(GetFeature, 1, interface).result
                         : thread == 2 ? set_feature(1, interface, uniform(0x80))
                                       : write_file(1, interface, uniform(0x81));
                for (const auto& [name, call, message] : device_calls()) {
                    if (thread == 3 && message != nullptr && !std::string(name).ends_with("e")) {
                        call(1);
                    }
                }
                return result != 0;
            }));
            EXPECT_EQ(failure(result).code, static_cast<unsigned int>(VXPCEC_INVALID_HANDLE));
            ++over;
        });
        unplugging.get();
        EXPECT_EQ(over, thread_count);
        EXPECT_GE(removals, 1U);

        SetOnDeviceRemovedHandler(nullptr, nullptr);
        to_pad("plug", pad);
        EXPECT_EQ(Initialize(), 0);
        for (unsigned int interface = 0; interface < 5; ++interface) {
            EXPECT_EQ(set_feature(1, interface, uniform(0x80)), 0);
        }
    }
}

} // namespace
