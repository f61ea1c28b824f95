// What the tests of receiving and uploading share.
#pragma once

#include "api_test.hpp"
#include "ssp_test.hpp"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace receive_test {

using api::invalid_handle;
using api::invalid_parameter;
using api::preset;
using api::Record;
using api::record_of;
using api::some_bytes;
using api::some_number;
using api::some_text;
using standins::bus;
using standins::Bytes;
using standins::HidInterface;
using standins::LogCapture;
using standins::UsbDevice;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using Lines = std::vector<std::string>;

constexpr std::chrono::seconds bound{20}; // no wait is longer

inline bool comes_true(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + bound;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    return true;
}

// Holds threads up until it is opened.
class Gate {
  public:
    void open() {
        const std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    bool pass() { return pass_within(bound); }
    bool pass_within(std::chrono::microseconds time) {
        std::unique_lock lock(mutex_);
        ++arrived_;
        changed_.notify_all();
        return changed_.wait_for(lock, time, [this] { return open_; });
    }
    bool somebody_waits() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, bound, [this] { return arrived_ > 0; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
    int arrived_ = 0;
};

struct Received {
    const void* user_specific;
    unsigned int device;
    unsigned int interface_number;
    Bytes bytes;
};

// A data callback that keeps what it is given and does what the test wants done on its thread.
class Receiver {
  public:
    static void receive(void* self, unsigned int device, unsigned int interface_number, const void* data,
                        unsigned int length) {
        const auto* bytes = static_cast<const unsigned char*>(data);
        static_cast<Receiver*>(self)->keep({self, device, interface_number, Bytes(bytes, bytes + length)});
    }

    std::function<void(const Received&)> then = {}; // set before it is registered

    std::vector<Received> all() const {
        const std::lock_guard lock(mutex_);
        return received_;
    }
    std::size_t count() const {
        const std::lock_guard lock(mutex_);
        return received_.size();
    }
    bool gets(std::size_t wanted) const {
        return comes_true([&] { return count() >= wanted; });
    }

  private:
    void keep(Received one) {
        {
            const std::lock_guard lock(mutex_);
            received_.push_back(one);
        }
        if (then) {
            then(one);
        }
    }

    mutable std::mutex mutex_;
    std::vector<Received> received_;
};

// A report that is not zero anywhere and tells its pad and its place in the order.
inline Bytes report_of(unsigned char pad, unsigned int number, std::size_t size = 64) {
    Bytes report(size, pad);
    report[1] = static_cast<unsigned char>(1 + number % 251);
    report[2] = static_cast<unsigned char>(1 + number / 251 % 251);
    report[3] = static_cast<unsigned char>(1 + number / 251 / 251);
    return report;
}

// A logging callback that does something when a message comes, on the thread that says it.
class Interruption {
  public:
    // Which: 1 is the first message with this part.
    Interruption(std::string at, int which, std::function<void()> action)
        : at_(std::move(at)), which_(which), action_(std::move(action)) {
        RegisterLoggingCallBackProcedure(reinterpret_cast<void*>(&receive), this);
    }
    ~Interruption() { RegisterLoggingCallBackProcedure(nullptr, nullptr); }
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    bool happened() const { return done_; }

  private:
    static void receive(void* self, const char16_t* message) {
        auto& own = *static_cast<Interruption*>(self);
        const std::u16string_view text(message);
        if (api::narrow(text.data(), text.size()).find(own.at_) == std::string::npos || ++own.times_ != own.which_) {
            return;
        }
        own.action_();
        own.done_ = true;
    }

    std::string at_;
    int which_;
    std::function<void()> action_;
    std::atomic<int> times_ = 0;
    std::atomic<bool> done_ = false;
};

// Messages of the library's own threads: what keeps them must outlive these, that is, the test's Deinitialize().
class Overhearing {
  protected:
    const LogCapture& overhear() { return *logs_.emplace_back(std::make_unique<LogCapture>()); }
    const Interruption& interrupt(std::string at, std::function<void()> action, int which = 1) {
        return *interruptions_.emplace_back(std::make_unique<Interruption>(std::move(at), which, std::move(action)));
    }

  private:
    std::vector<std::unique_ptr<LogCapture>> logs_;
    std::vector<std::unique_ptr<Interruption>> interruptions_;
};

// Opens a gate when the calling thread has ended, for which its last call of the library is over.
inline void open_at_the_end_of_this_thread(std::shared_ptr<Gate> gate) {
    struct Farewell {
        std::shared_ptr<Gate> gate;
        ~Farewell() { gate->open(); }
    };
    thread_local const Farewell farewell{std::move(gate)};
}

// The library's pauses are real, but short.
inline void pause_briefly() {
    const auto guard = bus().lock();
    bus().hooks.usleep = [](unsigned int microseconds) {
        std::this_thread::sleep_for(std::chrono::microseconds(std::min(microseconds, 200U)));
    };
}

// Two pads: 1 with two interfaces, 2 with one.
class Receiving : public api::TwoPads, protected Overhearing {
  protected:
    void SetUp() override {
        TwoPads::SetUp();
        pause_briefly();
    }
    void TearDown() override {
        for (Gate& gate : gates) {
            gate.open();
        }
        TwoPads::TearDown();
    }

    static void give(HidInterface& pad, const Bytes& report) {
        const auto guard = bus().lock();
        pad.input_reports.push_back(report);
    }
    static bool all_read(HidInterface& pad) {
        return comes_true([&] {
            const auto guard = bus().lock();
            return pad.input_reports.empty();
        });
    }
    static std::size_t times(const std::string& line) {
        const Lines log = bus().log();
        return static_cast<std::size_t>(std::count(log.begin(), log.end(), line));
    }
    // Whether the receive thread of a path goes on reading.
    static bool is_read(const std::string& path) {
        const std::string line = "hid_read(" + path + ", 64)";
        const std::size_t before = times(line);
        return comes_true([&] { return times(line) > before + 1; });
    }
    static bool is_quiet(const std::string& path) {
        const std::string line = "hid_read(" + path + ", 64)";
        return comes_true([&] {
            const std::size_t before = times(line);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            return times(line) == before;
        });
    }
    static unsigned int available(unsigned int device = 1, unsigned int interface = 0) {
        unsigned int count = preset;
        EXPECT_EQ(GetDataPacketsAvailable(device, interface, &count), 0);
        return count;
    }

    std::array<Gate, 4> gates;
};

} // namespace receive_test
