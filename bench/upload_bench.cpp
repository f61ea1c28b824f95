// Uploads over several interfaces at once through the library and by hand with hidapi, in one run.
//
// Needs two virtual pads of four interfaces: one that the library knows, and one with ids that it does not know, for
// the hand-written code.
#include "by_hand.hpp"
#include "paired.hpp"

#include <array>
#include <atomic>
#include <benchmark/benchmark.h>
#include <thread>
#include <vector>
#include <vxpadcom/vxpadcom.h>

namespace {

constexpr unsigned short by_hand_vendor = 0xf1af; // as scripts/bench plugs it in
constexpr unsigned short by_hand_product = 0x7cff;

constexpr std::size_t piece_size = 65; // report id and 64 bytes
constexpr std::size_t pieces = 6000;
constexpr std::size_t most_interfaces = 4;

using Buffer = std::vector<unsigned char>;

// A pad as a program would drive it that has no library but hidapi.
class PadByHand {
  public:
    PadByHand() {
        for (std::size_t i = 0; i < most_interfaces; ++i) {
            interfaces_[i] = by_hand::open(by_hand_vendor, by_hand_product, static_cast<int>(i));
        }
    }

    bool is_ready() const { return interfaces_[most_interfaces - 1] != nullptr; }

    bool upload(const Buffer& buffer, std::size_t interfaces) {
        std::atomic<std::size_t> next{0};
        std::atomic<bool> succeeded{true};
        const auto send = [&](hid_device* hid) {
            for (std::size_t i = next++; i < pieces; i = next++) {
                if (hid_send_feature_report(hid, &buffer[i * piece_size], piece_size) != static_cast<int>(piece_size)) {
                    succeeded = false;
                    return;
                }
            }
        };
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < interfaces; ++i) {
            threads.emplace_back(send, interfaces_[i].get());
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        return succeeded;
    }

  private:
    std::array<by_hand::Handle, most_interfaces> interfaces_;
};

void upload(benchmark::State& state, std::size_t interfaces) {
    Initialize();
    {
        PadByHand pad;
        if (!pad.is_ready()) {
            state.SkipWithError("no pad of four interfaces that the library does not know");
        } else {
            const Buffer buffer(pieces * piece_size);
            const auto size = static_cast<unsigned int>(buffer.size());
            const unsigned int mask = (1U << interfaces) - 1;
            paired::compare(
                state,
                [&] {
                    unsigned int sent = 0;
                    return WriteFileBuffer(1, mask, buffer.data(), size, &sent) == 0 && sent == size;
                },
                [&] { return pad.upload(buffer, interfaces); }, 1);
        }
    }
    Deinitialize();
}

BENCHMARK_CAPTURE(upload, one, 1)
    ->Name("WriteFileBuffer, 1 interface over hid_send_feature_report")
    ->UseRealTime()
    ->MinTime(10);
BENCHMARK_CAPTURE(upload, two, 2)
    ->Name("WriteFileBuffer, 2 interfaces over hid_send_feature_report")
    ->UseRealTime()
    ->MinTime(10);
BENCHMARK_CAPTURE(upload, four, 4)
    ->Name("WriteFileBuffer, 4 interfaces over hid_send_feature_report")
    ->UseRealTime()
    ->MinTime(10);

} // namespace

BENCHMARK_MAIN();
