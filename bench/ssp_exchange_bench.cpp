// An SSP request and its reply through the library and by hand with libusb, in one run.
//
// Needs two virtual VCOM pads: one that the library knows, and one with ids that it does not know, for the hand-written
// code. That one has a libusb context of its own, as a program without the library would.
#include "paired.hpp"

#include <array>
#include <benchmark/benchmark.h>
#include <cstring>
#include <libusb-1.0/libusb.h>
#include <memory>
#include <span>
#include <vector>
#include <vxpadcom/vxpadcom.h>

namespace {

constexpr unsigned short by_hand_vendor = 0xf1af; // as scripts/bench plugs it in
constexpr unsigned short by_hand_product = 0x7cff;

constexpr unsigned int time_out_ms = 1000;
constexpr std::array<unsigned char, 4> which_components{0, 0, 0, 0x10};

using Bytes = std::span<const unsigned char>;

// A pad as a program would drive it that has no library but libusb.
class PadByHand {
  public:
    PadByHand() {
        libusb_init(&context_);
        handle_ = libusb_open_device_with_vid_pid(context_, by_hand_vendor, by_hand_product);
        if (handle_ != nullptr) {
            claimed_ = libusb_claim_interface(handle_, 0) == 0;
            find_endpoints();
        }
    }
    ~PadByHand() {
        if (handle_ != nullptr) {
            libusb_close(handle_);
        }
        libusb_exit(context_);
    }
    PadByHand(const PadByHand&) = delete;
    PadByHand& operator=(const PadByHand&) = delete;

    bool is_ready() const { return claimed_ && in_ != 0 && out_ != 0; }

    // Size of the reply, or 0 where there is none.
    std::size_t exchange(Bytes request, std::span<unsigned char> reply) { return send(request) ? receive(reply) : 0; }

  private:
    void find_endpoints() {
        libusb_config_descriptor* configuration = nullptr;
        if (libusb_get_active_config_descriptor(libusb_get_device(handle_), &configuration) != 0) {
            return;
        }
        const libusb_interface_descriptor& interface = configuration->interface[0].altsetting[0];
        for (const auto& endpoint : std::span{interface.endpoint, interface.bNumEndpoints}) {
            ((endpoint.bEndpointAddress & LIBUSB_ENDPOINT_IN) != 0 ? in_ : out_) = endpoint.bEndpointAddress;
        }
        libusb_free_config_descriptor(configuration);
    }

    bool send(Bytes message) {
        std::vector<unsigned char> framed{0xAA, 0x55, 2};
        framed.reserve(framed.size() + message.size() + message.size() / 2);
        for (std::size_t i = 0; i < message.size(); ++i) {
            framed.push_back(message[i]);
            if (i > 0 && message[i - 1] == 0xAA && message[i] == 0x55) {
                framed.push_back(0);
            }
        }
        int sent = 0;
        return libusb_bulk_transfer(handle_, out_, framed.data(), static_cast<int>(framed.size()), &sent,
                                    time_out_ms) == 0 &&
               sent == static_cast<int>(framed.size());
    }

    std::size_t receive(std::span<unsigned char> reply) {
        std::array<unsigned char, 4096> buffer;
        int count = 0;
        if (libusb_bulk_transfer(handle_, in_, buffer.data(), static_cast<int>(buffer.size()), &count, time_out_ms) !=
            0) {
            return 0;
        }
        const Bytes framed{buffer.data(), static_cast<std::size_t>(count)};
        if (framed.size() < 7 || framed[0] != 0xAA || framed[1] != 0x55 || framed[2] != 2) {
            return 0;
        }
        std::size_t size = 0;
        for (std::size_t i = 3; i < framed.size() && size < reply.size(); ++i) {
            if (framed[i] != 0 || framed[i - 1] != 0x55 || framed[i - 2] != 0xAA) {
                reply[size++] = framed[i];
            }
        }
        const std::size_t announced = 4 + (reply[1] | std::size_t{reply[2]} << 8);
        return size == announced ? size : 0;
    }

    libusb_context* context_ = nullptr;
    libusb_device_handle* handle_ = nullptr;
    bool claimed_ = false;
    unsigned char in_ = 0;
    unsigned char out_ = 0;
};

bool is_component_list(Bytes reply) {
    return reply.size() > 5 && reply[0] == 0 && reply[3] == which_components[3] && reply[4] == 1;
}

void components(benchmark::State& state) {
    Initialize();
    PadByHand pad;
    if (!pad.is_ready()) {
        state.SkipWithError("no VCOM pad that the library does not know");
    } else {
        std::array<unsigned char, 4096> reply{};
        paired::compare(
            state,
            [&] {
                unsigned int size = 0;
                return SendSspMessage(1, 0, which_components.data(), which_components.size()) == 0 &&
                       ReceiveSspMessage(1, 0, reply.data(), reply.size(), time_out_ms, &size) == 0 &&
                       is_component_list(Bytes{reply}.first(size));
            },
            [&] { return is_component_list(Bytes{reply}.first(pad.exchange(which_components, reply))); });
    }
    Deinitialize();
}
BENCHMARK(components)->Name("SendSspMessage and ReceiveSspMessage over libusb_bulk_transfer")->UseRealTime();

} // namespace

BENCHMARK_MAIN();
