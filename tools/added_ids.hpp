// The ids that files add to those that are built in, with the places where they stand.
#pragma once

#include "support/id_files.hpp"

#include <string>
#include <vector>

namespace vxpadctl {

struct AddedId {
    id_lines::Id id;
    std::string file;
    unsigned int line;
};

struct AddedIds {
    std::vector<AddedId> ids;            // in the order in which they count
    std::vector<std::string> complaints; // about lines and files that are left out: "FILE:LINE: what"
};

// As the library reads them.
AddedIds read_added_ids(const id_files::Places& places = id_files::find_places());

} // namespace vxpadctl
