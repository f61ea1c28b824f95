// The library beside hand-written code that does the same.
//
// Both sides take turns in short blocks, each being first in every other round, so that whatever else the machine does
// meets both alike. The counters are medians over all rounds: microseconds a call, wall time and CPU time of this
// process, and the library's cost over the hand-written one in per cent, round by round. The spread is half the
// distance between the quartiles of the latter.
#pragma once

#include "statistics.hpp"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <ctime>
#include <string>
#include <vector>

namespace paired {

inline double seconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

struct Samples {
    std::vector<double> wall;
    std::vector<double> cpu;
};

// Times one block of calls; false where one of them failed.
template <typename Call> bool sample(Samples& samples, int calls, Call call) {
    const double wall = seconds(CLOCK_MONOTONIC);
    const double cpu = seconds(CLOCK_PROCESS_CPUTIME_ID);
    bool succeeded = true;
    for (int i = 0; i < calls; ++i) {
        succeeded = call() && succeeded;
    }
    samples.cpu.push_back((seconds(CLOCK_PROCESS_CPUTIME_ID) - cpu) / calls * 1e6);
    samples.wall.push_back((seconds(CLOCK_MONOTONIC) - wall) / calls * 1e6);
    return succeeded;
}

inline void report(benchmark::State& state, const std::string& clock, const std::vector<double>& library,
                   const std::vector<double>& by_hand) {
    std::vector<double> over(library.size());
    std::transform(library.begin(), library.end(), by_hand.begin(), over.begin(),
                   [](double ours, double theirs) { return (ours / theirs - 1) * 100; });
    state.counters["lib_" + clock + "_us"] = statistics::median(library);
    state.counters["hand_" + clock + "_us"] = statistics::median(by_hand);
    state.counters[clock + "_over_%"] = statistics::median(over);
    state.counters[clock + "_spread_%"] = statistics::half_quartile_distance(over);
}

template <typename Library, typename ByHand>
void compare(benchmark::State& state, Library library_call, ByHand hand_written_call, int calls_per_block = 100) {
    Samples library;
    Samples by_hand;
    bool library_first = true;
    for ([[maybe_unused]] auto iteration : state) {
        const auto by_library = [&] { return sample(library, calls_per_block, library_call); };
        const auto hand_written = [&] { return sample(by_hand, calls_per_block, hand_written_call); };
        const bool succeeded = library_first ? by_library() && hand_written() : hand_written() && by_library();
        library_first = !library_first;
        if (!succeeded) {
            state.SkipWithError("a transfer failed");
            return;
        }
    }
    if (!library.wall.empty()) {
        report(state, "wall", library.wall, by_hand.wall);
        report(state, "cpu", library.cpu, by_hand.cpu);
    }
}

} // namespace paired
