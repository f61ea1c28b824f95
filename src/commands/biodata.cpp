// Pen data of a pad on and off.
#include "vxpadcom/internals/biodata.h"
#include "commands/component_request.hpp"
#include "commands/growing_pause.hpp"
#include "support/clock.hpp"
#include "support/lock.hpp"
#include "support/result.hpp"
#include "transport/record.hpp"
#include "vxpadcom/internals/record.h"

namespace {

constexpr component_request::Request switch_biodata{
    component_request::ct_signpad, 0x11, component_request::component_sender, component_link::nothing_received};
constexpr int time_out_ms = 3000;
constexpr useconds_t pause_cap_us = 500'000;

} // namespace

int ct_signpad_mode_ssp_biodata_sending_reply_check(const unsigned char* payload, int message_id) {
    trace::Scope scope{VX_HERE};
    return scope.exit(component_link::has_header(payload, message_id) ? 0 : -1);
}

int ssp_biodata_sending(vx_device* device, int on) {
    trace::Scope scope{VX_HERE};
    const unsigned char parameters[] = {static_cast<unsigned char>(on), 0};
    const component_link::Answer answer = component_request::perform(VX_HERE, device, switch_biodata, parameters);
    if (!answer.reply) {
        return scope.exit(answer.result);
    }
    const unsigned char* reply = answer.reply->data();
    if (ct_signpad_mode_ssp_biodata_sending_reply_check(reply, switch_biodata.message_id) != 0) {
        // The text names the check of another message: log filters know it so.
        VX_ERROR("Error, check data by ct_signpad_mode_send_reply_check(data: %p, ct_cmd: %d, cts_mode_id: %d)",
                 static_cast<const void*>(reply), switch_biodata.message_id, 0);
        return scope.exit(-1);
    }
    return scope.exit(0);
}

int core_ssp_biodata_sending(vx_device* device, int on) {
    trace::Scope scope{VX_HERE};
    if (device == nullptr) {
        VX_ERROR("Error of parameter device *current_device is NULL");
        return scope.exit(-1);
    }
    VX_LOCK(lock, device->device_lock);
    GrowingPause pause{VX_HERE, pause_cap_us};
    Stopwatch stopwatch;
    int result = 0;
    for (int elapsed_time = 0; elapsed_time < time_out_ms;) {
        result = ssp_biodata_sending(device, on);
        if (result >= 0) {
            break;
        }
        if (result == result::transport_lost) {
            record::mark_removed(*device);
            break;
        }
        elapsed_time = stopwatch.elapsed_ms();
        VX_INFO("elapsed_time: %d, time_out: %d", elapsed_time, time_out_ms);
        VX_INFO("ssp_biodata_sending(%d) return %d", on, result);
        pause.take();
        if (record::was_removed(*device)) {
            break;
        }
    }
    if (record::was_removed(*device)) {
        VX_ERROR("we lost device..");
    }
    return scope.exit(result);
}
