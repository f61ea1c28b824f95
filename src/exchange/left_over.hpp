// What is left over from earlier questions, so that it is not taken for the answer to a later one.
#pragma once

#include "exchange/message_sorter.hpp"
#include "exchange/stream_table.hpp"
#include "support/trace.hpp"
#include "vxpadcom/internals/record.h"

#include <cstdint>

namespace left_over {

// So many questions are preceded by a look at what waits, once a pad has sent what nobody had asked for.
constexpr std::uint8_t on_guard = 8;

// Something may wait on the pad that answers an earlier question: it is taken in before the next one is put.
void expect_left_over(vx_device& device);

// Takes it in now, pen data into its queue. True where answers were dropped.
bool absorb(const trace::Location& where, vx_device& device);

constexpr int longest_absorbing_ms = 100;

// What was sent has no answer yet.
void expect_report(vx_device& device);
void expect_reply(vx_device& device);

// How long a report that is due is waited for: several times the slowest so far, at most longest_report_wait_ms.
int patience_ms(const vx_device& device);

// Before a question is put: nothing that waits may be taken for its answer. True where it was looked for.
bool make_way(const trace::Location& where, vx_device& device);

// Takes in what waits on the pad already, with one short read.
enum class Look { found_nothing, found_something, failed };
Look look_once(vx_device& device, const stream_table::Table& stream, MessageSorter& sorter);

} // namespace left_over
