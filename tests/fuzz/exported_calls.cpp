// The exported functions in any order with any arguments, from two threads.
//
// Byte 0: which pads there are, and whether one is pulled out on the way. Then calls, each with its thread, its
// function and its arguments. Every result is 0 or what the function documents; a handle names a record with a
// documented code; a call that fails leaves its reply as it was, and none writes behind the caller's buffer. In the end
// nothing of the library is left: no handle, no thread.
#include "messages.hpp"
#include "pads.hpp"

#include <array>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <thread>

namespace {

using fuzz::bus;
using fuzz::Bytes;

constexpr std::size_t most_calls = 24; // of each thread
constexpr unsigned int preset = 0xABCDEF01;
constexpr unsigned char guard = 0xEE;

std::atomic<unsigned int> delivered{0};

void take_data(void*, unsigned int, unsigned int, const void* data, unsigned int length) {
    fuzz::require(data != nullptr && length == 64, "what a data callback is given");
    ++delivered;
}
void take_removal(void*, unsigned int device) {
    fuzz::require(device >= 1 && device <= 15, "what a device callback is given");
}
void take_message(void*, const char16_t* message) {
    fuzz::require(std::char_traits<char16_t>::length(message) <= 255, "length of a message");
}

// Where a result is no success it is a handle; its record may have been thrown away by another thread's Initialize().
void require_handle(int result) {
    fuzz::require(result >= 0 && result <= 63, "result");
    if (result == 0) {
        return;
    }
    unsigned int code = 0;
    if (GetExceptionCode(static_cast<unsigned int>(result), &code) == 0) {
        fuzz::require(code == 257 || code == 258 || code == 0xFFFFFFFF, "code of a record");
    }
}

struct Call {
    unsigned char function;
    unsigned int device;
    unsigned int interface;
    unsigned int size; // of the buffer
    bool has_buffer;
    bool has_reply;
    unsigned char value;

    static Call from(fuzz::Input& input) {
        const unsigned char function = input.byte();
        const unsigned char where = input.byte();
        const unsigned char how = input.byte();
        const unsigned int device = (where & 0x0F) == 15 ? 0xFFFFFFF0U + (where >> 4) : where & 3U;
        const unsigned int interface = (where >> 4) == 15 ? 0x80000000U + where : (where >> 4) & 1U;
        return {function,          device,      interface, (how & 0x10) != 0 ? 65U : input.byte(), (how & 0x0F) != 1,
                (how & 0x0F) != 2, input.byte()};
    }

    void make() const {
        Bytes buffer(std::size_t{size} + 1, value);
        buffer.back() = guard;
        std::u16string text(std::size_t{size} + 1, guard);
        unsigned int reply = preset;
        void* const bytes = has_buffer ? buffer.data() : nullptr;
        char16_t* const units = has_buffer ? text.data() : nullptr;
        unsigned int* const answer = has_reply ? &reply : nullptr;
        const int result = perform(bytes, units, answer);
        fuzz::require(buffer.back() == guard && text.back() == guard, "end of the buffer");
        if (function % functions == receiving) {
            fuzz::require(result == 0 || result == -1, "result of a start");
        } else if (function % functions == counting) {
            fuzz::require(result >= 0 && result <= 63, "number of pads, or a handle");
        } else {
            require_handle(result);
            fuzz::require(result == 0 || keeps_no_promise() || reply == preset, "a reply left as it was");
        }
    }

  private:
    static constexpr unsigned int functions = 32;
    static constexpr unsigned int receiving = 20;
    static constexpr unsigned int counting = 2;

    // Those that select a pad store that there is none.
    bool keeps_no_promise() const { return function % functions == 3 || function % functions == 4; }

    int perform(void* bytes, char16_t* units, unsigned int* reply) const {
        const int room = static_cast<int>(size);
        switch (function % functions) {
        case 0:
            return Initialize();
        case 1:
            return Deinitialize();
        case counting:
            return GetDeviceCount(reply);
        case 3:
            return EnumerateDevicesStart(reply);
        case 4:
            return EnumerateDevicesNext(reply);
        case 5:
            return GetSerialNumber(device, units, room, reply);
        case 6:
            return GetProductName(device, interface, units, room, reply);
        case 7:
            return GetVendorName(device, units, room, reply);
        case 8:
            return GetProductId(device, interface, reply);
        case 9:
            return GetUsedTransportProtocol(device, reply);
        case 10:
            return SetUsedTransportProtocol(device, value);
        case 11:
            return GetEndPointCount(device, reply);
        case 12:
            return GetFeatureReportSize(device, interface, reply);
        case 13:
            return SetFeature(device, interface, bytes, size, reply);
        case 14:
            return GetFeature(device, interface, bytes, size, reply);
        case 15:
            return WriteFile(device, interface, bytes, size, reply);
        case 16:
            return ReadFile(device, interface, bytes, size, reply);
        case 17:
            return WriteFileBuffer(device, value, bytes, size, reply);
        case 18:
            return SetOnDataReceivedHandler(device, interface, take_data, nullptr);
        case 19:
            return SetOnDataReceivedHandler(device, interface, nullptr, nullptr);
        case receiving:
            return SetDataReceivingEnabled(device, interface, value & 1U);
        case 21:
            return GetDataPacketsAvailable(device, interface, reply);
        case 22:
            return FlushDataPackets(device, interface);
        case 23:
            return SendSspMessage(device, interface, bytes, size);
        case 24:
            return ReceiveSspMessage(device, interface, bytes, size, value, reply);
        case 25:
            return SetOnDeviceRemovedHandler((value & 1) != 0 ? take_removal : nullptr, nullptr);
        case 26:
            return RegisterLoggingCallBackProcedure((value & 1) != 0 ? reinterpret_cast<void*>(&take_message) : nullptr,
                                                    nullptr);
        case 27:
            return TranslateErrorCode(value, units, room, reply);
        case 28:
            return GetExceptionMessage(value, units, room, reply);
        case 29:
            return GetExceptionName(value, units, room, reply);
        case 30:
            return SayHello(has_buffer ? u"a text" : nullptr, units, room, reply);
        default:
            return LogDeviceStatistics(device);
        }
    }
};

void plug_pads(unsigned char which) {
    bus().reset();
    bus().cost_us["libusb_bulk_transfer"] = 1000;
    bus().cost_us["hid_get_feature_report"] = 200;
    // The library's pauses are over at once, but other threads run in between.
    bus().hooks.usleep = [](unsigned int) { std::this_thread::sleep_for(std::chrono::microseconds(20)); };
    if ((which & 1) != 0) {
        standins::HidInterface& pad = bus().plug(standins::pad_of_type(16));
        for (unsigned char i = 1; i < 20; ++i) {
            pad.input_reports.push_back(Bytes(64, i));
        }
        bus().plug(standins::pad_of_type(16, "1-1:1.1", 1));
    }
    if ((which & 2) != 0) {
        const standins::HidInterface ids = standins::pad_of_type(16);
        bus().plug(standins::vcom_pad()).answer = [ids, last = Bytes(64)](standins::UsbDevice& asked,
                                                                          const Bytes& sent) mutable {
            const auto lock = bus().lock();
            const Bytes request = fuzz::unframed(sent);
            Bytes description(31);
            description[0] = 0x10;
            description[1] = 1;
            for (unsigned int i = 0; i < 2; ++i) {
                description[2 + i] = static_cast<unsigned char>(ids.vendor_id >> 8 * i);
                description[6 + i] = static_cast<unsigned char>(ids.product_id >> 8 * i);
            }
            Bytes reply;
            if (request == Bytes{0xC0, 0}) {
                reply = cut_stream::legacy(0x80, last);
            } else if (request.size() > 1 && (request[0] & 0x80) != 0) {
                last.assign(64, 0);
                last[0] = request[1];
                last[11] = 1;
            } else if (request == Bytes{0, 0, 0, 0x10}) {
                reply = cut_stream::base(0, {0x10, 1, 4, 5, 11, 3, 1});
            } else if (request.size() > 3 && request[3] == 0x10) {
                reply = cut_stream::base(request[0], description);
            } else if (request.size() > 3) {
                reply = cut_stream::base(request[0], {request[3], 1});
            }
            if (!reply.empty()) {
                asked.incoming.push_back(fuzz::framed(reply));
                asked.incoming.push_back(fuzz::framed(cut_stream::legacy(0xC0, Bytes(64, 7))));
            }
        };
    }
    if ((which & 4) != 0) {
        bus().plug(standins::pad_of_type(9, "1-2:1.0", 0, L"SN0002"));
    }
    if ((which & 8) != 0) {
        // After some reports the first pad is gone, as other threads see it.
        bus().hooks.read = [reads = std::make_shared<std::atomic<int>>(which >> 4)](standins::HidInterface& pad,
                                                                                    std::span<unsigned char>) {
            if (--*reads == 0) {
                bus().unplug(pad);
            }
            return std::optional<int>{};
        };
    }
}

std::size_t threads_of_process() {
    const std::filesystem::directory_iterator tasks{"/proc/self/task"};
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

// A thread that has told its end may need a moment to leave.
bool are_gone(std::size_t before) {
    for (int i = 0; i < 2000; ++i) {
        if (threads_of_process() <= before) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input{data, size};
    plug_pads(input.byte());
    static const bool has_had_threads = (std::thread{[] {}}.join(), true); // a sanitizer's own comes with the first one
    static_cast<void>(has_had_threads);
    const std::size_t threads_before = threads_of_process();
    Initialize();
    std::array<std::vector<Call>, 2> calls;
    while (!input.has_ended()) {
        auto& chosen = calls[input.flag() ? 1 : 0];
        const Call call = Call::from(input);
        if (chosen.size() < most_calls) {
            chosen.push_back(call);
        }
    }
    const auto make_all = [](const std::vector<Call>& all) {
        for (const Call& call : all) {
            call.make();
        }
    };
    {
        std::thread other{make_all, std::cref(calls[1])};
        make_all(calls[0]);
        other.join();
    }
    Deinitialize();
    fuzz::require(!IsInitialized(), "the end");
    fuzz::require(are_gone(threads_before), "no thread left");
    bus().hooks = {};
    fuzz::require_all_given_back();
    return 0;
}
