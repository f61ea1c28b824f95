#include "core/current_pad.hpp"

namespace current_pad {

vx_device* find_interface(trace::Location where, vx_device& pad, const char* prefix, unsigned int interface_number,
                          void (*no_record)(trace::Location where, unsigned int index)) {
    // The count itself passes, on purpose: it names the empty record behind the last one, whose transfer fails.
    if (interface_number > static_cast<unsigned int>(pad.count_of_interfaces)) {
        trace::error(where, "%sinterface_number > count of interfaces", prefix);
        return nullptr;
    }
    if (interface_number == 0) {
        return &pad;
    }
    if (pad.interfaces == nullptr) {
        trace::error(where, "Error, **interfaces is NULL");
        return nullptr;
    }
    const unsigned int index = interface_number - 1;
    vx_device* interface = index < VX_MAX_FURTHER_INTERFACES ? pad.interfaces[index] : nullptr;
    if (interface == nullptr) {
        no_record(where, index);
        return nullptr;
    }
    core_open_dev(interface);
    return interface;
}

} // namespace current_pad
