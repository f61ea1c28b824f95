#include "pads/current_pad.hpp"

#include "transport/open_close.hpp"
#include "transport/record.hpp"

namespace current_pad {
namespace {

// The record behind an interface number, or null.
vx_device* record_of(vx_device& pad, unsigned int interface_number) {
    if (interface_number == 0) {
        return &pad;
    }
    const unsigned int index = interface_number - 1;
    return pad.interfaces != nullptr && index < VX_MAX_FURTHER_INTERFACES ? pad.interfaces[index] : nullptr;
}

} // namespace

KeepOpen::KeepOpen(vx_device& pad, unsigned int interface_number) : interface_{record_of(pad, interface_number)} {
    if (interface_ != nullptr) {
        record::add_keepers(*interface_, 1);
    }
}

KeepOpen::~KeepOpen() {
    if (interface_ != nullptr) {
        record::add_keepers(*interface_, -1);
    }
}

vx_device* get() {
    vx_registry* pads = registry::get();
    return pads == nullptr ? nullptr : registry::current_device(*pads);
}

vx_device* find(const char* settings) {
    vx_registry* pads = registry::get();
    const int index = pads == nullptr ? -1 : registry::find_settings(*pads, settings);
    return index < 0 ? nullptr : &pads->devices[index];
}

vx_device* find_interface(const trace::Location& where, vx_device& pad, const char* prefix,
                          unsigned int interface_number,
                          void (*no_record)(const trace::Location& where, unsigned int index)) {
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
    vx_device* interface = record_of(pad, interface_number);
    if (interface == nullptr) {
        no_record(where, interface_number - 1);
        return nullptr;
    }
    // Interfaces do not go one by one: where this one cannot be opened, the pad has gone.
    if (!record::was_removed(pad) && !open_close::opens(*interface)) {
        record::mark_removed(pad);
    }
    return interface;
}

} // namespace current_pad
