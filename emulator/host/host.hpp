// A way of plugging the pads of a bus in.
#pragma once

#include "host/surroundings.hpp"

#include <string>

namespace emulator {

class Host {
  public:
    Host() = default;
    virtual ~Host() = default;
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    // What a program needs to see the pads. Throws std::runtime_error when something is missing.
    virtual Surroundings surroundings() const = 0;

    virtual std::string where() const = 0; // the pads are, for people

    // Whether everybody sees what has been plugged in and pulled out.
    virtual bool is_settled() { return true; }
};

} // namespace emulator
