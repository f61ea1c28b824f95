// The application's header as a document: what libvxpadcom(7) and Doxygen make of it.
#pragma once

#include "page.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace manual {

struct Declaration {
    std::string comment; // without the marks
    std::string code;    // one statement
    std::string name;    // of a function, a variable or a type; empty for others
    bool is_function;
};

struct HeaderSection {
    std::string title;
    std::string text;
    std::vector<Declaration> declarations;
};

struct Header {
    std::string opening; // the comment at its head
    std::vector<HeaderSection> sections;
};

Header read_header(std::string_view text);

// "vxpadcom_reports", the page of the manual that has a section's functions
std::string page_of(const HeaderSection& section);

std::string for_doxygen(const Header& header);

// The page that Doxygen has made of a section, under the names of all that it tells. Throws std::runtime_error where it
// does not tell one of them.
std::string functions_page(const HeaderSection& section, std::string_view page, std::string_view source);

Page overview(const Header& header);

} // namespace manual
