// What a host has under way with one device, by the numbers that the host gives its requests.
#pragma once

#include "usb/usb_device.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>

namespace emulator {

class OpenTransfers {
  public:
    using Answer = std::function<void(Transfer& transfer, TransferStatus status)>;

    std::size_t size() const { return transfers_.size(); }
    std::size_t room() const { return room_; } // of all of them

    bool has(std::uint64_t number) const { return transfers_.contains(number); }

    // Of a number that none has that is under way. `answer` is called once, at once or later.
    void submit(UsbDevice& device, std::uint64_t number, std::shared_ptr<Transfer> transfer, Answer answer);

    bool cancel(UsbDevice& device, std::uint64_t number); // false when there is none
    void cancel_interface(UsbDevice& device, unsigned int interface);
    void abandon(UsbDevice& device); // cancels all of them; nobody is answered

  private:
    std::unordered_map<std::uint64_t, std::shared_ptr<Transfer>> transfers_;
    std::size_t room_ = 0;
};

} // namespace emulator
