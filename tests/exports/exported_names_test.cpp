// The names that the library exports: the kept list, the dynamic symbol table and the public headers agree.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

std::string content_of(const char* file) {
    std::ifstream input{file};
    return {std::istreambuf_iterator<char>(input), {}};
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream input{text};
    for (std::string line; std::getline(input, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string output_of(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), &pclose);
    std::string output;
    std::array<char, 4096> piece{};
    while (pipe != nullptr && std::fgets(piece.data(), piece.size(), pipe.get()) != nullptr) {
        output += piece.data();
    }
    return output;
}

std::vector<std::string> kept_list() {
    return lines_of(content_of(EXPORTS_LIST));
}

// Sanitizers add names of their own, type information of function types among them.
bool is_added_by_a_sanitizer(std::string_view name) {
    return name.starts_with("_ZTIF") || name.starts_with("_ZTSF") || name.starts_with("__odr_asan") ||
           name.starts_with("__asan") || name.starts_with("__tsan") || name.starts_with("__ubsan") ||
           name.starts_with("__sanitizer") || name.starts_with("___asan");
}

// Name and nm's letter for its kind.
std::map<std::string, char> names_in_library() {
    std::map<std::string, char> names;
    for (const std::string& line : lines_of(output_of(std::string(NM) + " -D --defined-only " + LIBRARY_FILE))) {
        std::istringstream fields{line};
        std::string address;
        std::string kind;
        std::string name;
        fields >> address >> kind >> name;
        name.resize(std::min(name.find('@'), name.size()));  // the version
        if (!is_added_by_a_sanitizer(name) && kind != "A") { // the names of the versions
            names[name] = kind.front();
        }
    }
    return names;
}

enum class Kind { function, data };

// Every declaration that is marked as exported.
std::map<std::string, Kind> names_in(std::string header) {
    for (auto start = header.find("/*"); start != std::string::npos; start = header.find("/*", start)) {
        header.erase(start, header.find("*/", start) + 2 - start);
    }

    std::map<std::string, Kind> names;
    constexpr std::string_view marker = "\nVXPADCOM_API ";
    for (auto start = header.find(marker); start != std::string::npos; start = header.find(marker, start + 1)) {
        const std::string declaration =
            header.substr(start + marker.size(), header.find(';', start) - start - marker.size());
        const auto end = declaration.find_first_of("([");
        auto last = declaration.substr(0, end);
        const auto begin = std::find_if(last.rbegin(), last.rend(), [](unsigned char c) {
                               return std::isalnum(c) == 0 && c != '_';
                           }).base();
        names[std::string(begin, last.end())] = declaration.starts_with("extern ") ? Kind::data : Kind::function;
    }
    return names;
}

// The version that each name of the library carries.
std::map<std::string, std::string> versions_in_library() {
    std::map<std::string, std::string> versions;
    for (const std::string& line : lines_of(output_of(std::string(NM) + " -D --defined-only " + LIBRARY_FILE))) {
        const auto name = line.substr(line.rfind(' ') + 1);
        const auto at = name.find('@');
        if (!is_added_by_a_sanitizer(name)) {
            versions[name.substr(0, at)] = at == std::string::npos ? "" : name.substr(at);
        }
    }
    return versions;
}

std::map<std::string, Kind> names_in_headers() {
    std::string headers;
    for (const auto& file : std::filesystem::recursive_directory_iterator(PUBLIC_HEADERS)) {
        if (file.is_regular_file()) {
            headers += content_of(file.path().c_str());
        }
    }
    return names_in(headers);
}

template <class Names> std::set<std::string> keys(const Names& names) {
    std::set<std::string> result;
    for (const auto& [name, kind] : names) {
        result.insert(name);
    }
    return result;
}

template <class Left, class Right> std::vector<std::string> only_in_first(const Left& first, const Right& second) {
    std::vector<std::string> result;
    std::set_difference(first.begin(), first.end(), second.begin(), second.end(), std::back_inserter(result));
    return result;
}

TEST(ExportedNames, AreKeptSortedAndOnce) {
    const auto list = kept_list();
    ASSERT_GT(list.size(), 100U);
    EXPECT_THAT(std::adjacent_find(list.begin(), list.end(), std::greater_equal<>()) == list.end(), true);
}

TEST(ExportedNames, OfTheLibraryAreThoseOfTheList) {
    const auto list = kept_list();
    const auto library = keys(names_in_library());
    EXPECT_THAT(only_in_first(list, library), IsEmpty()) << "listed, not exported";
    EXPECT_THAT(only_in_first(library, list), IsEmpty()) << "exported, not listed";
}

TEST(ExportedNames, OfTheHeaderAreThoseOfTheList) {
    const auto list = kept_list();
    const auto header = keys(names_in_headers());
    EXPECT_THAT(only_in_first(list, header), IsEmpty()) << "listed, not declared";
    EXPECT_THAT(only_in_first(header, list), IsEmpty()) << "declared, not listed";
}

// So that an application which is linked to a building block can be told from one that is not.
TEST(ExportedNames, CarryAVersionThatTellsTheApplicationsFromTheBuildingBlocks) {
    const auto for_applications = names_in(content_of(PUBLIC_HEADERS "/vxpadcom.h"));
    ASSERT_GT(for_applications.size(), 40U);
    for (const auto& [name, version] : versions_in_library()) {
        if (name.starts_with("VXPADCOM_")) {
            continue; // the versions themselves
        }
        EXPECT_EQ(version, for_applications.contains(name) ? "@@VXPADCOM_0" : "@@VXPADCOM_PRIVATE") << name;
    }
}

TEST(ExportedNames, AreFunctionsOrWritableDataAsDeclared) {
    const auto library = names_in_library();
    for (const auto& [name, kind] : names_in_headers()) {
        const auto found = library.find(name);
        if (found == library.end()) {
            continue; // another test's matter
        }
        const std::string_view letters = kind == Kind::data ? "BDGS" : "T";
        EXPECT_NE(letters.find(found->second), std::string_view::npos) << name << " has the kind " << found->second;
    }
}

// A relocation that names a function of the library could be bound to an application's function of that name.
TEST(ExportedNames, OfFunctionsAreNotLookedUpByTheLibraryItself) {
    std::set<std::string> functions;
    for (const auto& [name, kind] : names_in_library()) {
        if (kind == 'T' || kind == 'W') {
            functions.insert(name);
        }
    }

    const auto relocations = lines_of(output_of(std::string(READELF) + " --wide --relocs " + LIBRARY_FILE));
    ASSERT_THAT(relocations, Contains(HasSubstr(" hid_open_path")));
    std::vector<std::string> looked_up;
    for (const std::string& line : relocations) { // offset, info, type, value, name, +, addend
        std::istringstream fields{line};
        const std::vector<std::string> words{std::istream_iterator<std::string>(fields), {}};
        if (words.size() > 4 && functions.contains(words[4].substr(0, words[4].find('@')))) {
            looked_up.push_back(words[4]);
        }
    }
    EXPECT_THAT(looked_up, IsEmpty());
}

// Sanitizers, and what counts lines, register and allocate for themselves.
#if !VXPAD_INSTRUMENTED
std::vector<std::string> imports_like(const std::string& beginning) {
    std::vector<std::string> found;
    for (const std::string& line : lines_of(output_of(std::string(NM) + " -D --undefined-only " + LIBRARY_FILE))) {
        std::istringstream fields(line);
        std::string kind;
        std::string name;
        fields >> kind >> name;
        if (std::regex_search(name, std::regex("^(" + beginning + ")"))) {
            found.push_back(name);
        }
    }
    return found;
}

// An object with a destructor would register it, be it a thread's own or static. The application may be gone by then,
// and so may everything that answers a forked child.
TEST(Library, DoesNothingAtProcessExit) {
    ASSERT_THAT(imports_like("hid_open_path"), testing::SizeIs(1));
    EXPECT_THAT(imports_like("__cxa_atexit|__cxa_thread_atexit|__cxa_at_quick_exit|atexit|on_exit"), IsEmpty());
    const std::string sections = output_of(std::string(READELF) + " --wide --sections " + LIBRARY_FILE);
    EXPECT_THAT(sections, testing::ContainsRegex("\\.fini_array +FINI_ARRAY +[0-9a-f]+ [0-9a-f]+ 000008 "))
        << "more than the compiler's own";
}

// Nothing that throws: an exception would leave the library's locks held, or end the process.
TEST(Library, AsksTheStandardLibraryForNothingThatThrows) {
    EXPECT_THAT(imports_like("_Zn[wa]|_ZSt[0-9]+__throw|__cxa_(allocate_exception|throw|rethrow|bad_)"), IsEmpty());
}
#endif

TEST(Library, NeedsHidapiAndLibusbAndHasAVersionedName) {
    const std::string dynamic = output_of(std::string(READELF) + " --wide --dynamic " + LIBRARY_FILE);
    EXPECT_THAT(dynamic, HasSubstr("[libusb-1.0.so.0]"));
    EXPECT_THAT(dynamic, HasSubstr("[libhidapi-libusb.so.0]"));
    EXPECT_THAT(dynamic, testing::ContainsRegex("SONAME.*\\[libvxpadcom\\.so\\.[0-9]+\\]"));
}

} // namespace
