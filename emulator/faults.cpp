#include "faults.hpp"

#include "text.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace emulator {

namespace {

enum class Parameter { none, required };

struct KindName {
    std::string_view name;
    FaultKind kind;
    Parameter parameter;
    unsigned long highest;
};

constexpr std::array<KindName, 8> kind_names{{
    {"stall", FaultKind::stall, Parameter::none, 0},
    {"silence", FaultKind::silence, Parameter::none, 0},
    {"garbage", FaultKind::garbage, Parameter::none, 0},
    {"short", FaultKind::short_reply, Parameter::required, 65535},
    {"delay", FaultKind::delay, Parameter::required, 3600000},
    {"wrong-command", FaultKind::wrong_command, Parameter::none, 0},
    {"status", FaultKind::status, Parameter::required, 255},
    {"unplug", FaultKind::unplug, Parameter::none, 0},
}};

struct TransferName {
    std::string_view name;
    std::optional<TransferKind> kind;
};

constexpr std::array<TransferName, 6> transfer_names{{
    {"get-feature", TransferKind::get_feature},
    {"set-feature", TransferKind::set_feature},
    {"input", TransferKind::input},
    {"string", TransferKind::string},
    {"descriptor", TransferKind::descriptor},
    {"any", std::nullopt},
}};

// Finds a table's entry by its name.
template <typename Table> const auto& entry(const Table& table, std::string_view name, std::string_view what) {
    const auto found = std::ranges::find_if(table, [&](const auto& e) { return e.name == name; });
    if (found != table.end())
        return *found;
    std::string names;
    for (const auto& e : table)
        names += (names.empty() ? "" : ", ") + std::string(e.name);
    throw std::invalid_argument("unknown " + std::string(what) + " '" + std::string(name) + "'; there are " + names);
}

constexpr unsigned long most = 1000000000;

} // namespace

Fault parse_fault(std::string_view text) {
    const auto list = parse_list(text);
    if (list.empty())
        throw std::invalid_argument("a fault begins with its kind: stall, silence, ...");
    const auto& kind = entry(kind_names, list.front().first, "fault");
    Fault fault;
    fault.kind = kind.kind;
    if (kind.parameter == Parameter::required)
        fault.parameter = parse_number(list.front().second, 10, 0, kind.highest);
    else if (!list.front().second.empty())
        throw std::invalid_argument(std::string(kind.name) + " takes no value");
    for (std::size_t i = 1; i < list.size(); ++i) {
        const auto& [key, value] = list[i];
        if (key == "on")
            fault.on = entry(transfer_names, value, "transfer").kind;
        else if (key == "count")
            fault.left = parse_number(value, 10, 1, most);
        else if (key == "after")
            fault.after = parse_number(value, 10, 0, most);
        else if (key == "seed" && fault.kind == FaultKind::garbage)
            fault.parameter = parse_number(value, 10, 0, most);
        else
            throw std::invalid_argument("unknown key '" + key + "'; there are on, count, after, and seed of garbage");
    }
    fault.random.seed(static_cast<std::minstd_rand::result_type>(fault.parameter + 1));
    return fault;
}

void Verdict::alter(std::vector<std::uint8_t>& data) const {
    for (auto* fault : alterations) {
        if (fault->kind == FaultKind::short_reply)
            data.resize(std::min<std::size_t>(data.size(), fault->parameter));
        else if (fault->kind == FaultKind::garbage)
            std::ranges::generate(data, [&] { return static_cast<std::uint8_t>(fault->random() >> 8); });
        else if (fault->kind == FaultKind::wrong_command && !data.empty())
            ++data[0];
        else if (fault->kind == FaultKind::status && data.size() > 1)
            data[1] = static_cast<std::uint8_t>(fault->parameter);
    }
}

Verdict FaultList::judge(TransferKind transfer) {
    std::erase_if(faults_, [](const Fault& fault) { return fault.left == 0UL; });
    Verdict verdict;
    for (auto& fault : faults_) {
        if (fault.on && fault.on != transfer)
            continue;
        if (fault.after > 0) {
            --fault.after;
            continue;
        }
        if (fault.left)
            --*fault.left;
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
        case FaultKind::garbage:
        case FaultKind::short_reply:
        case FaultKind::wrong_command:
        case FaultKind::status:
            verdict.alterations.push_back(&fault);
            break;
        }
    }
    return verdict;
}

} // namespace emulator
