// vxpad-manual: writes pages of the manual and completions of shells from the tables of the programs, from documents
// and from the application's header. It is run by the build and is not installed.
#include "completion.hpp"
#include "header.hpp"
#include "markdown.hpp"
#include "page.hpp"

#include "../tools/help.hpp"
#if VXPAD_HAS_EMULATOR
#include "program/help.hpp"
#endif

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;

const char* const source = "libvxpadcom " VXPAD_MANUAL_VERSION;

struct Program {
    std::string_view name;
    manual::Page (*page)();
    manual::CompletedProgram (*words)();
};

constexpr Program programs[] {
    {"vxpadctl", vxpadctl::manual_page, vxpadctl::completed_words},
#if VXPAD_HAS_EMULATOR
        {"vxpad-emulator", emulator::manual_page, emulator::completed_words},
        {"vxpad-emulator-control", emulator::manual_page_of_control, emulator::completed_words_of_control},
#endif
};

std::string content_of(const std::string& name) {
    std::ifstream file{name};
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        throw std::runtime_error("cannot read " + name);
    }
    return text;
}

void write_file(const std::string& name, const std::string& text) {
    std::ofstream file{name};
    file << text;
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + name);
    }
}

std::string program_text(std::string_view what, std::string_view name) {
    const auto* program = std::ranges::find(programs, name, &Program::name);
    if (program == std::end(programs)) {
        throw std::runtime_error("there is no program " + std::string(name));
    }
    return what == "man"    ? manual::as_man(program->page(), source)
           : what == "bash" ? manual::for_bash(program->words())
                            : manual::for_zsh(program->words());
}

std::string document(const std::string& file, const std::string& name, const std::string& summary) {
    manual::Page page{name, '5', summary, {}, manual::read_markdown(content_of(file))};
    page.sections.push_back({"See also", {{.text = "vxpadctl(1), vxpad-emulator(1), libvxpadcom(7)"}}});
    return manual::as_man(page, source);
}

// The pages of all functions, made of Doxygen's, and under each function's name a link to its page.
void write_functions(const fs::path& directory, const std::string& header, const fs::path& doxygen_pages) {
    fs::remove_all(directory);
    fs::create_directories(directory);
    for (const manual::HeaderSection& section : manual::read_header(content_of(header)).sections) {
        const std::string page = manual::page_of(section) + ".3";
        write_file(directory / page, manual::functions_page(section, content_of(doxygen_pages / page), source));
        for (const manual::Declaration& declaration : section.declarations) {
            if (!declaration.name.empty()) {
                write_file(directory / (declaration.name + ".3"), ".so man3/" + page + "\n");
            }
        }
    }
}

std::string text_for(const std::string& what, const std::vector<std::string>& words) {
    if (words.size() == 1 && (what == "man" || what == "bash" || what == "zsh")) {
        return program_text(what, words[0]);
    }
    if (words.size() == 1 && what == "overview") {
        return manual::as_man(manual::overview(manual::read_header(content_of(words[0]))), source);
    }
    if (words.size() == 1 && what == "doxygen") {
        return manual::for_doxygen(manual::read_header(content_of(words[0])));
    }
    if (words.size() == 3 && what == "document") {
        return document(words[0], words[1], words[2]);
    }
    throw std::runtime_error("Usage: vxpad-manual OUTPUT man|bash|zsh PROGRAM\n"
                             "       vxpad-manual OUTPUT overview|doxygen HEADER\n"
                             "       vxpad-manual OUTPUT document FILE NAME SUMMARY\n"
                             "       vxpad-manual DIRECTORY functions HEADER DOXYGEN_PAGES");
}

} // namespace

int main(int argc, char** argv) {
    try {
        const std::vector<std::string> words{argv, argv + argc};
        if (argc == 5 && words[2] == "functions") {
            write_functions(words[1], words[3], words[4]);
        } else {
            const std::vector<std::string> more{words.begin() + std::min(argc, 3), words.end()};
            const std::string text = text_for(argc > 2 ? words[2] : "", more);
            write_file(words[1], text);
        }
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::cerr << "vxpad-manual: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
