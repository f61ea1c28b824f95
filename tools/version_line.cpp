#include "version_line.hpp"

#include "vxpadcom/version.h"

#include <hidapi/hidapi.h>
#include <libusb-1.0/libusb.h>

namespace version_line {

std::string of_libusb() {
    const libusb_version& usb = *libusb_get_version();
    return std::to_string(usb.major) + "." + std::to_string(usb.minor) + "." + std::to_string(usb.micro);
}

std::string of_hidapi() {
    return hid_version_str();
}

std::string of(std::string_view program, std::string_view libvxpadcom) {
    std::string line{program};
    line += " " VXPADCOM_VERSION_STRING " (";
    if (!libvxpadcom.empty()) {
        line.append("libvxpadcom ").append(libvxpadcom).append(", ");
    }
    return line.append("libusb ").append(of_libusb()).append(", hidapi ").append(of_hidapi()).append(")\n");
}

} // namespace version_line
