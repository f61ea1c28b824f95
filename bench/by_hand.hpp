// What hand-written code needs to use a pad's interfaces without the library.
#pragma once

#include <hidapi/hidapi.h>
#include <memory>

namespace by_hand {

struct HandleCloser {
    void operator()(hid_device* hid) const { hid_close(hid); }
};
using Handle = std::unique_ptr<hid_device, HandleCloser>;

// Null where there is no such interface.
inline Handle open(unsigned short vendor_id, unsigned short product_id, int interface_number) {
    const std::unique_ptr<hid_device_info, decltype(&hid_free_enumeration)> list{hid_enumerate(vendor_id, product_id),
                                                                                 hid_free_enumeration};
    for (const hid_device_info* interface = list.get(); interface != nullptr; interface = interface->next) {
        if (interface->interface_number == interface_number) {
            return Handle{hid_open_path(interface->path)};
        }
    }
    return nullptr;
}

} // namespace by_hand
