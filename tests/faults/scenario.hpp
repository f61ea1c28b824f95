// What an application does with the library, to be gone through with every call failing.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

namespace faults {

// What a scenario tells of its way: each call of the library goes through api() or core(), which return its result.
class Run {
  public:
    explicit Run(bool healthy) : healthy_{healthy} {}

    bool is_healthy() const { return healthy_; }

    // An exported function that returns 0 or the handle of a record with one of these codes.
    int api(const char* function, int result, std::initializer_list<int> codes);
    int api(const char* function, int result);
    // 0, or -1 with a record whose code is VXPCEC_UNKNOWN behind it.
    int receiving(int result);
    // A building block: not negative, or a code of failures.
    int core(const char* function, int result);
    // An answer, whatever it is.
    int plain(const char* function, int result);

    // What holds whatever has failed.
    void expect(bool holds, const std::string& what);
    // What holds where nothing has failed: that the scenario does what its name says.
    void expect_healthy(bool holds, const char* what);

    const std::vector<int>& results() const { return results_; }
    const std::vector<std::string>& findings() const { return findings_; }
    std::int64_t longest_us() const { return longest_us_; }
    const std::string& longest_call() const { return longest_call_; }

  private:
    void note(const char* function, int result);
    void expect_record(const char* function, int handle, std::initializer_list<int> codes);

    bool healthy_;
    std::vector<int> results_;
    std::vector<std::string> findings_;
    std::int64_t before_us_ = 0;
    std::int64_t longest_us_ = 0;
    std::string longest_call_;
};

struct Scenario {
    const char* name;
    void (*run)(Run&);
};

const std::vector<Scenario>& scenarios();

// A start, transfers with pads of both transports, receiving and a stop: all is well again.
void live_on(Run&);

} // namespace faults
