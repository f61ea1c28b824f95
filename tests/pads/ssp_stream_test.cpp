// A long stream of pen data and replies comes out the same wherever the reads cut it.
#include "ssp_pad_test.hpp"

#include <algorithm>

using namespace pads;

namespace {

constexpr unsigned int time_out = 1000;

struct Stream {
    Bytes bytes;
    std::vector<Bytes> replies;
    std::vector<Bytes> records;
};

// Every kind of message, with markers inside, at the start and at the end.
Stream mixed_stream() {
    Stream stream;
    const auto add = [&](const Bytes& message) {
        stream.bytes = stream.bytes + framed(message);
        (message[0] >= 0xc0 ? stream.records : stream.replies).push_back(message);
    };
    add(components_reply);
    add(pen_message({1}));
    add(pen_message({0xaa, 0x55, 0x02, 0xaa, 0x55, 0x00}));
    add(base_message(0x55, {0xaa}));
    add(base_message(0x2a, numbered_bytes(150, 1)));
    add(pen_message(numbered_bytes(64, 2)));
    add(legacy_message({0xaa, 0x55}));
    add(legacy_message(Bytes{0x55, 0x02} + numbered_bytes(60, 3) + Bytes{0xaa}));
    add(base_message(0, {0}));
    add(pen_message({0xaa}));
    add(base_message(0x02, Bytes{0x55, 0xaa} + numbered_bytes(20, 4) + Bytes{0xaa, 0x55}));
    return stream;
}

std::vector<Bytes> receive_all(vx_device* device, std::size_t count, int selector) {
    std::vector<Bytes> messages;
    while (messages.size() < count) {
        Bytes data(4096);
        auto length = static_cast<unsigned int>(data.size());
        if (__receive_ssp_message(device, data.data(), &length, time_out, 0, selector) != 0) {
            break;
        }
        data.resize(length);
        messages.push_back(data);
    }
    return messages;
}

class SspStream : public SspPad {
  protected:
    void expect_the_stream(vx_device* device) const {
        EXPECT_EQ(receive_all(device, stream_.replies.size(), 2), stream_.replies);
        EXPECT_EQ(receive_all(device, stream_.records.size(), 1), stream_.records);
        EXPECT_EQ(get_uni_queue_size(device->ssp_command_messages), 0);
        EXPECT_EQ(get_uni_queue_size(device->ssp_input_read), 0);
    }

    Bytes part(std::size_t start, std::size_t end) const {
        const auto& bytes = stream_.bytes;
        return {bytes.begin() + static_cast<std::ptrdiff_t>(start),
                bytes.begin() + static_cast<std::ptrdiff_t>(std::min(end, bytes.size()))};
    }

    const Stream stream_ = mixed_stream();
};

INSTANTIATE_TEST_SUITE_P(On, SspStream, testing::Values(hid, vcom), name_of_transport);

TEST_P(SspStream, ComesOutOfOnePiece) {
    const OwnRecord record;
    put_into_stream(pad(), stream_.bytes);
    expect_the_stream(record.get());
}

// A HID pad hands out 62 bytes at a time; noise before the first token moves these cuts along the stream. With 62 to
// 64 bytes of noise a VCOM pad's packets end at other bytes, too.
TEST_P(SspStream, ComesOutBehindNoiseOfEveryLength) {
    const OwnRecord record;
    for (std::size_t noise = 0; noise < 65; ++noise) {
        SCOPED_TRACE("noise " + std::to_string(noise));
        put_into_stream(pad(), Bytes(noise, 0x11) + stream_.bytes);
        expect_the_stream(record.get());
        if (HasFailure()) {
            break;
        }
    }
}

class CutStream : public SspStream {};

// The zeros at the end of a HID pad's report would come between the pieces.
INSTANTIATE_TEST_SUITE_P(On, CutStream, testing::Values(vcom), name_of_transport);

TEST_P(CutStream, ComesOutOfTwoPieces) {
    const OwnRecord record;
    for (std::size_t cut = 1; cut < stream_.bytes.size(); ++cut) {
        SCOPED_TRACE("cut at " + std::to_string(cut));
        put_into_stream(pad(), part(0, cut));
        put_into_stream(pad(), part(cut, stream_.bytes.size()));
        expect_the_stream(record.get());
        if (HasFailure()) {
            break;
        }
    }
}

TEST_P(CutStream, ComesOutOfSmallPieces) {
    const OwnRecord record;
    for (std::size_t size = 1; size < 20; ++size) {
        SCOPED_TRACE("pieces of " + std::to_string(size));
        for (std::size_t start = 0; start < stream_.bytes.size(); start += size) {
            put_into_stream(pad(), part(start, start + size));
        }
        expect_the_stream(record.get());
        if (HasFailure()) {
            break;
        }
    }
}

// The second piece comes while the library waits for it.
TEST_P(CutStream, ComesOutWhenItsEndIsLate) {
    const OwnRecord record;
    for (std::size_t cut = 1; cut < stream_.bytes.size(); cut += 7) {
        SCOPED_TRACE("cut at " + std::to_string(cut));
        put_into_stream(pad(), part(0, cut));
        std::thread late([&] {
            std::this_thread::sleep_for(1ms);
            put_into_stream(pad(), part(cut, stream_.bytes.size()));
        });
        expect_the_stream(record.get());
        late.join();
        if (HasFailure()) {
            break;
        }
    }
}

} // namespace
