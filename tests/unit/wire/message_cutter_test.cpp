// A read may end anywhere: whatever the cuts, the same messages come out. No pad takes part.
#include "cut_stream.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

using cut_stream::base;
using cut_stream::Bytes;
using cut_stream::framed;
using cut_stream::legacy;
using cut_stream::receive;
using cut_stream::Received;
using testing::HasSubstr;

constexpr std::size_t room_size = 4096;
constexpr unsigned char report = 0x80;
constexpr unsigned char pen = 0xC0;

Received receive_in_pieces(const Bytes& stream, std::size_t piece, std::size_t room = room_size) {
    return receive(stream, room, [piece] { return piece; });
}

// In one piece up to the cut, and in another behind it.
Received receive_with_cut(const Bytes& stream, std::size_t cut) {
    return receive(stream, room_size, [first = true, cut, &stream]() mutable {
        const bool was_first = first;
        first = false;
        return was_first && cut > 0 ? cut : stream.size();
    });
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

const std::vector<Bytes>& mixed() {
    static const std::vector<Bytes> messages{
        base(1, {0x10, 1, 0xAA, 0x55, 0x02}),
        legacy(pen, {0xAA, 0x55, 0xAA, 0x55}),
        legacy(pen, {1, 2, 3, 0xAA}),
        base(2, {0xAA, 0x55}),
        legacy(report, {0x55, 0xAA}),
        base(0, {0xAA}),
        base(3, Bytes(300, 0xAA)),
        base(4, {0xAA, 0xAA, 0x55, 0x00, 0x55, 0xAA, 0x55, 0x55}),
        legacy(report, Bytes{0x55, 2} + Bytes(41, 0x55)), // begins with the bytes of a token
        base(0x7F, {0}),
    };
    return messages;
}

// What one piece gives.
struct Once {
    explicit Once(const Bytes& received, std::size_t size = room_size)
        : room{received + Bytes(size - received.size())}, cutter{VX_HERE, room, received.size()} {
        while (const auto frame = cutter.next()) {
            first.push_back(frame->is_first);
        }
        kept = cutter.keep_beginning();
    }

    Bytes room;
    message_cutter::Cutter cutter;
    std::vector<bool> first; // of each frame with a whole message
    std::optional<std::size_t> kept;
};

TEST(MessageCutterTest, OneCutAtEveryByte) {
    const Bytes stream = framed(mixed());
    for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
        ASSERT_EQ(receive_with_cut(stream, cut), (Received{mixed(), {}})) << "behind byte " << cut;
    }
}

TEST(MessageCutterTest, PiecesOfEverySize) {
    const Bytes stream = framed(mixed());
    for (std::size_t size = 1; size < 70; ++size) {
        ASSERT_EQ(receive_in_pieces(stream, size), (Received{mixed(), {}})) << "pieces of " << size;
    }
}

TEST(MessageCutterTest, RandomMessagesInRandomPieces) {
    std::mt19937 random{7};
    constexpr unsigned char often[] = {0xAA, 0x55, 2, 0, 1};
    for (int round = 0; round < 1000; ++round) {
        std::vector<Bytes> messages;
        for (unsigned int i = 0; i < 1 + random() % 8; ++i) {
            Bytes payload(1 + random() % 30);
            for (unsigned char& byte : payload) {
                byte = often[random() % std::size(often)];
            }
            const auto kind = random() % 3;
            messages.push_back(kind == 0 ? base(static_cast<unsigned char>(random() % 128), payload)
                                         : legacy(kind == 1 ? report : pen, payload));
        }
        ASSERT_EQ(receive(framed(messages), room_size, [&random] { return 1 + random() % 12; }),
                  (Received{messages, {}}))
            << "round " << round;
    }
}

TEST(MessageCutterTest, NoiseBetweenMessagesIsLeftOut) {
    const Bytes noise{1, 0xAA, 0x54, 0x55, 0xAA, 0};
    const Bytes stream = noise + framed({base(1, {7})}) + noise + framed({legacy(pen, {8, 9})}) + noise;
    for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
        ASSERT_EQ(receive_with_cut(stream, cut).messages, (std::vector<Bytes>{base(1, {7}), legacy(pen, {8, 9})}))
            << "behind byte " << cut;
    }
}

TEST(MessageCutterTest, AMessageCutShortByTheNextIsLeftOut) {
    Bytes cut_short = framed({base(1, {1, 2, 3, 4, 5})});
    cut_short.resize(cut_short.size() - 4); // more than a token could be taken for
    const Bytes stream = cut_short + framed({base(2, {4})});
    EXPECT_EQ(receive_in_pieces(stream, 100).messages, (std::vector<Bytes>{base(2, {4})}));
    EXPECT_EQ(receive_in_pieces(stream, 2).messages, (std::vector<Bytes>{base(2, {4})}));
}

TEST(MessageCutterTest, KeepsTheBeginningAsItCame) {
    const Bytes whole = framed({base(1, {0xAA, 0x55, 3, 0xAA, 4, 5})});
    for (std::size_t size = 1; size < whole.size(); ++size) {
        const Bytes beginning(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        ASSERT_EQ(receive_in_pieces(beginning, room_size), (Received{{}, beginning})) << "of " << size;
        ASSERT_EQ(receive_in_pieces(beginning, 1), (Received{{}, beginning})) << "of " << size << " in single bytes";
    }
}

TEST(MessageCutterTest, TellsWhatIsFirst) {
    const Bytes message = framed({base(1, {7})});
    const Bytes beginning{0xAA, 0x55, 2, 1, 0};

    const Once both{message + beginning};
    EXPECT_EQ(both.first, std::vector<bool>{true});
    EXPECT_EQ(both.kept, beginning.size());
    EXPECT_FALSE(both.cutter.first_goes_on());

    const Once alone{beginning};
    EXPECT_EQ(alone.first, std::vector<bool>{});
    EXPECT_TRUE(alone.cutter.first_goes_on());

    const Once behind_one_cut_short{beginning + message + message};
    EXPECT_EQ(behind_one_cut_short.first, (std::vector<bool>{false, false}));
    EXPECT_FALSE(behind_one_cut_short.cutter.first_goes_on());
}

TEST(MessageCutterTest, TellsThatNothingWasFound) {
    EXPECT_TRUE(Once(Bytes{1, 2, 3}).cutter.found_nothing());
    EXPECT_FALSE(Once(Bytes{1, 2, 0xAA}).cutter.found_nothing());
    EXPECT_FALSE(Once(framed({base(1, {7})})).cutter.found_nothing());
}

// What may begin behind a message that has no room is kept.
TEST(MessageCutterTest, ABeginningThatFillsTheRoomIsLost) {
    const Bytes beginning = framed({base(1, Bytes(100, 7))});
    for (std::size_t size = 1; size < 40; ++size) {
        const Received received = receive_in_pieces(beginning + framed({base(2, {8})}), size, 50);
        ASSERT_EQ(received, (Received{{base(2, {8})}, {}})) << "pieces of " << size;
    }
    const Bytes filling(beginning.begin(), beginning.begin() + 20);
    EXPECT_EQ(Once(filling, 20).kept, std::nullopt);
    const Once with_cut_token{filling + Bytes{0xAA, 0x55}, 22};
    EXPECT_EQ(with_cut_token.kept, 2U);
    EXPECT_EQ(with_cut_token.room, (Bytes{0xAA, 0x55} + Bytes(20)));
    EXPECT_EQ(Once(Bytes{0xAA, 0x55, 2}, 3).kept, std::nullopt);
}

// The trace names the function whose bytes they are.
TEST(MessageCutterTest, SpeaksForItsCaller) {
    Bytes room = framed({base(1, Bytes(100, 7))});
    room.resize(20);
    testing::internal::CaptureStderr();
    const trace::Location caller{"caller.cpp", 4711, "reads"};
    message_cutter::Cutter cutter{caller, room, room.size()};
    EXPECT_FALSE(cutter.next());
    EXPECT_FALSE(cutter.keep_beginning());
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_THAT(said, HasSubstr("caller.cpp"));
    EXPECT_THAT(said, HasSubstr("4711"));
    EXPECT_THAT(said, HasSubstr("reads"));
}

} // namespace
