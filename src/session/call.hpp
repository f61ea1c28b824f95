// The frame of every exported function: enter and exit, argument checks, selection of the pad, filing of a failure.
//
// fail() and the require_ and select functions return 0 where all is well, else the handle of the record they filed.
#pragma once

#include "pads/current_pad.hpp"
#include "support/detached_thread.hpp"
#include "vxpadcom/internals/record.h"

#include <optional>

class Call {
  public:
    explicit Call(const trace::Location& where) : scope_{where} {}
    explicit Call(const trace::Location&& where) = delete;

    const trace::Location& where() const { return scope_.where(); }
    int exit(int result, int line = __builtin_LINE()) { return scope_.exit(result, line); }

    int fail(int code, const char* message);
    int fail(int code, const char* prefix, int number);

    int require(bool fulfilled, int code, const char* message) { return fulfilled ? 0 : fail(code, message); }
    int require_reply(int code, const unsigned int* reply);
    int require_source(const void* src, unsigned int src_length);
    int require_text_output(int code, const char16_t* res_text, int res_text_size, const unsigned int* reply);

    // Makes the pad current and has this call's core requests act on it, also when another thread selects another pad
    // before they are made. From here to its end the tear-down waits for the call, or the call is not let in.
    int select(unsigned int device);
    vx_device* pad() const { return pad_; }
    // For a thread that serves the pad all the time.
    int select_served(unsigned int device, unsigned int interface_number);

    // What failures of several functions begin with.
    static constexpr const char* no_packet_size = "Error of getting max packet size of hid interfaces for device: ";
    static constexpr const char* no_input_report = "Error of read HID input report for device: ";
    static constexpr const char* not_initialized =
        " Internal variable dev_shared_short is NULL.. Use Initialize() first.";

    // A negative core result: looks for a removal, names the core function in the log and files the failure. A
    // callback that is told of the removal may have searched again: no record of a pad may be used behind it.
    int core_failed(int result, const char* core_function, const char* prefix, unsigned int device,
                    unsigned int interface_number);

    // Zeroes the caller's buffer and writes length characters of a text, terminator included where it is counted, as
    // far as they fit. Returns the units written.
    unsigned int write_text(char16_t* res_text, int res_text_size, const char* text, int length) const;

  private:
    int selected(int result, unsigned int device);

    trace::Entry scope_;
    std::optional<detached_thread::Counted> counted_;
    vx_device* pad_ = nullptr;
    std::optional<current_pad::Serve> served_;
};
