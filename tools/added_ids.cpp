#include "added_ids.hpp"

#include "text.hpp"

namespace vxpadctl {

AddedIds read_added_ids(const id_files::Places& places) {
    AddedIds added;
    const auto take = [](void* context, const id_lines::Id& id, const id_files::Place& place) {
        static_cast<AddedIds*>(context)->ids.push_back({id, place.file, place.line});
    };
    const auto complain = [](void* context, const id_files::Place& place, const char* what) {
        const std::string line = place.line == 0 ? "" : ":" + std::to_string(place.line);
        static_cast<AddedIds*>(context)->complaints.push_back(for_terminal(place.file) + line + ": " + what);
    };
    id_files::read(places, {&added, take, complain});
    return added;
}

} // namespace vxpadctl
