// libvxpadcom for C++17 and newer: header only, exceptions in place of handles, UTF-8 text, lifetimes in place of
// stops.
//
//     vxpadcom::session session;
//     for (const vxpadcom::pad& pad : session) {
//         std::cout << pad.number() << ": " << pad.product_name() << '\n';
//     }
//     vxpadcom::reception reports{session[1]};
//     while (auto report = reports.next(std::chrono::seconds{10})) { ... }
//
// What vxpadcom/vxpadcom.h says of threads, callbacks, sizes and failures holds here too. A report is without its
// report id. Whatever fails throws vxpadcom::error.
#ifndef VXPADCOM_VXPADCOM_HPP
#define VXPADCOM_VXPADCOM_HPP

#include "vxpadcom/vxpadcom.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace vxpadcom {

using byte_buffer = std::vector<unsigned char>;

// Bytes of somebody else's, as std::span<const unsigned char> is in C++20; either converts into the other.
class bytes {
  public:
    constexpr bytes() = default;
    constexpr bytes(const unsigned char* data, std::size_t size) : data_{data}, size_{size} {}
    template <class Container,
              class = std::enable_if_t<
                  std::is_convertible_v<decltype(std::declval<const Container&>().data()), const unsigned char*>>,
              class = decltype(std::declval<const Container&>().size())>
    constexpr bytes(const Container& container) : bytes{container.data(), container.size()} {}
    template <std::size_t size> constexpr bytes(const unsigned char (&array)[size]) : bytes{array, size} {}

    constexpr const unsigned char* data() const { return data_; }
    constexpr std::size_t size() const { return size_; }
    constexpr bool empty() const { return size_ == 0; }
    constexpr const unsigned char* begin() const { return data_; }
    constexpr const unsigned char* end() const { return data_ + size_; }
    constexpr unsigned char operator[](std::size_t index) const { return data_[index]; }

  private:
    const unsigned char* data_ = nullptr;
    std::size_t size_ = 0;
};

// UTF-8 from 16-bit units up to the terminator. What is no character becomes U+FFFD; so does U+FFFF, which the library
// gives for letters of a pad's names that are beyond ASCII.
inline std::string to_utf8(std::u16string_view units) {
    std::string text;
    units = units.substr(0, units.find(u'\0'));
    for (std::size_t i = 0; i < units.size(); ++i) {
        char32_t c = units[i];
        const bool leads = c >= 0xd800 && c < 0xdc00;
        if (leads && i + 1 < units.size() && units[i + 1] >= 0xdc00 && units[i + 1] < 0xe000) {
            c = 0x10000 + ((c - 0xd800) << 10) + (units[++i] - 0xdc00u);
        } else if ((c >= 0xd800 && c < 0xe000) || c == 0xffff) {
            c = 0xfffd;
        }
        const int tails = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
        constexpr std::array<unsigned int, 4> leads_of{0x00, 0xc0, 0xe0, 0xf0};
        text += static_cast<char>(leads_of[static_cast<std::size_t>(tails)] | c >> 6 * tails);
        for (int tail = tails - 1; tail >= 0; --tail) {
            text += static_cast<char>(0x80 | (c >> 6 * tail & 0x3f));
        }
    }
    return text;
}

// The one exception of this header: what() is "function: message". Where no function of the library has failed, the
// function is the class that has.
class error : public std::runtime_error {
  public:
    error(int code, std::string function, std::string message)
        : std::runtime_error{function + ": " + message}, code_{code}, function_{std::move(function)},
          message_{std::move(message)} {}

    int code() const noexcept { return code_; } // VXPCEC_INVALID_PARAMETER and the like
    const std::string& function() const noexcept { return function_; }
    const std::string& message() const noexcept { return message_; }

  private:
    int code_;
    std::string function_;
    std::string message_;
};

namespace detail {

template <class Function, class... Arguments> std::string text_of(Function function, Arguments... arguments) {
    std::array<char16_t, VXPAD_MAX_STRING_LENGTH> units{};
    unsigned int reply = 0;
    function(arguments..., units.data(), static_cast<int>(units.size()), &reply);
    return to_utf8({units.data(), units.size()});
}

// Throws what the record behind a result says.
inline void check(int result) {
    if (result == 0) {
        return;
    }
    const auto handle = static_cast<unsigned int>(result);
    unsigned int code = 0;
    GetExceptionCode(handle, &code);
    throw error{static_cast<int>(code), text_of(GetExceptionName, handle), text_of(GetExceptionMessage, handle)};
}

inline unsigned int length_of(std::size_t size) {
    if (size > 0xffffffffu) {
        throw error{VXPCEC_INVALID_PARAMETER, "bytes", "more than a call takes"};
    }
    return static_cast<unsigned int>(size);
}

} // namespace detail

// Part of an upload that the pad has taken, in bytes of the data.
struct upload_progress {
    std::size_t sent;
    std::size_t total;
};

// A number with calls on it: copy it as you like. It means a pad until the session ends or searches again.
// Interfaces are counted from 0.
class pad {
  public:
    static constexpr unsigned int all_interfaces = 0xffffffff;

    explicit pad(unsigned int number) : number_{number} {}

    unsigned int number() const { return number_; } // from 1
    friend bool operator==(pad a, pad b) { return a.number_ == b.number_; }
    friend bool operator!=(pad a, pad b) { return a.number_ != b.number_; }

    std::string serial_number() const { return text(GetSerialNumber, number_); }
    std::string vendor_name() const { return text(GetVendorName, number_); }
    std::string product_name() const {
        std::string name = text(GetProductName, number_, 0u);
        name.erase(name.find_last_not_of(' ') + 1);
        return name;
    }
    unsigned int vendor_id() const { return ask(GetVendorId, number_); }
    unsigned int product_id() const { return ask(GetProductId, number_, 0u); }
    unsigned int interface_count() const { return ask(GetEndPointCount, number_); }

    // Bytes of a full report.
    std::size_t report_size(unsigned int interface = 0) const {
        return std::max(ask(GetFeatureReportSize, number_, interface), 2u) - 1;
    }

    // A feature report of a given size, or of the full one.
    byte_buffer get_feature(unsigned int interface, std::size_t size) const {
        byte_buffer room(1 + size);
        unsigned int reply = 0;
        detail::check(GetFeature(number_, interface, room.data(), detail::length_of(room.size()), &reply));
        room.erase(room.begin());
        return room;
    }
    byte_buffer get_feature(unsigned int interface = 0) const { return get_feature(interface, report_size(interface)); }

    void set_feature(bytes report, unsigned int interface = 0) const { send(SetFeature, report, interface); }
    void write(bytes report, unsigned int interface = 0) const { send(WriteFile, report, interface); } // output report

    // An input report of the pad's full size (20 bytes for pads of type 1) that waits, or nothing.
    std::optional<byte_buffer> read(unsigned int interface, std::size_t size) const {
        byte_buffer room(1 + size);
        unsigned int reply = 0;
        detail::check(ReadFile(number_, interface, room.data(), detail::length_of(room.size()), &reply));
        if (reply == 0) {
            return std::nullopt;
        }
        room.erase(room.begin());
        return room;
    }
    std::optional<byte_buffer> read(unsigned int interface = 0) const {
        return read(interface, report_size(interface));
    }

    // Sends data over several interfaces at once, bit i of interfaces being interface i; progress is called between
    // parts. An upload that ends early has sent less than its total; the next one begins with its own first byte.
    upload_progress upload(bytes data, unsigned int interfaces = all_interfaces,
                           const std::function<void(upload_progress)>& progress = {}) const {
        const std::size_t payload = report_size();
        constexpr std::size_t pieces_in_part = 1024;
        upload_progress so_far{0, data.size()};
        byte_buffer part{0};
        unsigned int reply = 0;
        // Too short to be sent: it takes back the position that an upload which ended early has left.
        detail::check(WriteFileBuffer(number_, interfaces, part.data(), detail::length_of(part.size()), &reply));
        while (so_far.sent < data.size()) {
            part.clear();
            for (std::size_t at = so_far.sent; at < data.size() && part.size() < pieces_in_part * (1 + payload);
                 at += payload) {
                const std::size_t size = std::min(payload, data.size() - at);
                part.push_back(0);
                part.insert(part.end(), data.begin() + at, data.begin() + at + size);
                part.resize(part.size() + payload - size);
            }
            detail::check(WriteFileBuffer(number_, interfaces, part.data(), detail::length_of(part.size()), &reply));
            so_far.sent = std::min(data.size(), so_far.sent + reply / (1 + payload) * payload);
            if (progress) {
                progress(so_far);
            }
            if (reply < part.size()) {
                break;
            }
        }
        return so_far;
    }

    void send_ssp(bytes message, unsigned int interface = 0) const {
        detail::check(SendSspMessage(number_, interface, message.data(), detail::length_of(message.size())));
    }

    // One SSP message of at most so many bytes that is no pen data: that comes to receiver and reception, which switch
    // it on. That none comes in time is a failure.
    byte_buffer receive_ssp(std::chrono::milliseconds time_out, unsigned int interface = 0,
                            std::size_t size = 4096) const {
        byte_buffer room(size);
        unsigned int reply = 0;
        const auto limit =
            static_cast<unsigned int>(std::clamp<std::chrono::milliseconds::rep>(time_out.count(), 0, 0x7fffffff));
        detail::check(
            ReceiveSspMessage(number_, interface, room.data(), detail::length_of(room.size()), limit, &reply));
        room.resize(std::min<std::size_t>(reply, room.size()));
        return room;
    }

  private:
    template <class Function, class... Arguments> static std::string text(Function function, Arguments... arguments) {
        std::array<char16_t, VXPAD_MAX_STRING_LENGTH> units{};
        unsigned int reply = 0;
        detail::check(function(arguments..., units.data(), static_cast<int>(units.size()), &reply));
        return to_utf8({units.data(), units.size()});
    }

    template <class Function, class... Arguments> static unsigned int ask(Function function, Arguments... arguments) {
        unsigned int reply = 0;
        detail::check(function(arguments..., &reply));
        return reply;
    }

    template <class Function> void send(Function function, bytes report, unsigned int interface) const {
        byte_buffer buffer(1 + std::size_t{detail::length_of(report.size())});
        std::copy(report.begin(), report.end(), buffer.begin() + 1);
        unsigned int reply = 0;
        detail::check(function(number_, interface, buffer.data(), detail::length_of(buffer.size()), &reply));
    }

    unsigned int number_;
};

namespace detail {

// Whoever receives from one interface.
struct receiver_state {
    std::function<void(bytes)> on_report;
    std::function<void()> on_removed;
    std::function<void()> on_ended;
    std::recursive_mutex running; // held over all three: who has taken it knows that none runs
};

// What the library's callbacks find. Never destroyed, and what it holds is shared: a thread of the library may be
// inside a callback while its owner goes, or the process ends.
struct hub {
    static constexpr std::size_t pads = 16;
    static constexpr std::size_t interfaces = 8;

    std::mutex lock;
    bool has_session = false;
    std::shared_ptr<const std::function<void(pad)>> on_removed;
    std::shared_ptr<const std::function<void(const std::string&)>> on_log;
    std::array<std::array<std::shared_ptr<receiver_state>, interfaces>, pads> receivers;

    std::shared_ptr<receiver_state> receiver(unsigned int device, unsigned int interface) {
        const std::lock_guard guard{lock};
        return device < pads && interface < interfaces ? receivers[device][interface] : nullptr;
    }

    bool add(unsigned int device, unsigned int interface, const std::shared_ptr<receiver_state>& receiver) {
        const std::lock_guard guard{lock};
        if (device < pads && interface < interfaces) {
            if (receivers[device][interface]) {
                return false;
            }
            receivers[device][interface] = receiver;
        }
        return true;
    }

    void remove(unsigned int device, unsigned int interface) {
        const std::lock_guard guard{lock};
        if (device < pads && interface < interfaces) {
            receivers[device][interface] = nullptr;
        }
    }

    // None of them is called any more.
    void end_receivers() {
        std::vector<std::shared_ptr<receiver_state>> ended;
        {
            const std::lock_guard guard{lock};
            for (auto& of_pad : receivers) {
                for (auto& one : of_pad) {
                    if (one) {
                        ended.push_back(std::exchange(one, nullptr));
                    }
                }
            }
        }
        for (const auto& one : ended) {
            const std::lock_guard running{one->running};
            if (one->on_ended) {
                one->on_ended();
            }
        }
    }
};

inline hub& the_hub() {
    static hub& made = *new hub;
    return made;
}

inline void on_data(void*, unsigned int device, unsigned int interface, const void* data,
                    unsigned int length) noexcept {
    if (const auto receiver = the_hub().receiver(device, interface)) {
        const std::lock_guard running{receiver->running};
        if (receiver->on_report) {
            receiver->on_report({static_cast<const unsigned char*>(data), length});
        }
    }
}

inline void on_removed(void*, unsigned int device) noexcept {
    for (unsigned int interface = 0; interface < hub::interfaces; ++interface) {
        if (const auto receiver = the_hub().receiver(device, interface)) {
            const std::lock_guard running{receiver->running};
            if (receiver->on_removed) {
                receiver->on_removed();
            }
        }
    }
    std::unique_lock guard{the_hub().lock};
    if (const auto function = the_hub().on_removed) {
        guard.unlock();
        (*function)(pad{device});
    }
}

inline void on_log(void*, const char16_t* message) noexcept {
    std::unique_lock guard{the_hub().lock};
    if (const auto function = the_hub().on_log) {
        guard.unlock();
        (*function)(to_utf8(message));
    }
}

} // namespace detail

// Finds the pads as it begins and closes them as it ends, with all receiving. One at a time in a process.
// Callbacks run on the thread that has something to say and must not throw; what they must not call stands in
// vxpadcom/vxpadcom.h.
class session {
  public:
    session() {
        {
            const std::lock_guard guard{detail::the_hub().lock};
            if (detail::the_hub().has_session) {
                throw error{VXPCEC_INVALID_PARAMETER, "session", "there is one already in this process"};
            }
            detail::the_hub().has_session = true;
        }
        try {
            search();
        } catch (...) {
            close();
            throw;
        }
    }
    session(const session&) = delete;
    session& operator=(const session&) = delete;
    ~session() { close(); }

    // Searches again. What was a pad before may be another one now, and all receiving has ended.
    void search() {
        detail::the_hub().end_receivers();
        Initialize();
        SetOnDeviceRemovedHandler(detail::on_removed, nullptr);
        register_log();
        pads_.clear();
        unsigned int unused = 0;
        const int count = GetDeviceCount(&unused);
        for (int number = 1; number <= count; ++number) {
            pads_.emplace_back(static_cast<unsigned int>(number));
        }
    }

    // Called with a pad that was found unplugged, perhaps several times for one removal. Empty turns it off.
    void on_removed(std::function<void(pad)> function) {
        const std::lock_guard guard{detail::the_hub().lock};
        detail::the_hub().on_removed = shared(std::move(function));
    }

    // Called with each message of the library, which are many. Empty turns it off.
    void on_log(std::function<void(const std::string&)> function) {
        {
            const std::lock_guard guard{detail::the_hub().lock};
            detail::the_hub().on_log = shared(std::move(function));
        }
        register_log();
    }

    std::size_t size() const { return pads_.size(); }
    std::vector<pad>::const_iterator begin() const { return pads_.begin(); }
    std::vector<pad>::const_iterator end() const { return pads_.end(); }
    const pad& operator[](std::size_t number) const { // from 1, as vxpadctl counts them
        if (number == 0 || number > pads_.size()) {
            throw error{VXPCEC_INVALID_HANDLE, "session",
                        "there is no pad " + std::to_string(number) +
                            (pads_.empty() ? ": none was found" : ": only 1 to " + std::to_string(pads_.size())) +
                            " ('vxpadctl list' tells why)"};
        }
        return pads_[number - 1];
    }

  private:
    static void close() {
        detail::the_hub().end_receivers();
        Deinitialize();
        const std::lock_guard guard{detail::the_hub().lock};
        detail::the_hub().on_removed = nullptr;
        detail::the_hub().on_log = nullptr;
        detail::the_hub().has_session = false;
    }

    template <class Function> static std::shared_ptr<const Function> shared(Function function) {
        return function ? std::make_shared<const Function>(std::move(function)) : nullptr;
    }

    static void register_log() {
        std::unique_lock guard{detail::the_hub().lock};
        const bool is_wanted = detail::the_hub().on_log != nullptr;
        guard.unlock();
        const vxpad_logging_callback callback = is_wanted ? detail::on_log : nullptr;
        RegisterLoggingCallBackProcedure(reinterpret_cast<void*>(callback), nullptr);
    }

    std::vector<pad> pads_;
};

// Calls a function with each input report of an interface, always 64 bytes, on a thread of the library, as long as it
// lives; so the function must not throw, nor end its own receiver. Only one receiver for an interface at a time.
// on_removed is called, perhaps several times, when the pad is found unplugged; on_ended when the session ends or
// searches again. Nothing comes any more then.
class receiver {
  public:
    receiver(pad from, std::function<void(bytes)> on_report, unsigned int interface = 0,
             std::function<void()> on_removed = {}, std::function<void()> on_ended = {})
        : device_{from.number()}, interface_{interface}, state_{std::make_shared<detail::receiver_state>()} {
        state_->on_report = std::move(on_report);
        state_->on_removed = std::move(on_removed);
        state_->on_ended = std::move(on_ended);
        if (interface_ > 0 && interface_ >= from.interface_count()) { // of which nothing would ever come
            throw error{VXPCEC_INVALID_PARAMETER, "receiver", "there is no " + named()};
        }
        if (!detail::the_hub().add(device_, interface_, state_)) {
            throw error{VXPCEC_INVALID_PARAMETER, "receiver", named() + " is being received from already"};
        }
        try {
            detail::check(SetOnDataReceivedHandler(device_, interface_, detail::on_data, nullptr));
            if (SetDataReceivingEnabled(device_, interface_, 1) != 0) { // names no record
                throw error{VXPCEC_UNKNOWN, "SetDataReceivingEnabled", named() + " cannot be received from"};
            }
        } catch (...) {
            stop();
            throw;
        }
    }
    receiver(const receiver&) = delete;
    receiver& operator=(const receiver&) = delete;
    ~receiver() { stop(); }

  private:
    std::string named() const {
        return "interface " + std::to_string(interface_) + " of pad " + std::to_string(device_);
    }

    void stop() {
        if (detail::the_hub().receiver(device_, interface_) == state_) {
            SetDataReceivingEnabled(device_, interface_, 0);
            SetOnDataReceivedHandler(device_, interface_, nullptr, nullptr);
            detail::the_hub().remove(device_, interface_);
        }
        const std::lock_guard running{state_->running};
        state_->on_report = {};
        state_->on_removed = {};
        state_->on_ended = {};
    }

    unsigned int device_;
    unsigned int interface_;
    std::shared_ptr<detail::receiver_state> state_;
};

// The input reports of an interface one after the other, for a loop.
class reception {
  public:
    static constexpr std::size_t most_waiting = 100000; // beyond them the oldest are lost

    explicit reception(pad from, unsigned int interface = 0)
        : receiver_{from, [this](bytes report) { put(report); }, interface,
                    [this, from] { end("pad " + std::to_string(from.number()) + " was removed"); },
                    [this] { end("the session has ended, or searched again"); }} {}

    // Waits for the next report, at most so long; nothing where none has come. Throws when no more can come, because
    // the pad was removed or the session has ended.
    std::optional<byte_buffer> next(std::chrono::milliseconds patience) {
        constexpr std::chrono::hours longest{24 * 365}; // what a clock can add
        return next_until(std::chrono::steady_clock::now() + std::min<std::chrono::milliseconds>(patience, longest));
    }
    std::optional<byte_buffer> next_until(std::chrono::steady_clock::time_point deadline) {
        std::unique_lock guard{lock_};
        changed_.wait_until(guard, deadline, [this] { return !reports_.empty() || !end_.empty(); });
        if (!reports_.empty()) {
            byte_buffer report = std::move(reports_.front());
            reports_.pop_front();
            return report;
        }
        if (!end_.empty()) {
            throw error{VXPCEC_INVALID_HANDLE, "reception", end_};
        }
        return std::nullopt;
    }

    std::size_t lost() const { // reports that nobody took in time
        const std::lock_guard guard{lock_};
        return lost_;
    }

  private:
    void put(bytes report) {
        const std::lock_guard guard{lock_};
        if (reports_.size() == most_waiting) {
            reports_.pop_front();
            ++lost_;
        }
        reports_.emplace_back(report.begin(), report.end());
        changed_.notify_all();
    }

    void end(const std::string& why) {
        const std::lock_guard guard{lock_};
        if (end_.empty()) {
            end_ = why;
        }
        changed_.notify_all();
    }

    mutable std::mutex lock_;
    std::condition_variable changed_;
    std::deque<byte_buffer> reports_;
    std::size_t lost_ = 0;
    std::string end_;   // why nothing comes any more
    receiver receiver_; // the last: it calls the others
};

} // namespace vxpadcom

#endif
