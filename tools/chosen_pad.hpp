// The pad and the interface that a command is for.
#pragma once

#include "arguments.hpp"
#include "library.hpp"

#include <cstddef>
#include <string>

namespace vxpadctl {

// What to tell people who miss a pad; empty where there is nothing to explain.
struct MissingPads {
    std::size_t on_bus; // pads that are plugged in, whether they can be used or not
    std::string explanation;
};
MissingPads look_for_missing_pads(const Session& session);

// Throw std::runtime_error unless there is such a pad, and such an interface of it.
void expect_pad(const Session& session, const Arguments& arguments);
void expect_interface(const Session& session, const Arguments& arguments);

} // namespace vxpadctl
