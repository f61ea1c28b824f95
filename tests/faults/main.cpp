// Goes through every scenario with every call failing, once and from there on, each scenario in a process of its own.
#include "calls.hpp"
#include "scenario.hpp"

#include "standins.hpp"
#include "vxpadcom/vxpadcom.h"

#include <dirent.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VXPAD_WATCHED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VXPAD_WATCHED 1
#endif
#endif
#ifndef VXPAD_WATCHED
#define VXPAD_WATCHED 0
#endif

// What is left when a process is meant to end is no leak; the library's blocks are counted here.
extern "C" const char* __asan_default_options() {
    return "detect_leaks=0";
}
extern "C" const char* __tsan_default_options() {
    // Hooks on the stack, one after the other in the same place, look like one lock: the other tests watch the order.
    return "die_after_fork=0:detect_deadlocks=0";
}

namespace faults {
namespace {

using standins::bus;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds longest_case{VXPAD_WATCHED != 0 ? 120 : 30}; // really, on a machine that does much else
constexpr std::int64_t longest_call_us = 60'000'000;                        // of virtual time
constexpr unsigned int most_of_one_line = 100;
constexpr unsigned int shown_findings = 4; // of one scenario

struct Options {
    std::vector<const Scenario*> chosen;
    std::optional<Plan> only;
    unsigned int every = 1; // which share of the cases
    unsigned int jobs = 1;
    bool verbose = false;
    bool without_locks = false; // a thread sanitizer rightly finds what a lock that fails does not prevent
};

// What a scenario's process and the one that watches it have in common.
struct Progress {
    std::atomic<unsigned int> next = 0; // case
    std::atomic<std::int64_t> since_ms = 0;
    std::array<std::atomic<unsigned int>, groups> counts = {};
    std::array<std::atomic<unsigned int>, families.size()> cases = {};
    std::atomic<unsigned int> missed = 0; // whose call was not made this time
    std::atomic<unsigned int> failed = 0;
    std::atomic<unsigned int> most_lines = 0;
    std::atomic<std::int64_t> longest_us = 0;
    std::atomic<bool> counted = false;
    std::atomic<bool> complete = false;
};

// What all scenarios have in common.
struct Totals {
    std::array<std::atomic<unsigned int>, families.size()> cases = {};
    std::atomic<unsigned int> scenarios = 0;
    std::atomic<unsigned int> missed = 0;
    std::atomic<unsigned int> failed = 0;
};

template <typename T> T& shared() {
    void* const room = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (room == MAP_FAILED) {
        std::perror("mmap");
        std::exit(2);
    }
    return *new (room) T;
}

std::int64_t now_ms() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now().time_since_epoch()).count();
}

int terminal = STDOUT_FILENO; // the library's own output goes elsewhere

[[gnu::format(printf, 1, 2)]] void tell(const char* format, ...) {
    char text[8192];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const auto bytes = static_cast<std::size_t>(std::clamp(length, 0, static_cast<int>(sizeof text) - 1));
    static_cast<void>(!write(terminal, text, bytes));
}

std::string text_of(const Plan& plan) {
    return plan.family == nullptr ? "none"
                                  : std::string(plan.family->name) + ":" + std::to_string(plan.call) + ":" +
                                        (plan.for_good ? "for-good" : "once");
}

std::optional<Plan> plan_of(std::string_view text) {
    const auto first = text.find(':');
    const auto second = text.find(':', first + 1);
    if (first == std::string_view::npos || second == std::string_view::npos) {
        return std::nullopt;
    }
    Plan plan;
    plan.family = find_family(text.substr(0, first));
    std::from_chars(text.data() + first + 1, text.data() + second, plan.call);
    plan.for_good = text.substr(second + 1) == "for-good";
    return plan.family == nullptr || plan.call == 0 ? std::nullopt : std::optional(plan);
}

// ---- what the library says
// -------------------------------------------------------------------------------------------

// Standard error, kept in memory.
class Errors {
  public:
    Errors() : file_{memfd_create("errors", MFD_CLOEXEC)} {}

    void take_over() const {
        dup2(file_, STDERR_FILENO);
        const int nowhere = memfd_create("output", MFD_CLOEXEC);
        dup2(nowhere, STDOUT_FILENO);
        close(nowhere);
    }
    void clear() const {
        std::fflush(nullptr);
        for (const int file : {STDOUT_FILENO, STDERR_FILENO}) {
            static_cast<void>(!ftruncate(file, 0));
            lseek(file, 0, SEEK_SET);
        }
    }
    std::string text() const {
        const auto size = std::clamp<off_t>(lseek(file_, 0, SEEK_END), 0, 10'000'000);
        std::string all(static_cast<std::size_t>(size), '\0');
        const ssize_t got = pread(file_, all.data(), all.size(), 0);
        all.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
        return all;
    }

  private:
    int file_;
};

// A line without colours, thread, time and numbers.
std::string kind_of(std::string_view line) {
    std::string kind;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '\x1b') {
            i = std::min(line.find('m', i), line.size() - 1);
        } else if (std::isdigit(static_cast<unsigned char>(line[i])) == 0) {
            kind += line[i];
        } else if (kind.empty() || kind.back() != '#') {
            kind += '#';
        }
    }
    return kind;
}

struct Lines {
    std::string most_said;
    unsigned int times = 0;
    std::string last;
    bool has_end_of_process = false; // the line with which it ends where there is no memory
};

bool is_end_of_process(std::string_view kind) {
    return kind.starts_with("error: ") && kind.find("alloc(): Cannot allocate memory") != std::string_view::npos;
}

Lines lines_of(std::string_view text) {
    std::map<std::string, unsigned int> times;
    Lines lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string kind = kind_of(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        if (kind.empty()) {
            continue;
        }
        lines.last = kind;
        lines.has_end_of_process = lines.has_end_of_process || is_end_of_process(kind);
        if (const unsigned int said = ++times[kind]; said > lines.times) {
            lines.times = said;
            lines.most_said = kind;
        }
    }
    return lines;
}

// ---- one case
// --------------------------------------------------------------------------------------------------------

std::size_t entries(const char* directory) {
    std::size_t count = 0;
    if (DIR* const open = opendir(directory)) {
        while (readdir(open) != nullptr) {
            ++count;
        }
        closedir(open);
    }
    return count;
}

// What a process has at rest.
struct Belongings {
    std::size_t threads = entries("/proc/self/task");
    std::size_t descriptors = entries("/proc/self/fd");
    std::size_t memory = blocks();

    // The last steps of a detached thread are not waited for by anybody.
    static Belongings at_rest(std::size_t threads) {
        const auto end = Clock::now() + std::chrono::seconds(5);
        while (entries("/proc/self/task") > threads && Clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
        return {};
    }
};

using Findings = std::vector<std::string>;

void look_for_leaks(Findings& findings, const Belongings& before) {
    const Belongings after = Belongings::at_rest(before.threads);
    const auto expect_same = [&](std::size_t now, std::size_t then, const char* what) {
        if (now != then) {
            findings.push_back(std::to_string(now) + " " + what + " in place of " + std::to_string(then));
        }
    };
    expect_same(after.threads, before.threads, "threads");
    expect_same(after.descriptors, before.descriptors, "descriptors");
    if (after.memory != before.memory && !keeps_queue()) {
        expect_same(after.memory, before.memory, "blocks of memory");
        findings.push_back("one was asked for at " + block_call());
    }
    const auto expect_none = [&](int count, const char* what) {
        if (count != 0) {
            findings.push_back(std::to_string(count) + " " + what);
        }
    };
    expect_none(locks_held(), "locks are held");
    expect_none(bus().open_handles(), "handles are open");
    expect_none(bus().open_lists(), "lists are not given back");
    expect_none(bus().usb_references(), "references to devices");
    for (const std::string& misuse : bus().misuses()) {
        findings.push_back(misuse);
    }
}

struct Outcome {
    Findings findings;
    std::vector<int> results;
    bool came = false;
    Lines lines;
    std::int64_t longest_us = 0;
    std::array<unsigned int, groups> counted = {};
};

Outcome go_through(const Scenario& scenario, const Plan& plan, const Errors& errors) {
    Outcome outcome;
    bus().reset();
    errors.clear();
    const Belongings before;
    {
        Run run(plan.family == nullptr);
        begin(plan);
        scenario.run(run);
        outcome.came = came_true();
        outcome.counted = counts();
        end();
        outcome.findings = run.findings();
        outcome.results = run.results();
        outcome.longest_us = run.longest_us();
        if (run.longest_us() > longest_call_us) {
            outcome.findings.push_back(run.longest_call() + " takes " + std::to_string(run.longest_us() / 1000) +
                                       " ms");
        }
    }
    look_for_leaks(outcome.findings, before);
    outcome.lines = lines_of(errors.text());
    // Each lock that fails says so.
    const bool one_each = plan.family != nullptr && plan.family->group == Group::locks && plan.for_good;
    if (outcome.lines.times > (one_each ? failed_calls() : 0) + most_of_one_line) {
        outcome.findings.push_back("says " + std::to_string(outcome.lines.times) +
                                   " times: " + outcome.lines.most_said);
    }
    return outcome;
}

void expect_life(Outcome& outcome) {
    bus().reset();
    const Belongings before;
    begin({});
    Run run(true);
    live_on(run);
    end();
    outcome.findings.insert(outcome.findings.end(), run.findings().begin(), run.findings().end());
    look_for_leaks(outcome.findings, before);
}

// ---- a process that is meant to end
// ----------------------------------------------------------------------------------

constexpr int went_on = 77;
constexpr int misused = 78;

// Where memory is refused for good the process ends with its line.
Outcome go_to_the_end(const Scenario& scenario, const Plan& plan, const Errors& errors) {
    Outcome outcome;
    bus().reset();
    errors.clear();
    const pid_t child = fork();
    if (child == 0) {
        std::atexit([] {
            if (!bus().misuses().empty()) {
                _exit(misused);
            }
        });
        begin(plan);
        Run run(false);
        scenario.run(run);
        if (came_true()) { // another thread may be about to end the process
            std::this_thread::sleep_for(longest_case / 4);
        }
        _exit(came_true() ? went_on : 0);
    }
    int status = 0;
    const auto end = Clock::now() + longest_case / 2;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (Clock::now() > end) {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            outcome.findings.emplace_back("hangs as it ends");
            return outcome;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    outcome.lines = lines_of(errors.text());
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        return outcome; // the call was not made
    }
    outcome.came = true;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 1) {
        outcome.findings.push_back("ends with the status " + std::to_string(status));
    }
    if (!outcome.lines.has_end_of_process) { // behind it another thread may still say something
        outcome.findings.push_back("ends with the line: " + outcome.lines.last);
    }
    return outcome;
}

// ---- a scenario's process
// --------------------------------------------------------------------------------------------

std::string command_for(const Scenario& scenario, const Plan& plan) {
    return std::string("vxpad-failing-calls --scenario ") + scenario.name + " --case " + text_of(plan);
}

class Worker {
  public:
    Worker(const Scenario& scenario, const Options& options, Progress& progress, const Errors& errors)
        : scenario_{scenario}, options_{options}, progress_{progress}, errors_{errors} {}

    void work() {
        errors_.take_over();
        if (const auto unknown = install()) {
            tell("FAILED: the library calls what this program does not know: %s\n", unknown->c_str());
            ++progress_.failed;
            return;
        }
        note_start();
        std::thread([] {}).join(); // a sanitizer's own thread comes with the first one
        Outcome healthy = go_through(scenario_, {}, errors_);
        expect_life(healthy);
        if (!progress_.counted) {
            if (!healthy.findings.empty()) {
                tell_of({}, healthy);
                return;
            }
            std::copy(healthy.counted.begin(), healthy.counted.end(), progress_.counts.begin());
            progress_.counted = true;
        }
        usual_ = healthy.results;
        const std::vector<Plan> plans = chosen_plans();
        while (progress_.next < plans.size()) {
            go(plans[progress_.next]);
            ++progress_.next;
        }
        progress_.complete = true;
    }

    // Which cases there are follows from the first count alone, so that a second process goes on where one has died.
    std::vector<Plan> chosen_plans() const {
        if (options_.only) {
            return {*options_.only};
        }
        std::vector<Plan> plans;
        unsigned int number = static_cast<unsigned int>(std::strlen(scenario_.name));
        for (const Family& family : families) {
            if (options_.without_locks && family.group == Group::locks) {
                continue;
            }
            const unsigned int calls = progress_.counts[static_cast<std::size_t>(family.group)];
            for (unsigned int call = 1; call <= calls; ++call) {
                for (const bool for_good : {false, true}) {
                    if (number++ % options_.every == 0) {
                        plans.push_back({&family, call, for_good});
                    }
                }
            }
        }
        return plans;
    }

    void tell_of(const Plan& plan, const Outcome& outcome) {
        if (++progress_.failed <= shown_findings) {
            for (const std::string& finding : outcome.findings) {
                tell("FAILED: %s %s: %s\n", scenario_.name, text_of(plan).c_str(), finding.c_str());
            }
            tell("        again: %s\n", command_for(scenario_, plan).c_str());
        }
    }

  private:
    void note_start() { progress_.since_ms = now_ms(); }

    void go(const Plan& plan) {
        note_start();
        const bool ends = plan.family->group == Group::memory && plan.for_good;
        Outcome outcome = ends ? go_to_the_end(scenario_, plan, errors_) : go_through(scenario_, plan, errors_);
        if (!ends) {
            expect_life(outcome);
            // Memory that is refused once is asked for again, and nobody notices.
            if (plan.family->group == Group::memory && outcome.results != usual_) {
                outcome.findings.emplace_back("a refused block of memory changes the results");
            }
        }
        ++progress_.cases[static_cast<std::size_t>(plan.family - families.data())];
        if (!outcome.came) {
            ++progress_.missed;
        }
        progress_.most_lines = std::max(progress_.most_lines.load(), outcome.lines.times);
        progress_.longest_us = std::max(progress_.longest_us.load(), outcome.longest_us);
        if (options_.verbose) {
            tell("%s %s: %u times %s; %lld ms\n", scenario_.name, text_of(plan).c_str(), outcome.lines.times,
                 outcome.lines.most_said.c_str(), static_cast<long long>(outcome.longest_us / 1000));
        }
        if (!outcome.findings.empty()) {
            tell_of(plan, outcome);
            if (options_.only) {
                tell("%s", errors_.text().c_str());
            }
        }
    }

    const Scenario& scenario_;
    const Options& options_;
    Progress& progress_;
    const Errors& errors_;
    std::vector<int> usual_;
};

double cpu_seconds() {
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// The status with which the process of a scenario ended, or nothing where it hung.
std::optional<int> watch(pid_t worker, const Progress& progress) {
    int status = 0;
    while (waitpid(worker, &status, WNOHANG) == 0) {
        if (now_ms() - progress.since_ms > std::chrono::milliseconds(longest_case).count()) {
            kill(worker, SIGKILL);
            waitpid(worker, &status, 0);
            return std::nullopt;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return status;
}

void go_through_all(const Scenario& scenario, const Options& options, Totals& totals) {
    Progress& progress = shared<Progress>();
    const Errors errors;
    const double before = cpu_seconds();
    constexpr unsigned int most_deaths = 20;
    for (unsigned int deaths = 0; !progress.complete && deaths < most_deaths;) {
        progress.since_ms = now_ms();
        Worker worker(scenario, options, progress, errors);
        const pid_t process = fork();
        if (process == 0) {
            worker.work();
            _exit(0);
        }
        const auto status = watch(process, progress);
        if (progress.complete || (status && *status == 0)) {
            break; // with all cases, or with one that must not fail
        }
        ++deaths;
        ++progress.failed;
        const auto plans = worker.chosen_plans();
        const Plan plan = progress.counted && progress.next < plans.size() ? plans[progress.next] : Plan{};
        tell("FAILED: %s %s: %s\n        again: %s\n%.3000s\n", scenario.name, text_of(plan).c_str(),
             !status ? "hangs" : ("dies with the status " + std::to_string(*status)).c_str(),
             command_for(scenario, plan).c_str(), errors.text().c_str());
        if (!progress.counted) {
            break;
        }
        ++progress.next;
    }
    unsigned int cases = 0;
    for (std::size_t i = 0; i < families.size(); ++i) {
        cases += progress.cases[i];
        totals.cases[i] += progress.cases[i];
    }
    std::string counted;
    for (const auto& count : progress.counts) {
        char text[16];
        std::snprintf(text, sizeof text, "%6u", count.load());
        counted += text;
    }
    tell("%-27s%s %7u %6u %6u %6.1f %7.1f %5u\n", scenario.name, counted.c_str(), cases, progress.missed.load(),
         progress.failed.load(), cpu_seconds() - before, static_cast<double>(progress.longest_us) / 1e6,
         progress.most_lines.load());
    totals.missed += progress.missed;
    totals.failed += progress.failed;
    ++totals.scenarios;
    if (!progress.complete) {
        ++totals.failed;
    }
}

int run_all(const Options& options) {
    Totals& totals = shared<Totals>();
    tell("%-27s%6s%6s%6s%6s%6s%6s%6s%6s %7s %6s %6s %6s %7s %5s\n", "scenario", "hid", "usb", "memory", "thread",
         "locks", "files", "clock", "pause", "cases", "missed", "failed", "CPU s", "wait s", "lines");
    std::vector<pid_t> lanes;
    const auto jobs = std::min<std::size_t>(options.jobs, options.chosen.size());
    for (std::size_t lane = 0; lane < jobs; ++lane) {
        const pid_t process = fork();
        if (process == 0) {
            for (std::size_t i = lane; i < options.chosen.size(); i += jobs) {
                go_through_all(*options.chosen[i], options, totals);
            }
            _exit(0);
        }
        lanes.push_back(process);
    }
    bool all_ended = true;
    for (const pid_t lane : lanes) {
        int status = 0;
        all_ended = waitpid(lane, &status, 0) == lane && status == 0 && all_ended;
    }
    unsigned int cases = 0;
    std::string by_family;
    for (std::size_t i = 0; i < families.size(); ++i) {
        cases += totals.cases[i];
        by_family += (i == 0 ? "" : ", ") + std::string(families[i].name) + " " + std::to_string(totals.cases[i]);
    }
    tell("%u scenarios, %u cases (%s), %u of them without the call, %u failed, %.0f s of processor time\n",
         totals.scenarios.load(), cases, by_family.c_str(), totals.missed.load(), totals.failed.load(), cpu_seconds());
    return all_ended && totals.failed == 0 && totals.scenarios == options.chosen.size() ? 0 : 1;
}

const char usage[] = "Usage: vxpad-failing-calls [OPTION...]\n"
                     "  --list                 the scenarios\n"
                     "  --scenario NAME        this one only, also several times\n"
                     "  --case FAMILY:N:MODE   this case only; MODE is once or for-good\n"
                     "  --every N              every N-th case only\n"
                     "  --jobs N               scenarios side by side\n"
                     "  --without-locks        no lock fails\n"
                     "  --verbose              a line for each case\n";

std::optional<Options> options_of(const std::vector<std::string>& arguments) {
    Options options;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& name = arguments[i];
        if (name == "--verbose") {
            options.verbose = true;
        } else if (name == "--without-locks") {
            options.without_locks = true;
        } else if (++i == arguments.size()) {
            return std::nullopt;
        } else if (name == "--scenario") {
            const auto& all = scenarios();
            const auto found =
                std::find_if(all.begin(), all.end(), [&](const Scenario& one) { return arguments[i] == one.name; });
            if (found == all.end()) {
                return std::nullopt;
            }
            options.chosen.push_back(&*found);
        } else if (name == "--case") {
            options.only = plan_of(arguments[i]);
            if (!options.only) {
                return std::nullopt;
            }
        } else if (name == "--every" || name == "--jobs") {
            const int number = std::atoi(arguments[i].c_str());
            if (number < 1) {
                return std::nullopt;
            }
            (name == "--every" ? options.every : options.jobs) = static_cast<unsigned int>(number);
        } else {
            return std::nullopt;
        }
    }
    if (options.chosen.empty()) {
        for (const Scenario& scenario : scenarios()) {
            options.chosen.push_back(&scenario);
        }
    }
    return options;
}

} // namespace
} // namespace faults

int main(int count, char** arguments) {
    const std::vector<std::string> given(arguments + 1, arguments + count);
    if (given == std::vector<std::string>{"--list"}) {
        for (const faults::Scenario& scenario : faults::scenarios()) {
            std::puts(scenario.name);
        }
        return 0;
    }
    const auto options = faults::options_of(given);
    if (!options) {
        std::fputs(faults::usage, stderr);
        return 2;
    }
    faults::terminal = dup(STDOUT_FILENO);
    return faults::run_all(*options);
}
