// Whole messages between the library and one interface of a pad, over whichever transport it is open on.
#include "vxpadcom/internals/ssp_engine.h"
#include "exchange/left_over.hpp"
#include "exchange/message_queues.hpp"
#include "exchange/message_sorter.hpp"
#include "exchange/stream_table.hpp"
#include "support/result.hpp"
#include "transport/open_close.hpp"
#include "transport/record.hpp"
#include "vxpadcom/internals/record.h"
#include "vxpadcom/internals/ssp_transport_token.h"
#include "vxpadcom/internals/uni_queue.h"
#include "wire/ssp_base_message.hpp"

#include <algorithm>

namespace {

constexpr unsigned char report_request[] = {0xC0, 0x00};
constexpr int doubted_report_wait_ms = 5;

using message_queues::Kind;

void tell_if_lost(const trace::Location& where, vx_device& device) {
    if (record::was_removed(device)) {
        trace::error(where, "we lost device..");
    }
}

// One receive call: what the caller wants, and how far it is.
class Receiver {
  public:
    Receiver(const trace::Location& where, vx_device& device, unsigned int time_out, unsigned char legacy, int selector)
        : where_{where}, device_{device}, time_out_{time_out}, legacy_{legacy}, wanted_{selector == 1 && legacy == 0
                                                                                            ? Kind::pen_data
                                                                                            : Kind::commands},
          stream_{stream_table::of(device)}, asks_for_reports_{legacy != 0 && stream_.carries_reports},
          sorter_{where, device, asks_for_reports_ ? ReadFor::reports : ReadFor::messages, stopwatch_} {}

    // 0 with a message in the caller's buffer, or the failure's code.
    int receive(void* data, unsigned int* length) {
        if (legacy_ == 1) {
            clear_uni_queue(device_.ssp_command_messages); // only a fresh reply will do
        } else if (get_uni_queue_size(queue()) > 0 && deliver("we have ready", data, length, EmptyFrame::is_skipped)) {
            return 0;
        }
        if (asks_for_reports_ && left_over::make_way(where_, device_)) {
            stopwatch_ = Stopwatch{}; // it was waited for another answer
        }
        for (;;) {
            if (const int failed = read_cycle(); failed < 0) {
                return failed;
            }
            if (get_uni_queue_size(queue()) > 0) {
                take_the_newest_report();
                deliver("now we are getting", data, length, EmptyFrame::is_delivered);
                return 0;
            }
            const int elapsed_time = stopwatch_.elapsed_ms();
            VX_INFO_STYLED_AT(where_, trace::Style::kind_after, "elapsed_time: %d, time_out: %u", elapsed_time,
                              time_out_);
            if (static_cast<unsigned int>(elapsed_time) >= time_out_) {
                trace::error(where_, "Error, no ready %s messages...",
                             wanted_ == Kind::pen_data ? "ssp input read" : "ssp command");
                return result::timed_out;
            }
        }
    }

  private:
    enum class EmptyFrame { is_skipped, is_delivered };

    // Where an earlier request may have been answered late, the answer to this call's is the one that comes last.
    void take_the_newest_report() {
        if (!asks_for_reports_ || device_.report_in_doubt == 0) {
            return;
        }
        device_.report_in_doubt = 0;
        Stopwatch stopwatch;
        const int longest_idle_ms = std::max(doubted_report_wait_ms, left_over::patience_ms(device_));
        for (int idle_ms = 0; idle_ms < longest_idle_ms;) {
            const left_over::Look look = left_over::look_once(device_, stream_, sorter_);
            idle_ms += look == left_over::Look::found_something ? 0 : 1;
            if (stopwatch.elapsed_ms() >= left_over::longest_absorbing_ms || look == left_over::Look::failed) {
                break;
            }
        }
        while (get_uni_queue_size(queue()) > 1) {
            sorter_.tell_dropped();
            unsigned int size = 0;
            const Owned<void> old{get_uni_frame(queue(), &size)};
        }
    }

    uni_queue* queue() { return message_queues::queue_of(device_, wanted_); }
    const char* queue_name() const { return wanted_ == Kind::pen_data ? "ssp_input_read" : "ssp_command_messages"; }

    // Hands the oldest message to the caller, cut to the caller's buffer. False where it is empty and so skipped.
    bool deliver(const char* how, void* data, unsigned int* length, EmptyFrame empty) {
        unsigned int size = 0;
        const Owned<void> message{get_uni_frame(queue(), &size)};
        if (!message || size == 0) {
            trace::error(where_, "Error, function get_uni_frame() return pointer: %p and data size: %u", message.get(),
                         size);
            size = 0;
            if (empty == EmptyFrame::is_skipped) {
                return false;
            }
        } else {
            VX_INFO_STYLED_AT(where_, trace::Style::kind_after, "%s frame from %s.. with size: %u", how, queue_name(),
                              size);
        }
        if (*length < size) {
            trace::error(where_, "Error, *len[%u] < data_size[%u]", *length, size);
            trace::error(where_, "Error, parameter unsigned int *len should contain bigger value for receive this SSP "
                                 "message");
        }
        const unsigned int copied = std::min(*length, size);
        if (copied > 0) {
            std::memcpy(data, message.get(), copied);
        }
        VX_INFO_AT(where_, "Was provided *len: %u, was write to_copy_size: %u", *length, copied);
        *length = copied;
        return true;
    }

    // Reads until no message is left unfinished. What the queues hold then decides; negative where the first read
    // failed.
    int read_cycle() {
        Room buffer{message_queues::room_size};
        const std::span<unsigned char> room = buffer.span();
        const std::size_t beginning = message_queues::take_beginning(device_, room);
        int count = first_read(room.subspan(beginning), beginning > 0);
        if (count < 1) {
            device_.beginning_is_old = 0; // the beginning is gone
            return count;
        }
        // A message may take the time-out once more to become whole, however the pad feeds its bytes.
        Stopwatch assembly;
        std::size_t received = beginning + static_cast<std::size_t>(count);
        while (const auto kept = sorter_.sort(room, received)) {
            if (static_cast<unsigned int>(assembly.elapsed_ms()) >= time_out_) {
                message_queues::keep_beginning(device_, room.first(*kept));
                return 0;
            }
            count = stream_.read_on(where_, device_, room.subspan(*kept), time_out_);
            if (count < 1) {
                device_.beginning_is_old = 0;
                return 0;
            }
            received = *kept + static_cast<std::size_t>(count);
        }
        return sorter_.is_unable() ? -1 : 0; // else the pad would be asked again until the time is over
    }

    int first_read(std::span<unsigned char> room, bool behind_a_beginning) {
        if (asks_for_reports_) {
            if (const int result = ask_for_report(); result != 0) {
                return result;
            }
        }
        const int count = stream_.read_first(where_, device_, room, time_out_, behind_a_beginning);
        return count == 0 ? -1 : count;
    }

    int ask_for_report() {
        VX_INFO_STYLED_AT(where_, trace::Style::kind_after, "It is request for LEGACY feature...");
        unsigned char request[sizeof report_request];
        std::copy(std::begin(report_request), std::end(report_request), request);
        if (const int result = __send_ssp_message(&device_, request, sizeof request); result != 0) {
            trace::error(where_, "usb_data_send() return: %d", result);
            return result;
        }
        left_over::expect_report(device_);
        return 0;
    }

    const trace::Location& where_;
    vx_device& device_;
    unsigned int time_out_;
    unsigned char legacy_;
    Kind wanted_;
    const stream_table::Table& stream_;
    bool asks_for_reports_;
    Stopwatch stopwatch_;
    MessageSorter sorter_;
};

} // namespace

int __send_ssp_message(vx_device* device, void* data, unsigned int length) {
    trace::Scope scope{VX_HERE};
    // A reply left over from an earlier exchange can never answer this command.
    if (device != nullptr && device->ssp_command_messages != nullptr) {
        clear_uni_queue(device->ssp_command_messages);
    }
    if (length == 0) {
        VX_ERROR("Error, input parameter: unsigned int len is %u", length);
        return scope.exit(-1);
    }
    if (data == nullptr) {
        VX_ERROR("Error, input parameter: void *data is %p", data);
        return scope.exit(-1);
    }
    if (device == nullptr) {
        VX_ERROR("Error, input parameter: device *current_device is NULL");
        return scope.exit(-1);
    }
    if (!open_transport::is_any(*device)) {
        VX_ERROR("Error, *hid && *vcom_handle is NULL");
        return scope.exit(-1);
    }
    const std::span<const unsigned char> message{static_cast<const unsigned char*>(data), length};
    if (!std::equal(message.begin(), message.end(), std::begin(report_request),
                    std::end(report_request))) { // repeated while its answer is waited for
        left_over::make_way(VX_HERE, *device);
    }
    unsigned char* framed = nullptr;
    const int size = ssp_base_message_to_transport_token_data(data, length, &framed);
    const Owned<unsigned char> owner{framed};
    if (size < 1) {
        VX_ERROR("Error, ssp_base_message_to_transport_token_data() return: ssp_transport_data_size: %d, "
                 "ssp_transport_data: %p",
                 size, static_cast<void*>(framed));
        return scope.exit(-1);
    }
    const std::span<unsigned char> bytes{framed, static_cast<std::size_t>(size)};
    const int result = stream_table::of(*device).send(VX_HERE, *device, bytes);
    if (result == 0 && !ssp_base_message::is_legacy(message.front())) {
        left_over::expect_reply(*device);
    }
    tell_if_lost(VX_HERE, *device);
    return scope.exit(result);
}

int __receive_ssp_message(vx_device* device, void* data, unsigned int* length, unsigned int time_out,
                          unsigned char legacy, int selector) {
    trace::Scope scope{VX_HERE};
    if (length == nullptr || *length == 0) {
        VX_ERROR("Error, input parameter: *(unsigned int *len) is %u", 0U);
        return scope.exit(-1);
    }
    if (data == nullptr) {
        VX_ERROR("Error, input parameter: void *data is %p", data);
        return scope.exit(-1);
    }
    if (device == nullptr) {
        VX_ERROR("Error, input parameter: device *current_device is NULL");
        return scope.exit(-1);
    }
    if (!open_transport::is_any(*device)) {
        VX_ERROR("Error, *hid && *vcom_handle is %p", static_cast<void*>(nullptr));
        return scope.exit(-1);
    }
    if (!message_queues::make(*device)) {
        return scope.exit(-1); // the answer would go nowhere, and the pad be asked again until the time is over
    }
    VX_NOTE("START queue       ssp_input_read: %d", get_uni_queue_size(device->ssp_input_read));
    VX_NOTE("START queue ssp_command_messages: %d", get_uni_queue_size(device->ssp_command_messages));

    int outcome = Receiver{VX_HERE, *device, time_out, legacy, selector}.receive(data, length);
    if (outcome == result::timed_out && legacy != 0 && device->reports_due > 0) {
        // Its answer may be later than any before.
        device->slowest_report_ms = std::clamp(static_cast<int>(std::min(time_out, unsigned{longest_report_wait_ms})),
                                               device->slowest_report_ms, longest_report_wait_ms);
    }
    if (outcome != 0 && legacy == 0 && selector != 1 && device->replies_due > 0) {
        left_over::expect_left_over(*device);
        device->sends_unasked = left_over::on_guard; // it may come behind the next question only
    }
    if (outcome != 0 && open_close::recover(*device) == result::removed) {
        outcome = result::removed;
    }
    tell_if_lost(VX_HERE, *device);
    VX_NOTE("END queue       ssp_input_read: %d", get_uni_queue_size(device->ssp_input_read));
    VX_NOTE("END queue ssp_command_messages: %d", get_uni_queue_size(device->ssp_command_messages));
    return scope.exit(outcome);
}
