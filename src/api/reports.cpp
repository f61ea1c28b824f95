// Single reports between the application and one interface of one pad.
#include "session/call.hpp"
#include "support/owners.hpp"
#include "vxpadcom/internals/control_requests.h"
#include "vxpadcom/vxpadcom.h"

namespace {

constexpr int wrong_argument = VXPCEC_INVALID_PARAMETER;

struct PacketSizeQuery {
    int (*core)();
    const char* core_name;
};
constexpr PacketSizeQuery out_endpoint{core_get_max_packet_size_of_out_endpoint,
                                       "core_get_max_packet_size_of_out_endpoint()"};
constexpr PacketSizeQuery input_report{core_get_max_packet_size_of_input_report,
                                       "core_get_max_packet_size_of_input_report()"};

// What the four functions say and ask differently before their transfer.
struct Checks {
    const char* buffer_is_null;
    unsigned int shortest; // length with the report-id byte
    const char* too_short;
    PacketSizeQuery packet_size;
    bool logs_packet_size = false;
    const char* too_long = nullptr; // null: the packet size is no bound
    const char* too_long_length = nullptr;
    const char* too_long_bound = nullptr;
};

constexpr const char* src_is_null = "Error of input parameters, const void *src is NULL";
constexpr const char* dst_is_null = "Error of input parameters, const void *dst is NULL";
constexpr const char* src_length_is_zero = "Error of input parameters, const unsigned int src_length is 0";

// One transfer as the application asked for it.
struct AskedTransfer {
    unsigned int device;
    unsigned int interface;
    unsigned int length; // with the report-id byte
    unsigned int* reply;

    int payload() const { return static_cast<int>(length - 1); }

    // A payload length that the core refuses, 0 or negative as it counts, needs no memory.
    std::size_t memory() const { return payload() < 1 ? 1 : length - 1; }
};

// All that comes before the transfer: argument checks, selection of the pad, its packet size. 0 or a record's handle.
int prepare(Call& call, const Checks& checks, const AskedTransfer& transfer, const void* buffer) {
    if (const int failed = call.require_reply(wrong_argument, transfer.reply)) {
        return failed;
    }
    if (const int failed = call.require(buffer != nullptr, wrong_argument, checks.buffer_is_null)) {
        return failed;
    }
    if (const int failed = call.require(transfer.length >= checks.shortest, wrong_argument, checks.too_short)) {
        return failed;
    }
    if (const int failed = call.select(transfer.device)) {
        return failed;
    }
    const int size = checks.packet_size.core();
    if (size < 0) {
        return call.core_failed(size, checks.packet_size.core_name, Call::no_packet_size, transfer.device,
                                transfer.interface);
    }
    if (checks.logs_packet_size) {
        VX_INFO_AT(call.where(), "device: %d, interface: %d,  Max packet size of out endpoint is: %d", transfer.device,
                   transfer.interface, size);
    }
    const unsigned int bound = static_cast<unsigned int>(size) + 1;
    if (checks.too_long != nullptr && transfer.length > bound) {
        VX_INFO_AT(call.where(), "%s %d > %d %s", checks.too_long_length, transfer.length, bound,
                   checks.too_long_bound);
        return call.fail(wrong_argument, checks.too_long);
    }
    return 0;
}

int transferred(Call& call, const AskedTransfer& transfer) {
    *transfer.reply = transfer.length;
    VX_INFO_AT(call.where(), "OUTPUT: *reply: %d", *transfer.reply);
    return 0;
}

struct Writer {
    Checks checks;
    int (*core)(unsigned int interface_number, const void* data, int data_size);
    const char* core_name;
    const char* failure;
};

struct Reader {
    Checks checks;
    int (*core)(unsigned int interface_number, void* data, int data_size);
    const char* core_name;
    const char* failure;
    bool counts; // the core's result is the number of bytes read, and only a full report will do
};

int write(Call& call, const Writer& writer, const AskedTransfer& transfer, const void* src) {
    if (const int failed = prepare(call, writer.checks, transfer, src)) {
        return failed;
    }
    const auto* payload = static_cast<const unsigned char*>(src) + 1;
    const int result = writer.core(transfer.interface, payload, transfer.payload());
    if (result < 0) {
        return call.core_failed(result, writer.core_name, writer.failure, transfer.device, transfer.interface);
    }
    return transferred(call, transfer);
}

int read(Call& call, const Reader& reader, const AskedTransfer& transfer, void* dst) {
    if (const int failed = prepare(call, reader.checks, transfer, dst)) {
        return failed;
    }
    Buffer payload{transfer.memory()};
    const int result = reader.core(transfer.interface, payload.data(), transfer.payload());
    if (reader.counts && result == 0) {
        return 0; // nothing was waiting: dst and *reply stay as they are
    }
    if (result < 0 || (reader.counts && result != transfer.payload())) {
        return call.core_failed(result, reader.core_name, reader.failure, transfer.device, transfer.interface);
    }
    auto* bytes = static_cast<unsigned char*>(dst);
    bytes[0] = 0; // the report id
    std::memcpy(bytes + 1, payload.data(), payload.size());
    return transferred(call, transfer);
}

constexpr Writer feature_writer{
    .checks{
        .buffer_is_null = src_is_null,
        .shortest = 1,
        .too_short = src_length_is_zero,
        .packet_size = out_endpoint,
        .logs_packet_size = true,
    },
    .core = core_set_hid_feature_report,
    .core_name = "core_set_hid_feature_report()",
    .failure = "Error of write HID feature for device: ",
};
constexpr Writer output_writer{
    .checks{
        .buffer_is_null = src_is_null,
        .shortest = 1,
        .too_short = src_length_is_zero,
        .packet_size = out_endpoint,
        .too_long = "Error of input parameters, const unsigned int src_length > max packet size + 1",
        .too_long_length = "src_length:",
        .too_long_bound = "(1 + max_packet_size)",
    },
    .core = core_set_unsync_hid_output_report,
    .core_name = "core_set_unsync_hid_output_report()",
    .failure = "Error of set HID output report for device: ",
};
constexpr Reader feature_reader{
    .checks{
        .buffer_is_null = dst_is_null,
        .shortest = 2,
        .too_short = "Error of input parameters, const unsigned int dst_length is <= 1",
        .packet_size = out_endpoint, // on purpose: the size is asked for as the writers do
    },
    .core = core_get_hid_feature_report,
    .core_name = "core_get_hid_feature_report()",
    .failure = "Error of read HID feature for device: ",
    .counts = false,
};
constexpr Reader input_reader{
    .checks{
        .buffer_is_null = dst_is_null,
        .shortest = 1,
        .too_short = "Error of input parameters, const unsigned int dst_length is 0",
        .packet_size = input_report,
        .too_long = "Error of input parameters, const unsigned int dst_length > max packet size + 1",
        .too_long_length = "Error, dst_length",
        .too_long_bound = "(max size of packet + 1)",
    },
    .core = core_get_hid_input_report,
    .core_name = "core_get_hid_input_report()",
    .failure = Call::no_input_report,
    .counts = true,
};

} // namespace

int SetFeature(unsigned int device, unsigned int interface, const void* src, unsigned int src_length,
               unsigned int* reply) {
    Call call{VX_HERE};
    return call.exit(write(call, feature_writer, {device, interface, src_length, reply}, src));
}

int GetFeature(unsigned int device, unsigned int interface, void* dst, unsigned int dst_length, unsigned int* reply) {
    Call call{VX_HERE};
    VX_INFO("input parameter dst_length:[%d]", dst_length);
    return call.exit(read(call, feature_reader, {device, interface, dst_length, reply}, dst));
}

int WriteFile(unsigned int device, unsigned int interface, const void* src, unsigned int src_length,
              unsigned int* reply) {
    Call call{VX_HERE};
    return call.exit(write(call, output_writer, {device, interface, src_length, reply}, src));
}

int ReadFile(unsigned int device, unsigned int interface, void* dst, unsigned int dst_length, unsigned int* reply) {
    Call call{VX_HERE};
    return call.exit(read(call, input_reader, {device, interface, dst_length, reply}, dst));
}
