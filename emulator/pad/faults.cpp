#include "pad/faults.hpp"

#include "base/text.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <stdexcept>
#include <string>

namespace emulator {

namespace {

constexpr TransferSet messages = set_of(TransferKind::reply) | set_of(TransferKind::pen);
constexpr TransferSet transfers = ~messages;
constexpr TransferSet bulk = set_of(TransferKind::bulk_in) | set_of(TransferKind::bulk_out);

enum class Parameter { none, number, bytes };

struct KindName {
    std::string_view name;
    FaultKind kind;
    Parameter parameter;
    unsigned long lowest;
    unsigned long highest;
    TransferSet strikes;
    std::string_view parameters; // as the help shows them
    std::string_view does;
};

constexpr std::array<KindName, 19> kind_names{{
    {"stall", FaultKind::stall, Parameter::none, 0, 0, transfers, "", "the pad refuses the transfer"},
    {"silence", FaultKind::silence, Parameter::none, 0, 0, transfers, "", "the pad never answers"},
    {"garbage", FaultKind::garbage, Parameter::none, 0, 0, transfers, "[,seed=S]", "random bytes"},
    {"short", FaultKind::short_reply, Parameter::number, 0, 65535, transfers, "=BYTES", "cut off after so many bytes"},
    {"delay", FaultKind::delay, Parameter::number, 0, 3600000, transfers, "=MILLISECONDS", "comes late"},
    {"wrong-command", FaultKind::wrong_command, Parameter::none, 0, 0, transfers, "", "first byte is one too high"},
    {"status", FaultKind::status, Parameter::number, 0, 255, transfers, "=CODE", "second byte is CODE"},
    {"unplug", FaultKind::unplug, Parameter::none, 0, 0, transfers, "", "the pad is pulled out"},
    {"split", FaultKind::split, Parameter::number, 1, 65535, messages, "=BYTES",
     "comes in pieces of at most so many bytes, each in a packet or report of its own"},
    {"merge", FaultKind::merge, Parameter::none, 0, 0, messages, "",
     "waits and comes in one piece with the next bytes"},
    {"delay-reply", FaultKind::delay_reply, Parameter::number, 0, 3600000, messages, "=MILLISECONDS",
     "comes late; later messages may overtake it"},
    {"twice", FaultKind::twice, Parameter::none, 0, 0, messages, "", "comes a second time"},
    {"drop", FaultKind::drop, Parameter::none, 0, 0, messages, "", "does not come"},
    {"wrong-component", FaultKind::wrong_component, Parameter::none, 0, 0, messages, "",
     "component id is one too high; what is no base message looks like one"},
    {"wrong-result", FaultKind::wrong_result, Parameter::none, 0, 0, messages, "",
     "result is one too high; of a carried report the second byte"},
    {"noise", FaultKind::noise, Parameter::number, 1, 65535, messages, "=BYTES[,seed=S]",
     "so many random bytes before its token"},
    {"cut", FaultKind::cut, Parameter::number, 0, 1000000, messages, "=BYTES",
     "its part of the stream is cut off after so many bytes"},
    {"replace", FaultKind::replace, Parameter::bytes, 0, 0, messages, "=HEX", "another message comes instead"},
    {"junk", FaultKind::junk, Parameter::none, 0, 0, messages, "[,seed=S]",
     "from here on, until the pad is unplugged, only random bytes without a token come"},
}};

struct TransferName {
    std::string_view name;
    TransferSet kinds;
};

constexpr std::array<TransferName, 11> transfer_names{{
    {"get-feature", set_of(TransferKind::get_feature)},
    {"set-feature", set_of(TransferKind::set_feature)},
    {"input", set_of(TransferKind::input)},
    {"bulk-in", set_of(TransferKind::bulk_in)},
    {"bulk-out", set_of(TransferKind::bulk_out)},
    {"bulk", bulk},
    {"string", set_of(TransferKind::string)},
    {"descriptor", set_of(TransferKind::descriptor)},
    {"any", transfers},
    {"ssp", set_of(TransferKind::reply)},
    {"pen", set_of(TransferKind::pen)},
}};

// Finds a table's entry by its name.
template <typename Table> const auto& entry(const Table& table, std::string_view name, std::string_view what) {
    const auto found = std::ranges::find_if(table, [&](const auto& e) { return e.name == name; });
    if (found != table.end()) {
        return *found;
    }
    std::string names;
    for (const auto& e : table) {
        names += (names.empty() ? "" : ", ") + std::string{e.name};
    }
    throw std::invalid_argument("unknown " + std::string{what} + " '" + std::string{name} + "'; there are " + names);
}

constexpr unsigned long most = 1000000000;

constexpr std::array<std::string_view, 4> keys{"on", "count", "after", "seed"};

} // namespace

std::vector<FaultUsage> fault_usages(bool of_messages) {
    std::vector<FaultUsage> usages;
    for (const auto& kind : kind_names) {
        if ((kind.strikes == messages) == of_messages) {
            usages.push_back({kind.name, kind.parameters, kind.does});
        }
    }
    return usages;
}

std::vector<std::string_view> fault_targets(bool of_messages) {
    std::vector<std::string_view> names;
    for (const auto& target : transfer_names) {
        if (((target.kinds & messages) != 0) == of_messages) {
            names.push_back(target.name);
        }
    }
    return names;
}

std::vector<std::string_view> fault_keys() {
    return {keys.begin(), keys.end()};
}

Fault parse_fault(std::string_view text) {
    const auto list = parse_list(text);
    if (list.empty()) {
        throw std::invalid_argument("a fault begins with its kind: stall, silence, ...");
    }
    const auto& kind = entry(kind_names, list.front().first, "fault");
    Fault fault;
    fault.kind = kind.kind;
    fault.on = kind.strikes == messages ? set_of(TransferKind::reply) : kind.strikes;
    const bool has_seed =
        fault.kind == FaultKind::garbage || fault.kind == FaultKind::noise || fault.kind == FaultKind::junk;
    unsigned long seed = 0;
    if (kind.parameter == Parameter::number) {
        fault.parameter = parse_number(list.front().second, 10, kind.lowest, kind.highest);
    } else if (kind.parameter == Parameter::bytes) {
        fault.bytes = parse_hex(list.front().second);
    } else if (!list.front().second.empty()) {
        throw std::invalid_argument(std::string{kind.name} + " takes no value");
    }
    for (std::size_t i = 1; i < list.size(); ++i) {
        const auto& [key, value] = list[i];
        if (key == "on") {
            fault.on = entry(transfer_names, value, "transfer").kinds;
        } else if (key == "count") {
            fault.left = parse_number(value, 10, 1, most);
        } else if (key == "after") {
            fault.after = parse_number(value, 10, 0, most);
        } else if (key == "seed" && has_seed) {
            seed = parse_number(value, 10, 0, most);
        } else {
            throw std::invalid_argument("unknown key '" + key +
                                        "'; there are on, count, after, and seed of random bytes");
        }
    }
    if ((fault.on & kind.strikes) != fault.on) {
        throw std::invalid_argument(std::string{kind.name} + " cannot strike there");
    }
    fault.random.seed(static_cast<std::minstd_rand::result_type>(seed + 1));
    return fault;
}

void Verdict::alter(std::vector<std::uint8_t>& data) const {
    for (auto* fault : alterations) {
        if (fault->kind == FaultKind::short_reply) {
            data.resize(std::min<std::size_t>(data.size(), fault->parameter));
        } else if (fault->kind == FaultKind::garbage) {
            std::ranges::generate(data, [&] { return static_cast<std::uint8_t>(fault->random() >> 8); });
        } else if (fault->kind == FaultKind::wrong_command && !data.empty()) {
            ++data[0];
        } else if (fault->kind == FaultKind::status && data.size() > 1) {
            data[1] = static_cast<std::uint8_t>(fault->parameter);
        }
    }
}

Verdict FaultList::judge(TransferKind transfer) {
    std::erase_if(faults_, [](const Fault& fault) { return fault.left == 0UL; });
    Verdict verdict;
    for (auto& fault : faults_) {
        if ((fault.on & set_of(transfer)) == 0) {
            continue;
        }
        if (fault.after > 0) {
            --fault.after;
            continue;
        }
        if (fault.left) {
            --*fault.left;
        }
        switch (fault.kind) {
        case FaultKind::unplug:
            verdict.unplug = true;
            break;
        case FaultKind::silence:
            verdict.silence = true;
            break;
        case FaultKind::stall:
            verdict.stall = true;
            break;
        case FaultKind::delay:
            verdict.delay += std::chrono::milliseconds(fault.parameter);
            break;
        default:
            verdict.alterations.push_back(&fault);
            break;
        }
    }
    return verdict;
}

} // namespace emulator
