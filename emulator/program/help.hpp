// What the program tells of itself, in its help, its pages of the manual and the shells' completion: all from the
// tables of its options, of pads' settings, faults and requests.
#pragma once

#include "manual/completion.hpp"
#include "manual/page.hpp"

#include <string>

namespace emulator {

std::string help_text();

manual::Page manual_page();
manual::Page manual_page_of_control(); // vxpad-emulator-control

manual::CompletedProgram completed_words();
manual::CompletedProgram completed_words_of_control();

} // namespace emulator
