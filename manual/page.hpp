// A page of the manual, and the two ways to show it: as a program's help, and as man's source.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace manual {

// Texts are without line ends, for they are cut into lines as they are shown. What stands between ` and ` is to be
// typed or read as it is.
struct Entry {
    std::string head; // words in capitals stand for something else
    std::string text;
};

// One of the three.
struct Block {
    std::string text = {};               // a paragraph
    std::vector<Entry> entries = {};     // a list
    std::vector<std::string> lines = {}; // shown as they are
};

struct Section {
    std::string heading; // empty for the first one, which describes the whole
    std::vector<Block> blocks;
    bool only_in_manual = false; // what a help need not tell
};

struct Page {
    std::string name;
    char section; // of the manual
    std::string summary;
    std::vector<std::string> usages;
    std::vector<Section> sections;
};

constexpr std::size_t help_width = 100;

std::string as_help(const Page& page);
std::string usage_lines(const std::vector<std::string>& usages);
std::string as_help(const Block& block);

// The source is what the page belongs to, with its version. The title is the page's name where there is none.
std::string as_man(const Page& page, std::string_view source, std::string_view title = {});

std::vector<std::string> split(std::string_view text, std::string_view separator);

} // namespace manual
