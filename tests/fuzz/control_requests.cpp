// The control socket of virtual pads, with any text.
//
// Byte 0: the size of the pieces. The rest is what a client sends. Each line has one reply, which begins with ok or
// error and ends at its first empty line; the replies are the same whatever the pieces, as long as no pen plays, which
// takes its time. Another client is served as ever.
#include "control/control_server.hpp"
#include "control/requests.hpp"
#include "input.hpp"
#include "virtual_pads.hpp"

#include <algorithm>
#include <array>

namespace {

std::string received(int fd) {
    std::string text;
    std::array<char, 65536> buffer;
    ssize_t size = 0;
    while ((size = ::recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(size));
    }
    return text;
}

std::string answer(const std::string& text, std::size_t piece) {
    fuzz::VirtualPads pads;
    const std::string path = fuzz::socket_path();
    const emulator::ControlServer server{
        pads.loop, path, [&](std::string_view request) { return emulator::answer_request(pads.bus, request); },
        [] { return true; }};
    pads.plug_all();
    const emulator::Fd client = fuzz::connect_to(path);
    std::string replies;
    for (std::size_t at = 0; at < text.size(); at += piece) {
        const std::size_t size = std::min(piece, text.size() - at);
        fuzz::require(::send(client.get(), text.data() + at, size, MSG_NOSIGNAL) == static_cast<ssize_t>(size),
                      "a client that is not dropped");
        pads.run();
        replies += received(client.get());
    }
    for (std::string more = " "; !more.empty(); replies += more) {
        pads.run();
        more = received(client.get());
    }
    const emulator::Fd other = fuzz::connect_to(path);
    fuzz::require(::send(other.get(), "list\n", 5, MSG_NOSIGNAL) == 5, "another client");
    pads.run();
    pads.run();
    fuzz::require(received(other.get()).starts_with("ok 1 "), "another client's reply");
    return replies;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input{data, size};
    const std::size_t piece = std::size_t{1} + input.byte();
    const std::string text = input.rest_as_text();
    const std::string replies = answer(text, piece);
    std::size_t count = 0;
    for (std::size_t at = 0; at < replies.size(); ++count) {
        const std::size_t end = replies.find("\n\n", at);
        fuzz::require(end != std::string::npos, "the end of a reply");
        const std::string_view reply = std::string_view{replies}.substr(at, end - at);
        fuzz::require(reply == "ok" || reply.starts_with("ok ") || reply.starts_with("error "), "a reply");
        at = end + 2;
    }
    fuzz::require(static_cast<std::ptrdiff_t>(count) == std::count(text.begin(), text.end(), '\n'),
                  "a reply for a line");
    if (text.find("play") == std::string::npos) {
        fuzz::require(answer(text, text.size() + 1) == replies, "the same in one piece");
    }
    return 0;
}
