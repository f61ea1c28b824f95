// A record of a pad that belongs to a test, whatever the pad's transport.
#pragma once

#include "standins.hpp"
#include "vxpadcom/internals.h"
#include "vxpadcom/vxpadcom.h"

#include <libusb-1.0/libusb.h>
#include <pthread.h>

#include <initializer_list>

namespace core_test {

// As the search leaves it: closed, with a lock. Who derives from it fills in the pad.
class PadRecord {
  public:
    PadRecord(const PadRecord&) = delete;
    PadRecord& operator=(const PadRecord&) = delete;

    vx_device* get() { return &device_; }
    vx_device* operator->() { return &device_; }

    bool locked() {
        if (pthread_mutex_trylock(&lock_) != 0) {
            return true;
        }
        pthread_mutex_unlock(&lock_);
        return false;
    }

  protected:
    explicit PadRecord(unsigned int pad_type) {
        device_.pad_type = pad_type;
        device_.in_use = 1;
        device_.device_lock = &lock_;
    }
    ~PadRecord() {
        standins::bus().hooks = {}; // they may refer to what is gone by now
        __core_close_dev(&device_);
        for (uni_queue* const queue : {device_.ssp_input_read, device_.ssp_command_messages, device_.ssp_unfinished}) {
            if (queue != nullptr) {
                destroy_uni_queue(queue);
            }
        }
        if (device_.vcom_device != nullptr) {
            libusb_unref_device(device_.vcom_device);
        }
    }

    // Opened, and the opening forgotten by the log.
    void open() {
        __core_open_dev(&device_);
        standins::bus().take_log();
    }

    // Messages travel as the engine sends them.
    void speak_ssp() {
        device_.send_ssp_message = __send_ssp_message;
        device_.receive_ssp_message = __receive_ssp_message;
    }

  private:
    vx_device device_{};
    pthread_mutex_t lock_ = PTHREAD_MUTEX_INITIALIZER;
};

} // namespace core_test
