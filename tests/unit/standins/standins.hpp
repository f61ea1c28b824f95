// Scripted stand-ins for everything outside the library: hidapi, libusb, usleep and gettimeofday.
//
// They are defined in the test executable, whose symbols come before those of the shared libraries, so libvxpadcom.so
// calls them in place of the real ones. A test executable links the object library vxpad-standins.
//
// The bus. bus() is one virtual bus for the process; bus().reset() empties it, the log, the hooks and the clock.
//
//     HidInterface& pad = bus().plug(pad_of_type(9)); // path 1-1:1.0, serial number SN0001
//     HidInterface& second = bus().plug(pad_of_type(9, "1-1:1.1", 1)); // its second interface
//     pad.product = L"Pad 200";
//     pad.feature_replies.push_back({0x11, 5});    // next feature reports, payloads without the report id
//     pad.input_reports.push_back(Bytes(64, 7));   // what hid_read finds
//     bus().unplug(pad);                           // opening and all transfers fail; plug_again() ends that
//
// By itself a pad answers the legacy commands (version, mode, status, rectangle) and returns any other feature report
// as it was last sent. References stay valid until reset().
//
// A VCOM pad. bus().plug(vcom_pad()) has one vendor interface with a bulk IN and a bulk OUT endpoint. What its IN
// endpoint gives is one entry of incoming for each transfer, then time-outs; what it was sent is in outgoing. An answer
// function makes it a pad that replies:
//
//     UsbDevice& pad = bus().plug(vcom_pad());
//     pad.incoming.push_back({0xAA, 0x55, 2, 0x80, 7});
//     pad.answer = [](UsbDevice& asked, const Bytes& sent) { asked.incoming.push_back(sent); };
//     bus().unplug(pad); // transfers give LIBUSB_ERROR_NO_DEVICE, opening too, until plug_again()
//
// Results of one call. Every function of bus().hooks may take over: it returns the call's result, or nullopt for the
// default. A hook may claim results that no pad can give (longer than the buffer, 0, -1 for ever).
//
//     bus().hooks.get_feature = [](HidInterface&, std::span<unsigned char>) { return std::optional(-1); };
//     bus().hooks.get_feature = results({-1, -1}); // two failures, then the default
//     bus().hooks.usb = [](UsbDevice&, std::string_view which) { ... }; // any libusb call but the transfers
//
// The clock. gettimeofday() gives bus().now_us(); usleep() notes its pause and moves the clock on, nothing waits.
// bus().cost_us["hid_get_feature_report"] = 1000 makes each such call take a millisecond.
//
// The log. bus().log() has one line for each call, in order, for instance
//
//     hid_open_path(1-1:1.0)
//     hid_send_feature_report(1-1:1.0, 65: 00 11)   size, then the bytes without the zeros at the end
//     usleep(1000)
//     libusb_bulk_transfer(usb1, 01, 7: aa 55 02 00 00 00 10, 1000)   endpoint, size, the bytes sent, time-out
//     libusb_bulk_transfer(usb1, 81, 4096, 100)                       endpoint, size asked for, time-out
//
// log("hid_close") keeps the calls of one function, take_log() also clears; pauses() are the arguments of usleep.
// gettimeofday and hid_error are not logged. Wrong use of a handle or list (twice closed, unknown, NULL) is kept in
// bus().misuses(); open_handles(), open_lists() and usb_references() count what was not given back.
//
// Threads. All functions may be called from several threads; hooks run outside the lock. While other threads are
// inside the library, change pads, hooks and costs only under bus().lock().
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

struct hid_device_;
struct libusb_device;
struct libusb_device_handle;

namespace standins {

using Bytes = std::vector<unsigned char>;

struct HidInterface {
    std::string path = "1-1:1.0";
    std::uint16_t vendor_id = 0;
    std::uint16_t product_id = 0;
    int interface_number = 0;
    std::wstring manufacturer = L"ACME";
    std::wstring product = L"Pad 100";
    std::wstring serial_number = L"SN0001";
    unsigned char mode = 1;                 // what the status reports; the set-mode command changes it
    Bytes last_request = {};                // payload of the last feature report received
    std::deque<Bytes> feature_replies = {}; // handed out before the pad's own answers
    std::deque<Bytes> input_reports = {};
    bool plugged = true;
    unsigned int times_unplugged = 0;
};

// An interface of a pad that the library takes for this type: the first ids with it (occurrence 0), or a later pair.
HidInterface pad_of_type(unsigned int pad_type, std::string path = "1-1:1.0", int interface_number = 0,
                         std::wstring serial_number = L"SN0001", unsigned int occurrence = 0);

struct UsbEndpoint {
    std::uint8_t address = 0;
    std::uint16_t max_packet_size = 64;
};
using UsbSetting = std::vector<UsbEndpoint>;
using UsbInterface = std::vector<UsbSetting>; // its alternate settings
using UsbConfiguration = std::vector<UsbInterface>;

// A device that only libusb sees. An empty text is a missing string descriptor.
struct UsbDevice {
    std::uint16_t vendor_id = 0;
    std::uint16_t product_id = 0;
    std::string name = "usb1";
    std::string manufacturer = "ACME";
    std::string product = "Pad 300";
    std::string serial_number = "USB0001";
    std::vector<UsbConfiguration> configurations = {};
    std::deque<Bytes> incoming =
        {}; // what the next IN transfers bring; the rest of one too long is brought by the next
    std::vector<Bytes> outgoing = {};
    std::function<void(UsbDevice&, const Bytes& sent)> answer = {}; // called after each OUT transfer, without the lock
    bool plugged = true;
};

// A VCOM pad with IN endpoint 81 and OUT endpoint 01. Which: an entry of vcom_device_list.
UsbDevice vcom_pad(std::string name = "usb1", std::size_t which = 0);

// A function that may take the place of a call. Copies share its state, so a mutable lambda can count. A test may set
// one while a thread of the library takes its copy.
template <class Signature> class Hook;

inline std::mutex hooks_mutex; // nothing else is locked while it is

template <class Result, class... Arguments> class Hook<Result(Arguments...)> {
  public:
    Hook() = default;
    template <class Function>
    requires std::is_invocable_r_v<Result, Function&, Arguments...> Hook(Function function)
        : function_(std::make_shared<std::function<Result(Arguments...)>>(std::move(function))) {}
    Hook(const Hook& other) : function_(other.function()) {}
    Hook& operator=(const Hook& other) {
        auto replaced = other.function(); // destroyed without the lock
        const std::lock_guard guard(hooks_mutex);
        function_.swap(replaced);
        return *this;
    }
    ~Hook() = default;

    explicit operator bool() const { return function() != nullptr; }
    Result operator()(Arguments... arguments) const { return (*function())(std::forward<Arguments>(arguments)...); }

  private:
    using Shared = std::shared_ptr<std::function<Result(Arguments...)>>;

    Shared function() const {
        const std::lock_guard guard(hooks_mutex);
        return function_;
    }

    Shared function_;
};

struct Hooks {
    Hook<std::optional<int>(const std::string& path)> open_path; // a non-zero result fails
    // Which is the function's name; the text goes to buffer.
    Hook<std::optional<int>(HidInterface&, std::string_view which, std::span<wchar_t> buffer)> get_string;
    // Reports include the report id.
    Hook<std::optional<int>(HidInterface&, std::span<const unsigned char> report)> send_feature;
    Hook<std::optional<int>(HidInterface&, std::span<unsigned char> report)> get_feature;
    Hook<std::optional<int>(HidInterface&, std::span<unsigned char> report)> read;
    Hook<void(unsigned int microseconds)> usleep; // after the clock was moved
    // Which is the function's name.
    Hook<std::optional<int>(UsbDevice&, std::string_view which)> usb;
    // The result of a transfer, 0 or an error code; bytes moved are counted in transferred.
    Hook<std::optional<int>(UsbDevice&, std::span<unsigned char> data, int& transferred)> bulk_in;
    Hook<std::optional<int>(UsbDevice&, std::span<const unsigned char> data, int& transferred)> bulk_out;
};

class Bus {
  public:
    void reset();

    HidInterface& plug(HidInterface pad);
    UsbDevice& plug(UsbDevice device);
    void unplug(HidInterface& pad);
    void plug_again(HidInterface& pad);
    void unplug(UsbDevice& device);
    void plug_again(UsbDevice& device);

    Hooks hooks;
    std::map<std::string, std::int64_t, std::less<>> cost_us;
    int hid_exit_result = 0;
    int libusb_init_result = 0;
    int device_list_result = 0;  // a negative one fails
    int gettimeofday_result = 0; // a negative one fails
    bool signals = false;        // end every pause after a millisecond
    int nonblocking_result = 0;  // of hid_set_nonblocking(); a negative one fails
    std::wstring hid_error_text = L"no text";

    std::int64_t now_us();
    void advance_us(std::int64_t microseconds);

    std::vector<std::string> log(std::string_view function = {});
    std::vector<std::string> take_log(std::string_view function = {});
    std::vector<unsigned int> pauses();
    std::vector<std::string> misuses();
    int open_handles();
    int open_lists();
    int usb_references(); // to devices, those of handles and lists included

    std::unique_lock<std::recursive_mutex> lock() { return std::unique_lock(mutex_); }

  private:
    friend struct Calls; // the stand-ins themselves

    std::recursive_mutex mutex_;
    std::deque<HidInterface> pads_;
    std::deque<UsbDevice> usb_devices_;
    std::deque<std::unique_ptr<hid_device_>> handles_; // kept until reset(), so that no address is given out twice
    std::deque<std::unique_ptr<libusb_device>> usb_nodes_;
    std::deque<std::unique_ptr<libusb_device_handle>> usb_handles_;
    std::vector<const void*> lists_;
    std::int64_t now_us_ = 0;
    std::vector<std::string> log_;
    std::vector<unsigned int> pauses_;
    std::vector<std::string> misuses_;
};

Bus& bus();

// A hook for one kind of call that gives these results in turn and then leaves the call to the default.
struct results {
    explicit results(std::initializer_list<int> values) : remaining(std::make_shared<std::deque<int>>(values)) {}
    results(std::size_t times, int value) : remaining(std::make_shared<std::deque<int>>(times, value)) {}

    template <class... Arguments> std::optional<int> operator()(Arguments&&...) const {
        const auto guard = bus().lock();
        if (remaining->empty()) {
            return std::nullopt;
        }
        const int result = remaining->front();
        remaining->pop_front();
        return result;
    }

    std::shared_ptr<std::deque<int>> remaining;
};

// A hook that gives the same result for ever.
struct always {
    int result;

    template <class... Arguments> std::optional<int> operator()(Arguments&&...) const { return result; }
};

// "65: 00 11": the size, then the bytes up to the last that is not zero.
std::string describe(std::span<const unsigned char> bytes);

} // namespace standins
