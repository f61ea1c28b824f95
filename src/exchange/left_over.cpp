// Questions without an answer are counted in the record. Before the next one is put, what waits is taken in, as long as
// it is worth waiting for.
#include "exchange/left_over.hpp"

#include "exchange/message_queues.hpp"
#include "transport/record.hpp"
#include "vxpadcom/internals/ssp_base_message.h"

#include <algorithm>

namespace left_over {
namespace {

constexpr int most_absorbing_reads = 10'000;
constexpr std::int32_t most_reports_due = 1'000'000; // as far as they are counted
constexpr std::int32_t most_replies_due = 16;

void count_up(std::int32_t& due, std::int32_t most) {
    due = std::min(due + 1, most);
}

bool may_wait(const vx_device& device) {
    return device.left_over != 0 || device.sends_unasked != 0;
}

// For a report that is due as long as the pad may take for it; for answers of before the search once.
bool is_worth_waiting(const vx_device& device, int waited_ms, int longest_wait_ms) {
    return (device.reports_due > 0 && waited_ms <= std::min(patience_ms(device), longest_wait_ms)) ||
           (device.left_over == 2 && device.replies_due > 0 && waited_ms < longest_absorbing_ms);
}

// Ends where nothing waits any more and nothing is worth being waited for.
void take_in(vx_device& device, MessageSorter& sorter, Stopwatch& stopwatch, int longest_wait_ms) {
    const stream_table::Table& stream = stream_table::of(device);
    int idle_ms = 0; // counted as well, for a clock may stand still
    for (int reads = 0; reads < most_absorbing_reads; ++reads) {
        const Look look = look_once(device, stream, sorter);
        const bool came = look == Look::found_something;
        const int elapsed_time = stopwatch.elapsed_ms();
        if (look == Look::failed || (came && !may_wait(device) && device.reports_due == 0)) {
            return; // or all that was due has come
        }
        idle_ms += came ? 0 : 1;
        const bool goes_on = came && elapsed_time < longest_absorbing_ms;
        if (!goes_on && !is_worth_waiting(device, std::max(idle_ms, elapsed_time), longest_wait_ms)) {
            return;
        }
    }
}

// Replies other than reports tell by themselves what they answer: they stay due.
void forget_what_is_due(vx_device& device, bool has_dropped) {
    bool suspects = has_dropped && device.sends_unasked > 0;
    if (device.reports_due > 0) {
        // The pad leaves requests out, or is later than ever. What has taken long once is not waited for for ever.
        device.slowest_report_ms /= 2;
        device.report_in_doubt = 1;
        device.reports_due = 0;
        suspects = true; // what is forgotten may come yet
    }
    if (device.left_over == 2) {
        device.replies_due = 0;
    }
    device.left_over = 0;
    if (suspects) {
        device.sends_unasked = left_over::on_guard;
    } else if (device.sends_unasked > 0) {
        --device.sends_unasked;
    }
}

// A token without its message may yet become the beginning of pen data.
bool is_pen_data(std::span<const unsigned char> beginning) {
    constexpr std::size_t token_size = ssp_transport_token::token_size;
    return beginning.size() > token_size && ssp_base_message_is_it_biodata(beginning.data() + token_size) == 1;
}

// The beginning of an answer must not be completed behind a new question. What may be the beginning of pen data stays,
// and a message that turns out to be none is left out when it has come.
void drop_beginning_of_answer(const trace::Location& where, vx_device& device) {
    if (!message_queues::has_beginning(device)) {
        return;
    }
    Buffer room{message_queues::room_size};
    const std::span<const unsigned char> kept = room.span().first(message_queues::take_beginning(device, room.span()));
    if (is_pen_data(kept)) {
        message_queues::keep_beginning(device, kept);
        return;
    }
    const auto token = kept.last(ssp_transport_token::cut_token_size(kept));
    if (token.size() < kept.size()) {
        VX_INFO_AT(where, "the beginning of an answer to an earlier question is dropped");
    }
    if (!token.empty()) {
        message_queues::keep_beginning(device, token);
        device.beginning_is_old = 1;
    }
}

// True where there were answers.
bool take_in_all(const trace::Location& where, vx_device& device, int longest_wait_ms) {
    Stopwatch stopwatch;
    MessageSorter sorter{where, device, ReadFor::nothing, stopwatch};
    static_cast<void>(message_queues::make(device)); // without them pen data is dropped too
    take_in(device, sorter, stopwatch, longest_wait_ms);
    forget_what_is_due(device, sorter.has_dropped());
    drop_beginning_of_answer(where, device);
    return sorter.has_dropped();
}

} // namespace

void expect_report(vx_device& device) {
    count_up(device.reports_due, most_reports_due);
}

void expect_reply(vx_device& device) {
    count_up(device.replies_due, most_replies_due);
}

int patience_ms(const vx_device& device) {
    constexpr int times_the_slowest = 4;
    return std::min(times_the_slowest * device.slowest_report_ms, longest_report_wait_ms);
}

bool make_way(const trace::Location& where, vx_device& device) {
    if ((device.reports_due > 0 || may_wait(device)) && !record::was_removed(device)) {
        take_in_all(where, device, longest_report_wait_ms);
        return true;
    }
    drop_beginning_of_answer(where, device);
    return false;
}

Look look_once(vx_device& device, const stream_table::Table& stream, MessageSorter& sorter) {
    Buffer buffer{message_queues::room_size};
    const std::span<unsigned char> room = buffer.span();
    const std::size_t beginning = message_queues::take_beginning(device, room);
    const int count = stream.take_waiting(device, room.subspan(beginning));
    if (count < 1) {
        if (beginning > 0) {
            message_queues::keep_beginning(device, room.first(beginning));
        }
        return count < 0 ? Look::failed : Look::found_nothing;
    }
    if (const auto kept = sorter.sort(room, beginning + static_cast<std::size_t>(count))) {
        message_queues::keep_beginning(device, room.first(*kept));
    }
    return sorter.is_unable() ? Look::failed : Look::found_something;
}

void expect_left_over(vx_device& device) {
    device.left_over = std::max<std::uint8_t>(device.left_over, 1);
}

bool absorb(const trace::Location& where, vx_device& device) {
    expect_left_over(device);
    return open_transport::is_any(device) && !record::was_removed(device) &&
           take_in_all(where, device, longest_absorbing_ms);
}

} // namespace left_over
