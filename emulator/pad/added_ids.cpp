#include "pad/added_ids.hpp"

#include <stdexcept>

namespace emulator {

AddedIds read_added_ids(const id_files::Places& places) {
    AddedIds added;
    const auto take = [](void* context, const id_lines::Id& id, const id_files::Place&) {
        static_cast<AddedIds*>(context)->ids.push_back(id);
    };
    const auto complain = [](void* context, const id_files::Place& place, const char* what) {
        const std::string line = place.line == 0 ? "" : ":" + std::to_string(place.line);
        static_cast<AddedIds*>(context)->complaints.push_back(place.file + line + ": " + what);
    };
    id_files::read(places, {&added, take, complain});
    return added;
}

AddedIds read_added_ids(const std::string& path) {
    id_files::Places places;
    places.named = path.c_str();
    AddedIds added = read_added_ids(places);
    if (!added.complaints.empty()) {
        throw std::invalid_argument(added.complaints.front());
    }
    return added;
}

} // namespace emulator
