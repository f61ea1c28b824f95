// Pictures in the formats of other programs.
#pragma once

#include "names.hpp"

#include <string>

namespace vxpadctl {

// The picture that an SVG file shows; its bytes in another format come from the program rsvg-convert. Throws
// std::runtime_error.
std::string picture_of(const std::string& svg_file, PictureFormat format);

} // namespace vxpadctl
