// Pen data as it comes: how long a report takes from the pad to the callback, and what receiving costs.
//
// Needs one virtual pad: a silent one, or one that plays its signature all the time, at the rate of the benchmark that
// is chosen by --benchmark_filter. Each of its packets tells when it was made. Another pad would take time as well.
#include "paired.hpp"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <limits>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>
#include <vxpadcom/vxpadcom.h>

namespace {

constexpr std::size_t made_at = 12; // where in a packet: 64 bits, little-endian, nanoseconds of CLOCK_MONOTONIC
constexpr std::chrono::seconds settling_time{1};

// A whole number of them, or as many as are good for the figures.
int seconds_to_measure() {
    const char* wanted = std::getenv("VXPAD_BENCH_SECONDS");
    return wanted == nullptr ? 10 : std::max(std::atoi(wanted), 1);
}
const int measured_seconds = seconds_to_measure();

struct Report {
    double made_us;
    double delivered_us;
};

void keep(void* reports, unsigned int /*device*/, unsigned int /*interface*/, const void* data, unsigned int /*size*/) {
    const double now_us = paired::seconds(CLOCK_MONOTONIC) * 1e6;
    std::uint64_t made_ns = 0;
    for (std::size_t i = sizeof made_ns; i > 0; --i) {
        made_ns = made_ns << 8 | static_cast<const unsigned char*>(data)[made_at + i - 1];
    }
    static_cast<std::vector<Report>*>(reports)->push_back({static_cast<double>(made_ns) / 1e3, now_us});
}

// How long a pause really is: the kernel ends it some 60 us late.
double length_of_pause_us(useconds_t asked) {
    std::vector<double> lengths_us;
    for (int i = 0; i < 200; ++i) {
        const double start_s = paired::seconds(CLOCK_MONOTONIC);
        usleep(asked);
        lengths_us.push_back((paired::seconds(CLOCK_MONOTONIC) - start_s) * 1e6);
    }
    return statistics::median(lengths_us);
}

// What the two threads' pauses alone make of these reports, if nothing else took any time: the receive thread looks
// every 500 us; the callback thread pauses 1.5 ms, twice that, and so on while it finds nothing.
std::vector<double> latencies_of_the_pauses(const std::vector<Report>& reports) {
    constexpr double first_delay_us = 1500;
    constexpr int phases = 20; // of the two threads against the pad
    const double read_pause_us = length_of_pause_us(500);
    const double late_us = length_of_pause_us(1500) - first_delay_us;
    std::vector<double> latencies;
    for (int phase = 0; phase < phases && !reports.empty(); ++phase) {
        double read_us = reports.front().made_us - read_pause_us * phase / phases;
        double look_us = read_us;
        double delay_us = first_delay_us;
        for (const Report& report : reports) {
            while (read_us < report.made_us) {
                read_us += read_pause_us;
            }
            while (look_us < read_us) {
                look_us += delay_us + late_us;
                delay_us += first_delay_us;
            }
            latencies.push_back(look_us - report.made_us);
            delay_us = first_delay_us;
            read_us += read_pause_us; // one report at a time
        }
    }
    return latencies;
}

// Every run has the same counters: not a number where nothing came.
void tell_latencies(benchmark::State& state, const std::string& prefix, const std::vector<double>& latencies_us) {
    const auto quantile = [&](double part) {
        return latencies_us.empty() ? std::numeric_limits<double>::quiet_NaN()
                                    : statistics::quantile(latencies_us, part);
    };
    state.counters[prefix + "median_us"] = quantile(0.5);
    state.counters[prefix + "p99_us"] = quantile(0.99);
}

// Of the medians of single seconds.
void tell_spread(benchmark::State& state, const std::vector<Report>& reports, double start_us) {
    std::vector<std::vector<double>> seconds(static_cast<std::size_t>(measured_seconds));
    for (const Report& report : reports) {
        const auto second = static_cast<std::size_t>((report.made_us - start_us) / 1e6);
        if (second < seconds.size()) {
            seconds[second].push_back(report.delivered_us - report.made_us);
        }
    }
    std::erase_if(seconds, [](const auto& latencies) { return latencies.empty(); });
    std::vector<double> medians;
    for (const auto& latencies : seconds) {
        medians.push_back(statistics::median(latencies));
    }
    state.counters["median_spread_us"] =
        medians.empty() ? std::numeric_limits<double>::quiet_NaN() : statistics::half_quartile_distance(medians);
}

double cpu_percent_of(const std::function<void()>& passing_time) {
    const double wall_s = paired::seconds(CLOCK_MONOTONIC);
    const double cpu_s = paired::seconds(CLOCK_PROCESS_CPUTIME_ID);
    passing_time();
    return (paired::seconds(CLOCK_PROCESS_CPUTIME_ID) - cpu_s) / (paired::seconds(CLOCK_MONOTONIC) - wall_s) * 100;
}

// Second by second, so that the figure's spread can be told.
std::vector<double> cpu_percents_of(const std::function<void()>& passing_a_second) {
    std::vector<double> percents;
    for (int second = 0; second < measured_seconds; ++second) {
        percents.push_back(cpu_percent_of(passing_a_second));
    }
    return percents;
}

// The least that a thread costs which looks every 500 us.
void pause_only() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds{1};
    while (std::chrono::steady_clock::now() < end) {
        usleep(500);
    }
}

void receive(benchmark::State& state) {
    constexpr unsigned int device = 1;
    std::vector<Report> reports;
    reports.reserve(100'000);
    double start_us = 0;
    for ([[maybe_unused]] auto iteration : state) {
        Initialize();
        if (SetOnDataReceivedHandler(device, 0, keep, &reports) != 0 || SetDataReceivingEnabled(device, 0, 1) != 0) {
            state.SkipWithError("no such virtual pad");
        } else {
            std::this_thread::sleep_for(settling_time);
            start_us = paired::seconds(CLOCK_MONOTONIC) * 1e6;
            const auto percents = cpu_percents_of([] { std::this_thread::sleep_for(std::chrono::seconds{1}); });
            state.counters["cpu_%"] = statistics::median(percents);
            state.counters["cpu_spread_%"] = statistics::half_quartile_distance(percents);
        }
        Deinitialize(); // no callback runs any more
        state.counters["pauses_cpu_%"] = statistics::median(cpu_percents_of(pause_only));
    }
    // What had waited for the program to begin is old.
    std::erase_if(reports, [start_us](const Report& report) { return report.made_us < start_us; });
    std::vector<double> latencies_us;
    for (const Report& report : reports) {
        latencies_us.push_back(report.delivered_us - report.made_us);
    }
    tell_latencies(state, "", latencies_us);
    tell_spread(state, reports, start_us);
    tell_latencies(state, "pauses_", latencies_of_the_pauses(reports));
}

// A pad that sends so seldom that the receive thread is at rest each time: when is a report in the queue? Nobody takes
// it out, so that the callback thread's own pauses do not count; they come when all is over.
void receive_from_rest(benchmark::State& state) {
    constexpr unsigned int device = 1;
    std::vector<Report> reports;
    reports.reserve(1000);
    std::vector<double> queued_us;
    for ([[maybe_unused]] auto iteration : state) {
        Initialize();
        if (SetDataReceivingEnabled(device, 0, 1) != 0) {
            state.SkipWithError("no such virtual pad");
        } else {
            const double end_us = paired::seconds(CLOCK_MONOTONIC) * 1e6 + measured_seconds * 1e6;
            double now_us = 0;
            while ((now_us = paired::seconds(CLOCK_MONOTONIC) * 1e6) < end_us) {
                unsigned int waiting = 0;
                GetDataPacketsAvailable(device, 0, &waiting);
                queued_us.resize(waiting, now_us);
                usleep(100);
            }
            SetOnDataReceivedHandler(device, 0, keep, &reports);
            std::this_thread::sleep_for(settling_time);
        }
        Deinitialize();
    }
    std::vector<double> latencies_us;
    for (std::size_t i = 1; i < queued_us.size() && i < reports.size(); ++i) { // the first ones may have waited
        latencies_us.push_back(queued_us[i] - reports[i].made_us);
    }
    tell_latencies(state, "", latencies_us);
    for (const char* unknown :
         {"cpu_%", "cpu_spread_%", "median_spread_us", "pauses_cpu_%", "pauses_median_us", "pauses_p99_us"}) {
        state.counters[unknown] = std::numeric_limits<double>::quiet_NaN();
    }
}

BENCHMARK(receive_from_rest)->Name("receiving, from rest")->Iterations(1)->UseRealTime();
BENCHMARK(receive)->Name("receiving, at rest")->Iterations(1)->UseRealTime();
BENCHMARK(receive)->Name("receiving, 500 reports a second")->Iterations(1)->UseRealTime();
BENCHMARK(receive)->Name("receiving, 1500 reports a second")->Iterations(1)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
