#include "search_watch.hpp"

#include "messages.hpp"
#include "pad_holders.hpp"

#include <cstddef>
#include <iostream>

namespace vxpadctl {

namespace {

constexpr std::chrono::seconds first_telling{2};
constexpr std::chrono::seconds between_tellings{5};
constexpr std::chrono::milliseconds first_look{300}; // healthy pads are found by then
constexpr std::chrono::milliseconds between_looks{100};

} // namespace

std::optional<std::chrono::seconds> WaitingTime::see(std::size_t pad, Clock::time_point now) {
    if (pad_ != pad) {
        pad_ = pad;
        since_ = now;
        next_ = now + first_telling;
    }
    if (now < next_) {
        return std::nullopt;
    }
    next_ = now + between_tellings;
    return std::chrono::duration_cast<std::chrono::seconds>(now - since_);
}

SearchWatch::SearchWatch(const PadsBefore& pads) : pads_{pads} {
    if (!pads.on_bus.empty()) {
        thread_ = std::thread([this] { watch(); });
    }
}

SearchWatch::~SearchWatch() {
    {
        const std::lock_guard lock{mutex_};
        ended_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void SearchWatch::watch() {
    WaitingTime time;
    std::unique_lock lock{mutex_};
    for (auto pause = first_look; !changed_.wait_for(lock, pause, [&] { return ended_; }); pause = between_looks) {
        for (std::size_t i = 0; i < pads_.on_bus.size(); ++i) {
            if (!is_open_here(pads_.on_bus[i])) {
                continue;
            }
            if (const auto seconds = time.see(i, WaitingTime::Clock::now())) {
                std::cerr << "vxpadctl: " +
                                 say(Message::waiting, {name_of(pads_.on_bus[i]), std::to_string(seconds->count())}) +
                                 "\n";
            }
        }
    }
}

} // namespace vxpadctl
