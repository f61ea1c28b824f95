#include "support/print_helpers.hpp"

#include "support/lock.hpp"
#include "support/trace.hpp"
#include "vxpadcom/internals/print_helpers.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/time.h>

namespace print_helpers {
namespace {

pthread_mutex_t print_bits_lock = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t print_bytes_lock = PTHREAD_MUTEX_INITIALIZER;

} // namespace

BytesText bytes_text(std::span<const unsigned char> bytes) {
    BytesText text{};
    std::size_t used = 2;
    std::memcpy(text.data(), "[ ", used);
    for (const unsigned char byte : bytes) {
        if (text.size() - used <= 4) {
            break;
        }
        std::snprintf(text.data() + used, text.size() - used, "%02X ", byte);
        used += 3;
    }
    if (text.size() - used > 2) {
        text[used] = ']';
    }
    return text;
}

BitsText bits_text(int value) {
    BitsText text{};
    for (int bit = 0; bit < 8; ++bit) {
        text[static_cast<std::size_t>(bit)] = (value >> (7 - bit) & 1) != 0 ? '1' : '0';
    }
    return text;
}

} // namespace print_helpers

char* print_bits(int value) {
    static print_helpers::BitsText text;
    VX_LOCK(lock, &print_helpers::print_bits_lock);
    text = print_helpers::bits_text(value);
    return text.data();
}

char* print_bytes(const unsigned char* data, unsigned int length) {
    static print_helpers::BytesText text;
    VX_LOCK(lock, &print_helpers::print_bytes_lock);
    text = print_helpers::bytes_text({data, data == nullptr ? 0 : length});
    return text.data();
}

bool is_it_zero_array(const unsigned char* data, size_t length) {
    return std::all_of(data, data + length, [](unsigned char byte) { return byte == 0; });
}

void print_current_time() {
    timeval now{};
    gettimeofday(&now, nullptr);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char text[64];
    if (std::strftime(text, sizeof text, "%Y/%m/%d %H:%M:%S", &local) == 0) {
        text[0] = '\0';
    }
    trace::Listeners listeners = trace::info_listeners();
    listeners.callback = false; // on standard output only
    if (listeners) {
        trace::info(listeners, VX_HERE, trace::Style::plain, "%s.%03ld", text, static_cast<long>(now.tv_usec / 1000));
    }
}
