// Whole messages between the library and one interface of a pad, over whichever transport it is open on.
//
// What is read is parsed into frames and sorted into the record's two queues: pen data, and everything else. Only the
// last frame of a batch can go on in the next read; it is put back in front of that read as it would have come.
#include "exchange/ssp_engine.hpp"
#include "transport/record.hpp"

#include "support/clock.hpp"
#include "support/owners.hpp"
#include "support/result.hpp"
#include "transport/open_close.hpp"
#include "wire/ssp_base_message.hpp"
#include "wire/ssp_transport_token.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <unistd.h>

namespace {

constexpr std::size_t receive_buffer_size = 4096;
constexpr std::size_t first_hid_read_size = 64;
constexpr std::size_t report_size = 64;
constexpr unsigned char outgoing_report_id = 0xF8;
constexpr unsigned char legacy_feature_request[] = {0xC0, 0x00};
constexpr useconds_t no_frame_pause_us = 500;
constexpr int rest_of_token = 254; // missing bytes where a token was cut
constexpr int transport_lost = -4;
constexpr int timed_out = -7;
constexpr int longest_absorbing_ms = 100;
constexpr unsigned int absorbing_read_ms = 1;
constexpr int most_absorbing_reads = 10'000;
constexpr int doubted_report_wait_ms = 5;
constexpr int longest_report_wait_ms = 1000;         // no read for reports waits longer
constexpr std::int32_t most_reports_due = 1'000'000; // as far as they are counted
constexpr std::int32_t most_replies_due = 16;

bool is_vcom(const vx_device& device) {
    return device.vcom_handle != nullptr;
}

void tell_if_lost(trace::Location where, vx_device& device) {
    if (record::was_removed(device)) {
        trace::error(where, "we lost device..");
    }
}

int send_vcom(trace::Location where, vx_device& device, std::span<unsigned char> framed) {
    const int result = usb_data_send(device.vcom_handle, device.ep_out, framed.data(), static_cast<int>(framed.size()));
    if (result != 0) {
        if (result == transport_lost) {
            record::mark_removed(device);
        }
        trace::error(where, "Error of send/write data by usb_data_send(), it returns: %d", result);
    }
    return result;
}

int send_hid(trace::Location where, vx_device& device, std::span<const unsigned char> framed) {
    while (!framed.empty()) {
        unsigned char report[report_size] = {outgoing_report_id};
        const std::size_t piece = std::min(framed.size(), report_size - 1);
        std::memcpy(report + 1, framed.data(), piece);
        if (hid_feature_write(device.hid, report, static_cast<unsigned int>(1 + piece)) != 0) {
            trace::error(where, "Error of send/write data by hid_feature_write()");
            return open_close::recover(device);
        }
        framed = framed.subspan(piece);
    }
    return 0;
}

enum class Queue { pen_data, commands };

void make_queues(vx_device& device) {
    for (uni_queue** queue : {&device.ssp_input_read, &device.ssp_command_messages}) {
        if (*queue == nullptr) {
            *queue = init_uni_queue();
        }
    }
}

uni_queue*& queue_of(vx_device& device, Queue which) {
    return which == Queue::pen_data ? device.ssp_input_read : device.ssp_command_messages;
}

using Bytes = std::span<const unsigned char>;
using ssp_transport_token::marker;
using ssp_transport_token::start_of_frame;

struct QueueDestroyer {
    void operator()(uni_queue* queue) const { destroy_uni_queue(queue); }
};
using LocalQueue = std::unique_ptr<uni_queue, QueueDestroyer>;

// What lay between two start-of-frame tokens.
struct Frame {
    Frame(unsigned char* taken, std::size_t size)
        : bytes{taken}, length{size}, measure{ssp_base_message::measure({taken, size})} {}

    bool is_complete() const { return measure.header_is_whole && measure.message() <= length; }

    Owned<unsigned char> bytes;
    std::size_t length;
    ssp_base_message::Measure measure;
};

// A copy of what may be a cut token at the end of a read.
class Tail {
  public:
    explicit Tail(Bytes received) : size_{ssp_transport_token::cut_token_size(received)} {
        std::copy(received.end() - static_cast<std::ptrdiff_t>(size_), received.end(), bytes_.begin());
    }
    Bytes bytes() const { return Bytes{bytes_}.first(size_); }
    // A whole token is not part of the last frame.
    std::size_t size_in_frame() const { return size_ == ssp_transport_token::token_size ? 0 : size_; }

  private:
    std::size_t size_;
    std::array<unsigned char, ssp_transport_token::token_size> bytes_{};
};

void count_up(std::int32_t& due, std::int32_t most) {
    due = std::min(due + 1, most);
}

// A kept beginning whose message is not known to be pen data. A token without its message may yet become some.
bool is_pen_data(Bytes kept) {
    return kept.size() > start_of_frame.size() &&
           ssp_base_message_is_it_biodata(kept.data() + start_of_frame.size()) == 1;
}

// A stream that never pauses loses nothing where one call ends and the next begins.
void keep_unfinished(vx_device& device, Bytes beginning) {
    if (device.ssp_unfinished == nullptr) {
        device.ssp_unfinished = init_uni_queue();
    }
    Owned<unsigned char> copy{static_cast<unsigned char*>(Malloc(beginning.size()))};
    std::copy(beginning.begin(), beginning.end(), copy.get());
    if (add_uni_frame(device.ssp_unfinished, copy.get(), static_cast<unsigned int>(beginning.size())) == 1) {
        static_cast<void>(copy.release());
    }
}

// Puts it at the start of the room and returns its size, mostly 0.
std::size_t take_unfinished(vx_device& device, std::span<unsigned char> room) {
    if (device.ssp_unfinished == nullptr || get_uni_queue_size(device.ssp_unfinished) == 0) {
        return 0;
    }
    unsigned int size = 0;
    const Owned<void> kept{get_uni_frame(device.ssp_unfinished, &size)};
    std::memcpy(room.data(), kept.get(), size);
    return size;
}

// The beginning of a reply must not be completed behind a new question. What may be the beginning of pen data stays,
// and a message that turns out to be none is left out when it has come.
void drop_unfinished_reply(trace::Location where, vx_device& device) {
    if (device.ssp_unfinished == nullptr || get_uni_queue_size(device.ssp_unfinished) == 0) {
        return;
    }
    Buffer buffer{receive_buffer_size};
    const Bytes kept = buffer.span().first(take_unfinished(device, buffer.span()));
    if (is_pen_data(kept)) {
        keep_unfinished(device, kept);
        return;
    }
    const Bytes token = kept.last(ssp_transport_token::cut_token_size(kept));
    if (token.size() < kept.size()) {
        VX_INFO_AT(where, "the beginning of an answer to an earlier question is dropped");
    }
    if (!token.empty()) {
        keep_unfinished(device, token);
        device.beginning_is_old = 1;
    }
}

// One receive call: what the caller wants, and how far it is.
class Receiver {
  public:
    Receiver(trace::Location where, vx_device& device, unsigned int time_out, unsigned char legacy, int selector)
        : where_{where}, device_{device}, time_out_{time_out}, legacy_{legacy}, wanted_{selector == 1 && legacy == 0
                                                                                            ? Queue::pen_data
                                                                                            : Queue::commands} {}

    // 0 with a message in the caller's buffer, or the failure's code.
    int receive(void* data, unsigned int* length) {
        if (legacy_ == 1) {
            clear_uni_queue(device_.ssp_command_messages); // only a fresh reply will do
        } else if (get_uni_queue_size(queue()) > 0 && deliver("we have ready", data, length, EmptyFrame::is_skipped)) {
            return 0;
        }
        if (asks_for_reports()) {
            make_way(where_, device_);
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
                             wanted_ == Queue::pen_data ? "ssp input read" : "ssp command");
                return timed_out;
            }
        }
    }

    // Takes in what waits on the pad before the next question is put: pen data is sorted into its queue, answers are
    // dropped. Ends where nothing waits any more and nothing is worth being waited for. True where there were answers.
    bool absorb() {
        make_queues(device_);
        absorbing_ = true;
        int idle_ms = 0; // counted as well, for a clock may stand still
        int elapsed_time = 0;
        for (int reads = 0; reads < most_absorbing_reads; ++reads) {
            const bool came = absorb_once();
            elapsed_time = stopwatch_.elapsed_ms();
            if (came && !may_be_left_over(device_) && device_.reports_due == 0) {
                break; // all that was due has come
            }
            idle_ms += came ? 0 : 1;
            const int longest = device_.reports_due > 0 ? longest_report_wait_ms : longest_absorbing_ms;
            if (failed_ || !((came && elapsed_time < longest) || is_worth_waiting(std::max(idle_ms, elapsed_time)))) {
                break;
            }
        }
        forget_what_is_due();
        absorbing_ = false;
        drop_unfinished_reply(where_, device_);
        return dropped_;
    }

    // Before a question is put: nothing that waits may be taken for its answer.
    static void make_way(trace::Location where, vx_device& device) {
        if ((device.reports_due > 0 || may_be_left_over(device)) && !record::was_removed(device)) {
            Receiver{where, device, 0, 0, 0}.absorb();
        } else {
            drop_unfinished_reply(where, device);
        }
    }

  private:
    enum class EmptyFrame { is_skipped, is_delivered };

    bool asks_for_reports() const { return legacy_ != 0 && is_vcom(device_); }

    static bool may_be_left_over(const vx_device& device) { return device.left_over != 0 || device.sends_unasked != 0; }

    // As long as the pad has ever taken for a report that is due; for answers of before the search once.
    bool is_worth_waiting(int waited_ms) const {
        return (device_.reports_due > 0 && waited_ms <= device_.slowest_report_ms) ||
               (device_.left_over == 2 && device_.replies_due > 0 && waited_ms < longest_absorbing_ms);
    }

    // Other replies tell by themselves what they answer: they stay due.
    void forget_what_is_due() {
        if (device_.reports_due > 0) {
            // The pad leaves requests out, or is later than ever. What has taken long once is not waited for for ever.
            device_.slowest_report_ms /= 2;
            device_.report_in_doubt = 1;
            device_.reports_due = 0;
        }
        if (device_.left_over == 2) {
            device_.replies_due = 0;
        }
        device_.left_over = 0;
        if (device_.sends_unasked > 0) {
            device_.sends_unasked = dropped_ ? ssp_engine::on_guard : device_.sends_unasked - 1;
        }
    }

    // False where nothing came.
    bool absorb_once() {
        Buffer buffer{receive_buffer_size};
        const std::span<unsigned char> room = buffer.span();
        const std::size_t unfinished = take_unfinished(device_, room);
        const std::span<unsigned char> rest = room.subspan(unfinished);
        int count = 0;
        if (is_vcom(device_)) {
            count = usb_data_receive(device_.vcom_handle, device_.ep_in, rest.data(), static_cast<int>(rest.size()),
                                     absorbing_read_ms);
            if (count == transport_lost) {
                record::mark_removed(device_);
            }
            failed_ = count < 0 && count != timed_out;
        } else {
            const auto size = std::min(first_hid_read_size, rest.size());
            count = hid_read_ssp_data(device_.hid, rest.data(), static_cast<unsigned int>(size), absorbing_read_ms, 1);
            if (count > 0 && is_it_zero_array(rest.data(), static_cast<std::size_t>(count))) {
                count = 0;
            }
        }
        if (count < 1) {
            if (unfinished > 0) {
                keep_unfinished(device_, room.first(unfinished));
            }
            return false;
        }
        if (const auto carried = parse(room, unfinished + static_cast<std::size_t>(count))) {
            keep_unfinished(device_, room.first(*carried));
        }
        return true;
    }

    // Where an earlier request may have been answered late, the answer to this call's is the one that comes last.
    void take_the_newest_report() {
        if (!asks_for_reports() || device_.report_in_doubt == 0) {
            return;
        }
        device_.report_in_doubt = 0;
        Stopwatch stopwatch;
        for (int idle_ms = 0; idle_ms < doubted_report_wait_ms && !failed_;) {
            idle_ms += absorb_once() ? 0 : 1;
            if (stopwatch.elapsed_ms() >= longest_absorbing_ms) {
                break;
            }
        }
        while (get_uni_queue_size(queue()) > requests_) {
            tell_dropped();
            unsigned int size = 0;
            const Owned<void> old{get_uni_frame(queue(), &size)};
        }
    }

    void tell_dropped() { VX_INFO_AT(where_, "an answer to an earlier question is dropped"); }

    uni_queue* queue() { return queue_of(device_, wanted_); }
    const char* queue_name() const { return wanted_ == Queue::pen_data ? "ssp_input_read" : "ssp_command_messages"; }

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

    // Reads until no frame is left to go on with. Negative where the call is to end with that failure.
    int read_cycle() {
        Buffer buffer{receive_buffer_size};
        const std::span<unsigned char> room = buffer.span();
        const std::size_t unfinished = take_unfinished(device_, room);
        int count = first_read(room.subspan(unfinished), unfinished > 0);
        if (count < 1) {
            return count;
        }
        // A message may take the time-out once more to become whole, however the pad feeds its bytes.
        Stopwatch assembly;
        std::size_t size = unfinished + static_cast<std::size_t>(count);
        while (const auto carried = parse(room, size)) {
            if (static_cast<unsigned int>(assembly.elapsed_ms()) >= time_out_) {
                keep_unfinished(device_, room.first(*carried));
                return 0;
            }
            count = read(room.subspan(*carried), 0);
            if (count < 1) {
                return 0; // what the queue holds decides
            }
            size = *carried + static_cast<std::size_t>(count);
        }
        return 0;
    }

    int first_read(std::span<unsigned char> room, bool behind_a_beginning) {
        if (!is_vcom(device_)) {
            return read(room.first(std::min(first_hid_read_size, room.size())), 1) < 1 ? -1 : last_count_;
        }
        if (legacy_ != 0) {
            VX_INFO_STYLED_AT(where_, trace::Style::kind_after, "It is request for LEGACY feature...");
            unsigned char request[sizeof legacy_feature_request];
            std::copy(std::begin(legacy_feature_request), std::end(legacy_feature_request), request);
            if (const int result = __send_ssp_message(&device_, request, sizeof request); result != 0) {
                trace::error(where_, "usb_data_send() return: %d", result);
                return result;
            }
            count_up(device_.reports_due, most_reports_due);
            ++requests_;
        }
        // Zeros in front of everything are nothing; behind a beginning they are data.
        const int count = read(room, behind_a_beginning ? 0 : 1);
        return count == 0 ? -1 : count;
    }

    // One read of the transport: the count, or what it failed with.
    int read(std::span<unsigned char> room, unsigned char first) {
        const auto size = static_cast<unsigned int>(room.size());
        if (is_vcom(device_)) {
            last_count_ = vcom_read_ssp_data(&device_, room.data(), static_cast<int>(size), time_out_, first);
            if (last_count_ == transport_lost) {
                record::mark_removed(device_);
            }
            if (last_count_ < 1 && last_count_ != timed_out) {
                trace::error(where_, "Error, vcom_read_ssp_data() return: %d", last_count_);
            }
        } else {
            last_count_ = hid_read_ssp_data(device_.hid, room.data(), size, time_out_, first);
            if (last_count_ < 1) {
                trace::error(where_, "Error, hid_read_ssp_data() return: %d", last_count_);
            }
        }
        return last_count_;
    }

    // Sorts the frames of what was read. Where the stream goes on, puts its beginning back into the buffer and returns
    // the beginning's size.
    std::optional<std::size_t> parse(std::span<unsigned char> room, std::size_t size) {
        const Tail tail{room.first(size)};
        const bool has_old_beginning = take_old_beginning(room.first(size));
        const LocalQueue frames{init_uni_queue()};
        int left = ssp_transport_token_to_base_message_data(room.data(), size, frames.get());
        if (left < 1) {
            VX_INFO_AT(where_, "Error, ssp_transport_token_to_base_message_data() return: count_of_ssp %d", left);
            if (tail.bytes().empty()) {
                usleep(no_frame_pause_us);
                return std::nullopt;
            }
            return carry(room, {}, tail, rest_of_token);
        }
        first_is_old_ = has_old_beginning;
        for (; left > 1; --left, first_is_old_ = false) {
            Frame frame = take(frames.get(), left);
            if (frame.is_complete()) {
                VX_INFO_AT(where_, "Going to proceccing %d SSP messages", left);
                route(frame);
            } else {
                VX_INFO_AT(where_, "error: It is not ended SSP message... so, it sad.. go to processing next one");
            }
        }
        Frame last = take(frames.get(), left);
        if (last.is_complete()) {
            route(last);
            first_is_old_ = false;
            return go_on_behind(room, last, tail);
        }
        device_.beginning_is_old = first_is_old_ ? 1 : 0; // its end is still to come
        first_is_old_ = false;
        return go_on_with(room, last, tail);
    }

    // Whether the first frame began before the last send. Where its token is not whole yet, that stays to be asked.
    bool take_old_beginning(Bytes received) {
        if (device_.beginning_is_old == 0 || received.size() <= start_of_frame.size()) {
            return false;
        }
        device_.beginning_is_old = 0;
        return std::equal(start_of_frame.begin(), start_of_frame.end(), received.begin());
    }

    Frame take(uni_queue* frames, int left) {
        VX_INFO_AT(where_, "Count of available SSP messages: %d", left);
        unsigned int length = 0;
        auto* bytes = static_cast<unsigned char*>(get_uni_frame(frames, &length));
        VX_INFO_AT(where_, "The length of ssp data after remove ssp transport tokens is: %u", length);
        return Frame{bytes, length};
    }

    // Behind a complete message only what may be a cut token goes on.
    std::optional<std::size_t> go_on_behind(std::span<unsigned char> room, const Frame& message, const Tail& tail) {
        const std::size_t extra = message.length - message.measure.message();
        if (extra > 0) {
            VX_INFO_AT(where_, "Count of bytes that was found after SSP message: %zu", extra);
        }
        if (tail.bytes().empty() || tail.size_in_frame() > extra) {
            return std::nullopt;
        }
        VX_INFO_STYLED_AT(where_, trace::Style::kind_after,
                          tail.size_in_frame() == 1 ? "Going to read new data, detected [%02X] after SSP message"
                                                    : "Going to read new data, detected [%02X %02X] after SSP message",
                          marker[0], marker[1]);
        return carry(room, {}, tail, rest_of_token);
    }

    // An incomplete message is framed again, without what may be a cut token; that follows as it came.
    std::optional<std::size_t> go_on_with(std::span<unsigned char> room, const Frame& message, const Tail& tail) {
        const std::size_t missing =
            message.measure.header_is_whole ? message.measure.message() - message.length : std::size_t{rest_of_token};
        const auto length = static_cast<unsigned int>(message.length - tail.size_in_frame());
        if (length == 0) {
            return carry(room, start_of_frame, tail, missing);
        }
        unsigned char* framed = nullptr;
        const int size = ssp_base_message_to_transport_token_data(message.bytes.get(), length, &framed);
        const Owned<unsigned char> owner{framed};
        return carry(room, {framed, static_cast<std::size_t>(size)}, tail, missing);
    }

    std::optional<std::size_t> carry(std::span<unsigned char> room, Bytes beginning, const Tail& tail,
                                     std::size_t missing) {
        VX_INFO_AT(where_, "Also need to add %zu bytes for complete last ssp message", missing);
        const std::size_t size = beginning.size() + tail.bytes().size();
        if (size >= room.size()) {
            trace::error(where_, "Error, ssp_base_message_to_transport_token_data() return: %zu", beginning.size());
            // This message is lost; the one that may begin behind it is not.
            return tail.bytes().empty() ? std::nullopt : carry(room, {}, tail, rest_of_token);
        }
        std::fill(room.begin(), room.end(), static_cast<unsigned char>(0));
        const auto behind = std::copy(beginning.begin(), beginning.end(), room.begin());
        std::copy(tail.bytes().begin(), tail.bytes().end(), behind);
        return size;
    }

    // Whatever the frame holds behind its message is not part of it.
    void route(Frame& frame) {
        const bool pen_data = ssp_base_message_is_it_biodata(frame.bytes.get()) == 1;
        if (!pen_data && answers_an_earlier_question(frame)) {
            tell_dropped();
            dropped_ = true;
            return;
        }
        uni_queue* target = queue_of(device_, pen_data ? Queue::pen_data : Queue::commands);
        if (add_uni_frame(target, frame.bytes.get(), static_cast<unsigned int>(frame.measure.message())) == 1) {
            static_cast<void>(frame.bytes.release());
        }
    }

    // Strikes the answer off what is due.
    bool answers_an_earlier_question(const Frame& answer) {
        const bool is_report = answer.measure.header == ssp_base_message::legacy_header_size;
        std::int32_t& due = is_report ? device_.reports_due : device_.replies_due;
        const bool was_due = due > 0;
        if (was_due) {
            --due;
        }
        if (absorbing_ || first_is_old_) {
            return true;
        }
        if (is_report && was_due && asks_for_reports() && !measured_) {
            measured_ = true;
            device_.slowest_report_ms =
                std::clamp(stopwatch_.elapsed_ms() + 1, device_.slowest_report_ms, longest_report_wait_ms);
        }
        // In a read for reports other replies are old ones, and the other way round.
        return was_due && is_report != asks_for_reports();
    }

    trace::Location where_;
    vx_device& device_;
    unsigned int time_out_;
    unsigned char legacy_;
    Queue wanted_;
    Stopwatch stopwatch_;
    int last_count_ = 0;
    int requests_ = 0;          // for reports, of this call
    bool measured_ = false;     // how long the first report took
    bool absorbing_ = false;    // instead of receiving
    bool failed_ = false;       // the last read while absorbing
    bool dropped_ = false;      // an answer to an earlier question
    bool first_is_old_ = false; // the frame at hand began before the last send
};

} // namespace

void ssp_engine::expect_left_over(vx_device& device) {
    device.left_over = std::max<std::uint8_t>(device.left_over, 1);
}

bool ssp_engine::absorb(trace::Location where, vx_device& device) {
    const bool is_open = device.hid != nullptr || device.vcom_handle != nullptr;
    expect_left_over(device);
    return is_open && !record::was_removed(device) && Receiver{where, device, 0, 0, 0}.absorb();
}

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
    if (device->hid == nullptr && device->vcom_handle == nullptr) {
        VX_ERROR("Error, *hid && *vcom_handle is NULL");
        return scope.exit(-1);
    }
    const Bytes message{static_cast<const unsigned char*>(data), length};
    if (!std::equal(message.begin(), message.end(), std::begin(legacy_feature_request),
                    std::end(legacy_feature_request))) { // repeated while its answer is waited for
        Receiver::make_way(VX_HERE, *device);
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
    const int result = is_vcom(*device) ? send_vcom(VX_HERE, *device, bytes) : send_hid(VX_HERE, *device, bytes);
    if (result == 0 && ssp_base_message_is_it_old_message(data) == 0) {
        count_up(device->replies_due, most_replies_due);
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
    if (device->hid == nullptr && device->vcom_handle == nullptr) {
        VX_ERROR("Error, *hid && *vcom_handle is %p", static_cast<void*>(nullptr));
        return scope.exit(-1);
    }
    make_queues(*device);
    VX_NOTE("START queue       ssp_input_read: %d", get_uni_queue_size(device->ssp_input_read));
    VX_NOTE("START queue ssp_command_messages: %d", get_uni_queue_size(device->ssp_command_messages));

    int result = Receiver{VX_HERE, *device, time_out, legacy, selector}.receive(data, length);
    if (result != 0 && legacy == 0 && selector != 1 && device->replies_due > 0) {
        ssp_engine::expect_left_over(*device);
    }
    if (result != 0 && open_close::recover(*device) == result::removed) {
        result = result::removed;
    }
    tell_if_lost(VX_HERE, *device);
    VX_NOTE("END queue       ssp_input_read: %d", get_uni_queue_size(device->ssp_input_read));
    VX_NOTE("END queue ssp_command_messages: %d", get_uni_queue_size(device->ssp_command_messages));
    return scope.exit(result);
}
