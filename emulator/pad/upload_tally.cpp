#include "pad/upload_tally.hpp"

#include "base/text.hpp"

#include <algorithm>
#include <array>

namespace emulator {

namespace {

// A frame that begins like this carries its number behind it, 32 bits, little-endian.
constexpr std::array<std::uint8_t, 4> mark{'u', 'p', 'l', 'd'};
constexpr std::size_t head_size = 8;
constexpr std::uint32_t most_frames = 1U << 24; // 1 GiB in reports of 64 bytes

std::uint32_t little_endian(std::span<const std::uint8_t> bytes) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        value |= std::uint32_t{bytes[i]} << 8 * i;
    }
    return value;
}

// CRC-32 as zip and Ethernet have it.
std::uint32_t crc32(std::span<const std::uint8_t> bytes) {
    std::uint32_t crc = 0xffffffff;
    for (const auto byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xedb88320 : 0);
        }
    }
    return ~crc;
}

} // namespace

void UploadTally::count(unsigned int interface, std::span<const std::uint8_t> report) {
    auto& own = interfaces_.at(interface);
    ++own.received;
    ++received_;
    bytes_ += report.size();
    ++sizes_[report.size()];
    // A sum, for reports that travel over several interfaces have no order among themselves.
    checksum_ += crc32(report);
    if (report.size() >= head_size && std::ranges::equal(report.first(mark.size()), mark)) {
        check_number(own, little_endian(report.subspan(mark.size(), 4)));
    }
}

void UploadTally::check_number(Interface& interface, std::uint32_t number) {
    if (number >= most_frames) {
        ++too_high_;
        return;
    }
    if (interface.numbered++ > 0 && number < interface.highest) {
        ++interface.out_of_order;
    }
    interface.highest = std::max(interface.highest, number);
    if (number >= seen_.size()) {
        seen_.resize(number + std::size_t{1});
    } else if (!seen_[number]) {
        ++out_of_order_;
    }
    if (seen_[number]) {
        ++duplicates_;
    } else {
        ++distinct_;
    }
    seen_[number] = true;
}

std::string UploadTally::text() const {
    std::string text = "received=" + std::to_string(received_) + " bytes=" + std::to_string(bytes_) + " sizes=";
    for (const auto& [size, count] : sizes_) {
        text += (text.ends_with('=') ? "" : ",") + std::to_string(size) + ":" + std::to_string(count);
    }
    std::array<std::uint8_t, 4> checksum{};
    for (std::size_t i = 0; i < checksum.size(); ++i) {
        checksum[i] = static_cast<std::uint8_t>(checksum_ >> (24 - 8 * i));
    }
    text += " checksum=" + hex(checksum) + " numbered=" + std::to_string(distinct_ + duplicates_) +
            " gaps=" + std::to_string(seen_.size() - distinct_) + " duplicates=" + std::to_string(duplicates_) +
            " out-of-order=" + std::to_string(out_of_order_) + " too-high=" + std::to_string(too_high_) + "\n";
    for (std::size_t i = 0; i < interfaces_.size(); ++i) {
        if (interfaces_[i].received > 0) {
            text += "interface " + std::to_string(i) + " received=" + std::to_string(interfaces_[i].received) +
                    " out-of-order=" + std::to_string(interfaces_[i].out_of_order) + "\n";
        }
    }
    return text;
}

} // namespace emulator
