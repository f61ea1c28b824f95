// What is left over from earlier questions, so that it is not taken for the answer to a later one.
#pragma once

#include "support/trace.hpp"

#include <cstdint>

namespace ssp_engine {

// So many questions are preceded by a look at what waits, once a pad has sent what nobody had asked for.
constexpr std::uint8_t on_guard = 8;

// Something may wait on the pad that answers an earlier question: it is taken in before the next one is put.
void expect_left_over(vx_device& device);

// Takes it in now, pen data into its queue. True where answers were dropped.
bool absorb(trace::Location where, vx_device& device);

} // namespace ssp_engine
