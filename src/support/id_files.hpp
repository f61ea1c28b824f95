// Where files of USB ids stand, and reading them. Nothing here allocates, waits or has no end, whatever stands there.
#pragma once

#include "support/id_lines.hpp"

#include <cstddef>

namespace id_files {

inline constexpr const char* variable = "VXPADCOM_IDS";
inline constexpr const char* system_folder = "/etc/vxpadcom/ids.d";
inline constexpr std::size_t longest_path = 4095;

// What is read at most; what comes behind that is told and left out.
inline constexpr std::size_t most_ids = 256;
inline constexpr std::size_t most_files = 64; // of a folder
inline constexpr std::size_t most_entries = 4096;
inline constexpr std::size_t longest_file = 1 << 20;
inline constexpr unsigned int most_complaints = 10; // about a file

struct Places {
    const char* named = nullptr;      // a file or folder that takes the place of all others; an empty name: nothing
    char user[longest_path + 1] = {}; // a folder; empty: none
    const char* system = system_folder;
};

// As the environment says. One whose owner is not the process's own, as that of a setuid program, says nothing.
Places find_places();

// A folder has its own as file. Line 0 is the file or folder itself.
struct Place {
    const char* file;
    unsigned int line;
};

struct Listener {
    void* context;
    void (*take)(void* context, const id_lines::Id& id, const Place& place);
    void (*complain)(void* context, const Place& place, const char* what);
};

// Hands out what counts, in order: the user's files before the system's, in a folder by their names, and of two lines
// with the same vendor and product the first one. A file's texts are not trusted; the names in places may hold any
// byte.
void read(const Places& places, const Listener& listener);

} // namespace id_files
