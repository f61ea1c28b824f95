// Pen data is known by its header. An answer is one to an earlier question where its message began before the last
// send, where nothing is asked, or where it is of the other kind than what is asked for and one of that kind was still
// due.
#include "exchange/message_sorter.hpp"

#include "exchange/message_queues.hpp"
#include "vxpadcom/internals/ssp_base_message.h"

#include <algorithm>
#include <unistd.h>

namespace {

constexpr useconds_t no_frame_pause_us = 500;

using ssp_transport_token::start_of_frame;

bool starts_frame(std::span<const unsigned char> received) {
    return received.size() >= start_of_frame.size() &&
           std::equal(start_of_frame.begin(), start_of_frame.end(), received.begin());
}

// Whether the first frame began before the last send. Where its token is not whole yet, that stays to be asked; where
// the next one follows it at once, the frame is a new one.
bool take_old_beginning(vx_device& device, std::span<const unsigned char> received) {
    if (device.beginning_is_old == 0 || received.size() <= start_of_frame.size()) {
        return false;
    }
    device.beginning_is_old = 0;
    return starts_frame(received) && !starts_frame(received.subspan(start_of_frame.size()));
}

} // namespace

std::optional<std::size_t> MessageSorter::sort(std::span<unsigned char> room, std::size_t received) {
    const bool first_is_old = take_old_beginning(device_, room.first(received));
    message_cutter::Cutter cutter{where_, room, received};
    if (!cutter.is_able()) {
        is_unable_ = true;
        return std::nullopt;
    }
    while (auto frame = cutter.next()) {
        route(*frame, first_is_old && frame->is_first);
    }
    if (first_is_old && cutter.first_goes_on()) {
        device_.beginning_is_old = 1; // its end is still to come
    }
    const auto kept = cutter.keep_beginning();
    if (cutter.found_nothing()) {
        usleep(no_frame_pause_us);
    }
    return kept;
}

void MessageSorter::tell_dropped() const {
    VX_INFO_AT(where_, "an answer to an earlier question is dropped");
}

// Whatever the frame holds behind its message is not part of it.
void MessageSorter::route(message_cutter::Frame& frame, bool is_old) {
    const bool is_pen_data = ssp_base_message_is_it_biodata(frame.bytes.get()) == 1;
    if (!is_pen_data && answers_an_earlier_question(frame, is_old)) {
        tell_dropped();
        has_dropped_ = true;
        return;
    }
    const auto kind = is_pen_data ? message_queues::Kind::pen_data : message_queues::Kind::commands;
    message_queues::add(device_, kind, frame.bytes, frame.measure.message());
}

// Whether such an answer was due.
bool MessageSorter::strike_off(bool is_report) {
    std::int32_t& due = is_report ? device_.reports_due : device_.replies_due;
    if (due <= 0) {
        return false;
    }
    --due;
    return true;
}

bool MessageSorter::answers_an_earlier_question(const message_cutter::Frame& answer, bool is_old) {
    const bool is_report = answer.measure.header == ssp_base_message::legacy_header_size;
    const bool was_due = strike_off(is_report);
    if (read_for_ == ReadFor::nothing || is_old) {
        return true;
    }
    const bool reads_for_reports = read_for_ == ReadFor::reports;
    if (is_report && was_due && reads_for_reports && !has_measured_) {
        has_measured_ = true;
        device_.slowest_report_ms =
            std::clamp(since_the_question_.elapsed_ms() + 1, device_.slowest_report_ms, longest_report_wait_ms);
    }
    return was_due && is_report != reads_for_reports;
}
