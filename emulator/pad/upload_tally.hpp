// What came of an upload: the reports that are no command, over all interfaces.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace emulator {

class UploadTally {
  public:
    explicit UploadTally(unsigned int interfaces) : interfaces_(interfaces) {}

    void count(unsigned int interface, std::span<const std::uint8_t> report);
    void reset() { *this = UploadTally(static_cast<unsigned int>(interfaces_.size())); }

    std::string text() const; // a line in all, and one for each interface that took part

  private:
    struct Interface {
        std::uint64_t received = 0;
        std::uint64_t numbered = 0;
        std::uint64_t out_of_order = 0;
        std::uint32_t highest = 0;
    };

    void check_number(Interface& interface, std::uint32_t number);

    std::vector<Interface> interfaces_;
    std::uint64_t received_ = 0;
    std::uint64_t bytes_ = 0;
    std::uint32_t checksum_ = 0;
    std::map<std::size_t, std::uint64_t> sizes_; // how many reports were so long
    std::vector<bool> seen_;                     // numbers that have come, up to the highest
    std::uint64_t distinct_ = 0;
    std::uint64_t duplicates_ = 0;
    std::uint64_t out_of_order_ = 0;
    std::uint64_t too_high_ = 0;
};

} // namespace emulator
