// Replies that are lists (of a pad's components, of its signpad's modes), and the record's tables that are filled from
// them. What they list is addressed by its position.
#pragma once

#include "commands/component_link.hpp"
#include "support/result.hpp"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <span>

namespace list_reply {

// The lists differ in their entries and in what they are called in texts.
struct Kind {
    unsigned char message_id;
    std::size_t entry_size;
    const char* wrong_id;     // with the id found and the id wanted
    const char* wrong_result; // with the result found
    const char* result_suffix;
    const char* wrong_count; // with the count found
    const char* failure;     // with the count found
};

// Whether a list is in order; says what is not.
bool expect_list(const trace::Location& where, const component_link::Reply& reply, const Kind& kind);

// The whole entries that really came of a list in order: one at least.
std::span<const unsigned char> entries(const component_link::Reply& reply, const Kind& kind);

template <typename Entry, std::size_t size> bool is_empty(const Entry (&table)[size]) {
    return std::all_of(std::begin(table), std::end(table), [](Entry entry) { return entry == 0; });
}

template <typename Entry> int position_in(std::span<const Entry> table, int value) {
    const auto found =
        std::find_if(table.begin(), table.end(), [=](Entry entry) { return std::int64_t{entry} == value; });
    return found == table.end() ? result::no_such : static_cast<int>(found - table.begin());
}

} // namespace list_reply
