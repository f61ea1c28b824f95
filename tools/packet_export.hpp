// Recordings in the formats of other programs, as docs/recordings.md describes them.
#pragma once

#include "layout.hpp"
#include "names.hpp"
#include "recording_file.hpp"

#include <chrono>
#include <cstddef>
#include <string>

namespace vxpadctl {

// Packets go in one by one, the text comes out in pieces; no packet is kept.
class Exporter {
  public:
    // The layout of InkML has x and y.
    Exporter(ExportFormat format, Layout layout);

    std::string take(const RecordedPad& pad, const RecordedPacket& packet);

    // What makes the text whole, wherever the packets ended.
    std::string end();

    // Packets that lack a field; in InkML they have no place.
    std::size_t too_short() const { return too_short_; }

    // Throws std::runtime_error for a field that no packet was long enough for.
    void expect_all_fields() const;

  private:
    std::string stroke_part(const RecordedPacket& packet);

    ExportFormat format_;
    Layout layout_; // of InkML only what it tells
    std::size_t taken_ = 0;
    std::size_t too_short_ = 0;
    std::size_t longest_packet_ = 0;
    bool is_drawing_ = false;
};

} // namespace vxpadctl
