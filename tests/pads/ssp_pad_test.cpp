#include "ssp_pad_test.hpp"

#include <algorithm>
#include <random>
#include <sstream>

namespace pads {

void PrintTo(const Transport& transport, std::ostream* stream) {
    *stream << transport.name;
}

void PrintTo(const MessageAnswer& answer, std::ostream* stream) {
    *stream << hex(answer.message) << " ";
    PrintTo(answer.failure, stream);
}

Bytes operator+(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Bytes base_message(unsigned char component, const Bytes& payload) {
    const auto length = payload.size() - 1;
    return Bytes{component, static_cast<unsigned char>(length), static_cast<unsigned char>(length >> 8)} + payload;
}

Bytes legacy_message(const Bytes& report) {
    return Bytes{static_cast<unsigned char>(0x80 | (report.size() - 1))} + report;
}

Bytes pen_message(const Bytes& record) {
    return Bytes{static_cast<unsigned char>(0xc0 | (record.size() - 1))} + record;
}

Bytes framed(const Bytes& message) {
    Bytes bytes{0xaa, 0x55, 0x02};
    for (std::size_t i = 0; i < message.size(); ++i) {
        bytes.push_back(message[i]);
        if (i > 0 && message[i - 1] == 0xaa && message[i] == 0x55) {
            bytes.push_back(0x00);
        }
    }
    return bytes;
}

Bytes numbered_bytes(std::size_t count, unsigned int seed) {
    std::minstd_rand random{seed + 1};
    constexpr unsigned char often[] = {0xaa, 0x55, 0x02, 0x00};
    Bytes bytes(count);
    std::ranges::generate(bytes, [&] {
        const auto number = random() >> 8;
        return number % 4 == 0 ? often[number / 4 % 4] : static_cast<unsigned char>(number / 4);
    });
    return bytes;
}

Failure send_message(const Bytes& message, unsigned int device) {
    return failure(SendSspMessage(device, 0, message.data(), static_cast<unsigned int>(message.size())));
}

MessageAnswer receive_message(unsigned int time_out, unsigned int capacity, unsigned int device) {
    Bytes buffer(capacity + 8, untouched);
    unsigned int reply = reply_untouched;
    MessageAnswer answer{failure(ReceiveSspMessage(device, 0, buffer.data(), capacity, time_out, &reply)), {}};
    const bool received = answer.failure == Failure{};
    EXPECT_EQ(received, reply != reply_untouched);
    const std::size_t size = received ? std::min(reply, capacity) : 0;
    EXPECT_TRUE(std::all_of(buffer.begin() + static_cast<std::ptrdiff_t>(size), buffer.end(), [](unsigned char byte) {
        return byte == untouched;
    })) << "wrote behind the message";
    answer.message.assign(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(size));
    return answer;
}

MessageAnswer exchange_messages(const Bytes& request, unsigned int time_out) {
    const auto sent = send_message(request);
    return sent == Failure{} ? receive_message(time_out) : MessageAnswer{sent, {}};
}

void put_into_stream(int pad, const Bytes& bytes) {
    to_pad("send", pad, hex(bytes));
}

std::string ssp_state_of(int pad, const std::string& name) {
    std::istringstream words{to_pad("ssp", pad)};
    for (std::string word; words >> word;) {
        if (word.starts_with(name + "=")) {
            return word.substr(name.size() + 1);
        }
    }
    return {};
}

bool has_ssp_line(int pad, const std::string& line) {
    return ("\n" + to_pad("ssp", pad) + "\n").find("\n" + line + "\n") != std::string::npos;
}

OwnRecord::OwnRecord() {
    EXPECT_EQ(core_initialize(), 1);
    EXPECT_EQ(core_search_devices(registry_.get()), 1);
    EXPECT_EQ(core_open_dev(get()), 0);
}

OwnRecord::~OwnRecord() {
    EXPECT_EQ(core_close_all_devs_clear_mem(registry_.get()), 1);
    core_uninitialize();
}

void SspPad::initialize() {
    EXPECT_EQ(Initialize(), 0);
    unsigned int reply = 0;
    ASSERT_EQ(GetDeviceCount(&reply), 1);
}

void SspPad::expect_sound_pad() {
    to_pad("clear-faults", pad());
    if (!is_plugged(pad())) {
        to_pad("plug", pad());
    }
    initialize();
    EXPECT_EQ(exchange_messages(components_request), (MessageAnswer{{}, components_reply}));
}

void drop_late_replies() {
    for (int i = 0; i < 100; ++i) {
        if (receive_message(30).failure != Failure{}) {
            return;
        }
    }
    ADD_FAILURE() << "they have no end";
}

} // namespace pads
