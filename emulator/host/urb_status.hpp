// How the kernel's USB core names what became of a transfer.
#pragma once

#include "usb/usb_device.hpp"

#include <cerrno>
#include <cstddef>

namespace emulator {

inline constexpr std::size_t longest_urb = 16 * 1024 * 1024; // as much as the real usbfs gives all its users

inline int urb_status(TransferStatus status) {
    switch (status) {
    case TransferStatus::done:
        return 0;
    case TransferStatus::stalled:
        return -EPIPE;
    case TransferStatus::overflow:
        return -EOVERFLOW;
    case TransferStatus::cancelled:
        return -ENOENT;
    case TransferStatus::unplugged:
        return -ESHUTDOWN;
    }
    return -EIO;
}

} // namespace emulator
