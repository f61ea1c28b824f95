// Whole messages between the application and one interface of one pad.
#include "session/call.hpp"
#include "support/owners.hpp"
#include "vxpadcom/internals/ssp_requests.h"
#include "vxpadcom/vxpadcom.h"

#include <algorithm>

namespace {

int send(Call& call, unsigned int device, unsigned int interface, const void* src, unsigned int src_length) {
    if (const int failed = call.require_source(src, src_length)) {
        return failed;
    }
    if (const int failed = call.select(device)) {
        return failed;
    }
    // The core's interface is older than const; it does not change the message.
    const int result = core_send_ssp_message(interface, const_cast<void*>(src), static_cast<int>(src_length));
    if (result < 0) {
        return call.core_failed(result, "core_send_ssp_message()", "Error of send ssp message for device: ", device,
                                interface);
    }
    VX_INFO_AT(call.where(), "SSP message was sent successfully");
    return 0;
}

int receive(Call& call, unsigned int device, unsigned int interface, void* dst, unsigned int dst_length,
            unsigned int time_out, unsigned int* reply) {
    constexpr int wrong_argument = VXPCEC_INVALID_PARAMETER;
    if (const int failed = call.require_reply(wrong_argument, reply)) {
        return failed;
    }
    if (const int failed =
            call.require(dst != nullptr, wrong_argument, "Error of input parameters, const void *dst is NULL")) {
        return failed;
    }
    if (const int failed = call.require(dst_length > 1, wrong_argument,
                                        "Error of input parameters, const unsigned int dst_length is <= 1")) {
        return failed;
    }
    if (const int failed = call.select(device)) {
        return failed;
    }
    // A length that the core refuses, negative as it counts, needs no memory.
    Room message{static_cast<int>(dst_length) < 1 ? 1 : std::size_t{dst_length}};
    unsigned int length = dst_length;
    const int result = core_receive_ssp_message(interface, message.data(), &length, time_out);
    if (result < 0) {
        return call.core_failed(result, "core_receive_ssp_message()",
                                "Error of receive ssp message for device: ", device, interface);
    }
    length = std::min(length, dst_length);
    std::memcpy(dst, message.data(), length);
    *reply = length;
    VX_INFO_AT(call.where(), "OUTPUT: *reply: %d", *reply);
    return 0;
}

} // namespace

int SendSspMessage(unsigned int device, unsigned int interface, const void* src, unsigned int src_length) {
    Call call{VX_HERE};
    return call.exit(send(call, device, interface, src, src_length));
}

int ReceiveSspMessage(unsigned int device, unsigned int interface, void* dst, unsigned int dst_length,
                      unsigned int time_out, unsigned int* reply) {
    Call call{VX_HERE};
    return call.exit(receive(call, device, interface, dst, dst_length, time_out, reply));
}
