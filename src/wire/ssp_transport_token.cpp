// Framing of messages in the byte stream. AA 55 02 starts a frame, AA 55 00 stands for the data bytes AA 55; a marker
// with any other third byte is data. A frame ends where the next one starts or where the received bytes end.
//
// Both directions look at 16 bytes at once (SSE2 is part of every x86-64): a token is found by its three bytes alone,
// as no two of them overlap.
#include "wire/ssp_transport_token.hpp"

#include "support/owners.hpp"
#include "support/trace.hpp"
#include "vxpadcom/internals/ssp_transport_token.h"
#include "vxpadcom/internals/uni_queue.h"
#include "vxpadcom/internals/wrapunix.h"

#include <algorithm>
#include <array>
#include <bit>
#include <climits>
#include <cstring>
#include <emmintrin.h>

namespace ssp_transport_token {
namespace {

constexpr unsigned char SSP_TRANSPORT_TOKEN_TYPE_ESCAPED = 0;
constexpr unsigned char SSP_TRANSPORT_TOKEN_TYPE_SOF = start_of_frame[2];

using Bytes = std::span<const unsigned char>;

constexpr std::size_t block_size = 16; // places where a token may begin
constexpr std::size_t window_size = block_size + token_size - 1;

// One bit for each place of a block.
struct Tokens {
    unsigned int markers = 0; // whatever stands behind them
    unsigned int escaped_markers = 0;
    unsigned int starts_of_frame = 0;
};

// The places of a value in a block.
__m128i places_of(unsigned char value, const unsigned char* block) {
    return _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(block)),
                          _mm_set1_epi8(static_cast<char>(value)));
}

__m128i places_of_marker(const unsigned char* window) {
    return _mm_and_si128(places_of(marker[0], window), places_of(marker[1], window + 1));
}

unsigned int bits_of(__m128i places) {
    return static_cast<unsigned int>(_mm_movemask_epi8(places));
}

Tokens find_tokens(const unsigned char* window) {
    const __m128i markers = places_of_marker(window);
    const unsigned char* types = window + marker.size();
    return {bits_of(markers), bits_of(_mm_and_si128(markers, places_of(SSP_TRANSPORT_TOKEN_TYPE_ESCAPED, types))),
            bits_of(_mm_and_si128(markers, places_of(SSP_TRANSPORT_TOKEN_TYPE_SOF, types)))};
}

constexpr std::size_t group_size = 4 * block_size;

bool has_marker(const unsigned char* group) {
    const auto markers = [group](std::size_t block) { return places_of_marker(group + block * block_size); };
    return bits_of(_mm_or_si128(_mm_or_si128(markers(0), markers(1)), _mm_or_si128(markers(2), markers(3)))) != 0;
}

// Calls look(position, tokens) for the blocks that have markers, until it returns true.
template <typename Look> void for_each_block(Bytes bytes, std::size_t from, Look look) {
    for (; from + group_size + token_size <= bytes.size(); from += group_size) {
        if (!has_marker(bytes.data() + from)) {
            continue;
        }
        for (std::size_t block = from; block < from + group_size; block += block_size) {
            if (look(block, find_tokens(bytes.data() + block))) {
                return;
            }
        }
    }
    for (; from + window_size <= bytes.size(); from += block_size) {
        if (look(from, find_tokens(bytes.data() + from))) {
            return;
        }
    }
    for (; from < bytes.size(); from += block_size) {
        std::array<unsigned char, window_size> filled_up;
        filled_up.fill(0xFF); // is part of no token
        std::memcpy(filled_up.data(), bytes.data() + from, std::min(window_size, bytes.size() - from));
        if (look(from, find_tokens(filled_up.data()))) {
            return;
        }
    }
}

unsigned int count(unsigned int bits) {
    bits = (bits & 0x5555) + (bits >> 1 & 0x5555);
    bits = (bits & 0x3333) + (bits >> 2 & 0x3333);
    bits = (bits & 0x0F0F) + (bits >> 4 & 0x0F0F);
    return (bits & 0xFF) + (bits >> 8);
}

// What lies in front of a start-of-frame token, or of the end of the bytes.
struct Stretch {
    std::size_t end;
    std::size_t escaped_markers = 0;
};

Stretch find_start_of_frame(Bytes bytes, std::size_t from) {
    Stretch stretch{bytes.size()};
    for_each_block(bytes, from, [&stretch](std::size_t position, Tokens tokens) {
        if (tokens.starts_of_frame == 0) {
            stretch.escaped_markers += count(tokens.escaped_markers);
            return false;
        }
        const unsigned int first = tokens.starts_of_frame & -tokens.starts_of_frame;
        stretch.escaped_markers += count(tokens.escaped_markers & (first - 1));
        stretch.end = position + static_cast<std::size_t>(std::countr_zero(first));
        return true;
    });
    return stretch;
}

// Copies bytes to a target, with a change behind some of the markers among them.
class Copier {
  public:
    Copier(Bytes source, unsigned char* target, std::size_t size)
        : next_{source.data()}, end_{next_ + source.size()}, target_{target}, target_end_{target + size} {}

    // What lies in front of a marker, and the marker. Nothing lies between markers in a row.
    void copy_with(const unsigned char* found) {
        if (found != next_) {
            copy(static_cast<std::size_t>(found - next_));
        }
        target_ = std::copy(marker.begin(), marker.end(), target_);
        next_ = found + marker.size();
    }
    void copy_rest() {
        if (next_ != end_) {
            std::memcpy(target_, next_, static_cast<std::size_t>(end_ - next_));
        }
    }
    void put(unsigned char byte) { *target_++ = byte; }
    void skip_one() { ++next_; }

  private:
    void copy(std::size_t size) {
        constexpr std::ptrdiff_t block = block_size;
        if (size <= block_size && end_ - next_ >= block && target_end_ - target_ >= block) {
            std::memcpy(target_, next_, block_size); // what is too much is written over
        } else {
            std::memcpy(target_, next_, size);
        }
        target_ += size;
    }

    const unsigned char* next_;
    const unsigned char* end_;
    unsigned char* target_;
    unsigned char* target_end_;
};

// Calls act with the place of each of the chosen markers.
template <typename Act> void for_each_marker(Bytes bytes, unsigned int Tokens::*chosen, Act act) {
    for_each_block(bytes, 0, [&](std::size_t position, Tokens tokens) {
        for (unsigned int left = tokens.*chosen; left != 0; left &= left - 1) {
            act(bytes.data() + position + static_cast<std::size_t>(std::countr_zero(left)));
        }
        return false;
    });
}

// Queues the bytes between two start-of-frame tokens, unescaped.
void queue_frame(const trace::Location& where, uni_queue* queue, Bytes escaped, std::size_t escaped_markers) {
    if (escaped.empty()) {
        return;
    }
    const std::size_t size = escaped.size() - escaped_markers;
    Owned<unsigned char> frame{static_cast<unsigned char*>(Malloc(size))};
    Copier copier{escaped, frame.get(), size};
    if (escaped_markers > 0) {
        for_each_marker(escaped, &Tokens::escaped_markers, [&copier](const unsigned char* found) {
            copier.copy_with(found);
            copier.skip_one();
        });
    }
    copier.copy_rest();
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
    for_each_block(message, 0, [&pairs](std::size_t, Tokens tokens) {
        pairs += count(tokens.markers);
        return false;
    });
    const std::size_t size = token_size + message.size() + pairs;
    if (size > INT_MAX) {
        VX_ERROR("Error, was processed %d of %u bytes", 0, len); // its size could not be told to the caller
        return scope.exit(-1);
    }
    auto* framed = static_cast<unsigned char*>(Malloc(size));
    std::copy(start_of_frame.begin(), start_of_frame.end(), framed);
    Copier copier{message, framed + token_size, size - token_size};
    if (pairs > 0) {
        for_each_marker(message, &Tokens::markers, [&copier](const unsigned char* found) {
            copier.copy_with(found);
            copier.put(SSP_TRANSPORT_TOKEN_TYPE_ESCAPED);
        });
    }
    copier.copy_rest();
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
