#include "base/send_buffer.hpp"

#include <cerrno>
#include <sys/socket.h>

namespace emulator {

bool SendBuffer::send(int socket) {
    while (!empty()) {
        const auto size = ::send(socket, bytes_.data() + sent_, bytes_.size() - sent_, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (size < 0) {
            return errno == EAGAIN || errno == EINTR;
        }
        sent_ += static_cast<std::size_t>(size);
        if (empty()) {
            clear();
        } else if (sent_ > bytes_.size() / 2) { // seldom enough that moving the rest costs little
            bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(sent_));
            sent_ = 0;
        }
    }
    return true;
}

void SendBuffer::clear() {
    bytes_.clear();
    sent_ = 0;
}

} // namespace emulator
