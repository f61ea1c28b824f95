// What the tests have in common that drive the library over virtual pads.
#pragma once

#include "control_client.hpp"
#include "kernel_pads.hpp"
#include "vxpadcom/vxpadcom.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace pads {

using Bytes = std::vector<unsigned char>;
using namespace std::chrono_literals;

// What an application learns of a failed call.
struct Failure {
    unsigned int code = 0; // 0: the call has succeeded
    std::string function;
    std::string message;

    bool operator==(const Failure&) const = default;
};
void PrintTo(const Failure& failure, std::ostream* stream);

Failure failure(int result); // reads the record behind a call's result
Failure invalid_handle(const std::string& function, const std::string& message);
Failure invalid_parameter(const std::string& function, const std::string& message);

// An answer in 16-bit text; behind the units that the buffer was said to have, nothing was written.
struct TextAnswer {
    std::u16string units; // the whole buffer
    unsigned int reply;

    bool operator==(const TextAnswer&) const = default;
};
void PrintTo(const TextAnswer& answer, std::ostream* stream);
using TextQuery = std::function<int(char16_t* res_text, int res_text_size, unsigned int* reply)>;
TextAnswer ask_text(const TextQuery& query, int res_text_size);
std::u16string text_of(const TextQuery& query); // up to the terminator, from a buffer that is large enough

std::u16string serial_number(unsigned int device);

using NumberQuery = std::function<int(unsigned int* reply)>;
unsigned int number_of(const NumberQuery& query);

// Every function that takes a pad's number, with all other arguments sound.
struct DeviceCall {
    const char* name;
    std::function<int(unsigned int device)> call;
    const char* failure; // what it says when the pad has gone; null: it does not ask the pad
};
const std::vector<DeviceCall>& device_calls();

// A buffer to be sent: a report id that must not reach the pad, then bytes that count up from `first`.
Bytes report(std::size_t size, unsigned char first);
Bytes payload(const Bytes& report); // without the report id

// A read into a buffer that was filled with `untouched` before.
struct ReadAnswer {
    int result;
    unsigned int reply;
    Bytes buffer;
};
inline constexpr unsigned char untouched = 0xee;
inline constexpr unsigned int reply_untouched = 0xeeeeeeee;
using ReadFunction = int (*)(unsigned int, unsigned int, void*, unsigned int, unsigned int*);
ReadAnswer read(ReadFunction function, unsigned int device, unsigned int interface, unsigned int length = 65);

// What a successful read of this payload leaves in the buffer.
Bytes received(const Bytes& payload);

int set_feature(unsigned int device, unsigned int interface, const Bytes& report);
int write_file(unsigned int device, unsigned int interface, const Bytes& report);

// The emulator's side. Its pads are numbered as they were plugged in, whatever number the library gives them.
std::string to_pad(const std::string& request, int pad, const std::string& rest = {});
std::vector<std::string> take_log(int pad, const std::string& kind = "feature"); // of what has crossed the bus
std::string hex(const Bytes& bytes);
// A line of it; the direction is "out" or "in".
std::string feature_line(const char* direction, unsigned int interface, const Bytes& payload);
std::string state_of(int pad, const std::string& name); // "" when it has none
bool is_plugged(int pad);
void heal();                                  // plugs everything in, removes all faults, empties all logs
void plug_only(const std::vector<int>& pads); // as they were at first, without faults

template <typename Condition> bool wait_for(Condition condition, std::chrono::milliseconds at_most = 10s) {
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::duration<double>(patience(1)) * at_most.count() / 1000;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

// Runs action(0), action(1), ... on threads of their own at the same time. None of them may hang.
void run_at_once(unsigned int threads, const std::function<void(unsigned int thread)>& action);

// Pulls the pad out at the action's first, second, ... transfer, until the action needs no more of them. Returns how
// many it has. `prepare` plugs the pad in, `check` looks at what is left each time.
template <typename Prepare, typename Action, typename Check>
int pull_out_at_each_transfer(int pad, Prepare prepare, Action action, Check check) {
    for (int transfers = 0; transfers < 1000; transfers = next_moment(transfers)) {
        SCOPED_TRACE("pulled out at transfer " + std::to_string(transfers));
        prepare();
        to_pad("fault", pad, "unplug,count=1,after=" + std::to_string(transfers));
        action();
        if (is_plugged(pad)) {
            return transfers;
        }
        check();
        if (testing::Test::HasFatalFailure()) {
            break;
        }
    }
    ADD_FAILURE() << "there is no end";
    return 0;
}

// Reads the next input report, which may still be on its way from the pad.
ReadAnswer next_input(unsigned int device, unsigned int interface, unsigned int length = 65);

// Seconds by the clock that the library's time-outs go by.
double seconds_of(const std::function<void()>& action);

// How much of each of the library's pauses really passes in a program with quick_clock.cpp: nothing at first.
extern std::atomic<unsigned int> longest_pause_us;

// How often a test does what takes long: `everyday`, or `load` where the environment asks for the whole load.
int times(int everyday, int load);

// What the process holds.
struct Resources {
    std::ptrdiff_t descriptors;
    std::ptrdiff_t threads;
    std::size_t memory;
};
Resources resources();

// Nothing has grown, but for less memory than any block takes in each of the cycles. A replugged pad is news that
// libusb's default context keeps, about 600 bytes of it, until somebody handles its events.
void expect_no_growth(const Resources& before, int cycles, int replugs);

// Counts removals: the callback's user pointer is the object itself.
class Removals {
  public:
    Removals() { SetOnDeviceRemovedHandler(&Removals::removed, this); }
    ~Removals() { SetOnDeviceRemovedHandler(nullptr, nullptr); }
    Removals(const Removals&) = delete;
    Removals& operator=(const Removals&) = delete;

    std::vector<unsigned int> take() { return std::exchange(devices_, {}); }

  private:
    static void removed(void* self, unsigned int device) { static_cast<Removals*>(self)->devices_.push_back(device); }

    std::vector<unsigned int> devices_;
};

// All pads as they were at first; the library is not initialised.
class PluggedPads : public testing::Test {
  protected:
    void SetUp() override { heal(); }
    void TearDown() override {
        heal();
        Deinitialize();
    }
};

class InitializedPads : public PluggedPads {
  protected:
    void SetUp() override {
        PluggedPads::SetUp();
        ASSERT_EQ(Initialize(), 0);
        heal(); // for the logs
    }
};

} // namespace pads
