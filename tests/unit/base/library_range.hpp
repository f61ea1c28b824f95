// Where the library's code lies: who replaces a function for the whole process sees by it whether the library calls.
#pragma once

#include <link.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

struct LibraryRange {
    std::uintptr_t begin = std::numeric_limits<std::uintptr_t>::max();
    std::uintptr_t end = 0;

    bool contains(const void* address) const {
        const auto at = reinterpret_cast<std::uintptr_t>(address);
        return at >= begin && at < end;
    }

    static LibraryRange find() {
        LibraryRange range;
        dl_iterate_phdr(
            [](dl_phdr_info* object, std::size_t, void* found) {
                if (std::string_view(object->dlpi_name).find("libvxpadcom.so") == std::string_view::npos) {
                    return 0;
                }
                auto& library = *static_cast<LibraryRange*>(found);
                for (int i = 0; i < object->dlpi_phnum; ++i) {
                    const auto& part = object->dlpi_phdr[i];
                    if (part.p_type == PT_LOAD) {
                        library.begin = std::min(library.begin, object->dlpi_addr + part.p_vaddr);
                        library.end = std::max(library.end, object->dlpi_addr + part.p_vaddr + part.p_memsz);
                    }
                }
                return 1;
            },
            &range);
        return range;
    }
};
