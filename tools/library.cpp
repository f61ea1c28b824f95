#include "library.hpp"

#include "search_watch.hpp"
#include "text.hpp"

#include "../src/transport/usb_id_tables.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <vxpadcom/internals.h>
#include <vxpadcom/vxpadcom.h>

namespace vxpadctl {

namespace {

using TextBuffer = std::array<char16_t, VXPAD_MAX_STRING_LENGTH>;

// Calls read(buffer, size, &length) and returns the text; the length is no help, it counts differently everywhere.
template <typename Read> std::string read_text(Read read) {
    TextBuffer buffer{};
    unsigned int length = 0;
    read(buffer.data(), static_cast<int>(buffer.size()), &length);
    return to_utf8({buffer.data(), buffer.size()});
}

std::string describe_failure(int handle) {
    const auto record = static_cast<unsigned int>(handle);
    unsigned int code = 0;
    GetExceptionCode(record, &code);
    const std::string function = read_text([&](auto... out) { GetExceptionName(record, out...); });
    const std::string message = read_text([&](auto... out) { GetExceptionMessage(record, out...); });
    const std::string name = read_text([&](auto... out) { TranslateErrorCode(code, out...); });
    return message + " (" + function + ", " + name + ")";
}

template <typename Read> std::string checked_text(Read read) {
    return read_text([&](auto... out) { check(read(out...)); });
}

template <typename Read> unsigned int checked_number(Read read) {
    unsigned int number = 0;
    check(read(&number));
    return number;
}

// The application's part of the interface does not tell the transport, but the identity text of the selected pad
// begins with 18 digits and "HID: " or "VCOM: ".
std::string transport_of_selected_pad() {
    constexpr std::size_t digits = 18;
    char settings[VXPAD_MAX_STRING_LENGTH + 1] = {};
    if (core_get_pad_settings(settings) <= static_cast<int>(digits)) {
        return {};
    }
    const std::string_view text = std::string_view(settings).substr(digits);
    for (const std::string_view transport : {"HID", "VCOM"}) {
        if (text.starts_with(transport)) {
            return std::string(transport);
        }
    }
    return {};
}

// Reports travel with a report-id byte in front.
Bytes with_report_id(std::span<const std::uint8_t> payload) {
    Bytes report;
    report.reserve(payload.size() + 1);
    report.push_back(0);
    report.insert(report.end(), payload.begin(), payload.end());
    return report;
}

Bytes without_report_id(const Bytes& report) {
    return {report.begin() + 1, report.end()};
}

} // namespace

void check(int handle) {
    if (handle != 0) {
        throw LibraryError(describe_failure(handle));
    }
}

Session::Session()
    : before_{std::make_unique<const PadsBefore>(PadsBefore{list_on_bus(searched_ids(read_added_ids().ids))})} {
    const SearchWatch watch{*before_};
    Initialize();
}

Session::~Session() {
    Deinitialize();
}

unsigned int Session::pad_count() const {
    unsigned int unused = 0;
    return static_cast<unsigned int>(GetDeviceCount(&unused));
}

Pad describe_pad(unsigned int number) {
    Pad pad{};
    pad.number = number;
    pad.maker = checked_text([&](auto... out) { return GetVendorName(number, out...); });
    pad.product = checked_text([&](auto... out) { return GetProductName(number, 0, out...); });
    pad.product.erase(pad.product.find_last_not_of(' ') + 1);
    pad.serial = checked_text([&](auto... out) { return GetSerialNumber(number, out...); });
    pad.id = usb_id(number);
    pad.interfaces = interface_count(number);
    pad.feature_report_size = feature_report_size(number, 0);
    pad.transport = transport_of_selected_pad();
    return pad;
}

UsbId usb_id(unsigned int pad) {
    return {checked_number([&](auto out) { return GetVendorId(pad, out); }),
            checked_number([&](auto out) { return GetProductId(pad, 0, out); })};
}

unsigned int interface_count(unsigned int pad) {
    return checked_number([&](auto out) { return GetEndPointCount(pad, out); });
}

unsigned int feature_report_size(unsigned int pad, unsigned int interface) {
    return checked_number([&](auto out) { return GetFeatureReportSize(pad, interface, out); }) - 1;
}

// The application's part of the interface does not tell this one either. Asking for the interfaces selects the pad.
unsigned int input_report_size(unsigned int pad) {
    interface_count(pad);
    const int size = core_get_max_packet_size_of_input_report();
    if (size < 1) {
        throw LibraryError("the size of the pad's input reports is unknown");
    }
    return static_cast<unsigned int>(size);
}

void set_feature(unsigned int pad, unsigned int interface, std::span<const std::uint8_t> payload) {
    const Bytes report = with_report_id(payload);
    unsigned int moved = 0;
    check(SetFeature(pad, interface, report.data(), static_cast<unsigned int>(report.size()), &moved));
}

Bytes get_feature(unsigned int pad, unsigned int interface, unsigned int size) {
    Bytes report(size + 1);
    unsigned int moved = 0;
    check(GetFeature(pad, interface, report.data(), size + 1, &moved));
    return without_report_id(report);
}

void write_report(unsigned int pad, unsigned int interface, std::span<const std::uint8_t> payload) {
    const Bytes report = with_report_id(payload);
    unsigned int moved = 0;
    check(WriteFile(pad, interface, report.data(), static_cast<unsigned int>(report.size()), &moved));
}

std::optional<Bytes> take_report(unsigned int pad, unsigned int interface, unsigned int size) {
    Bytes report(size + 1);
    unsigned int moved = 0;
    check(ReadFile(pad, interface, report.data(), size + 1, &moved));
    if (moved == 0) {
        return std::nullopt;
    }
    return without_report_id(report);
}

std::size_t upload_pieces(unsigned int pad, std::uint32_t interfaces, std::span<const std::uint8_t> payload,
                          std::size_t piece_size) {
    Bytes reports;
    for (; !payload.empty(); payload = payload.subspan(piece_size)) {
        const Bytes report = with_report_id(payload.first(piece_size));
        reports.insert(reports.end(), report.begin(), report.end());
    }
    unsigned int moved = 0;
    check(WriteFileBuffer(pad, interfaces, reports.data(), static_cast<unsigned int>(reports.size()), &moved));
    return moved / (piece_size + 1);
}

std::optional<unsigned int> output_packet_size(unsigned int pad) {
    interface_count(pad);
    const int size = core_get_max_packet_size_of_out_endpoint();
    return size < 1 ? std::nullopt : std::optional(static_cast<unsigned int>(size));
}

void send_message(unsigned int pad, unsigned int interface, std::span<const std::uint8_t> message) {
    check(SendSspMessage(pad, interface, message.data(), static_cast<unsigned int>(message.size())));
}

// The library does not tell a time-out from another failure, but only the former takes its time.
std::optional<Bytes> receive_message(unsigned int pad, unsigned int interface, unsigned int time_out) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(time_out);
    Bytes message(longest_message);
    unsigned int size = 0;
    const int handle =
        ReceiveSspMessage(pad, interface, message.data(), static_cast<unsigned int>(message.size()), time_out, &size);
    if (handle != 0 && std::chrono::steady_clock::now() >= deadline) {
        return std::nullopt;
    }
    check(handle);
    message.resize(size);
    return message;
}

PenData::PenData(unsigned int pad, unsigned int interface) : interface_{interface}, buffer_(input_report_size(pad)) {
    if (core_enable_ssp_biodata_sending() < 0) {
        throw LibraryError("the pen data of pad " + std::to_string(pad) + " cannot be switched on");
    }
}

PenData::~PenData() {
    core_disable_ssp_biodata_sending();
}

// A record of pen data is often shorter than a report, which ReadFile() takes for a failure.
std::optional<Bytes> PenData::take() {
    const int size = core_get_hid_input_report(interface_, buffer_.data(), static_cast<int>(buffer_.size()));
    if (size < 0) {
        throw LibraryError("the pen data cannot be read");
    }
    if (size == 0) {
        return std::nullopt;
    }
    return Bytes(buffer_.begin(), buffer_.begin() + size);
}

UsbId id_of(const id_lines::Id& id) {
    return {id.vendor_id, id.product_id};
}

std::string to_text(const UsbId& id) {
    return hex_id(id.vendor) + ":" + hex_id(id.product);
}

unsigned int pad_type(UsbId id, std::span<const AddedId> added) {
    const auto line = std::ranges::find(added, id, [](const AddedId& one) { return id_of(one.id); });
    if (line != added.end()) {
        return line->id.pad_type;
    }
    const auto type = usb_id_tables::pad_type(id.vendor, id.product);
    if (!type.unknown) {
        return type.type;
    }
    // A VCOM pad that tells ids which nobody knows: its type is that of the line by which it was found.
    const auto found_by =
        std::ranges::find(added, id_lines::Transport::vcom, [](const AddedId& one) { return one.id.transport; });
    return found_by == added.end() ? 0 : found_by->id.pad_type;
}

std::vector<SearchedId> searched_ids(std::span<const AddedId> added) {
    std::vector<SearchedId> ids;
    for (const AddedId& one : added) {
        ids.push_back({.id = id_of(one.id), .from_file = true});
    }
    for (const BuiltInId& one : built_in_ids()) {
        if (std::ranges::find(added, one.id, [](const AddedId& other) { return id_of(other.id); }) == added.end()) {
            ids.push_back({one.id, one.maker});
        }
    }
    return ids;
}

std::vector<BuiltInId> built_in_ids() {
    using id_lines::Transport;
    std::vector<BuiltInId> ids;
    for (const usb_id_tables::Pair& pair : usb_id_tables::hid_pairs) {
        const unsigned int type = usb_id_tables::pad_type(pair.vendor_id, pair.product_id).type;
        ids.push_back({{pair.vendor_id, pair.product_id}, Transport::hid, type, {}});
    }
    for (const usb_id_tables::Pair& pair : usb_id_tables::vcom_pairs) {
        ids.push_back({{pair.vendor_id, pair.product_id}, Transport::vcom, std::nullopt, {}});
    }
    for (const std::string_view maker : usb_ids::vcom_named_makers) {
        ids.push_back(
            {{usb_ids::vcom_named_vendor, usb_ids::vcom_named_product}, Transport::vcom, std::nullopt, maker});
    }
    return ids;
}

void send_error_lines_to_syslog() {
    daemon_proc = 1;
}

void turn_on_tracing() {
    for (const char* name : {"LIBVXPADCOM_DEBUG", "LIBVXPADCOM_DEBUG_FUNC", "LIBVXPADCOM_DEBUG_MUTEX"}) {
        ::setenv(name, "1", 1);
    }
}

} // namespace vxpadctl
