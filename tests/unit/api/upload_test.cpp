// WriteFileBuffer() and ReadFileBuffer().
#include "receive_test.hpp"

#include <numeric>

namespace receive_test {
namespace {

constexpr std::size_t chunk = 65; // report-id byte and report

// A buffer whose pieces all differ.
Bytes pieces(unsigned int count, std::size_t rest = 0) {
    Bytes buffer;
    for (unsigned int i = 0; i < count; ++i) {
        buffer.push_back(0xEE); // a report id, which never reaches the pad
        const Bytes report = report_of(0x77, i);
        buffer.insert(buffer.end(), report.begin(), report.end());
    }
    buffer.insert(buffer.end(), rest, 0xDD);
    return buffer;
}

class Upload : public Receiving {
  protected:
    void TearDown() override {
        {
            const auto guard = bus().lock();
            bus().hooks.send_feature = {}; // it may refer to what is gone by now
        }
        Receiving::TearDown();
    }

    void SetUp() override {
        Receiving::SetUp();
        const auto guard = bus().lock();
        bus().hooks.send_feature = [this](HidInterface& pad, std::span<const unsigned char> report) {
            const std::lock_guard lock(mutex_);
            sent_.push_back({pad.path, Bytes(report.begin() + 1, report.end())});
            return std::optional(static_cast<int>(report.size()));
        };
    }

    int upload(const Bytes& buffer, unsigned int mask = 1, unsigned int device = 1) {
        return WriteFileBuffer(device, mask, buffer.data(), static_cast<unsigned int>(buffer.size()), &reply_);
    }

    struct Sent {
        std::string path;
        Bytes report;
    };
    std::vector<Sent> sent() const {
        const std::lock_guard lock(mutex_);
        return sent_;
    }
    std::vector<Bytes> sent_reports() const {
        std::vector<Bytes> reports;
        for (const Sent& one : sent()) {
            reports.push_back(one.report);
        }
        return reports;
    }
    std::size_t sent_over(const std::string& path) const {
        const auto all = sent();
        return static_cast<std::size_t>(
            std::count_if(all.begin(), all.end(), [&](const Sent& one) { return one.path == path; }));
    }
    static std::vector<Bytes> reports_of(unsigned int from, unsigned int to) {
        std::vector<Bytes> reports;
        for (unsigned int i = from; i < to; ++i) {
            reports.push_back(report_of(0x77, i));
        }
        return reports;
    }
    // No interface answers any more.
    void fail_after(unsigned int count) {
        const auto guard = bus().lock();
        bus().cost_us["hid_send_feature_report"] = 600'000;
        bus().hooks.send_feature = [this, count](HidInterface& pad, std::span<const unsigned char> report) {
            const std::lock_guard lock(mutex_);
            if (sent_.size() >= count) {
                return std::optional(-1);
            }
            sent_.push_back({pad.path, Bytes(report.begin() + 1, report.end())});
            return std::optional(static_cast<int>(report.size()));
        };
    }
    // Ends what an upload that failed has left behind.
    void use_up() {
        const Bytes buffer = pieces(1);
        for (int i = 0; i < 3; ++i) {
            upload(buffer);
        }
    }

    mutable std::mutex mutex_;
    std::vector<Sent> sent_;
};

TEST_F(Upload, SendsWholePiecesInOrderOverOneInterface) {
    EXPECT_EQ(upload(pieces(40)), 0);
    EXPECT_EQ(reply_, 40 * chunk);
    EXPECT_EQ(sent_reports(), reports_of(0, 40));
    EXPECT_EQ(sent_over("1-1:1.0"), 40U);
}

TEST_F(Upload, DropsARestThatIsNoWholePiece) {
    for (const std::size_t rest : {std::size_t{1}, chunk - 1}) {
        sent_.clear();
        EXPECT_EQ(upload(pieces(3, rest)), 0);
        EXPECT_EQ(reply_, 3 * chunk);
        EXPECT_EQ(sent_reports(), reports_of(0, 3));
    }
}

TEST_F(Upload, OfLessThanAPieceSendsNothing) {
    for (const std::size_t size : {std::size_t{1}, chunk - 1}) {
        reply_ = preset;
        EXPECT_EQ(upload(Bytes(size, 1)), 0);
        EXPECT_EQ(reply_, 0U);
    }
    EXPECT_THAT(sent(), IsEmpty());
    EXPECT_EQ(upload(pieces(1)), 0);
    EXPECT_EQ(reply_, chunk) << "the position is back at the beginning";
}

TEST_F(Upload, OverTwoInterfacesSendsEveryPieceOnce) {
    {
        // The interfaces wait for one another, so that both take part.
        const auto guard = bus().lock();
        bus().hooks.send_feature = [this](HidInterface& pad, std::span<const unsigned char> report) {
            {
                const std::lock_guard lock(mutex_);
                sent_.push_back({pad.path, Bytes(report.begin() + 1, report.end())});
            }
            const std::size_t own = &pad == first_ ? 0 : 1;
            gates[own].open();
            EXPECT_TRUE(gates[1 - own].pass());
            return std::optional(static_cast<int>(report.size()));
        };
    }
    EXPECT_EQ(upload(pieces(200), 3), 0);
    EXPECT_EQ(reply_, 200 * chunk);
    EXPECT_GT(sent_over("1-1:1.0"), 0U);
    EXPECT_GT(sent_over("1-1:1.1"), 0U);
    auto reports = sent_reports();
    auto expected = reports_of(0, 200);
    std::sort(reports.begin(), reports.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(reports, expected);
}

TEST_F(Upload, OverAFurtherInterfaceOnly) {
    EXPECT_EQ(upload(pieces(5), 2), 0);
    EXPECT_EQ(sent_over("1-1:1.1"), 5U);
    EXPECT_EQ(sent_over("1-1:1.0"), 0U);
}

TEST_F(Upload, WithoutAnInterfaceReturnsAtOnce) {
    for (const unsigned int mask : {0U, 4U, 0xFFFFFFFCU}) {
        reply_ = preset;
        EXPECT_EQ(upload(pieces(5), mask), 0);
        EXPECT_EQ(reply_, 0U);
    }
    EXPECT_THAT(sent(), IsEmpty());
    EXPECT_THAT(bus().pauses(), IsEmpty());
}

TEST_F(Upload, IgnoresBitsBeyondTheLastInterface) {
    EXPECT_EQ(upload(pieces(5), 0xFFFFFFFFU, 2), 0);
    EXPECT_EQ(reply_, 5 * chunk);
    EXPECT_EQ(sent_over("1-2:1.0"), 5U);
}

TEST_F(Upload, SendsACopy) {
    Bytes buffer = pieces(20);
    {
        const auto guard = bus().lock();
        bus().hooks.send_feature = [&](HidInterface& pad, std::span<const unsigned char> report) {
            std::fill(buffer.begin(), buffer.end(), static_cast<unsigned char>(0));
            const std::lock_guard lock(mutex_);
            sent_.push_back({pad.path, Bytes(report.begin() + 1, report.end())});
            return std::optional(static_cast<int>(report.size()));
        };
    }
    EXPECT_EQ(upload(buffer), 0);
    EXPECT_EQ(sent_reports(), reports_of(0, 20));
}

TEST_F(Upload, LogsWhatItDoes) {
    bus().cost_us["hid_send_feature_report"] = 100;
    const LogCapture& log = overhear();
    EXPECT_EQ(upload(pieces(1024), 1, 2), 0);
    for (const char* line :
         {"count_of_threads 1", "before FOR: count_of_threads: 1, data_size: 66560 ", "end_point_id_mask: 00000001",
          "Thread 0 was started... ", "Collect information from started Threads.. ", "max_packet_size 64",
          "device: 2, interface: 0, start_pos: 65, data_size: 66560 ", " Data: 66560 Bytes"}) {
        EXPECT_EQ(log.count(line), 1) << line;
    }
    EXPECT_EQ(log.count("Going to processing, device:2, interface: 0, data:"), 1);
    EXPECT_EQ(log.count("start_pos: 66560, info->data_size: 66560 "), 1);
    EXPECT_EQ(log.count("Thread going to EXIT: ptr_data: "), 1);
    EXPECT_EQ(log.count(" Time: "), 1);
    EXPECT_EQ(log.count(" kB/s"), 1);
}

TEST_F(Upload, TellsItsSpeed) {
    // 102,400 bytes are not a multiple of a piece: 1575 pieces are 102,375 bytes. One second passes.
    std::atomic<bool> passed = false;
    {
        const auto guard = bus().lock();
        bus().hooks.send_feature = [&](HidInterface&, std::span<const unsigned char> report) {
            if (!passed.exchange(true)) {
                bus().advance_us(1'000'000);
            }
            return std::optional(static_cast<int>(report.size()));
        };
        bus().hooks.usleep = [](unsigned int microseconds) {
            bus().advance_us(-std::int64_t{microseconds}); // the waiting costs nothing
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        };
    }
    const LogCapture& log = overhear();
    EXPECT_EQ(upload(pieces(1575)), 0);
    EXPECT_EQ(log.count(" Data: 102375 Bytes"), 1);
    EXPECT_EQ(log.count("Speed: 100 kB/s"), 1) << "99.98, rounded";
}

TEST_F(Upload, ThatTookNoTimeHasNoSpeed) {
    {
        const auto guard = bus().lock();
        bus().hooks.usleep = [](unsigned int microseconds) {
            bus().advance_us(-std::int64_t{microseconds});
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        };
    }
    const LogCapture& log = overhear();
    EXPECT_EQ(upload(pieces(2)), 0);
    EXPECT_EQ(log.count(" Time: 0.000000 sec"), 1);
    EXPECT_EQ(log.count("Speed: 0 kB/s"), 1);
}

TEST_F(Upload, PollsForItsThreadsEveryMillisecond) {
    {
        const auto guard = bus().lock();
        bus().hooks.send_feature = [this](HidInterface&, std::span<const unsigned char> report) {
            EXPECT_TRUE(gates[0].pass());
            return std::optional(static_cast<int>(report.size()));
        };
    }
    const Bytes buffer = pieces(1);
    std::thread other([&] { EXPECT_EQ(upload(buffer), 0); });
    ASSERT_TRUE(comes_true([] { return bus().pauses().size() > 2; }));
    EXPECT_THAT(bus().pauses(), Each(1000U));
    EXPECT_EQ(std::atomic_ref(interface_routine_count).load(), 1);
    gates[0].open();
    other.join();
    EXPECT_EQ(interface_routine_count, 0);
    EXPECT_EQ(interface_routine_terminate, 1) << "until the next one";
}

// Failures.

TEST_F(Upload, RefusesBadArgumentsBeforeItSelectsThePad) {
    const Bytes buffer = pieces(1);
    const auto check = [](int handle, const char* message) {
        EXPECT_EQ(record_of(handle), (Record{invalid_parameter, "WriteFileBuffer", message}));
    };
    check(WriteFileBuffer(99, 1, nullptr, 0, nullptr), "Error of input parameters, unsigned int *reply is NULL");
    check(WriteFileBuffer(99, 1, nullptr, 0, &reply_), "Error of input parameters, const void *src is NULL");
    check(WriteFileBuffer(99, 1, buffer.data(), 0, &reply_),
          "Error of input parameters, const unsigned int src_length is 0");
    EXPECT_EQ(reply_, preset);
    EXPECT_EQ(interface_routine_terminate, 0) << "cleared before any check";
}

TEST_F(Upload, ToAnUnknownPadIsFiled) {
    EXPECT_EQ(record_of(upload(pieces(1), 1, 3)),
              (Record{invalid_handle, "WriteFileBuffer", "Error of switching to device: 3"}));
    EXPECT_EQ(reply_, preset);
}

TEST_F(Upload, ToAPadThatIsGoneIsFiledWithANotice) {
    static std::atomic<int> notices;
    notices = 0;
    bus().hooks.send_feature = {};
    bus().unplug(*first_);
    Bytes report(65);
    EXPECT_NE(GetFeature(1, 0, report.data(), 65, &reply_), 0); // finds out
    SetOnDeviceRemovedHandler([](void*, unsigned int device) { notices += static_cast<int>(device); }, nullptr);
    reply_ = preset;
    EXPECT_EQ(record_of(upload(pieces(1))),
              (Record{invalid_handle, "WriteFileBuffer",
                      "Error of getting max packet size of hid interfaces for device: 1"}));
    EXPECT_EQ(notices, 1);
    EXPECT_EQ(reply_, preset);
}

TEST_F(Upload, ToAPadWhoseInterfacesCannotBeCountedSendsNothing) {
    bus().hooks.send_feature = {};
    const Interruption& counting = interrupt("GetEndPointCount(): Was switched to device: 1", [this] {
        std::thread([this] {
            bus().unplug(*first_);
            Bytes report(65);
            unsigned int value = 0;
            EXPECT_NE(GetFeature(1, 0, report.data(), 65, &value), 0); // finds out
        }).join();
    });
    EXPECT_EQ(upload(pieces(1)), 0);
    EXPECT_TRUE(counting.happened());
    EXPECT_EQ(reply_, preset);
    EXPECT_THAT(errors_.text(), HasSubstr("error: WriteFileBuffer(): GetEndPointCount() return non zero"));
    EXPECT_THAT(bus().log("hid_send_feature_report"), IsEmpty());
}

// The pad goes between the call's question and the thread's.
TEST_F(Upload, WhoseThreadGetsNoPacketSizeSendsNothingAndTells) {
    static std::atomic<int> notices;
    notices = 0;
    bus().hooks.send_feature = {};
    SetOnDeviceRemovedHandler([](void*, unsigned int device) { notices += static_cast<int>(device); }, nullptr);
    const Interruption& beginning = interrupt("Going to processing, device:1, interface: 0", [this] {
        bus().unplug(*first_);
        bus().unplug(*further_);
        Bytes report(64);
        EXPECT_EQ(core_get_hid_feature_report(0, report.data(), 64), -20); // who asks the core tells nobody
    });
    EXPECT_EQ(upload(pieces(3)), 0);
    EXPECT_TRUE(beginning.happened());
    EXPECT_EQ(reply_, 0U);
    EXPECT_EQ(notices, 1);
    EXPECT_THAT(errors_.text(), HasSubstr("error: interface_routine(): Error of getting max packet size of hid "
                                          "interfaces for device: 1"));
    EXPECT_THAT(errors_.text(), Not(HasSubstr("WriteFile return"))) << "no piece is tried";
    EXPECT_EQ(interface_routine_count, 0);
}

TEST_F(Upload, AsksItsOwnPadWhicheverIsCurrent) {
    bus().hooks.send_feature = {};
    EXPECT_EQ(GetVendorId(2, &reply_), 0);
    bus().unplug(*second_);
    Bytes report(65);
    EXPECT_NE(GetFeature(2, 0, report.data(), 65, &reply_), 0); // finds out
    const Interruption& beginning = interrupt("Going to processing, device:1, interface: 0", [] {
        unsigned int value = 0;
        EXPECT_NE(GetVendorId(2, &value), 0); // half of the switch has happened
    });
    EXPECT_EQ(upload(pieces(3)), 0);
    EXPECT_TRUE(beginning.happened());
    EXPECT_EQ(reply_, 3 * chunk);
}

TEST_F(Upload, ThatFailsHalfWayTellsHowFarItCameAndGoesOnFromThereTheNextTime) {
    fail_after(3);
    const LogCapture& log = overhear();
    EXPECT_EQ(upload(pieces(10)), 0);
    EXPECT_EQ(reply_, 3 * chunk);
    EXPECT_EQ(record_of(1), (Record{invalid_handle, "WriteFile", "Error of set HID output report for device: 1"}));
    EXPECT_EQ(log.count("error: interface_routine(): WriteFile return: 1 "), 1);
    fail_after(1000);
    EXPECT_EQ(upload(pieces(10)), 0);
    EXPECT_EQ(reply_, 6 * chunk) << "one piece is lost, the rest follows";
    auto expected = reports_of(0, 3);
    for (const Bytes& report : reports_of(4, 10)) {
        expected.push_back(report);
    }
    EXPECT_EQ(sent_reports(), expected);
    EXPECT_EQ(upload(pieces(1)), 0);
    EXPECT_EQ(reply_, chunk) << "used up: the next begins at the beginning";
}

TEST_F(Upload, OfAShorterBufferThanTheLeftPositionSendsNothingOnce) {
    fail_after(5);
    EXPECT_EQ(upload(pieces(10)), 0);
    fail_after(1000);
    EXPECT_EQ(upload(pieces(2)), 0);
    EXPECT_EQ(reply_, 0U);
    EXPECT_EQ(upload(pieces(2)), 0);
    EXPECT_EQ(reply_, 2 * chunk);
}

TEST_F(Upload, LosesAnInterfaceAndGoesOnWithTheOther) {
    {
        const auto guard = bus().lock();
        bus().cost_us["hid_send_feature_report"] = 600'000;
        bus().hooks.send_feature = [this](HidInterface& pad, std::span<const unsigned char> report) {
            if (&pad == further_) {
                gates[0].open();
                return std::optional(-1);
            }
            EXPECT_TRUE(gates[0].pass());
            const std::lock_guard lock(mutex_);
            sent_.push_back({pad.path, Bytes(report.begin() + 1, report.end())});
            return std::optional(static_cast<int>(report.size()));
        };
    }
    EXPECT_EQ(upload(pieces(50), 3), 0);
    EXPECT_EQ(reply_, 49 * chunk);
    EXPECT_EQ(sent_over("1-1:1.0"), 49U);
}

TEST_F(Upload, EndsWhenThePadIsPulledOut) {
    static std::atomic<int> notices;
    notices = 0;
    SetOnDeviceRemovedHandler(
        [](void*, unsigned int device) {
            unsigned int value = 0;
            EXPECT_EQ(GetDeviceCount(&value), 2);
            notices += static_cast<int>(device);
        },
        nullptr);
    {
        const auto guard = bus().lock();
        bus().hooks.send_feature = [this](HidInterface&, std::span<const unsigned char>) {
            bus().unplug(*first_);
            bus().unplug(*further_);
            return std::optional<int>();
        };
    }
    EXPECT_EQ(upload(pieces(1000), 3), 0);
    EXPECT_EQ(reply_, 0U);
    EXPECT_GE(notices, 1);
    bus().hooks.send_feature = {};
    bus().plug_again(*first_);
    bus().plug_again(*further_);
    ASSERT_EQ(Initialize(), 0);
    use_up();
}

TEST_F(Upload, StopsForOneWhoAsks) {
    std::atomic<bool> asked = false;
    {
        const auto guard = bus().lock();
        bus().hooks.send_feature = [&](HidInterface&, std::span<const unsigned char> report) {
            if (!asked.exchange(true)) {
                std::atomic_ref(interface_routine_terminate).store(1);
            }
            return std::optional(static_cast<int>(report.size()));
        };
    }
    EXPECT_EQ(upload(pieces(1000)), 0);
    EXPECT_EQ(reply_, chunk);
    use_up();
}

TEST_F(Upload, EndsWithTheLibrary) {
    {
        const auto guard = bus().lock();
        bus().hooks.send_feature = [this](HidInterface&, std::span<const unsigned char> report) {
            EXPECT_TRUE(gates[0].pass());
            return std::optional(static_cast<int>(report.size()));
        };
    }
    const Bytes buffer = pieces(10'000);
    std::thread uploading([&] { upload(buffer, 3); });
    ASSERT_TRUE(gates[0].somebody_waits());
    std::thread stopping([] { EXPECT_EQ(Deinitialize(), 0); });
    ASSERT_TRUE(comes_true([] { return std::atomic_ref(interface_routine_terminate).load() == 1; }));
    EXPECT_TRUE(IsInitialized()) << "the tear-down waits for the threads";
    gates[0].open();
    stopping.join();
    uploading.join();
    EXPECT_LE(reply_, 2 * chunk);
    bus().hooks.send_feature = {};
    ASSERT_EQ(Initialize(), 0);
    use_up();
}

TEST_F(Upload, EndsWithTheLibraryThoughAnotherIsTriedMeanwhile) {
    {
        const auto guard = bus().lock();
        bus().hooks.send_feature = [this](HidInterface&, std::span<const unsigned char> report) {
            EXPECT_TRUE(gates[0].pass());
            return std::optional(static_cast<int>(report.size()));
        };
    }
    const Bytes buffer = pieces(1000);
    std::thread uploading([&] { upload(buffer); });
    ASSERT_TRUE(gates[0].somebody_waits());
    std::thread stopping([] { EXPECT_EQ(Deinitialize(), 0); });
    ASSERT_TRUE(comes_true([] { return SetUsedTransportProtocol(1, 1) != 0; })) << "closed";
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // it waits for the threads
    EXPECT_NE(WriteFileBuffer(1, 1, nullptr, 0, nullptr), 0);
    EXPECT_EQ(std::atomic_ref(interface_routine_terminate).load(), 0);
    gates[0].open();
    stopping.join();
    uploading.join();
    EXPECT_LE(reply_, chunk);
    bus().hooks.send_feature = {};
    ASSERT_EQ(Initialize(), 0);
    use_up();
}

TEST_F(Upload, StartsNoThreadBehindTheTearDown) {
    const Interruption& begun =
        interrupt("end_point_id_mask: ", [] { std::thread([] { EXPECT_EQ(Deinitialize(), 0); }).join(); });
    EXPECT_EQ(upload(pieces(3), 3), 0);
    EXPECT_TRUE(begun.happened());
    EXPECT_EQ(reply_, 0U);
    EXPECT_EQ(interface_routine_count, 0);
    EXPECT_EQ(interface_routine_terminate, 1);
    EXPECT_THAT(errors_.text(), HasSubstr("start_upload(): error of pthread_create() or pthread_attr_destroy()"));
    EXPECT_THAT(errors_.text(), Not(HasSubstr("interface_routine()")));
    bus().hooks.send_feature = {};
    ASSERT_EQ(Initialize(), 0);
    EXPECT_EQ(upload(pieces(3), 3), 0);
    EXPECT_EQ(reply_, 3 * chunk);
}

TEST_F(Upload, GoesToItsPadWhileAnotherThreadUsesAnother) {
    std::atomic<bool> finished = false;
    std::thread other([&] {
        std::array<char16_t, 32> text{};
        unsigned int length = 0;
        while (!finished) {
            EXPECT_EQ(GetSerialNumber(2, text.data(), 32, &length), 0);
        }
    });
    EXPECT_EQ(upload(pieces(300), 3), 0);
    finished = true;
    other.join();
    EXPECT_EQ(reply_, 300 * chunk);
    EXPECT_EQ(sent_over("1-2:1.0"), 0U);
}

TEST_F(Upload, ReadFileBufferSaysThatItIsNotImplemented) {
    const LogCapture& log = overhear();
    EXPECT_EQ(ReadFileBuffer(99, 0, nullptr, 0, nullptr), 0);
    EXPECT_EQ(log.count("Function ReadFileBuffer() not implemented yet."), 1);
    EXPECT_THAT(bus().log(), IsEmpty());
}

} // namespace
} // namespace receive_test
