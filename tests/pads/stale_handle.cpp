// Linked into a test, keeps hidapi 0.13.1 from a mistake of its own: when a pad is pulled out between two of its
// interfaces, hid_enumerate() goes on with the handle of the first one, which it has closed. It tells a failed open by
// a null handle alone, and libusb_open() leaves the handle of a failed open as it was.
#include <dlfcn.h>
#include <libusb.h>

extern "C" int libusb_open(libusb_device* device, libusb_device_handle** handle) {
    static const auto next = reinterpret_cast<decltype(&libusb_open)>(dlsym(RTLD_NEXT, "libusb_open"));
    *handle = nullptr;
    return next(device, handle);
}
