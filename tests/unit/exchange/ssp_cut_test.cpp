// A read may end anywhere: whatever the position of the cut, the same messages come out.
#include "ssp_test.hpp"

#include <random>

namespace core_test {
namespace {

struct Messages {
    std::vector<Bytes> replies;
    std::vector<Bytes> pen_data;

    bool operator==(const Messages&) const = default;
};

// Everything that a record receives until nothing more comes.
Messages receive_all(vx_device* device) {
    Messages all;
    for (Received one = receive(device, commands, 50); one.result == 0; one = receive(device, commands, 50)) {
        all.replies.push_back(one.message);
    }
    for (Received one = receive(device, pen_data, 50); one.result == 0; one = receive(device, pen_data, 50)) {
        all.pen_data.push_back(one.message);
    }
    return all;
}

const std::vector<Bytes>& mixed() {
    static const std::vector<Bytes> messages{
        base(1, {0x10, 1, 0xAA, 0x55, 0x02}),
        pen({0xAA, 0x55, 0xAA, 0x55}),
        pen({1, 2, 3, 0xAA}),
        base(2, {0xAA, 0x55}),
        legacy({0x55, 0xAA}),
        pen({0}),
        base(0, {0xAA}),
        base(3, counting(70)),
        pen(Bytes(64, 0xAA)),
        base(0, {0, 0, 0, 0}),
        base(4, {0xAA, 0xAA, 0x55, 0x00, 0x55, 0xAA, 0x55, 0x55}),
        pen({0xAA, 0x55, 0x00, 0x02}),
        base(0x7F, {0}),
        legacy(Bytes{0x55, 2} + Bytes(41, 0x55)), // begins with the bytes of a token
    };
    return messages;
}

Messages sorted(const std::vector<Bytes>& messages) {
    Messages all;
    for (const Bytes& message : messages) {
        (message[0] >= 0xC0 ? all.pen_data : all.replies).push_back(message);
    }
    return all;
}

class SspCutTest : public CoreTest {
  protected:
    SspCutTest() {
        bus().cost_us["hid_get_feature_report"] = 1000;
        bus().cost_us["libusb_bulk_transfer"] = 1000;
    }
};

TEST_F(SspCutTest, OverVcomAtEveryByte) {
    const Bytes stream = framed(mixed());
    UsbDevice& pad = bus().plug(vcom_pad());
    for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
        OpenVcomRecord record(pad);
        pad.incoming = {part(stream, 0, cut), part(stream, cut)};
        std::erase(pad.incoming, Bytes{});
        ASSERT_EQ(receive_all(record.get()), sorted(mixed())) << "cut behind byte " << cut;
        bus().take_log();
    }
}

TEST_F(SspCutTest, OverVcomAtEveryTwoBytes) {
    const std::vector<Bytes> chosen{base(1, {0xAA, 0x55, 2}), pen({0xAA}), base(1, {7, 0xAA, 0x55}), pen({0x55})};
    const Bytes stream = framed(chosen);
    UsbDevice& pad = bus().plug(vcom_pad());
    for (std::size_t first = 1; first < stream.size(); ++first) {
        for (std::size_t second = first + 1; second < stream.size(); ++second) {
            OpenVcomRecord record(pad);
            pad.incoming = {part(stream, 0, first), part(stream, first, second - first), part(stream, second)};
            ASSERT_EQ(receive_all(record.get()), sorted(chosen)) << "cut behind " << first << " and " << second;
            bus().take_log();
        }
    }
}

TEST_F(SspCutTest, OverVcomInPiecesOfOneSize) {
    const Bytes stream = framed(mixed());
    UsbDevice& pad = bus().plug(vcom_pad());
    bus().cost_us.clear();
    bus().cost_us["libusb_bulk_transfer"] = 10;
    for (std::size_t size = 1; size < 70; ++size) {
        OpenVcomRecord record(pad);
        pad.incoming.clear();
        for (std::size_t at = 0; at < stream.size(); at += size) {
            pad.incoming.push_back(part(stream, at, size));
        }
        ASSERT_EQ(receive_all(record.get()), sorted(mixed())) << "pieces of " << size;
        bus().take_log();
    }
}

TEST_F(SspCutTest, OverVcomRandomMessagesInRandomPieces) {
    std::mt19937 random(42);
    constexpr unsigned char often[] = {0xAA, 0x55, 2, 0, 1};
    UsbDevice& pad = bus().plug(vcom_pad());
    bus().cost_us["libusb_bulk_transfer"] = 10;
    for (int round = 0; round < 300; ++round) {
        std::vector<Bytes> chosen;
        for (unsigned int i = 0; i < 1 + random() % 8; ++i) {
            Bytes payload(1 + random() % 20);
            for (unsigned char& byte : payload) {
                byte = often[random() % std::size(often)];
            }
            const auto kind = random() % 3;
            chosen.push_back(kind == 0   ? pen(payload)
                             : kind == 1 ? legacy(payload)
                                         : base(static_cast<unsigned char>(random() % 128), payload));
        }
        const Bytes stream = framed(chosen);
        OpenVcomRecord record(pad);
        pad.incoming.clear();
        for (std::size_t at = 0; at < stream.size();) {
            const std::size_t size = 1 + random() % 12;
            pad.incoming.push_back(part(stream, at, size));
            at += size;
        }
        ASSERT_EQ(receive_all(record.get()), sorted(chosen)) << "round " << round;
        bus().take_log();
    }
}

// Reports have one size: noise in front moves their borders over the stream.
TEST_F(SspCutTest, OverHidAtEveryByte) {
    const Bytes stream = framed(mixed());
    HidInterface& pad = bus().plug(pad_of_type(plain_type));
    for (std::size_t shift = 0; shift < 62; ++shift) {
        OpenHidSspRecord record(pad);
        pad.feature_replies.clear();
        for (const Bytes& report : ssp_reports(Bytes(shift, 0x11) + stream)) {
            pad.feature_replies.push_back(report);
        }
        pad.feature_replies.insert(pad.feature_replies.end(), 400, Bytes(64));
        ASSERT_EQ(receive_all(record.get()), sorted(mixed())) << "shifted by " << shift;
        bus().take_log();
    }
}

} // namespace
} // namespace core_test
