#include "commands/list_reply.hpp"

namespace list_reply {
namespace {

constexpr std::size_t header_size = 3; // message id, result, count

} // namespace

bool expect_list(const trace::Location& where, const component_link::Reply& reply, const Kind& kind) {
    if (reply.data()[0] != kind.message_id) {
        trace::error(where, "%s, it is %d, but must be %d", kind.wrong_id, reply.data()[0], kind.message_id);
        return false;
    }
    if (reply.data()[1] != component_link::protocol_success) {
        trace::error(where, "%s %d%s", kind.wrong_result, reply.data()[1], kind.result_suffix);
        return false;
    }
    if (reply.payload().size() < header_size + kind.entry_size || reply.data()[2] < 1) {
        trace::error(where, "%s %d", kind.wrong_count, reply.data()[2]);
        trace::error(where, "%s %d", kind.failure, reply.data()[2]);
        return false;
    }
    return true;
}

std::span<const unsigned char> entries(const component_link::Reply& reply, const Kind& kind) {
    const auto payload = reply.payload();
    const std::size_t count = std::min(std::size_t{reply.data()[2]}, (payload.size() - header_size) / kind.entry_size);
    return payload.subspan(header_size, count * kind.entry_size);
}

} // namespace list_reply
