#include "receive_pad_test.hpp"

#include <algorithm>

namespace pads {

namespace {

std::uint64_t little_endian(const unsigned char* bytes, std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t i = size; i > 0; --i) {
        value = value << 8 | bytes[i - 1];
    }
    return value;
}

// The first place where they differ, for the sequences are long.
void expect_equal(const Numbers& received, const Numbers& expected) {
    EXPECT_EQ(received.size(), expected.size());
    const auto [one, other] = std::ranges::mismatch(received, expected);
    if (one != received.end() && other != expected.end()) {
        ADD_FAILURE() << "at " << one - received.begin() << ": " << *one << " instead of " << *other;
    }
}

Numbers counting(std::uint32_t from, std::size_t count) {
    Numbers numbers(count);
    std::ranges::generate(numbers, [&] { return from++; });
    return numbers;
}

std::string word_of(const std::string& request, int pad, const std::string& name) {
    const auto text = to_pad(request, pad);
    const auto begin = text.find(name + "=");
    return begin == std::string::npos ? "" : text.substr(begin, text.find_first_of(" \n", begin) - begin);
}

} // namespace

unsigned int device_of(int pad) {
    unsigned int reply = 0;
    const auto count = static_cast<unsigned int>(GetDeviceCount(&reply));
    const std::string serial = "PAD" + std::to_string(pad);
    for (unsigned int device = 1; device <= count; ++device) {
        if (serial_number(device) == std::u16string{serial.begin(), serial.end()}) {
            return device;
        }
    }
    ADD_FAILURE() << "the library does not know pad " << pad;
    return 0;
}

std::string name_of_pad(const testing::TestParamInfo<int>& tested) {
    return tested.param == vcom_pad ? "vcom" : "hid";
}

PenPacket pen_packet(const void* data) {
    constexpr std::size_t size = 64;
    constexpr std::size_t filler = 20;
    const auto* bytes = static_cast<const unsigned char*>(data);
    const auto number = static_cast<std::uint32_t>(little_endian(bytes + 8, 4));
    return {static_cast<int>(little_endian(bytes + 2, 2)), number,
            std::all_of(bytes + filler, bytes + size, [&](auto byte) { return byte == (number & 0xff); })};
}

void Receiver::listen() {
    EXPECT_EQ(SetOnDataReceivedHandler(device_, 0, receive, this), 0);
}

void Receiver::enable() {
    EXPECT_EQ(SetDataReceivingEnabled(device_, 0, 1), 0);
}

void Receiver::disable() {
    EXPECT_EQ(SetDataReceivingEnabled(device_, 0, 0), 0);
}

unsigned int Receiver::waiting() const {
    return number_of([&](auto* reply) { return GetDataPacketsAvailable(device_, 0, reply); });
}

Numbers Receiver::numbers() const {
    const std::lock_guard lock{mutex_};
    return numbers_;
}

std::optional<std::uint32_t> Receiver::last() const {
    const std::lock_guard lock{mutex_};
    return numbers_.empty() ? std::nullopt : std::optional{numbers_.back()};
}

void Receiver::forget() {
    const std::lock_guard lock{mutex_};
    numbers_ = {};
    count_ = 0;
}

void Receiver::receive(void* self, unsigned int device, unsigned int interface_number, const void* data,
                       unsigned int length) {
    auto& receiver = *static_cast<Receiver*>(self);
    const auto packet = pen_packet(data);
    if (receiver.closed_ || device != receiver.device_ || interface_number != 0 || length != 64 ||
        packet.pad != receiver.pad_ || !packet.is_whole) {
        ++receiver.astray_;
        return;
    }
    {
        const std::lock_guard lock{receiver.mutex_};
        receiver.numbers_.push_back(packet.number);
    }
    ++receiver.count_;
    ++receiver.reacting_;
    if (receiver.on_packet && receiver.reacts_) {
        receiver.on_packet(receiver, packet.number);
    }
    --receiver.reacting_;
}

void Receiver::end_reactions() {
    reacts_ = false;
    EXPECT_TRUE(wait_for([&] { return reacting_ == 0; }, 30s)) << "hangs in a callback";
}

void exchange_features(const Receiver& of, std::uint32_t number) {
    constexpr unsigned char kinds = 8;
    const auto first = static_cast<unsigned char>(0x80 + kinds * of.pad());
    const auto written = report(65, static_cast<unsigned char>(first + number % kinds));
    EXPECT_EQ(set_feature(of.device(), 0, written), 0);
    const auto answer = read(GetFeature, of.device(), 0);
    EXPECT_EQ(answer.result, 0);
    if (of.pad() == vcom_pad && answer.buffer[1] >= first && answer.buffer[1] < first + kinds) {
        EXPECT_EQ(answer.buffer, received(payload(report(65, answer.buffer[1]))));
    } else {
        EXPECT_EQ(answer.buffer, received(payload(written)));
    }
}

void rewind_upload(unsigned int device) {
    const Bytes piece(65, 0x80);
    unsigned int reply = 0;
    EXPECT_EQ(WriteFileBuffer(device, 1, piece.data(), static_cast<unsigned int>(piece.size()), &reply), 0);
}

void play(int pad, unsigned int rate) {
    to_pad("play", pad, "loop " + std::to_string(rate));
}

unsigned long sent_by(int pad) {
    return std::stoul(state_of(pad, "pen-sent"));
}

void expect_all_received(const Receiver& receiver) {
    const int pad = receiver.pad();
    to_pad("stop", pad);
    const auto sent = sent_by(pad);
    ASSERT_GT(sent, 0U);
    // Whatever is dropped before the library, it is not the newest packet.
    EXPECT_TRUE(wait_for([&] { return receiver.last() == sent - 1; }, 60s))
        << word_of("state", pad, "inputs-lost") << ", last " << receiver.last().value_or(0) << " of " << sent;
    const auto received = receiver.numbers();
    ASSERT_FALSE(received.empty());
    if (pad == vcom_pad) {
        EXPECT_EQ(word_of("ssp", pad, "pen-lost"), "pen-lost=0") << "in the pad";
        expect_equal(received, counting(received.front(), sent - received.front()));
    } else {
        expect_equal(received, handed_out(pad).numbers);
    }
}

void expect_subsequence(const Receiver& receiver, std::size_t interruptions) {
    const auto expected = handed_out(receiver.pad()).numbers;
    std::size_t left_out = 0;
    auto next = expected.begin();
    for (const auto number : receiver.numbers()) {
        const auto found = std::find(next, expected.end(), number);
        ASSERT_NE(found, expected.end()) << number << " is out of order or was never handed out";
        left_out += found == next ? 0U : 1U;
        next = found + 1;
    }
    EXPECT_LE(left_out, interruptions);
}

void ReceivingPads::initialize(const std::vector<int>& pads) {
    plug_only({});
    plug_only(pads);
    ASSERT_EQ(Initialize(), 0);
    unsigned int reply = 0;
    ASSERT_EQ(GetDeviceCount(&reply), static_cast<int>(pads.size()));
}

void ReceivingPads::deinitialize() {
    for (auto& receiver : receivers_) {
        receiver.end_reactions();
    }
    EXPECT_EQ(Deinitialize(), 0);
    for (auto& receiver : receivers_) {
        receiver.close();
    }
}

Receiver& ReceivingPads::receiver(int pad) {
    return receivers_.emplace_back(pad);
}

} // namespace pads
