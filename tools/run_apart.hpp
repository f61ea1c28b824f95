// Work that may hang, each piece in a process of its own.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace vxpadctl {

struct ApartWork {
    std::function<std::string()> work;       // its result goes to this process
    std::function<bool()> is_moot = nullptr; // true ends it before its time
};

struct Patience {
    std::chrono::milliseconds longest;
    std::chrono::milliseconds between_tellings;
};

// All at once. Nothing comes out of a piece that was ended, or that ended without a result. tell() hears again and
// again which pieces are still waited for, and for how long. To be called while this process has one thread.
std::vector<std::optional<std::string>>
run_apart(std::span<const ApartWork> pieces, Patience patience,
          const std::function<void(std::span<const std::size_t> waited_for, std::chrono::milliseconds)>& tell);

} // namespace vxpadctl
