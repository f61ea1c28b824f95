// Framing and parsing of messages: the library, a byte-by-byte loop that does the same, and memcpy of the same bytes.
//
// A frame that was parsed waits in a queue; taking it out again is not timed. What the library's tracing costs while it
// is off depends on the number of environment variables, so that the library is measured with none of them as well.
#include "statistics.hpp"

#include <array>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>
#include <vxpadcom/internals.h>
#include <vxpadcom/vxpadcom.h>

namespace {

using Bytes = std::vector<unsigned char>;
using Header = std::array<unsigned char, 3>;

struct FreeDeleter {
    void operator()(void* block) const { std::free(block); }
};
using Block = std::unique_ptr<unsigned char, FreeDeleter>;

Block new_block(std::size_t size) {
    return Block{static_cast<unsigned char*>(Malloc(size))};
}

struct Sized {
    Block bytes;
    std::size_t size;
};

// One way to frame a message and to get it back. Each parse is followed by a take, which is not timed.
struct Library {
    uni_queue* queue = init_uni_queue();
    Library() = default;
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    ~Library() { destroy_uni_queue(queue); }

    static Sized frame(const Bytes& message) {
        unsigned char* framed = nullptr;
        const int size = ssp_base_message_to_transport_token_data(message.data(),
                                                                  static_cast<unsigned int>(message.size()), &framed);
        return {Block{framed}, static_cast<std::size_t>(size)};
    }
    void parse(Bytes& stream) const { ssp_transport_token_to_base_message_data(stream.data(), stream.size(), queue); }
    Sized take() const {
        unsigned int size = 0;
        auto* bytes = static_cast<unsigned char*>(get_uni_frame(queue, &size));
        return {Block{bytes}, size};
    }
};

struct ByteByByte {
    std::vector<Sized> queue;
    ByteByByte() { queue.reserve(16); }

    static Sized frame(const Bytes& message) {
        Sized framed{new_block(3 + message.size() + message.size() / 2), 0};
        unsigned char* next = framed.bytes.get();
        for (const unsigned char byte : Header{0xAA, 0x55, 2}) {
            *next++ = byte;
        }
        for (std::size_t i = 0; i < message.size(); ++i) {
            *next++ = message[i];
            if (message[i] == 0x55 && i > 0 && message[i - 1] == 0xAA) {
                *next++ = 0;
            }
        }
        framed.size = static_cast<std::size_t>(next - framed.bytes.get());
        return framed;
    }
    // Of one message, which begins and ends with the stream.
    void parse(Bytes& stream) {
        Sized message{new_block(stream.size()), 0};
        unsigned char* next = message.bytes.get();
        for (std::size_t i = 3; i < stream.size(); ++i) {
            if (stream[i] != 0 || stream[i - 1] != 0x55 || stream[i - 2] != 0xAA) {
                *next++ = stream[i];
            }
        }
        message.size = static_cast<std::size_t>(next - message.bytes.get());
        queue.push_back(std::move(message));
    }
    Sized take() {
        Sized message = std::move(queue.back());
        queue.pop_back();
        return message;
    }
};

struct Memcpy {
    std::vector<Sized> queue;
    Memcpy() { queue.reserve(16); }

    static Sized frame(const Bytes& message) {
        Sized copy{new_block(message.size()), message.size()};
        std::memcpy(copy.bytes.get(), message.data(), message.size());
        return copy;
    }
    void parse(Bytes& stream) { queue.push_back(frame(stream)); }
    Sized take() {
        Sized copy = std::move(queue.back());
        queue.pop_back();
        return copy;
    }
};

enum class Content { random, markers };

Bytes make_message(Content content, std::size_t size) {
    Bytes message(size);
    std::mt19937 random(1);
    bool second = false;
    for (unsigned char& byte : message) {
        byte = content == Content::random ? static_cast<unsigned char>(random()) : second ? 0x55 : 0xAA;
        second = !second;
    }
    return message;
}

// Takes the environment away for a while.
class NoEnvironment {
  public:
    explicit NoEnvironment(bool wanted) : saved_{environ} {
        if (wanted) {
            environ = nothing_.data();
        }
    }
    ~NoEnvironment() { environ = saved_; }
    NoEnvironment(const NoEnvironment&) = delete;
    NoEnvironment& operator=(const NoEnvironment&) = delete;

  private:
    char** saved_;
    std::array<char*, 1> nothing_{};
};

constexpr std::size_t calls_per_block = 4; // few enough for the blocks to stay where malloc finds them fastest

// Takes the time of short blocks of calls; what comes between two blocks does not count. The rate is the median's.
template <typename Call, typename Between>
void measure(benchmark::State& state, std::size_t message_size, Call call, Between between) {
    using Clock = std::chrono::steady_clock;
    std::vector<double> seconds;
    for ([[maybe_unused]] auto iteration : state) {
        const auto start = Clock::now();
        for (std::size_t i = 0; i < calls_per_block; ++i) {
            call(i);
            benchmark::ClobberMemory();
        }
        seconds.push_back(std::chrono::duration<double>(Clock::now() - start).count() / calls_per_block);
        state.SetIterationTime(seconds.back());
        between();
    }
    const double middle = statistics::median(seconds);
    state.counters["ns"] = middle * 1e9;
    state.counters["MB_s"] = static_cast<double>(message_size) / middle / 1e6;
    state.counters["spread_%"] = statistics::half_quartile_distance(seconds) / middle * 100;
}

template <typename Way> void frame(benchmark::State& state, Content content, std::size_t size) {
    const Bytes message = make_message(content, size);
    std::array<Sized, calls_per_block> framed{};
    measure(
        state, size, [&](std::size_t i) { framed[i] = Way::frame(message); }, [&] { framed = {}; });
}

template <typename Way> void parse(benchmark::State& state, Content content, std::size_t size) {
    const Bytes message = make_message(content, size);
    const Sized framed = Library::frame(message);
    Bytes stream(framed.bytes.get(), framed.bytes.get() + framed.size);
    Way way;
    measure(
        state, size, [&](std::size_t) { way.parse(stream); },
        [&] {
            for (std::size_t i = 0; i < calls_per_block; ++i) {
                way.take();
            }
        });
}

using Measured = void (*)(benchmark::State&, Content, std::size_t);

struct Direction {
    const char* name;
    Measured library;
    Measured byte_by_byte;
    Measured copy;
};

constexpr Direction directions[] = {
    {"framing", frame<Library>, frame<ByteByByte>, frame<Memcpy>},
    {"parsing", parse<Library>, parse<ByteByByte>, parse<Memcpy>},
};

struct Case {
    const char* name;
    Content content;
    std::size_t size;
};

constexpr Case cases[] = {
    {"random/64", Content::random, 64},           {"random/1024", Content::random, 1024},
    {"random/65536", Content::random, 65536},     {"all-markers/64", Content::markers, 64},
    {"all-markers/1024", Content::markers, 1024}, {"all-markers/65536", Content::markers, 65536},
};

void add(const Direction& direction, const Case& one, const char* way, Measured measured, bool no_environment) {
    const std::string name = std::string{direction.name} + "/" + one.name + "/" + way;
    benchmark::RegisterBenchmark(name.c_str(), [measured, one, no_environment](benchmark::State& state) {
        const NoEnvironment guard{no_environment};
        measured(state, one.content, one.size);
    })->UseManualTime();
}

} // namespace

int main(int argc, char** argv) {
    for (const Direction& direction : directions) {
        for (const Case& one : cases) {
            add(direction, one, "library", direction.library, false);
            add(direction, one, "library-no-environment", direction.library, true);
            add(direction, one, "byte-by-byte", direction.byte_by_byte, false);
            add(direction, one, "memcpy", direction.copy, false);
        }
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
