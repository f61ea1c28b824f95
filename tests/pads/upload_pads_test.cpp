// Buffers that are uploaded: what arrives at the pad, over how many interfaces ever. The library's pauses are skipped.
#include "receive_pad_test.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <future>
#include <sstream>

using namespace pads;

namespace {

constexpr std::size_t payload_size = 64;
constexpr std::size_t piece_size = 1 + payload_size; // with the report id

// CRC-32 as zip and Ethernet have it.
std::uint32_t crc32(const unsigned char* bytes, std::size_t size) {
    std::uint32_t crc = 0xffffffff;
    for (std::size_t i = 0; i < size; ++i) {
        crc ^= bytes[i];
        for (int bit = 0; bit < 8; ++bit) {
            crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xedb88320 : 0);
        }
    }
    return ~crc;
}

// Numbered pieces; the report id must not reach the pad.
Bytes upload_data(std::size_t pieces) {
    Bytes data;
    for (std::size_t piece = 0; piece < pieces; ++piece) {
        data.insert(data.end(), {0xdd, 'u', 'p', 'l', 'd'});
        for (unsigned int shift = 0; shift < 32; shift += 8) {
            data.push_back(static_cast<unsigned char>(piece >> shift));
        }
        while (data.size() % piece_size != 0) {
            data.push_back(static_cast<unsigned char>(7 * piece + data.size()));
        }
    }
    return data;
}

std::uint32_t checksum(const Bytes& data, std::size_t first_piece = 0) {
    std::uint32_t sum = 0;
    for (std::size_t at = first_piece * piece_size; at + piece_size <= data.size(); at += piece_size) {
        sum += crc32(&data[at + 1], payload_size);
    }
    return sum;
}

// What the pad says of it.
struct Tally {
    unsigned long received = 0;
    unsigned long gaps = 0;
    unsigned long duplicates = 0;
    std::string sizes;
    std::uint32_t checksum = 0;
    std::vector<unsigned long> of_interfaces;
};

Tally tally_of(int pad) {
    Tally tally;
    std::istringstream words{to_pad("uploads", pad)};
    bool total = true;
    for (std::string word; words >> word;) {
        const auto equals = std::min(word.find('='), word.size() - 1);
        const std::string name = word.substr(0, equals);
        const std::string value = word.substr(equals + 1);
        if (name == "received" && total) {
            tally.received = std::stoul(value);
            total = false;
        } else if (name == "received") {
            tally.of_interfaces.push_back(std::stoul(value));
        } else if (name == "gaps") {
            tally.gaps = std::stoul(value);
        } else if (name == "duplicates") {
            tally.duplicates = std::stoul(value);
        } else if (name == "sizes") {
            tally.sizes = value;
        } else if (name == "checksum") {
            tally.checksum = static_cast<std::uint32_t>(std::stoul(value, nullptr, 16));
        }
    }
    return tally;
}

void expect_uploaded(int pad, const Bytes& data, std::size_t first_piece = 0) {
    const auto pieces = data.size() / piece_size - first_piece;
    const auto tally = tally_of(pad);
    EXPECT_EQ(tally.received, pieces);
    EXPECT_EQ(tally.gaps, first_piece);
    EXPECT_EQ(tally.duplicates, 0U);
    EXPECT_EQ(tally.sizes, "64:" + std::to_string(pieces));
    EXPECT_EQ(tally.checksum, checksum(data, first_piece));
}

// The bytes sent.
std::size_t upload(unsigned int device, unsigned int mask, const Bytes& data) {
    unsigned int reply = reply_untouched;
    EXPECT_EQ(WriteFileBuffer(device, mask, data.data(), static_cast<unsigned int>(data.size()), &reply), 0);
    return reply;
}

class Upload : public ReceivingPads {
  protected:
    static void begin_anew(unsigned int device) {
        rewind_upload(device);
        for (int pad = hid_pad; pad <= vcom_pad; ++pad) {
            to_pad("reset-uploads", pad);
        }
    }
    void TearDown() override {
        longest_pause_us = 0;
        ReceivingPads::TearDown();
    }
    static std::size_t pieces() { return static_cast<std::size_t>(times(2'000, 50'000)); }
};

struct Interfaces {
    unsigned int mask;
    std::size_t count;
};
void PrintTo(const Interfaces& interfaces, std::ostream* stream) {
    *stream << interfaces.count << " interfaces";
}

class UploadOverInterfaces : public Upload, public testing::WithParamInterface<Interfaces> {};

INSTANTIATE_TEST_SUITE_P(All, UploadOverInterfaces,
                         testing::Values(Interfaces{0b1, 1}, Interfaces{0b1010, 2}, Interfaces{0b1111, 4},
                                         Interfaces{0xffffffff, 4}),
                         [](const auto& tested) { return "mask_" + std::to_string(tested.param.mask); });

TEST_P(UploadOverInterfaces, IsComplete) {
    initialize({hid_pad});
    const unsigned int device = device_of(hid_pad);
    begin_anew(device);
    auto data = upload_data(pieces());
    const auto size = data.size();
    data.insert(data.end(), piece_size - 1, 0xcc); // a rest that is not sent
    EXPECT_EQ(upload(device, GetParam().mask, data), size);
    expect_uploaded(hid_pad, data);
    const auto of_interfaces = tally_of(hid_pad).of_interfaces;
    EXPECT_EQ(of_interfaces.size(), GetParam().count);
    for (const auto received : of_interfaces) {
        EXPECT_GT(received, 0U) << "an interface took no part";
    }
}

TEST_F(Upload, ToAVcomPad) {
    initialize({vcom_pad});
    const unsigned int device = device_of(vcom_pad);
    begin_anew(device);
    const auto data = upload_data(pieces());
    EXPECT_EQ(upload(device, 0b11, data), data.size());
    expect_uploaded(vcom_pad, data);
}

TEST_F(Upload, OfEverySizeAroundAPiece) {
    initialize({hid_pad});
    const unsigned int device = device_of(hid_pad);
    begin_anew(device);
    for (const std::size_t size : {std::size_t{1}, piece_size - 1, piece_size, piece_size + 1, 3 * piece_size}) {
        auto data = upload_data(4);
        data.resize(size);
        to_pad("reset-uploads", hid_pad);
        EXPECT_EQ(upload(device, 0b1111, data), size / piece_size * piece_size);
        EXPECT_EQ(tally_of(hid_pad).received, size / piece_size);
    }
}

class UploadThatEndsEarly : public Upload, public testing::WithParamInterface<int> {};

INSTANTIATE_TEST_SUITE_P(On, UploadThatEndsEarly, testing::Values(hid_pad, vcom_pad), name_of_pad);

// The piece whose transfer fails is lost; the next upload goes on behind it.
TEST_P(UploadThatEndsEarly, IsGoneOnWithWhereItEnded) {
    constexpr std::size_t until_fault = 100;
    const int pad = GetParam();
    initialize({pad});
    const unsigned int device = device_of(pad);
    begin_anew(device);
    const auto data = upload_data(300);
    // A VCOM pad's frames take two packets each, but one transfer.
    to_pad("fault", pad,
           std::string("stall,on=") + (pad == vcom_pad ? "bulk-out" : "set-feature") +
               ",count=1000,after=" + std::to_string(until_fault));
    EXPECT_EQ(upload(device, 1, data), until_fault * piece_size);
    to_pad("clear-faults", pad);
    EXPECT_EQ(tally_of(pad).received, until_fault);
    EXPECT_EQ(upload(device, 1, data), data.size() - (until_fault + 1) * piece_size);
    const auto tally = tally_of(pad);
    EXPECT_EQ(tally.received, 299U);
    EXPECT_EQ(tally.gaps, 1U);
    EXPECT_EQ(tally.duplicates, 0U);
    to_pad("reset-uploads", pad);
    EXPECT_EQ(upload(device, 1, data), data.size()) << "from the front again";
    expect_uploaded(pad, data);
}

TEST_P(UploadThatEndsEarly, ForThePadIsPulledOut) {
    constexpr std::size_t until_fault = 100;
    const int pad = GetParam();
    initialize({pad});
    const auto interfaces = number_of([&](auto* reply) { return GetEndPointCount(device_of(pad), reply); });
    begin_anew(device_of(pad));
    const auto data = upload_data(1'000);
    to_pad("fault", pad,
           std::string("unplug,on=") + (pad == vcom_pad ? "bulk-out" : "set-feature") +
               ",count=1,after=" + std::to_string(until_fault));
    const auto sent = upload(device_of(pad), 0b1111, data);
    EXPECT_FALSE(is_plugged(pad));
    EXPECT_LE(sent, until_fault * piece_size);
    EXPECT_GE(sent, (until_fault - interfaces) * piece_size);

    to_pad("plug", pad);
    ASSERT_EQ(Initialize(), 0);
    const auto rest = upload(device_of(pad), 0b1111, data);
    EXPECT_EQ(rest % piece_size, 0U);
    EXPECT_LT(rest, data.size() - sent) << "each interface has lost a piece at least where one was under way";
    EXPECT_GE(rest, data.size() - sent - interfaces * piece_size);
    expect_uploaded(pad, data, (data.size() - rest) / piece_size);
}

// One pad is uploaded to and the other received from; they may be the same.
struct Pair {
    const char* name;
    int uploaded;
    int received;
};
void PrintTo(const Pair& pair, std::ostream* stream) {
    *stream << pair.name;
}

class UploadBesideReceiving : public Upload, public testing::WithParamInterface<Pair> {};

INSTANTIATE_TEST_SUITE_P(On, UploadBesideReceiving,
                         testing::Values(Pair{"hid_beside_hid", hid_pad, other_hid_pad},
                                         Pair{"hid_beside_vcom", hid_pad, vcom_pad},
                                         Pair{"vcom_beside_hid", vcom_pad, other_hid_pad},
                                         Pair{"hid_itself", hid_pad, hid_pad}, Pair{"vcom_itself", vcom_pad, vcom_pad}),
                         [](const auto& tested) { return tested.param.name; });

TEST_P(UploadBesideReceiving, BothAreComplete) {
    longest_pause_us = 1'000'000; // all of it: the receive thread's are measured against the pad's rate
    const auto [name, uploaded, received] = GetParam();
    initialize(uploaded == received ? std::vector{uploaded} : std::vector{uploaded, received});
    const unsigned int device = device_of(uploaded);
    begin_anew(device);
    auto& application = receiver(received);
    application.listen();
    application.enable();
    play(received, 500);
    const auto data = upload_data(pieces());
    auto uploading = std::async(std::launch::async, [&] { return upload(device, 0b1111, data); });
    EXPECT_TRUE(wait_for([&] { return application.count() >= 200; }));
    ASSERT_EQ(uploading.wait_for(100s), std::future_status::ready);
    EXPECT_EQ(uploading.get(), data.size());
    EXPECT_EQ(closed_while_read(), 0);
    expect_all_received(application);
    expect_uploaded(uploaded, data);
}

} // namespace
