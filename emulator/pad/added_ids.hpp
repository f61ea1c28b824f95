// USB ids that files add to those that are built in: the library finds pads that show them.
#pragma once

#include "support/id_files.hpp"

#include <string>
#include <vector>

namespace emulator {

struct AddedIds {
    std::vector<id_lines::Id> ids;
    std::vector<std::string> complaints; // about lines and files that are left out
};

AddedIds read_added_ids(const id_files::Places& places = id_files::find_places());

// Of this file or folder and no other; throws std::invalid_argument where anything in it is left out.
AddedIds read_added_ids(const std::string& path);

} // namespace emulator
