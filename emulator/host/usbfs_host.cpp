#include "host/usbfs_host.hpp"

#include "base/companion.hpp"
#include "host/usbfs_protocol.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace emulator {

namespace {

namespace fs = std::filesystem;

std::string usbfs_library() {
    return companion(VXPAD_USBFS_BUILT, VXPAD_USBFS_INSTALLED);
}

std::string sysfs_library() {
    if (!fs::exists(VXPAD_UMOCKDEV_PRELOAD)) {
        throw std::runtime_error(VXPAD_UMOCKDEV_PRELOAD " is missing (package libumockdev0)");
    }
    return VXPAD_UMOCKDEV_PRELOAD;
}

} // namespace

UsbfsHost::UsbfsHost(EventLoop& loop, Bus& bus, const fs::path& directory)
    : directory_{directory}, tree_{loop, bus, directory}, server_{loop, bus, directory / socket_name} {}

Surroundings UsbfsHost::surroundings() const {
    return {usbfs_library() + ":" + sysfs_library(),
            {{VXPAD_ENV_USBFS, directory_ / socket_name}, {VXPAD_ENV_TESTBED, directory_}}};
}

} // namespace emulator
