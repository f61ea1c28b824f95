// The parser of the byte stream as a walk over single bytes that really moves the data at every token: slow and plain.
#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

struct TokenModel {
    using Bytes = std::vector<unsigned char>;

    std::vector<Bytes> frames;
    Bytes data; // as the caller's buffer is left behind
    bool started = false;

    explicit TokenModel(Bytes given) : data(std::move(given)) {
        std::size_t total = data.size();
        std::size_t remaining = total;
        std::size_t position = 0;
        std::size_t token = 0;
        Bytes collected;
        const auto take = [&](std::size_t count, std::size_t advance) {
            for (std::size_t i = 0; i < count; ++i) {
                collected.push_back(data[position + i]);
            }
            position += advance;
            remaining -= advance;
        };
        while (remaining > 0) {
            if (token != 0) {
                end_frame(collected);
                started = true;
                move_to_start(token, total);
                total -= token;
                position = 3;
                remaining = total - 3;
                token = 0;
            } else if (remaining <= 2) {
                take(remaining, remaining);
            } else if (is_token(position, 2)) {
                token = total - remaining;
                if (token == 0) {
                    started = true;
                    take(0, 3);
                }
            } else if (is_token(position, 0)) {
                take(2, 3);
            } else {
                take(1, 1);
            }
        }
        end_frame(collected);
    }

  private:
    bool is_token(std::size_t at, unsigned char type) const {
        return data[at] == 0xAA && data[at + 1] == 0x55 && data[at + 2] == type;
    }
    void end_frame(Bytes& collected) {
        if (started && !collected.empty()) {
            frames.push_back(collected);
        }
        collected.clear();
    }
    void move_to_start(std::size_t from, std::size_t total) {
        const auto at = [this](std::size_t index) { return data.begin() + static_cast<std::ptrdiff_t>(index); };
        const Bytes tail(at(from), at(total));
        std::fill_n(data.begin(), total, static_cast<unsigned char>(0));
        std::copy(tail.begin(), tail.end(), data.begin());
    }
};
