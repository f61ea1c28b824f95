// Says whether the environment names ids. Linked to none of the shared libraries of this tree: a setuid program does
// not look for them beside itself.
#include "support/id_files.hpp"

#include <cstdio>

int main() {
    std::puts(id_files::find_places().named != nullptr ? "named" : "not named");
}
