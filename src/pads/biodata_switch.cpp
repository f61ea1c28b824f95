// Pen data of the current pad on and off.
#include "vxpadcom/internals/biodata_switch.h"
#include "pads/registry.hpp"
#include "support/lock.hpp"
#include "transport/open_close.hpp"
#include "transport/record.hpp"
#include "vxpadcom/internals/biodata.h"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/registry.h"

namespace {

bool is_vcom(const trace::Location& where, vx_device& pad) {
    const auto is_open_as_vcom = [&] { return record::load(pad.vcom_handle) != nullptr; };
    return pad.vcom_device == nullptr ? is_open_as_vcom() : record::look_at_handles(where, pad, is_open_as_vcom);
}

// A HID pad sends its pen data unasked.
int switch_biodata(const trace::Location& where, int on) {
    vx_device* pad = registry::find_current(where, registry::Missing::reported);
    if (pad == nullptr) {
        return -1;
    }
    int result = is_vcom(where, *pad) ? core_ssp_biodata_sending(pad, on) : 0;
    if (result != 0) {
        const trace::Lock lock{pad->device_lock, "dev_shared->current_device->device_lock", where};
        result = open_close::recover(*pad);
    }
    core_catch_is_dev_was_removed(&result);
    return result;
}

} // namespace

int core_enable_ssp_biodata_sending() {
    trace::Scope scope{VX_HERE};
    return scope.exit(switch_biodata(scope.where(), 1));
}

int core_disable_ssp_biodata_sending() {
    trace::Scope scope{VX_HERE};
    return scope.exit(switch_biodata(scope.where(), 0));
}
