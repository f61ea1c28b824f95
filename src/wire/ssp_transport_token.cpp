// Framing of messages in the byte stream. AA 55 02 starts a frame, AA 55 00 stands for the data bytes AA 55; a marker
// with any other third byte is data. A frame ends where the next one starts or where the received bytes end.
//
// Both directions look for the marker's first byte with memchr and copy what lies between as a whole.
#include "wire/ssp_transport_token.hpp"

#include "support/owners.hpp"
#include "support/trace.hpp"

#include <algorithm>
#include <array>
#include <climits>

namespace ssp_transport_token {
namespace {

constexpr unsigned char SSP_TRANSPORT_TOKEN_TYPE_ESCAPED = 0;
constexpr unsigned char SSP_TRANSPORT_TOKEN_TYPE_SOF = start_of_frame[2];
constexpr std::array<unsigned char, token_size> escaped_marker{marker[0], marker[1], SSP_TRANSPORT_TOKEN_TYPE_ESCAPED};

using Bytes = std::span<const unsigned char>;

// Position of the marker, or the size of the bytes where there is none.
std::size_t find_marker(Bytes bytes, std::size_t from) {
    while (from + 1 < bytes.size()) {
        // Markers in a row are met without a call.
        if (bytes[from] != marker[0]) {
            const auto* found =
                static_cast<const unsigned char*>(std::memchr(bytes.data() + from, marker[0], bytes.size() - from - 1));
            if (found == nullptr) {
                break;
            }
            from = static_cast<std::size_t>(found - bytes.data());
        }
        if (bytes[from + 1] == marker[1]) {
            return from;
        }
        ++from;
    }
    return bytes.size();
}

// What lies in front of a start-of-frame token, or of the end of the bytes.
struct Stretch {
    std::size_t end;
    std::size_t escaped_markers = 0;
};

Stretch find_start_of_frame(Bytes bytes, std::size_t from) {
    std::size_t escaped_markers = 0;
    for (from = find_marker(bytes, from); from + token_size <= bytes.size(); from = find_marker(bytes, from)) {
        const unsigned char type = bytes[from + marker.size()];
        if (type == SSP_TRANSPORT_TOKEN_TYPE_SOF) {
            return {from, escaped_markers};
        }
        // An escaped marker is skipped as a whole; of anything else the marker's first byte is data.
        const bool escaped = type == SSP_TRANSPORT_TOKEN_TYPE_ESCAPED;
        escaped_markers += escaped ? 1 : 0;
        from += escaped ? token_size : 1;
    }
    return {bytes.size(), escaped_markers};
}

class Writer {
  public:
    explicit Writer(unsigned char* target) : next_{target} {}
    // Nothing lies between markers in a row: that is not worth a call.
    void put_run(Bytes bytes) {
        if (!bytes.empty()) {
            std::memcpy(next_, bytes.data(), bytes.size());
            next_ += bytes.size();
        }
    }
    template <std::size_t size> void put(const std::array<unsigned char, size>& bytes) {
        next_ = std::copy(bytes.begin(), bytes.end(), next_);
    }

  private:
    unsigned char* next_;
};

// Queues the bytes between two start-of-frame tokens, unescaped.
void queue_frame(trace::Location where, uni_queue* queue, Bytes escaped, std::size_t escaped_markers) {
    if (escaped.empty()) {
        return;
    }
    const std::size_t size = escaped.size() - escaped_markers;
    Owned<unsigned char> frame{static_cast<unsigned char*>(Malloc(size))};
    Writer writer{frame.get()};
    std::size_t done = 0;
    for (; escaped_markers > 0; --escaped_markers) {
        std::size_t found = find_marker(escaped, done);
        while (escaped[found + marker.size()] != SSP_TRANSPORT_TOKEN_TYPE_ESCAPED) {
            found = find_marker(escaped, found + 1);
        }
        writer.put_run(escaped.subspan(done, found - done));
        writer.put(marker);
        done = found + token_size;
    }
    writer.put_run(escaped.subspan(done));
    if (add_uni_frame(queue, frame.get(), static_cast<unsigned int>(size)) == 1) {
        static_cast<void>(frame.release());
    }
    VX_INFO_STYLED_AT(where, trace::Style::kind_after, "now SSP queue has: %d", get_uni_queue_size(queue));
}

} // namespace

std::size_t cut_token_size(Bytes received) {
    for (std::size_t size = std::min(token_size, received.size()); size > 0; --size) {
        if (std::equal(start_of_frame.begin(), start_of_frame.begin() + static_cast<std::ptrdiff_t>(size),
                       received.end() - static_cast<std::ptrdiff_t>(size))) {
            return size;
        }
    }
    return 0;
}

} // namespace ssp_transport_token

using namespace ssp_transport_token;

int ssp_base_message_to_transport_token_data(const void* data, unsigned int len, unsigned char** out) {
    trace::Scope scope{VX_HERE};
    if (data == nullptr) {
        VX_ERROR("Error, input parameter: void *data is %p", data);
        return scope.exit(-1);
    }
    if (len == 0) {
        VX_ERROR("Error, input parameter: unsigned int len is %u", len);
        return scope.exit(-1);
    }
    if (out == nullptr) {
        return scope.exit(-1);
    }
    if (len == 1) {
        VX_INFO("Info, input parameter: unsigned int len is %u", len);
    }
    const Bytes message{static_cast<const unsigned char*>(data), len};
    std::size_t pairs = 0;
    for (std::size_t pair = find_marker(message, 0); pair < message.size(); pair = find_marker(message, pair + 2)) {
        ++pairs;
    }
    const std::size_t size = token_size + message.size() + pairs;
    if (size > INT_MAX) {
        VX_ERROR("Error, was processed %d of %u bytes", 0, len); // its size could not be told to the caller
        return scope.exit(-1);
    }
    auto* framed = static_cast<unsigned char*>(Malloc(size));
    Writer writer{framed};
    writer.put(start_of_frame);
    std::size_t done = 0;
    for (; pairs > 0; --pairs) {
        const std::size_t found = find_marker(message, done);
        writer.put_run(message.subspan(done, found - done));
        writer.put(escaped_marker);
        done = found + marker.size();
    }
    writer.put_run(message.subspan(done));
    *out = framed;
    return scope.exit(static_cast<int>(size));
}

int ssp_transport_token_to_base_message_data(void* tt_data, size_t tt_data_size, uni_queue* queue) {
    trace::Scope scope{VX_HERE};
    if (tt_data_size == 0) {
        VX_ERROR("Error, input parameter: size_t tt_data_size is incorrect");
        return scope.exit(-1);
    }
    if (tt_data == nullptr) {
        VX_ERROR("Error, input parameter: void *tt_data is %p", tt_data);
        return scope.exit(-1);
    }
    if (queue == nullptr) {
        VX_ERROR("Error, input parameter: uni_queue *queue is %p", static_cast<void*>(queue));
        return scope.exit(-1);
    }
    auto* received = static_cast<unsigned char*>(tt_data);
    const Bytes bytes{received, tt_data_size};

    std::size_t token = find_start_of_frame(bytes, 0).end;
    if (token == bytes.size()) {
        return scope.exit(-1);
    }
    std::size_t shifted = 0; // where the data now under consideration begins
    Bytes frame;
    std::size_t escaped_markers = 0;
    while (token < bytes.size()) {
        VX_NOTE("Found SSP_TRANSPORT_TOKEN_HEADER with SSP_TRANSPORT_TOKEN_TYPE_SOF on position: %zu", token - shifted);
        if (token != shifted) {
            queue_frame(VX_HERE, queue, frame, escaped_markers);
            VX_NOTE("Going to reset all data before new TOKEN SOF on position: %zu", token - shifted);
            VX_NOTE("Data was reset to new position, now need processing of: %zu bytes",
                    bytes.size() - token - token_size);
            shifted = token;
        }
        const std::size_t start = token + token_size;
        const Stretch stretch = find_start_of_frame(bytes, start);
        token = stretch.end;
        frame = bytes.subspan(start, token - start);
        escaped_markers = stretch.escaped_markers;
    }
    queue_frame(VX_HERE, queue, frame, escaped_markers);
    // Callers find the last frame at the start of their buffer and zeros behind it.
    if (shifted > 0) {
        std::memmove(received, received + shifted, tt_data_size - shifted);
        std::memset(received + tt_data_size - shifted, 0, shifted);
    }
    return scope.exit(get_uni_queue_size(queue));
}
