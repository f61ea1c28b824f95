// A large buffer as a stream of output reports, over several interfaces of one pad at once.
#include "pads/current_pad.hpp"
#include "session/call.hpp"
#include "session/interface_state.hpp"
#include "session/removal.hpp"
#include "support/clock.hpp"
#include "support/detached_thread.hpp"
#include "support/owners.hpp"
#include "support/print_helpers.hpp"
#include "vxpadcom/internals/control_requests.h"
#include "vxpadcom/internals/process_state.h"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/removal.h"
#include "vxpadcom/internals/wrapunix.h"
#include "vxpadcom/vxpadcom.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <limits>
#include <unistd.h>

pthread_mutex_t interface_routine_count_lock = PTHREAD_MUTEX_INITIALIZER;
int interface_routine_count = 0;
unsigned char interface_routine_terminate = 0;

namespace {

constexpr useconds_t poll_pause_us = 1000;
constexpr unsigned int mask_bits = 32;

// Offset of the next piece to hand out. It stays where it was when an upload ends before its buffer is used up, and the
// next upload begins there: applications have come to go on so.
unsigned int start_pos = 0;
pthread_mutex_t access_data_lock = PTHREAD_MUTEX_INITIALIZER; // guards it and the decision to finish

// One upload thread's share.
struct UploadInfo {
    vx_device* pad = nullptr;
    unsigned int opening = 0; // of the library when the pad was selected
    unsigned int device = 0;
    unsigned int interface = 0;
    const unsigned char* data = nullptr; // the whole buffer
    unsigned int data_size = 0;
    unsigned int written = 0; // set when the thread ends
};

// The tear-down ends an upload also where another call, which it refuses, has cleared the mark meanwhile.
bool is_terminated() {
    return std::atomic_ref{interface_routine_terminate}.load() == 1 || !detached_thread::is_open();
}
void set_terminated(bool terminated) {
    std::atomic_ref{interface_routine_terminate}.store(terminated ? 1 : 0);
}

void count_threads(const trace::Location& where, int change) {
    trace::Lock lock{&interface_routine_count_lock, "&interface_routine_count_lock", where};
    std::atomic_ref{interface_routine_count} += change;
}

// The next whole piece of the buffer, or null where this thread has nothing more to do.
const unsigned char* take_piece(const trace::Location& where, const UploadInfo& info, unsigned int chunk) {
    if (is_terminated()) {
        return nullptr;
    }
    trace::Lock lock{&access_data_lock, "&access_data_lock", where};
    if (is_terminated()) {
        VX_INFO_AT(where, "Threads was STOP by other thread: ptr_data: %p, start_pos: %d, info->data_size: %d ",
                   static_cast<const void*>(info.data), start_pos, info.data_size);
        return nullptr;
    }
    if (info.data_size < chunk || info.data_size - chunk < start_pos) {
        VX_INFO_AT(where, "Thread going to EXIT: ptr_data: %p, start_pos: %d, info->data_size: %d ",
                   static_cast<const void*>(info.data), start_pos, info.data_size);
        start_pos = 0;
        set_terminated(true);
        return nullptr;
    }
    const unsigned char* piece = info.data + start_pos;
    start_pos += chunk;
    VX_INFO_AT(where, "device: %d, interface: %d, start_pos: %d, data_size: %d ", info.device, info.interface,
               start_pos, info.data_size);
    return piece;
}

// Sends pieces until the buffer is used up, or this interface fails: the bytes sent.
unsigned int send_pieces(const trace::Location& where, const UploadInfo& info) {
    VX_INFO_AT(where, "Going to processing, device:%d, interface: %d, data:%p, data_size:%d ", info.device,
               info.interface, static_cast<const void*>(info.data), info.data_size);
    const current_pad::Serve own{info.pad};
    const int size = core_get_max_packet_size_of_out_endpoint();
    if (size < 0) {
        catch_removing_device(size, info.device, info.interface);
        trace::error(where, "%s%d", Call::no_packet_size, static_cast<int>(info.device));
        return 0;
    }
    VX_INFO_AT(where, "max_packet_size %d", size);
    const unsigned int chunk = static_cast<unsigned int>(size) + 1; // with the report-id byte
    unsigned int written = 0;
    while (const unsigned char* piece = take_piece(where, info, chunk)) {
        unsigned int reply = 0;
        const int result = WriteFile(info.device, info.interface, piece, chunk, &reply);
        if (result != 0 || reply != chunk) {
            trace::error(where, "WriteFile return: %d ", result);
            break;
        }
        written += chunk;
    }
    return written;
}

void interface_routine(UploadInfo* info) {
    trace::Scope scope{VX_HERE};
    info->written = send_pieces(VX_HERE, *info);
    scope.exit(static_cast<int>(info->written));
    count_threads(scope.where(), -1); // the record is the waiting thread's again
}

void start_upload(UploadInfo& info) {
    trace::Scope scope{VX_HERE};
    count_threads(VX_HERE, 1);
    bool has_started;
    {
        VX_LOCK(list_lock, &dev_list_short_lock);
        const bool is_same_list = interface_state::is_open() && detached_thread::times_opened() == info.opening;
        has_started = is_same_list && detached_thread::start<interface_routine>(&info) == 0;
    }
    if (!has_started) {
        set_terminated(true);
        count_threads(VX_HERE, -1);
        VX_ERROR("error of pthread_create() or pthread_attr_destroy()");
    }
}

void tell_throughput(const trace::Location& where, unsigned int sum, std::int64_t elapsed_us) {
    const double seconds = static_cast<double>(elapsed_us) / 1e6;
    VX_INFO_AT(where, " Data: %d Bytes", sum);
    VX_INFO_AT(where, " Time: %f sec", seconds);
    constexpr double most = std::numeric_limits<int>::max();
    const double speed = elapsed_us > 0 ? std::min(std::round(sum / seconds / 1024), most) : 0;
    VX_INFO_AT(where, "Speed: %d kB/s", static_cast<int>(speed));
}

// The bytes sent.
unsigned int upload(const trace::Location& where, const UploadInfo& whole, unsigned int mask,
                    unsigned int count_of_threads) {
    VX_INFO_AT(where, "before FOR: count_of_threads: %d, data_size: %d ", count_of_threads, whole.data_size);
    VX_INFO_AT(where, "end_point_id_mask: %s", print_helpers::bits_text(static_cast<int>(mask)).data());
    std::array<UploadInfo, mask_bits> room;
    room.fill(whole);
    const std::span infos{room.data(), std::min(count_of_threads, mask_bits)};
    Stopwatch stopwatch;
    for (unsigned int i = 0; i < infos.size(); ++i) {
        if ((mask >> i & 1) != 0) {
            infos[i].interface = i;
            start_upload(infos[i]);
            VX_INFO_AT(where, "Thread %d was started... ", i);
        }
    }
    VX_INFO_AT(where, "Collect information from started Threads.. ");
    while (std::atomic_ref{interface_routine_count}.load() != 0) {
        usleep(poll_pause_us);
    }
    unsigned int sum = 0;
    for (const UploadInfo& info : infos) {
        sum += info.written;
    }
    tell_throughput(where, sum, stopwatch.elapsed_us());
    return sum;
}

int write_buffer(Call& call, unsigned int device, unsigned int mask, const void* src, unsigned int src_length,
                 unsigned int* reply) {
    if (const int failed = call.require_reply(VXPCEC_INVALID_PARAMETER, reply)) {
        return failed;
    }
    if (const int failed = call.require_source(src, src_length)) {
        return failed;
    }
    if (const int failed = call.select(device)) {
        return failed;
    }
    vx_device* pad = call.pad();
    const int size = core_get_max_packet_size_of_out_endpoint();
    if (size < 0) {
        return call.core_failed(size, "core_get_max_packet_size_of_out_endpoint()", Call::no_packet_size, device, 0);
    }
    unsigned int count_of_threads = 0;
    if (GetEndPointCount(device, &count_of_threads) != 0) {
        trace::error(call.where(), "GetEndPointCount() return non zero");
        return 0;
    }
    VX_INFO_AT(call.where(), "count_of_threads %d", count_of_threads);
    const Owned<unsigned char> copy{static_cast<unsigned char*>(Malloc(src_length))};
    std::memcpy(copy.get(), src, src_length);
    const unsigned int opening = detached_thread::times_opened();
    detached_thread::give_up(); // the upload threads are counted themselves, and end early where the library ends
    *reply = upload(call.where(), {pad, opening, device, 0, copy.get(), src_length, 0}, mask, count_of_threads);
    VX_INFO_AT(call.where(), "OUTPUT: *reply: %d", *reply);
    return 0;
}

} // namespace

int WriteFileBuffer(unsigned int device, unsigned int end_point_id_mask, const void* src, unsigned int src_length,
                    unsigned int* reply) {
    Call call{VX_HERE};
    set_terminated(false);
    return call.exit(write_buffer(call, device, end_point_id_mask, src, src_length, reply));
}
