// All that can be found out about the pads of this machine, and how it is told.
#pragma once

#include "findings.hpp"
#include "kernel_log.hpp"
#include "pad_question.hpp"

#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace vxpadctl {

struct Examined {
    unsigned int number = 0; // among the pads on the bus
    Look look = {};
    std::optional<PadAnswer> answer = {};
    std::vector<std::string> kernel_messages = {};
    Finding finding = Finding::well;
    std::string advice = {};
};

struct Examination {
    std::vector<std::pair<std::string, std::string>> versions; // name, version
    Surroundings around;
    User user;
    std::string kernel_log_trouble;
    std::vector<Examined> pads;
    std::vector<std::string> left_out; // lines of ids that make no sense, as complaints

    bool is_well() const; // there is a pad, and nothing is wrong with any
};

// Names the twins among pads that are well otherwise.
void find_twins(std::span<Examined> pads, const Surroundings& around);

std::string examination_text(const Examination& examination);
std::string examination_json(const Examination& examination);

// What is masked in texts that are sent to others: a secret and what stands there instead.
using Masks = std::vector<std::pair<std::string, std::string>>;
Masks masks_of(const Examination& examination, const std::string& home, const std::string& user);

// Secrets of fewer than three characters stay: they are in everything. Names are masked as whole words.
std::string masked(std::string text, const Masks& masks);

// "…42 (6 characters)"
std::string masked_serial(const std::string& serial);

} // namespace vxpadctl
