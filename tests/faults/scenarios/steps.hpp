// Pads, and what scenarios do with them.
#pragma once

#include "calls.hpp"
#include "receive_test.hpp"
#include "scenario.hpp"
#include "ssp_test.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace faults {

using core_test::base;
using core_test::described_as;
using core_test::framed;
using core_test::OpenHidSspRecord;
using core_test::OpenRecord;
using core_test::OpenVcomRecord;
using core_test::pen;
using core_test::SspPad;
using core_test::unframed;
using standins::bus;
using standins::Bytes;
using standins::HidInterface;
using standins::pad_of_type;
using standins::UsbDevice;
using standins::vcom_pad;

// A VCOM pad and what answers for it.
struct VcomPad {
    explicit VcomPad(unsigned int pad_type = 16, std::size_t which = 0, std::uint16_t packet = 512)
        : model{described_as(pad_type)} {
        UsbDevice plugged = vcom_pad("usb" + std::to_string(which + 1), which);
        plugged.configurations = {{{{{0x81, packet}, {0x01, 64}}}}};
        model.serial_number += std::to_string(which);
        device = &bus().plug(std::move(plugged));
        device->answer = [this](UsbDevice& asked, const Bytes& sent) {
            const auto guard = bus().lock();
            const Bytes message = unframed(sent);
            if (message.size() < ((message.empty() || (message[0] & 0x80) != 0) ? 2U : 4U)) {
                return;
            }
            for (const Bytes& reply : model.answer(message)) {
                asked.incoming.push_back(framed(reply));
            }
        };
    }
    ~VcomPad() {
        const auto guard = bus().lock();
        device->answer = {};
    }
    VcomPad(const VcomPad&) = delete;
    VcomPad& operator=(const VcomPad&) = delete;

    void bring(const Bytes& message) {
        const auto guard = bus().lock();
        device->incoming.push_back(framed(message));
    }

    SspPad model;
    UsbDevice* device;
};

HidInterface& plug_hid(unsigned int number = 1);
HidInterface& plug_further(unsigned int number = 1);
int start(Run& run);
void stop(Run& run);
void expect_pads(Run& run, int count);
bool set_feature(Run& run, unsigned int device, unsigned int interface = 0);
bool get_feature(Run& run, unsigned int device, unsigned int interface = 0);
bool write_file(Run& run, unsigned int device);
bool read_file(Run& run, unsigned int device);
bool send_message(Run& run, unsigned int device, const Bytes& message);
unsigned int receive_message(Run& run, unsigned int device, unsigned int time_out = 200);
void ignore_removal(void*, unsigned int);
void count_call(void* counter, unsigned int);
void count_report(void* counter, unsigned int, unsigned int, const void*, unsigned int);
// Until it comes true. Where something has failed it need not, once the library's threads have had their time.
void let_threads_work(const Run& run, const std::function<bool()>& done, unsigned int for_naps = 40);
int set_handler(Run& run, unsigned int device, vxpad_data_callback callback, void* user_specific);
int enable(Run& run, unsigned int device, bool enabled = true);
// Receives what the pad has.
bool receive(Run& run, unsigned int device, int wanted = 3);
std::vector<Bytes> reports();
bool upload(Run& run, unsigned int device, unsigned int mask);
// The position that an upload leaves behind is gone when one has come to its end.
void end_uploads();
void ask_facts(Run& run);

inline const Bytes component_query{0, 0, 0, 0x10};

// A pad of the test's own, as the search would leave it, for the building blocks.
template <typename Use> void with_vcom_record(Use use) {
    VcomPad pad;
    OpenVcomRecord record(*pad.device, 16);
    use(record.get(), pad);
}

template <typename Use> void with_hid_record(unsigned int type, Use use) {
    HidInterface& pad = bus().plug(pad_of_type(type));
    OpenRecord record(pad, type);
    use(record.get(), pad);
}

} // namespace faults
