#include "usb/open_transfers.hpp"

#include <utility>
#include <vector>

namespace emulator {

void OpenTransfers::submit(UsbDevice& device, std::uint64_t number, std::shared_ptr<Transfer> transfer, Answer answer) {
    transfers_.emplace(number, transfer);
    room_ += transfer->room;
    transfer->completed = [this, number, answer = std::move(answer)](Transfer& completed, TransferStatus status) {
        if (transfers_.erase(number) > 0) { // else it has been abandoned
            room_ -= completed.room;
            answer(completed, status);
        }
    };
    device.submit(std::move(transfer));
}

bool OpenTransfers::cancel(UsbDevice& device, std::uint64_t number) {
    const auto found = transfers_.find(number);
    if (found == transfers_.end()) {
        return false;
    }
    const auto transfer = found->second;
    device.cancel(transfer);
    return true;
}

void OpenTransfers::cancel_interface(UsbDevice& device, unsigned int interface) {
    std::vector<std::shared_ptr<Transfer>> open;
    for (const auto& [number, transfer] : transfers_) {
        if (transfer->endpoint != 0 && transfer->interface == interface) {
            open.push_back(transfer);
        }
    }
    for (const auto& transfer : open) {
        device.cancel(transfer);
    }
}

void OpenTransfers::abandon(UsbDevice& device) {
    room_ = 0;
    for (const auto& [number, transfer] : std::exchange(transfers_, {})) {
        device.cancel(transfer);
    }
}

} // namespace emulator
