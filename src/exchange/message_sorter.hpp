// Sorting what was read into a record's queues. Answers to earlier questions are struck off what is due and left out.
#pragma once

#include "support/clock.hpp"
#include "support/trace.hpp"
#include "vxpadcom/internals/record.h"
#include "wire/message_cutter.hpp"

#include <optional>
#include <span>

constexpr int longest_report_wait_ms = 1000; // no read for reports waits longer

// What is read for. Where it is nothing, every answer is one to an earlier question.
enum class ReadFor { messages, reports, nothing };

class MessageSorter {
  public:
    MessageSorter(const trace::Location& where, vx_device& device, ReadFor read_for, Stopwatch& since_the_question)
        : where_{where}, device_{device}, read_for_{read_for}, since_the_question_{since_the_question} {}

    // Where the stream goes on, returns the size of its beginning at the start of the room.
    std::optional<std::size_t> sort(std::span<unsigned char> room, std::size_t received);

    // What was received could not be cut, and is lost.
    bool is_unable() const { return is_unable_; }

    void tell_dropped() const;
    bool has_dropped() const { return has_dropped_; }

  private:
    void route(message_cutter::Frame& frame, bool is_old);
    bool strike_off(bool is_report);
    bool answers_an_earlier_question(const message_cutter::Frame& answer, bool is_old);

    const trace::Location& where_;
    vx_device& device_;
    ReadFor read_for_;
    Stopwatch& since_the_question_;
    bool has_measured_ = false; // how long the first report took
    bool has_dropped_ = false;
    bool is_unable_ = false;
};
