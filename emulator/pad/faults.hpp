// Scripted faults of one pad: which transfers go wrong, how and how often.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace emulator {

// What faults may strike: transfers, and the messages that the pad puts into its stream.
enum class TransferKind { get_feature, set_feature, input, bulk_in, bulk_out, string, descriptor, other, reply, pen };

using TransferSet = unsigned int;
constexpr TransferSet set_of(TransferKind kind) {
    return 1U << static_cast<unsigned int>(kind);
}

enum class FaultKind {
    stall,
    silence,
    garbage,
    short_reply,
    delay,
    wrong_command,
    status,
    unplug,
    // of messages
    split,
    merge,
    delay_reply,
    twice,
    drop,
    wrong_component,
    wrong_result,
    noise,
    cut,
    replace,
    junk,
};

struct Fault {
    FaultKind kind{};
    unsigned long parameter = 0;     // bytes, milliseconds, status code
    std::vector<std::uint8_t> bytes; // what takes a reply's place
    TransferSet on = 0;
    unsigned long after = 0;           // matching transfers still to be let through
    std::optional<unsigned long> left; // how often it still strikes; nothing: for ever
    std::minstd_rand random;
};

// "stall,on=get-feature,count=3,after=1"; throws std::invalid_argument.
Fault parse_fault(std::string_view text);

// How a kind of fault is written, and what it does.
struct FaultUsage {
    std::string_view name;
    std::string_view parameters; // behind the name
    std::string_view does;
};

std::vector<FaultUsage> fault_usages(bool of_messages);

// What "on=" takes.
std::vector<std::string_view> fault_targets(bool of_messages);

// The keys that may stand behind a kind.
std::vector<std::string_view> fault_keys();

// What all faults that strike one transfer do to it together.
struct Verdict {
    bool unplug = false;
    bool silence = false;
    bool stall = false;
    std::chrono::milliseconds delay{0};
    std::vector<Fault*> alterations; // valid until the next change of the list

    void alter(std::vector<std::uint8_t>& data) const; // of a transfer; messages look at the alterations themselves
};

class FaultList {
  public:
    void add(Fault fault) { faults_.push_back(std::move(fault)); }
    void clear() { faults_.clear(); }
    bool empty() const { return faults_.empty(); }

    Verdict judge(TransferKind transfer); // counts the transfer

  private:
    std::vector<Fault> faults_;
};

} // namespace emulator
