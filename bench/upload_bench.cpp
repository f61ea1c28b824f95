// Uploads over several interfaces at once through the library and by hand with hidapi, in one run.
//
// Needs two virtual pads of four interfaces: one that the library knows, and one with ids that it does not know, for
// the hand-written code.
//
// The calling thread is promised to look every millisecond whether the upload has ended. What that costs by itself is
// measured as well, by hand: threads that are waited for so over the same threads joined.
#include "by_hand.hpp"
#include "paired.hpp"

#include <array>
#include <atomic>
#include <benchmark/benchmark.h>
#include <thread>
#include <unistd.h>
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

    enum class Wait { joining, looking_every_millisecond };

    bool upload(const Buffer& buffer, std::size_t interfaces, Wait wait = Wait::joining) {
        std::atomic<std::size_t> next{0};
        std::atomic<bool> succeeded{true};
        std::atomic<std::size_t> running{interfaces};
        const auto send = [&](hid_device* hid) {
            for (std::size_t i = next++; i < pieces; i = next++) {
                if (hid_send_feature_report(hid, &buffer[i * piece_size], piece_size) != static_cast<int>(piece_size)) {
                    succeeded = false;
                    break;
                }
            }
            --running;
        };
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < interfaces; ++i) {
            threads.emplace_back(send, interfaces_[i].get());
        }
        while (wait == Wait::looking_every_millisecond && running != 0) {
            usleep(1000);
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        return succeeded;
    }

  private:
    std::array<by_hand::Handle, most_interfaces> interfaces_;
};

template <typename Compare> void with_both_pads(benchmark::State& state, Compare compare) {
    Initialize();
    {
        PadByHand pad;
        if (!pad.is_ready()) {
            state.SkipWithError("no pad of four interfaces that the library does not know");
        } else {
            compare(pad, Buffer(pieces * piece_size));
        }
    }
    Deinitialize();
}

void upload(benchmark::State& state, std::size_t interfaces) {
    with_both_pads(state, [&](PadByHand& pad, const Buffer& buffer) {
        const auto size = static_cast<unsigned int>(buffer.size());
        const unsigned int mask = (1U << interfaces) - 1;
        paired::compare(
            state,
            [&] {
                unsigned int sent = 0;
                return WriteFileBuffer(1, mask, buffer.data(), size, &sent) == 0 && sent == size;
            },
            [&] { return pad.upload(buffer, interfaces); }, 1);
    });
}

void look(benchmark::State& state, std::size_t interfaces) {
    with_both_pads(state, [&](PadByHand& pad, const Buffer& buffer) {
        paired::compare(
            state, [&] { return pad.upload(buffer, interfaces, PadByHand::Wait::looking_every_millisecond); },
            [&] { return pad.upload(buffer, interfaces); }, 1);
    });
}

struct Case {
    const char* name;
    void (*run)(benchmark::State& state, std::size_t interfaces);
    std::size_t interfaces;
};

constexpr Case cases[] = {
    {"WriteFileBuffer, 1 interface over hid_send_feature_report", upload, 1},
    {"WriteFileBuffer, 2 interfaces over hid_send_feature_report", upload, 2},
    {"by hand, looking every ms, 2 interfaces over joining", look, 2},
    {"WriteFileBuffer, 4 interfaces over hid_send_feature_report", upload, 4},
    {"by hand, looking every ms, 4 interfaces over joining", look, 4},
};

} // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    for (const Case& one : cases) {
        benchmark::RegisterBenchmark(one.name, one.run, one.interfaces)->UseRealTime();
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
