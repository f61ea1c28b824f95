#include "pads/interface_request.hpp"

#include "vxpadcom/internals/registry.h"

InterfaceRequest::InterfaceRequest(const trace::Location& where, const InterfaceRequestTexts& texts, const void* data,
                                   int data_size)
    : where_{where}, texts_{texts}, pad_{registry::find_current(where, texts.missing_pad)},
      data_size_{static_cast<unsigned int>(data_size)} {
    if (pad_ == nullptr) {
        return;
    }
    if (data == nullptr) {
        trace::error(where, "%sdata of VXPAD_vx_ioctl() is NULL", texts.data_prefix);
    } else if (data_size < 1) {
        trace::error(where, "%sdata_size of VXPAD_vx_ioctl() <= 0", texts.prefix);
    } else {
        is_sound_ = true;
    }
}

vx_device* InterfaceRequest::interface(unsigned int interface_number) {
    if (!is_sound()) {
        return nullptr;
    }
    keep_open_.emplace(*pad_, interface_number);
    return current_pad::find_interface(where_, *pad_, texts_.prefix, interface_number, texts_.missing_record);
}

int InterfaceRequest::checked(int result) const {
    if (pad_ != nullptr) {
        core_catch_is_dev_was_removed(&result);
    }
    return result;
}
