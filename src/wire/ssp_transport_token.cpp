// Framing of messages in the byte stream. AA 55 02 starts a frame, AA 55 00 stands for the data bytes AA 55; a marker
// with any other third byte is data. A frame ends where the next one starts or where the received bytes end.
//
// Both directions look at 16 places at once (SSE2 is part of every x86-64): a token is found by its bytes alone, as no
// two of them overlap.
#include "wire/ssp_transport_token.hpp"

#include "support/owners.hpp"
#include "support/trace.hpp"
#include "support/uni_queues.hpp"
#include "vxpadcom/internals/ssp_transport_token.h"
#include "vxpadcom/internals/uni_queue.h"
#include "vxpadcom/internals/wrapunix.h"

#include <algorithm>
#include <array>
#include <bit>
#include <climits>
#include <cstring>
#include <emmintrin.h>
#include <optional>

namespace ssp_transport_token {
namespace {

constexpr unsigned char SSP_TRANSPORT_TOKEN_TYPE_ESCAPED = 0;
constexpr unsigned char SSP_TRANSPORT_TOKEN_TYPE_SOF = start_of_frame[2];

using Bytes = std::span<const unsigned char>;

constexpr std::size_t block_size = 16; // places
constexpr std::size_t group_size = 4 * block_size;

__m128i load(const unsigned char* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

void copy_block(const unsigned char* from, unsigned char* target) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target), load(from));
}

__m128i places_of(unsigned char value, const unsigned char* block) {
    return _mm_cmpeq_epi8(load(block), _mm_set1_epi8(static_cast<char>(value)));
}

__m128i places_of_markers(const unsigned char* block) {
    return _mm_and_si128(places_of(marker[0], block), places_of(marker[1], block + 1));
}

__m128i places_of_tokens(unsigned char type, const unsigned char* block) {
    return _mm_and_si128(places_of_markers(block), places_of(type, block + marker.size()));
}

// One bit for each place of a block.
unsigned int bits_of(__m128i places) {
    return static_cast<unsigned int>(_mm_movemask_epi8(places));
}

unsigned int count(unsigned int bits) {
    bits = (bits & 0x5555) + (bits >> 1 & 0x5555);
    bits = (bits & 0x3333) + (bits >> 2 & 0x3333);
    bits = (bits & 0x0F0F) + (bits >> 4 & 0x0F0F);
    return (bits & 0xFF) + (bits >> 8);
}

constexpr std::array<unsigned char, token_size> escaped_marker{marker[0], marker[1], SSP_TRANSPORT_TOKEN_TYPE_ESCAPED};

// Framing turns markers into tokens, up to the end.
struct Escaping {
    static constexpr const auto& from = marker;
    static constexpr const auto& to = escaped_marker;
    static __m128i changes(const unsigned char* block) { return places_of_markers(block); }
    static __m128i stops(const unsigned char* /*block*/) { return _mm_setzero_si128(); }
};

// Parsing turns them back, up to where the next frame starts.
struct Unescaping {
    static constexpr const auto& from = escaped_marker;
    static constexpr const auto& to = marker;
    static __m128i changes(const unsigned char* block) {
        return places_of_tokens(SSP_TRANSPORT_TOKEN_TYPE_ESCAPED, block);
    }
    static __m128i stops(const unsigned char* block) { return places_of_tokens(SSP_TRANSPORT_TOKEN_TYPE_SOF, block); }
};

// Bytes that are looked at behind a place.
template <typename Way> constexpr std::size_t look_ahead = Way::from.size() - 1;
template <typename Way> constexpr std::size_t window_size = block_size + look_ahead<Way>;

// What lies in front of a stop, or of the end of the bytes.
struct Stretch {
    std::size_t end;
    std::size_t changes = 0;
};

bool has_marker(const unsigned char* group) {
    __m128i markers = _mm_setzero_si128();
    for (const unsigned char* block = group; block != group + group_size; block += block_size) {
        markers = _mm_or_si128(markers, places_of_markers(block));
    }
    return bits_of(markers) != 0;
}

// The changes in a group without a stop.
template <typename Way> std::optional<std::size_t> count_changes(const unsigned char* group) {
    __m128i stops = _mm_setzero_si128();
    __m128i changes = _mm_setzero_si128(); // a count for each column
    for (const unsigned char* block = group; block != group + group_size; block += block_size) {
        stops = _mm_or_si128(stops, Way::stops(block));
        changes = _mm_sub_epi8(changes, Way::changes(block));
    }
    if (bits_of(stops) != 0) {
        return std::nullopt;
    }
    const __m128i sums = _mm_sad_epu8(changes, _mm_setzero_si128());
    return static_cast<std::size_t>(_mm_cvtsi128_si32(sums) + _mm_extract_epi16(sums, 4));
}

// Goes on through a block, behind the first places, which were seen before. Returns whether there is a stop.
template <typename Way> bool look_at(const unsigned char* block, std::size_t seen, Stretch& stretch) {
    if (bits_of(places_of_markers(block)) >> seen == 0) {
        stretch.end += block_size - seen;
        return false;
    }
    const unsigned int changes = bits_of(Way::changes(block)) >> seen;
    const unsigned int stops = bits_of(Way::stops(block)) >> seen;
    if (stops == 0) {
        stretch.changes += count(changes);
        stretch.end += block_size - seen;
        return false;
    }
    stretch.changes += count(changes & ((stops & -stops) - 1));
    stretch.end += static_cast<std::size_t>(std::countr_zero(stops));
    return true;
}

// Of bytes whose rest has no full window any more: their last window, in which some places were seen before, or, where
// they are too few for one, the rest and what is part of no token.
template <typename Way> bool look_at_rest(Bytes bytes, Stretch& stretch) {
    if (bytes.size() >= window_size<Way>) {
        const std::size_t last = bytes.size() - window_size<Way>;
        return look_at<Way>(bytes.data() + last, stretch.end - last, stretch);
    }
    std::array<unsigned char, window_size<Way>> filled_up;
    filled_up.fill(0xFF);
    std::copy(bytes.begin() + static_cast<std::ptrdiff_t>(stretch.end), bytes.end(), filled_up.begin());
    return look_at<Way>(filled_up.data(), 0, stretch);
}

template <typename Way> Stretch scan(Bytes bytes, std::size_t from) {
    Stretch stretch{from};
    for (; bytes.size() - stretch.end >= group_size + look_ahead<Way>; stretch.end += group_size) {
        const unsigned char* const group = bytes.data() + stretch.end;
        if (!has_marker(group)) {
            continue;
        }
        const auto changes = count_changes<Way>(group);
        if (!changes) {
            break;
        }
        stretch.changes += *changes;
    }
    while (bytes.size() - stretch.end >= window_size<Way>) {
        if (look_at<Way>(bytes.data() + stretch.end, 0, stretch)) {
            return stretch;
        }
    }
    if (bytes.size() - stretch.end <= look_ahead<Way> || !look_at_rest<Way>(bytes, stretch)) {
        stretch.end = bytes.size();
    }
    return stretch;
}

// Markers often come in rows.
constexpr std::size_t row_length = 16;
template <std::size_t size> constexpr auto row_of(const std::array<unsigned char, size>& one) {
    std::array<unsigned char, size * row_length> row{};
    for (std::size_t i = 0; i < row.size(); ++i) {
        row[i] = one[i % size];
    }
    return row;
}

template <std::size_t size> bool begins_with(Bytes bytes, const std::array<unsigned char, size>& beginning) {
    return bytes.size() >= size && std::memcmp(bytes.data(), beginning.data(), size) == 0;
}

// Copies bytes to where they just fit with all changes.
template <typename Way> void copy_changed(Bytes source, std::span<unsigned char> target) {
    static constexpr auto row_from = row_of(Way::from);
    static constexpr auto row_to = row_of(Way::to);
    const auto change_all = [&source, &target](const auto& from, const auto& to) {
        for (; begins_with(source, from); source = source.subspan(from.size()), target = target.subspan(to.size())) {
            std::copy(to.begin(), to.end(), target.begin());
        }
    };
    while (!source.empty()) {
        change_all(row_from, row_to);
        change_all(Way::from, Way::to);
        std::size_t unchanged = std::min(std::size_t{1}, source.size());
        if (source.size() >= window_size<Way> && target.size() >= block_size) {
            copy_block(source.data(), target.data()); // what is too much is written over
            const unsigned int changes = bits_of(Way::changes(source.data()));
            unchanged = changes == 0 ? block_size : static_cast<std::size_t>(std::countr_zero(changes));
        } else {
            std::copy_n(source.begin(), unchanged, target.begin());
        }
        source = source.subspan(unchanged);
        target = target.subspan(unchanged);
    }
}

// Queues the bytes between two start-of-frame tokens, unescaped.
void queue_frame(const trace::Location& where, bool is_heard, uni_queue* queue, Bytes escaped,
                 std::size_t escaped_markers) {
    if (escaped.empty()) {
        return;
    }
    const std::size_t size = escaped.size() - escaped_markers;
    Owned<unsigned char> frame{static_cast<unsigned char*>(Malloc(size))};
    if (escaped_markers > 0) {
        copy_changed<Unescaping>(escaped, {frame.get(), size});
    } else {
        std::memcpy(frame.get(), escaped.data(), size);
    }
    const auto add = is_heard ? add_uni_frame : uni_queues::add_quietly;
    if (add(queue, frame.get(), static_cast<unsigned int>(size)) == 1) {
        static_cast<void>(frame.release());
    }
    if (is_heard) {
        VX_INFO_STYLED_AT(where, trace::Style::kind_after, "now SSP queue has: %d", get_uni_queue_size(queue));
    }
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
    const std::size_t pairs = scan<Escaping>(message, 0).changes;
    const std::size_t size = token_size + message.size() + pairs;
    if (size > INT_MAX) {
        VX_ERROR("Error, was processed %d of %u bytes", 0, len); // its size could not be told to the caller
        return scope.exit(-1);
    }
    auto* framed = static_cast<unsigned char*>(Malloc(size));
    std::copy(start_of_frame.begin(), start_of_frame.end(), framed);
    unsigned char* const copy = framed + token_size;
    if (pairs > 0) {
        copy_changed<Escaping>(message, {copy, message.size() + pairs});
    } else {
        std::memcpy(copy, message.data(), message.size());
    }
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

    std::size_t token = begins_with(bytes, start_of_frame) ? 0 : scan<Unescaping>(bytes, 0).end;
    if (token == bytes.size()) {
        return scope.exit(-1);
    }
    std::size_t shifted = 0; // where the data now under consideration begins
    Bytes frame;
    std::size_t escaped_markers = 0;
    // There are many trace points to a frame: whether anyone listens is asked once for all of them.
    bool is_heard = trace::is_heard();
    while (token < bytes.size()) {
        if (is_heard) {
            VX_NOTE("Found SSP_TRANSPORT_TOKEN_HEADER with SSP_TRANSPORT_TOKEN_TYPE_SOF on position: %zu",
                    token - shifted);
        }
        if (token != shifted) {
            queue_frame(VX_HERE, is_heard, queue, frame, escaped_markers);
            if (is_heard) {
                VX_NOTE("Going to reset all data before new TOKEN SOF on position: %zu", token - shifted);
                VX_NOTE("Data was reset to new position, now need processing of: %zu bytes",
                        bytes.size() - token - token_size);
            }
            is_heard = trace::is_heard();
            shifted = token;
        }
        const std::size_t start = token + token_size;
        const Stretch stretch = scan<Unescaping>(bytes, start);
        token = stretch.end;
        frame = bytes.subspan(start, token - start);
        escaped_markers = stretch.changes;
    }
    queue_frame(VX_HERE, is_heard, queue, frame, escaped_markers);
    // Callers find the last frame at the start of their buffer and zeros behind it.
    if (shifted > 0) {
        std::memmove(received, received + shifted, tt_data_size - shifted);
        std::memset(received + tt_data_size - shifted, 0, shifted);
    }
    return scope.exit(is_heard ? get_uni_queue_size(queue) : static_cast<int>(queue->size));
}
