// The two message shapes that travel between the library and a pad, told apart by bit 7 of their first byte:
//
//   base message:   component id (bit 7 clear), payload size - 1 as 16-bit little-endian, payload
//   legacy message: 0x80 | biodata flag 0x40 | payload size - 1, payload of at most 64 bytes
#include "wire/ssp_base_message.hpp"

#include "support/owners.hpp"
#include "support/print_helpers.hpp"
#include "support/trace.hpp"
#include "vxpadcom/internals/ssp_base_message.h"
#include "vxpadcom/internals/wrapunix.h"

namespace {

constexpr unsigned char legacy_flag = 0x80;
constexpr unsigned char biodata_flag = 0x40;
constexpr unsigned char legacy_length_mask = 0x3F;
constexpr unsigned int longest_legacy_payload = 64;

const unsigned char* bytes_of(const void* message) {
    return static_cast<const unsigned char*>(message);
}

} // namespace

int ssp_base_message_check_component_id(const void* message, int component_id) {
    trace::Scope scope{VX_HERE};
    if (message == nullptr) {
        return scope.exit(-1);
    }
    const unsigned char id = bytes_of(message)[0];
    VX_INFO("ssp_bm_header->type_and_component_id: %x", id);
    return scope.exit(id == static_cast<unsigned char>(component_id) ? 0 : -1);
}

int ssp_base_message_is_it_old_message(const void* message) {
    trace::Scope scope{VX_HERE};
    if (message == nullptr) {
        return scope.exit(-1);
    }
    const unsigned char header = bytes_of(message)[0];
    VX_INFO("message[0]: %s", print_helpers::bits_text(header).data());
    return scope.exit((header & legacy_flag) != 0 ? 1 : 0);
}

int ssp_base_message_is_it_biodata(const void* message) {
    trace::Scope scope{VX_HERE};
    if (message == nullptr) {
        return scope.exit(-1);
    }
    constexpr unsigned char both = legacy_flag | biodata_flag;
    return scope.exit((bytes_of(message)[0] & both) == both ? 1 : 0);
}

int ssp_base_message_get_data_length(const void* message) {
    trace::Scope scope{VX_HERE};
    const unsigned char* header = bytes_of(message);
    const int length = header[1] | header[2] << 8;
    VX_NOTE("struct ssp_base_message_header->type_and_component_id: %d", header[0]);
    VX_NOTE("struct ssp_base_message_header->length: %d", length);
    return scope.exit(length + 1);
}

// Bare on purpose: the one function without trace lines.
int ssp_base_message_old_message_get_data_length(const void* message) {
    return (bytes_of(message)[0] & legacy_length_mask) + 1;
}

int ssp_base_message_old_message_create(const void* data, unsigned int data_size, unsigned char** out) {
    trace::Scope scope{VX_HERE};
    VX_NOTE("input parameter data_size: %u", data_size);
    if (data_size == 0 || data_size > longest_legacy_payload) {
        VX_ERROR("Error, input parameter: unsigned int data_size is %u", data_size);
        return scope.exit(-1);
    }
    if (data == nullptr) {
        VX_ERROR("Error, input parameter: void *data is %p", data);
        return scope.exit(-1);
    }
    if (out == nullptr) {
        return scope.exit(-1);
    }
    Owned<unsigned char> message{static_cast<unsigned char*>(Calloc(data_size + 1, 1))};
    const auto length_byte = static_cast<unsigned char>(data_size - 1);
    message.get()[0] = length_byte | legacy_flag;
    std::memcpy(message.get() + 1, data, data_size);
    VX_NOTE("t_data_size: %s ", print_helpers::bits_text(length_byte).data());
    VX_NOTE("message[0]: %s ", print_helpers::bits_text(message.get()[0]).data());
    *out = message.release();
    return scope.exit(static_cast<int>(data_size + 1));
}

namespace ssp_base_message {

Measure measure(std::span<const unsigned char> frame) {
    const bool legacy = ssp_base_message_is_it_old_message(frame.data()) == 1;
    const std::size_t header = legacy ? legacy_header_size : base_header_size;
    if (frame.size() < header) {
        return {header, 0, false};
    }
    const int length = legacy ? ssp_base_message_old_message_get_data_length(frame.data())
                              : ssp_base_message_get_data_length(frame.data());
    return {header, static_cast<std::size_t>(length), true};
}

} // namespace ssp_base_message
