// Several threads on one pad that speaks SSP, on both transports. The library's pauses are skipped.
#include "ssp_pad_test.hpp"

#include <atomic>
#include <future>

using namespace pads;

namespace {

const MessageAnswer right_answer{{}, components_reply};

class SspThreads : public SspPad {
  protected:
    void SetUp() override {
        SspPad::SetUp();
        initialize();
    }
};

INSTANTIATE_TEST_SUITE_P(On, SspThreads, testing::Values(hid, vcom), name_of_transport);

void expect_facts() {
    EXPECT_EQ(number_of([](auto* reply) { return GetFeatureReportSize(1, 0, reply); }), 65U);
    EXPECT_EQ(core_get_max_packet_size_of_out_endpoint(), 64);
    EXPECT_EQ(core_get_max_packet_size_of_input_report(), 64);
    EXPECT_EQ(number_of([](auto* reply) { return GetEndPointCount(1, reply); }), 1U);
}

int packet_size() {
    unsigned int reply = 0;
    return GetFeatureReportSize(1, 0, &reply);
}

// An idle read of a VCOM pad closes and opens it again, as a time-out does on both transports. Nobody else may see that
// it is closed for a moment.
TEST_P(SspThreads, NeverMeetAClosedPad) {
    constexpr unsigned int idle_readers = 2;
    std::atomic<int> exchanges{0};
    run_at_once(5, [&](unsigned int thread) {
        EXPECT_TRUE(wait_for([&] {
            expect_facts();
            if (thread < idle_readers) {
                const auto idle = read(ReadFile, 1, 0);
                EXPECT_EQ(idle.result, 0);
                EXPECT_EQ(idle.reply, reply_untouched);
            } else if (thread == idle_readers) { // a second thread's request would drop the first one's reply
                EXPECT_EQ(exchange_messages(components_request), right_answer);
                ++exchanges;
            }
            return exchanges >= 20;
        }));
    });
    EXPECT_EQ(exchange_messages(components_request), right_answer);
}

TEST_P(SspThreads, SeeNoTimeOutOfAnother) {
    std::atomic<bool> at_work{true};
    run_at_once(5, [&](unsigned int thread) {
        if (thread == 0) {
            for (int i = 0; i < 100; ++i) {
                EXPECT_EQ(receive_message(1).failure, receive_failure); // and the pad is closed and opened again
            }
            at_work = false;
            return;
        }
        while (at_work) {
            expect_facts();
            if (thread == 1) {
                EXPECT_EQ(write_file(1, 0, report(65, 0x80)), 0);
                EXPECT_EQ(core_set_unsync_hid_output_report(0, Bytes(64, 0x80).data(), 64),
                          0); // asks for no size before
            } else if (thread == 2) {
                EXPECT_EQ(set_feature(1, 0, report(65, 0x80)), 0);
            } else if (thread == 3) {
                EXPECT_EQ(core_disable_ssp_biodata_sending(), 0);
            }
        }
    });
    EXPECT_EQ(exchange_messages(components_request), right_answer);
}

class VcomThreads : public SspThreads {};

// A HID pad's comes in input reports.
INSTANTIATE_TEST_SUITE_P(On, VcomThreads, testing::Values(vcom), name_of_transport);

TEST_P(VcomThreads, LosePenDataToNobody) {
    constexpr unsigned int records = 40;
    EXPECT_EQ(core_enable_ssp_biodata_sending(), 0);
    std::atomic<bool> at_work{true};
    run_at_once(3, [&](unsigned int thread) {
        if (thread > 0) {
            while (at_work) {
                expect_facts();
                if (thread == 1) {
                    EXPECT_EQ(exchange_messages(components_request), right_answer);
                }
            }
            return;
        }
        for (unsigned int number = 0; number < records; ++number) {
            const auto record = next_input(1, 0, 7); // number and two coordinates, 16 bits each
            EXPECT_EQ(record.result, 0);
            EXPECT_EQ(record.buffer[1], number);
        }
        at_work = false;
    });
    EXPECT_EQ(core_disable_ssp_biodata_sending(), 0);
}

TEST_P(SspThreads, AreAllEndedByAnUnplug) {
    for (int time = 0; time < 5; ++time) {
        std::atomic<unsigned int> removals{0};
        SetOnDeviceRemovedHandler(
            [](void* user, unsigned int device) {
                EXPECT_EQ(device, 1U);
                ++*static_cast<std::atomic<unsigned int>*>(user);
            },
            &removals);
        std::atomic<unsigned int> calls{0};
        auto unplugging = std::async(std::launch::async, [&] {
            EXPECT_TRUE(wait_for([&] { return calls > 20; }));
            to_pad("unplug", pad());
        });
        run_at_once(4, [&](unsigned int thread) {
            Failure failed;
            EXPECT_TRUE(wait_for([&] {
                ++calls;
                failed = thread == 0   ? send_message(components_request)
                         : thread == 1 ? failure(read(ReadFile, 1, 0).result)
                         : thread == 2 ? failure(set_feature(1, 0, report(65, 0x80)))
                                       : failure(packet_size());
                return failed != Failure{};
            }));
            EXPECT_EQ(failed.code, static_cast<unsigned int>(VXPCEC_INVALID_HANDLE));
        });
        unplugging.get();
        EXPECT_GE(removals, 1U);
        SetOnDeviceRemovedHandler(nullptr, nullptr);
        expect_sound_pad();
    }
}

// Ten threads, a HID pad and a VCOM pad, while another thread starts and stops the library.
TEST(LibraryThreads, TransferBesideStartsAndStops) {
    plug_only({hid.pad, vcom.pad});
    ASSERT_EQ(Initialize(), 0);
    std::atomic<bool> over{false};
    std::atomic<unsigned int> succeeded{0};
    run_at_once(11, [&](unsigned int thread) {
        const unsigned int device = 1 + thread % 2;
        if (thread == 10) {
            for (int i = 0; i < 10; ++i) {
                EXPECT_EQ(i % 3 == 0 ? Deinitialize() : 0, 0);
                EXPECT_EQ(Initialize(), 0);
                unsigned int reply = 0;
                EXPECT_EQ(GetDeviceCount(&reply), 2);
                const unsigned int before = succeeded;
                EXPECT_TRUE(wait_for([&] { return succeeded > before + 10; }));
            }
            over = true;
            return;
        }
        while (!over) {
            unsigned int reply = 0;
            Bytes report(65, 0);
            report[1] = 0x27; // the status
            const int result = thread < 4   ? SetFeature(device, 0, report.data(), 65, &reply)
                               : thread < 6 ? GetFeature(device, 0, report.data(), 65, &reply)
                               : thread < 8 ? ReadFile(device, 0, report.data(), 65, &reply)
                                            : GetVendorId(device, &reply);
            succeeded += result == 0 ? 1 : 0;
        }
    });
    EXPECT_EQ(Deinitialize(), 0);
}

} // namespace
