// What the tests have in common that receive pen data. Each pad writes a single point, whose x is the pad's number.
#pragma once

#include "pad_test.hpp"

#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>

namespace pads {

// The emulator's numbers; the library's are told by device_of().
inline constexpr int hid_pad = 1; // four interfaces
inline constexpr int other_hid_pad = 2;
inline constexpr int vcom_pad = 3;
unsigned int device_of(int pad);
std::string name_of_pad(const testing::TestParamInfo<int>& tested);

using Numbers = std::vector<std::uint32_t>;

struct PenPacket {
    int pad;
    std::uint32_t number;
    bool is_whole; // every byte is as the pad has sent it
};
PenPacket pen_packet(const void* data); // of 64 bytes

// What hidapi has handed to the library, noted by handed_out.cpp. From there on no report may be lost; before, hidapi
// itself drops the oldest when more than 30 are waiting, which can happen on a busy machine.
struct HandedOut {
    Numbers numbers;
    unsigned long readings = 0;                 // also those that found nothing
    std::chrono::microseconds longest_pause{0}; // between two readings of one thread
};
HandedOut handed_out(int pad);
int closed_while_read(); // handles that have brought packets and were then closed, with all that was waiting
void forget_handed_out();

// An application's data callback for the first interface of a pad.
class Receiver {
  public:
    explicit Receiver(int pad) : pad_{pad}, device_{device_of(pad)} {}
    ~Receiver() { EXPECT_EQ(astray_, 0) << "of another pad, too late, or not as pad " << pad_ << " has sent it"; }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    // What the callback does with a packet after noting it. To be set before it is registered.
    std::function<void(Receiver& self, std::uint32_t number)> on_packet;

    void listen(); // registers the callback
    void enable(); // receiving
    void disable();
    void end_reactions();            // waits for on_packet, which does not run any more
    void close() { closed_ = true; } // from here on no packet may come

    int pad() const { return pad_; }
    unsigned int device() const { return device_; }
    std::size_t count() const { return count_; }
    unsigned int waiting() const; // in the library
    Numbers numbers() const;
    std::optional<std::uint32_t> last() const;
    void forget();

    static void receive(void* self, unsigned int device, unsigned int interface_number, const void* data,
                        unsigned int length);

  private:
    const int pad_;
    const unsigned int device_;
    std::atomic<bool> closed_{false};
    std::atomic<int> astray_{0};
    std::atomic<std::size_t> count_{0};
    std::atomic<bool> reacts_{true};
    std::atomic<int> reacting_{0};
    mutable std::mutex mutex_; // guards the numbers
    Numbers numbers_;
};

// Writes a feature report and reads one, which is one of this pad's. Of a VCOM pad it may be an older one: the library
// repeats its request while only pen data comes, and so may get more replies than it waits for.
void exchange_features(const Receiver& of, std::uint32_t number);

void rewind_upload(unsigned int device); // wherever an earlier one has ended, the next one begins at the front

void play(int pad, unsigned int rate); // until it is stopped
unsigned long sent_by(int pad);

// Ends the playing and waits until the callback has had all that the library got. Of a VCOM pad that is everything from
// the first packet on, of a HID pad what hidapi has handed out.
void expect_all_received(const Receiver& receiver);

// Rising, and nothing left out between hidapi and the callback but at so many interruptions.
void expect_subsequence(const Receiver& receiver, std::size_t interruptions);

class ReceivingPads : public testing::Test {
  protected:
    void SetUp() override { forget_handed_out(); }
    void TearDown() override {
        deinitialize();
        receivers_.clear();
        forget_handed_out();
        plug_only({});
    }

    void initialize(const std::vector<int>& pads); // freshly plugged in
    void deinitialize();                           // and closes all receivers
    Receiver& receiver(int pad);                   // a new one, which lives as long as the library may call it
    void forget_receivers() { receivers_.clear(); }

  private:
    std::deque<Receiver> receivers_;
};

} // namespace pads
