#include "library.hpp"

#include "text.hpp"

#include <array>
#include <cstdlib>
#include <vxpadcom/vxpadcom.h>

namespace vxpadctl {

namespace {

using TextBuffer = std::array<char16_t, VXPAD_MAX_STRING_LENGTH>;

// Calls read(buffer, size, &length) and returns the text; the length is no help, it counts differently everywhere.
template <typename Read> std::string read_text(Read read) {
    TextBuffer buffer{};
    unsigned length = 0;
    read(buffer.data(), static_cast<int>(buffer.size()), &length);
    return to_utf8({buffer.data(), buffer.size()});
}

std::string describe_failure(int handle) {
    const auto record = static_cast<unsigned>(handle);
    unsigned code = 0;
    GetExceptionCode(record, &code);
    const std::string function = read_text([&](auto... out) { GetExceptionName(record, out...); });
    const std::string message = read_text([&](auto... out) { GetExceptionMessage(record, out...); });
    const std::string name = read_text([&](auto... out) { TranslateErrorCode(code, out...); });
    return message + " (" + function + ", " + name + ")";
}

void check(int handle) {
    if (handle != 0)
        throw LibraryError(describe_failure(handle));
}

template <typename Read> std::string checked_text(Read read) {
    return read_text([&](auto... out) { check(read(out...)); });
}

template <typename Read> unsigned checked_number(Read read) {
    unsigned number = 0;
    check(read(&number));
    return number;
}

// The application's part of the interface does not tell the transport, but the identity text of the selected pad
// begins with 18 digits and "HID: " or "VCOM: ".
std::string transport_of_selected_pad() {
    constexpr std::size_t digits = 18;
    char settings[VXPAD_MAX_STRING_LENGTH + 1] = {};
    if (core_get_pad_settings(settings) <= static_cast<int>(digits))
        return {};
    const std::string_view text = std::string_view(settings).substr(digits);
    for (const std::string_view transport : {"HID", "VCOM"})
        if (text.starts_with(transport))
            return std::string(transport);
    return {};
}

// Reports travel with a report-id byte in front.
Bytes with_report_id(std::span<const std::uint8_t> payload) {
    Bytes report(payload.size() + 1);
    std::copy(payload.begin(), payload.end(), report.begin() + 1);
    return report;
}

Bytes without_report_id(const Bytes& report) {
    return {report.begin() + 1, report.end()};
}

} // namespace

Session::Session() {
    Initialize();
}

Session::~Session() {
    Deinitialize();
}

unsigned Session::pad_count() const {
    unsigned unused = 0;
    return static_cast<unsigned>(GetDeviceCount(&unused));
}

Pad describe_pad(unsigned number) {
    Pad pad{};
    pad.number = number;
    pad.maker = checked_text([&](auto... out) { return GetVendorName(number, out...); });
    pad.product = checked_text([&](auto... out) { return GetProductName(number, 0, out...); });
    pad.product.erase(pad.product.find_last_not_of(' ') + 1);
    pad.serial = checked_text([&](auto... out) { return GetSerialNumber(number, out...); });
    pad.id.vendor = checked_number([&](auto out) { return GetVendorId(number, out); });
    pad.id.product = checked_number([&](auto out) { return GetProductId(number, 0, out); });
    pad.interfaces = interface_count(number);
    pad.feature_report_size = feature_report_size(number, 0);
    pad.transport = transport_of_selected_pad();
    return pad;
}

unsigned interface_count(unsigned pad) {
    return checked_number([&](auto out) { return GetEndPointCount(pad, out); });
}

unsigned feature_report_size(unsigned pad, unsigned interface) {
    return checked_number([&](auto out) { return GetFeatureReportSize(pad, interface, out); }) - 1;
}

// The application's part of the interface does not tell this one either. Asking for the interfaces selects the pad.
unsigned input_report_size(unsigned pad) {
    interface_count(pad);
    const int size = core_get_max_packet_size_of_input_report();
    if (size < 1)
        throw LibraryError("the size of the pad's input reports is unknown");
    return static_cast<unsigned>(size);
}

void set_feature(unsigned pad, unsigned interface, std::span<const std::uint8_t> payload) {
    const Bytes report = with_report_id(payload);
    unsigned moved = 0;
    check(SetFeature(pad, interface, report.data(), static_cast<unsigned>(report.size()), &moved));
}

Bytes get_feature(unsigned pad, unsigned interface, unsigned size) {
    Bytes report(size + 1);
    unsigned moved = 0;
    check(GetFeature(pad, interface, report.data(), size + 1, &moved));
    return without_report_id(report);
}

void write_report(unsigned pad, unsigned interface, std::span<const std::uint8_t> payload) {
    const Bytes report = with_report_id(payload);
    unsigned moved = 0;
    check(WriteFile(pad, interface, report.data(), static_cast<unsigned>(report.size()), &moved));
}

std::optional<Bytes> take_report(unsigned pad, unsigned interface, unsigned size) {
    Bytes report(size + 1);
    unsigned moved = 0;
    check(ReadFile(pad, interface, report.data(), size + 1, &moved));
    if (moved == 0)
        return std::nullopt;
    return without_report_id(report);
}

std::vector<UsbId> searched_ids() {
    std::vector<UsbId> ids;
    for (const vx_usb_id* id = hid_device_list; id->vendor_id != 0; ++id)
        ids.push_back({id->vendor_id, id->product_id});
    return ids;
}

void send_error_lines_to_syslog() {
    daemon_proc = 1;
}

void turn_on_tracing() {
    for (const char* name : {"LIBVXPADCOM_DEBUG", "LIBVXPADCOM_DEBUG_FUNC", "LIBVXPADCOM_DEBUG_MUTEX"})
        ::setenv(name, "1", 1);
}

} // namespace vxpadctl
