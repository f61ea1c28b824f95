// Linked into a test, makes the moment longer in which a pad that is opened again is closed.
#include <chrono>
#include <dlfcn.h>
#include <libusb.h>
#include <thread>

extern "C" int libusb_open(libusb_device* device, libusb_device_handle** handle) {
    static const auto next = reinterpret_cast<decltype(&libusb_open)>(dlsym(RTLD_NEXT, "libusb_open"));
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return next(device, handle);
}
