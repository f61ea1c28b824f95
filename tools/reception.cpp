#include "reception.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vxpadcom/vxpadcom.h>

namespace vxpadctl {

namespace {

using Clock = std::chrono::steady_clock;

} // namespace

void Inbox::put(Packet packet) {
    const std::lock_guard lock{mutex_};
    packets_.push_back(std::move(packet));
    changed_.notify_one();
}

void Inbox::tell_pad_gone() {
    const std::lock_guard lock{mutex_};
    pad_gone_ = true;
    changed_.notify_one();
}

std::vector<Packet> Inbox::take(std::chrono::milliseconds patience) {
    std::unique_lock lock{mutex_};
    changed_.wait_for(lock, patience, [&] { return !packets_.empty() || pad_gone_; });
    return std::exchange(packets_, {});
}

bool Inbox::is_pad_gone() const {
    const std::lock_guard lock{mutex_};
    return pad_gone_;
}

Reception::Reception(std::unique_ptr<Session> session, unsigned int pad, unsigned int interface)
    : pad_{pad}, interface_{interface}, packet_size_{input_report_size(pad)}, session_{std::move(session)} {
    SetOnDeviceRemovedHandler(see_pad_removed, this);
    if (SetDataReceivingEnabled(pad, interface, 1) != 0) { // tells no record
        throw LibraryError("nothing can be received from interface " + std::to_string(interface) + " of pad " +
                           std::to_string(pad));
    }
    // Second: a callback's thread that finds no queue rests for half a second.
    check(SetOnDataReceivedHandler(pad, interface, receive, this));
}

// The library always hands out a whole block, whatever the size of the pad's packets.
void Reception::receive(void* reception, unsigned int, unsigned int, const void* data, unsigned int length) {
    auto& self = *static_cast<Reception*>(reception);
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    self.inbox_.put({Clock::now(), Bytes(bytes, bytes + std::min<std::size_t>(length, self.packet_size_))});
}

void Reception::see_pad_removed(void* reception, unsigned int pad) {
    auto& self = *static_cast<Reception*>(reception);
    if (pad == self.pad_) {
        self.inbox_.tell_pad_gone();
    }
}

void Reception::wait_until_delivered() const {
    constexpr auto longest = std::chrono::seconds(2);
    constexpr auto pause = std::chrono::milliseconds(1);
    const auto deadline = Clock::now() + longest;
    unsigned int waiting = 0;
    while (GetDataPacketsAvailable(pad_, interface_, &waiting) == 0 && waiting > 0 && Clock::now() < deadline) {
        std::this_thread::sleep_for(pause);
    }
}

void Reception::end() {
    if (!session_) {
        return;
    }
    SetDataReceivingEnabled(pad_, interface_, 0);
    wait_until_delivered();
    SetOnDataReceivedHandler(pad_, interface_, nullptr, nullptr);
    session_.reset();
}

} // namespace vxpadctl
