// A request to one interface of the pad on which requests act: what comes before and behind its transfer.
#pragma once

#include "pads/current_pad.hpp"
#include "vxpadcom/internals/record.h"

#include <optional>

// How requests of one kind word what is wrong with them.
struct InterfaceRequestTexts {
    const char* prefix; // of the arguments' names
    const char* data_prefix;
    registry::Missing missing_pad;
    void (*missing_record)(const trace::Location& where,
                           unsigned int index); // of the further interface with this index
};

class InterfaceRequest {
  public:
    // Looks for the pad and at the data; says what is missing.
    InterfaceRequest(const trace::Location& where, const InterfaceRequestTexts& texts, const void* data, int data_size);

    bool is_sound() const { return pad_ != nullptr && is_sound_; }
    unsigned int data_size() const { return data_size_; }

    // The interface's record, which is open and stays so as long as the request lives; or null, with the reason said.
    vx_device* interface(unsigned int interface_number);

    // What the caller is told: the transfer's result, unless the pad was removed.
    int checked(int result) const;

  private:
    const trace::Location& where_;
    const InterfaceRequestTexts& texts_;
    vx_device* pad_;
    bool is_sound_ = false;
    unsigned int data_size_;
    std::optional<current_pad::KeepOpen> keep_open_;
};
