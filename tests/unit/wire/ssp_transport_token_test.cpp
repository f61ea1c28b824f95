// Framing and parsing of the byte stream, also against a model that goes through it byte by byte.
#include "ssp_test.hpp"
#include "wire/token_model.hpp"

#include <cstdlib>
#include <random>
#include <unistd.h>

namespace core_test {
namespace {

class SspTransportTokenTest : public CoreTest {
  protected:
    ~SspTransportTokenTest() override { destroy_uni_queue(queue); }

    static Bytes frame(const Bytes& message) {
        unsigned char* out = nullptr;
        const int size =
            ssp_base_message_to_transport_token_data(message.data(), static_cast<unsigned int>(message.size()), &out);
        const Bytes stream = size < 0 ? Bytes{} : Bytes(out, out + size);
        std::free(out);
        return stream;
    }

    int parse(Bytes& stream) { return ssp_transport_token_to_base_message_data(stream.data(), stream.size(), queue); }

    std::vector<Bytes> take_frames() {
        std::vector<Bytes> frames;
        while (get_uni_queue_size(queue) > 0) {
            unsigned int length = 0;
            auto* bytes = static_cast<unsigned char*>(get_uni_frame(queue, &length));
            frames.emplace_back(bytes, bytes + length);
            std::free(bytes);
        }
        return frames;
    }

    std::vector<Bytes> frames_of(Bytes stream) {
        const int result = parse(stream);
        EXPECT_EQ(result, get_uni_queue_size(queue));
        return take_frames();
    }

    uni_queue* queue = init_uni_queue();
};

TEST_F(SspTransportTokenTest, FramesASmallMessage) {
    EXPECT_EQ(frame({0, 0, 0, 0x10}), (Bytes{0xAA, 0x55, 2, 0, 0, 0, 0x10}));
}

TEST_F(SspTransportTokenTest, EscapesEveryPairOfMarkerBytes) {
    EXPECT_EQ(frame({1, 0xAA, 0x55, 2}), (Bytes{0xAA, 0x55, 2, 1, 0xAA, 0x55, 0, 2}));
    EXPECT_EQ(frame({0xAA, 0x55}), (Bytes{0xAA, 0x55, 2, 0xAA, 0x55, 0}));
    EXPECT_EQ(frame({0xAA, 0xAA, 0x55, 0xAA, 0x55}), (Bytes{0xAA, 0x55, 2, 0xAA, 0xAA, 0x55, 0, 0xAA, 0x55, 0}));
    EXPECT_EQ(frame({0x55, 0xAA, 0x54}), (Bytes{0xAA, 0x55, 2, 0x55, 0xAA, 0x54}));
}

TEST_F(SspTransportTokenTest, LastByteIsNeverEscaped) {
    EXPECT_EQ(frame({1, 0xAA}), (Bytes{0xAA, 0x55, 2, 1, 0xAA}));
}

TEST_F(SspTransportTokenTest, OneByteIsFramedWithANote) {
    EXPECT_EQ(frame({0xAA}), (Bytes{0xAA, 0x55, 2, 0xAA}));
    EXPECT_THAT(said(), Says("Info, input parameter: unsigned int len is 1"));
}

TEST_F(SspTransportTokenTest, BadArgumentsOfFraming) {
    unsigned char byte = 0;
    unsigned char* out = nullptr;
    EXPECT_EQ(ssp_base_message_to_transport_token_data(nullptr, 0, &out), -1);
    EXPECT_THAT(said(), ElementsAre(HasSubstr("Error, input parameter: void *data is ")));
    forget();
    EXPECT_EQ(ssp_base_message_to_transport_token_data(&byte, 0, &out), -1);
    EXPECT_THAT(said(), ElementsAre(HasSubstr("Error, input parameter: unsigned int len is 0")));
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(ssp_base_message_to_transport_token_data(&byte, 1, nullptr), -1);
}

TEST_F(SspTransportTokenTest, ParsesAFrameAndGivesTheQueuesSize) {
    Bytes stream = framed(Bytes{0, 0, 0, 0x10});
    EXPECT_EQ(parse(stream), 1);
    stream = framed(Bytes{7});
    EXPECT_EQ(parse(stream), 2);
    EXPECT_THAT(take_frames(), ElementsAre(Bytes{0, 0, 0, 0x10}, Bytes{7}));
    EXPECT_THAT(said(), Says("ssp_transport_token_to_base_message_data(): now SSP queue has: 2"));
}

TEST_F(SspTransportTokenTest, NoiseIsDroppedAndTheDataShifted) {
    Bytes stream{0x11, 0x22, 0xAA, 0x55, 2, 5};
    EXPECT_EQ(parse(stream), 1);
    EXPECT_EQ(stream, (Bytes{0xAA, 0x55, 2, 5, 0, 0}));
    EXPECT_THAT(take_frames(), ElementsAre(Bytes{5}));
    EXPECT_THAT(said(), AllOf(Says("Found SSP_TRANSPORT_TOKEN_HEADER with SSP_TRANSPORT_TOKEN_TYPE_SOF on position: 2"),
                              Says("Going to reset all data before new TOKEN SOF on position: 2"),
                              Says("Data was reset to new position, now need processing of: 1 bytes")));
}

// The frame that a token ends is queued between the two lines about the token.
TEST_F(SspTransportTokenTest, LinesOfATokenEncloseTheFrameThatItEnds) {
    Bytes stream{0xAA, 0x55, 2, 1, 0xAA, 0x55, 2, 2};
    EXPECT_EQ(parse(stream), 2);
    take_frames();
    const std::string found = "Found SSP_TRANSPORT_TOKEN_HEADER with SSP_TRANSPORT_TOKEN_TYPE_SOF on position: ";
    EXPECT_THAT(said(), ElementsAre(HasSubstr(found + "0"), HasSubstr(found + "4"), HasSubstr("now SSP queue has: 1"),
                                    HasSubstr("Going to reset all data before new TOKEN SOF on position: 4"),
                                    HasSubstr("Data was reset to new position, now need processing of: 1 bytes"),
                                    HasSubstr("now SSP queue has: 2")));
}

TEST_F(SspTransportTokenTest, EveryTokenStartsAFrame) {
    Bytes stream{0xAA, 0x55, 2, 1, 0xAA, 0x55, 2, 2};
    EXPECT_EQ(parse(stream), 2);
    EXPECT_THAT(take_frames(), ElementsAre(Bytes{1}, Bytes{2}));
    EXPECT_EQ(stream, (Bytes{0xAA, 0x55, 2, 2, 0, 0, 0, 0}));
}

TEST_F(SspTransportTokenTest, UnescapesMarkersAndLeavesUnknownTypesAsData) {
    EXPECT_THAT(frames_of({0xAA, 0x55, 2, 0xAA, 0x55, 0}), ElementsAre(Bytes{0xAA, 0x55}));
    EXPECT_THAT(frames_of({0xAA, 0x55, 2, 0xAA, 0x55, 7}), ElementsAre(Bytes{0xAA, 0x55, 7}));
    EXPECT_THAT(frames_of({0xAA, 0x55, 2, 0xAA, 0x55, 0xAA, 0x55, 0, 0}),
                ElementsAre(Bytes{0xAA, 0x55, 0xAA, 0x55, 0}));
}

TEST_F(SspTransportTokenTest, CutTokenAtTheEndIsDataOfTheFrame) {
    EXPECT_THAT(frames_of({0xAA, 0x55, 2, 9, 0xAA, 0x55}), ElementsAre(Bytes{9, 0xAA, 0x55}));
    EXPECT_THAT(frames_of({0xAA, 0x55, 2, 9, 0xAA}), ElementsAre(Bytes{9, 0xAA}));
}

TEST_F(SspTransportTokenTest, TokenWithNothingBehindQueuesNothing) {
    Bytes stream = start_token;
    EXPECT_EQ(parse(stream), 0);
    stream = framed(Bytes{3}) + start_token + start_token;
    EXPECT_EQ(parse(stream), 1);
    stream = start_token;
    EXPECT_EQ(parse(stream), 1);
    EXPECT_EQ(stream, start_token);
}

TEST_F(SspTransportTokenTest, WithoutATokenNothingHappens) {
    const std::vector<Bytes> streams{{1, 2, 3}, {0xAA, 0x55}, {0xAA}, {0xAA, 0x55, 0}, {0xAA, 0x55, 7, 0xAA, 0x55}};
    for (const Bytes& given : streams) {
        Bytes stream = given;
        EXPECT_EQ(parse(stream), -1);
        EXPECT_EQ(stream, given);
    }
    EXPECT_EQ(get_uni_queue_size(queue), 0);
    EXPECT_THAT(said(), IsEmpty());
}

TEST_F(SspTransportTokenTest, BadArgumentsOfParsing) {
    unsigned char byte = 0;
    EXPECT_EQ(ssp_transport_token_to_base_message_data(nullptr, 0, nullptr), -1);
    EXPECT_THAT(said(), ElementsAre(HasSubstr("Error, input parameter: size_t tt_data_size is incorrect")));
    forget();
    EXPECT_EQ(ssp_transport_token_to_base_message_data(nullptr, 1, nullptr), -1);
    EXPECT_THAT(said(), ElementsAre(HasSubstr("Error, input parameter: void *tt_data is ")));
    forget();
    EXPECT_EQ(ssp_transport_token_to_base_message_data(&byte, 1, nullptr), -1);
    EXPECT_THAT(said(), ElementsAre(HasSubstr("Error, input parameter: uni_queue *queue is ")));
}

// Bytes of which tokens are made come up often.
Bytes random_bytes(std::mt19937& random, std::size_t size) {
    constexpr unsigned char often[] = {0xAA, 0xAA, 0x55, 0x55, 2, 2, 0, 0, 1, 0xA5};
    Bytes bytes(size);
    for (unsigned char& byte : bytes) {
        byte = random() % 16 == 0 ? static_cast<unsigned char>(random()) : often[random() % std::size(often)];
    }
    return bytes;
}

TEST_F(SspTransportTokenTest, ParsesRandomBytesAsTheModelDoes) {
    std::mt19937 random(20250301);
    for (int round = 0; round < 20'000; ++round) {
        const Bytes given = random_bytes(random, 1 + random() % 100);
        const TokenModel model(given);
        Bytes stream = given;
        const int result = parse(stream);
        ASSERT_EQ(result, model.started ? static_cast<int>(model.frames.size()) : -1) << describe(given);
        ASSERT_EQ(take_frames(), model.frames) << describe(given);
        ASSERT_EQ(stream, model.data) << describe(given);
    }
}

// The bytes are looked at in blocks: tokens stand at and across every border of one.
TEST_F(SspTransportTokenTest, TokensAreFoundWhereverTheyStand) {
    const std::vector<Bytes> tokens{
        {0xAA, 0x55, 2}, {0xAA, 0x55, 0}, {0xAA, 0x55, 0xAA, 0x55, 0}, {0xAA, 0x55, 0, 0xAA, 0x55, 2, 0xAA, 0x55, 0}};
    for (std::size_t size = 1; size < 90; ++size) {
        for (std::size_t at = 0; at < size; ++at) {
            for (const Bytes& token : tokens) {
                Bytes given = start_token + Bytes(size, 0x11);
                const std::size_t fitting = std::min(token.size(), size - at); // the end may cut it
                std::copy_n(token.begin(), fitting, given.begin() + static_cast<std::ptrdiff_t>(3 + at));
                const TokenModel model(given);
                Bytes stream = given;
                ASSERT_EQ(parse(stream), static_cast<int>(model.frames.size()));
                ASSERT_EQ(take_frames(), model.frames) << describe(given);
                ASSERT_EQ(stream, model.data) << describe(given);
                ASSERT_EQ(frame(given), framed(given)) << describe(given);
            }
        }
    }
}

TEST_F(SspTransportTokenTest, FramesRandomMessagesAsTheModelDoesAndGetsThemBack) {
    std::mt19937 random(7);
    for (int round = 0; round < 20'000; ++round) {
        const Bytes message = random_bytes(random, 1 + random() % 100);
        const Bytes stream = frame(message);
        ASSERT_EQ(stream, framed(message));
        ASSERT_THAT(frames_of(stream), ElementsAre(message)) << describe(message);
    }
}

TEST_F(SspTransportTokenTest, LongMessagesAreFramedAndParsedWhole) {
    Bytes message(65'539);
    std::mt19937 random(1);
    for (unsigned char& byte : message) {
        byte = static_cast<unsigned char>(random());
    }
    EXPECT_THAT(frames_of(frame(message)), ElementsAre(message));
    const Bytes only_markers = [] {
        Bytes pairs;
        for (int i = 0; i < 20'000; ++i) {
            pairs.push_back(0xAA);
            pairs.push_back(0x55);
        }
        return pairs;
    }();
    EXPECT_EQ(frame(only_markers).size(), 3U + 60'000U);
    EXPECT_THAT(frames_of(frame(only_markers)), ElementsAre(only_markers));
}

// Nobody listens: neither a logging callback nor a switch.
class QuietSspTransportToken : public SspTransportTokenTest {
  protected:
    QuietSspTransportToken() { RegisterLoggingCallBackProcedure(nullptr, nullptr); }

    void expect_as_the_model(const Bytes& given) {
        const TokenModel model(given);
        Bytes stream = given;
        ASSERT_EQ(parse(stream), model.started ? static_cast<int>(model.frames.size()) : -1) << describe(given);
        ASSERT_EQ(take_frames(), model.frames) << describe(given);
        ASSERT_EQ(stream, model.data) << describe(given);
        if (!given.empty()) {
            ASSERT_EQ(frame(given), framed(given)) << describe(given);
        }
    }
};

// Groups, blocks and rows of markers begin and end anywhere.
TEST_F(QuietSspTransportToken, EveryLengthWithAMarkerAtEveryPlace) {
    constexpr std::size_t longest = 300;
    for (std::size_t size = 0; size <= longest; ++size) {
        expect_as_the_model(start_token + Bytes(size, 0xAA));
        const std::size_t step = size < 150 ? 1 : 3; // the lengths nearby have the places between
        for (std::size_t at = size % step; at < size; at += step) {
            Bytes given = start_token + Bytes(size, 0x55);
            const Bytes token{0xAA, 0x55, static_cast<unsigned char>((size + at) % 5 == 0 ? 2 : 0)};
            const std::size_t fitting = std::min(token.size(), size - at);
            std::copy_n(token.begin(), fitting, given.begin() + static_cast<std::ptrdiff_t>(start_token.size() + at));
            expect_as_the_model(given);
            if (HasFatalFailure()) {
                return;
            }
        }
    }
}

TEST_F(QuietSspTransportToken, RowsOfMarkersOfEveryLengthBehindAnything) {
    for (const Bytes& one : {Bytes{0xAA, 0x55, 0}, Bytes{0xAA, 0x55}, Bytes{0xAA, 0x55, 0, 1}, start_token}) {
        for (std::size_t in_front = 0; in_front < 20; ++in_front) {
            Bytes given = start_token + Bytes(in_front, 7);
            for (std::size_t row = 0; row < 80; ++row) {
                given = given + one;
                expect_as_the_model(given);
                expect_as_the_model(given + Bytes{9});
                if (HasFatalFailure()) {
                    return;
                }
            }
        }
    }
}

TEST_F(QuietSspTransportToken, RandomBytesOfEveryLength) {
    std::mt19937 random(20260301);
    for (int round = 0; round < 20; ++round) {
        for (std::size_t size = 1; size <= 300; ++size) {
            expect_as_the_model(random_bytes(random, size));
            if (HasFatalFailure()) {
                return;
            }
        }
    }
}

// A parser of which nobody hears anything passes over the trace points of a frame; each switch brings its own back.
TEST_F(QuietSspTransportToken, EachSwitchIsEnoughToBeHeard) {
    struct Heard {
        const char* name;
        std::vector<std::string> lines;
    };
    const std::vector<Heard> all{
        {"LIBVXPADCOM_DEBUG",
         {"ssp_transport_token_to_base_message_data(): info: Found SSP_TRANSPORT_TOKEN_HEADER",
          "ssp_transport_token_to_base_message_data(): info: now SSP queue has: 1"}},
        {"LIBVXPADCOM_DEBUG_FUNC",
         {"ssp_transport_token_to_base_message_data(): enter.", "add_uni_frame(): enter.", "__lock_uni_queue(): enter.",
          "__lock_uni_queue(): exit. returned int: 0.", "add_uni_frame(): exit. returned int: 1.",
          "get_uni_queue_size(): enter.", "get_uni_queue_size(): exit. returned int: 1.",
          "ssp_transport_token_to_base_message_data(): exit. returned int: 1."}},
        {"LIBVXPADCOM_DEBUG_MUTEX",
         {"__lock_uni_queue(): >>>>>>>>     going to pthread_mutex_lock() -> queue[",
          "__lock_uni_queue(): ########   was called pthread_mutex_lock() -> queue["}},
    };
    for (const Heard& heard : all) {
        const standins::EnvironmentGuard on(heard.name, "1");
        const standins::OutputCapture output(STDOUT_FILENO);
        Bytes stream = framed(Bytes{1, 2, 3});
        EXPECT_EQ(parse(stream), 1);
        const std::string printed = output.text();
        std::size_t from = 0;
        for (const std::string& line : heard.lines) {
            from = printed.find(line, from);
            EXPECT_NE(from, std::string::npos) << heard.name << ": " << line << " in " << printed;
        }
        EXPECT_THAT(take_frames(), ElementsAre(Bytes{1, 2, 3}));
    }
    const standins::OutputCapture output(STDOUT_FILENO);
    Bytes stream = framed(Bytes{1, 2, 3});
    EXPECT_EQ(parse(stream), 1);
    EXPECT_EQ(output.text(), "");
}

} // namespace
} // namespace core_test
