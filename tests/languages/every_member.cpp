// Uses whatever vxpadcom.hpp has, to be compiled in each standard and by each compiler.
#include <vxpadcom/vxpadcom.hpp>

#if __cplusplus >= 202002L
#include <span>
#endif

namespace {

void use_pad(const vxpadcom::pad pad) {
    const std::string text = pad.serial_number() + pad.vendor_name() + pad.product_name();
    const std::size_t number = pad.number() + pad.vendor_id() + pad.product_id() + pad.interface_count();
    vxpadcom::byte_buffer report = pad.get_feature();
    report.resize(number + text.size() + pad.report_size(1));
    pad.set_feature(report);
    pad.write(pad.get_feature(1, 64), 1);
    pad.write(pad.read().value_or(report));
    if (const auto waiting = pad.read(1, 20)) {
        pad.set_feature(vxpadcom::bytes{waiting->data(), 2}, 1);
    }
    const unsigned char message[] = {0x00, 0x00, 0x00, 0x10};
    pad.send_ssp(message);
    pad.send_ssp(pad.receive_ssp(std::chrono::milliseconds{100}, 1, 10), 1);
    const vxpadcom::upload_progress whole = pad.upload(report);
    const auto part = pad.upload(message, 3, [](vxpadcom::upload_progress so_far) { static_cast<void>(so_far.sent); });
    static_cast<void>(whole.sent == part.total && pad != vxpadcom::pad{1} && pad == pad);
}

std::size_t use_bytes(const vxpadcom::bytes bytes) {
    std::size_t sum = bytes.empty() ? bytes.size() : bytes[0];
    for (const unsigned char byte : bytes) {
        sum += byte;
    }
#if __cplusplus >= 202002L
    const std::span<const unsigned char> span{bytes};
    sum += vxpadcom::bytes{span}.size();
#endif
    return sum;
}

void receive(vxpadcom::session& session) {
    const vxpadcom::receiver receiver{session[1], [](vxpadcom::bytes report) { use_bytes(report); }, 0, [] {}, [] {}};
    vxpadcom::reception reports{session[2], 1};
    const auto first = reports.next(std::chrono::seconds{1});
    const auto second = reports.next_until(std::chrono::steady_clock::now());
    static_cast<void>(first && second && reports.lost() == 0);
}

} // namespace

int main() try {
    static_assert(!std::is_convertible_v<std::string, vxpadcom::bytes>, "text is no report");
    vxpadcom::session session;
    session.on_removed([](vxpadcom::pad pad) { static_cast<void>(pad.number()); });
    session.on_log([](const std::string& message) { static_cast<void>(message.size()); });
    for (const vxpadcom::pad& pad : session) {
        use_pad(pad);
    }
    receive(session);
    session.search();
    return session.size() == 0 ? 1 : 0;
} catch (const vxpadcom::error& error) {
    return error.code() == VXPCEC_UNKNOWN || error.function() == error.message() ||
           vxpadcom::to_utf8(u"x") == error.what();
}
