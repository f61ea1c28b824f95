#include "header.hpp"

#include "markdown.hpp"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <stdexcept>

namespace manual {

namespace {

constexpr std::string_view box = "-----";

bool is_name(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// Where the text of "12. text" begins; 0 of other lines.
std::size_t after_number(std::string_view line) {
    const std::size_t dot = line.find_first_not_of("0123456789");
    return dot != std::string_view::npos && dot > 0 && line.substr(dot).starts_with(". ") ? dot + 2 : 0;
}

// What a comment says, line for line.
std::string said(std::string_view comment) {
    std::string text;
    bool in_list = false;
    bool was_in_list = false;
    for (std::string line : split(comment, "\n")) {
        if (line.ends_with("*/")) {
            line.resize(line.size() - 2);
        }
        for (const std::string_view mark : {"/* ", "/*", " * ", " *"}) {
            if (line.starts_with(mark)) {
                line.erase(0, mark.size());
                break;
            }
        }
        while (line.ends_with(' ')) {
            line.pop_back();
        }
        if (line.find(box) != std::string::npos || (text.empty() && line.empty())) {
            continue;
        }
        // What stands under a list without belonging to it.
        const bool is_item = line.starts_with("- ") || after_number(line) > 0;
        in_list = is_item || (in_list && line.starts_with("  "));
        text += (was_in_list && !in_list && !line.empty() ? "\n" : "") + line + "\n";
        was_in_list = in_list;
    }
    while (text.ends_with('\n')) {
        text.pop_back();
    }
    return text;
}

// "typedef void (*NAME)(" or "... NAME(" or "... NAME;"
std::string declared_name(std::string_view code) {
    if (code.starts_with("#") || code.starts_with("enum")) {
        return {};
    }
    std::size_t end = code.find("(*");
    end =
        end != std::string_view::npos && code.starts_with("typedef") ? code.find(')', end) : code.find_first_of("(;=");
    while (end != std::string_view::npos && end > 0 && !is_name(code[end - 1])) {
        --end;
    }
    if (end == std::string_view::npos) {
        return {};
    }
    std::size_t begin = end;
    while (begin > 0 && is_name(code[begin - 1])) {
        --begin;
    }
    return std::string(code.substr(begin, end - begin));
}

// A comment and the statements under it, up to an empty line.
class HeaderReader {
  public:
    void read(const std::string& line) {
        if (in_comment_ || (line.starts_with("/*") && code_.empty())) {
            comment_ += (in_comment_ ? "\n" : "") + line;
            in_comment_ = line.find("*/") == std::string::npos;
            if (!in_comment_) {
                end_comment();
            }
        } else if (line.empty()) {
            pending_.clear();
            code_.clear();
        } else if (line.starts_with("#") && !line.starts_with("#define ")) {
            code_.clear();
        } else if (!pending_.empty() || !code_.empty() || line.starts_with("VXPADCOM_API ")) {
            code_ += (code_.empty() ? "" : "\n") + line;
            const bool is_block = code_.find('{') != std::string::npos;
            if (is_block                ? line.starts_with("}")
                : line.starts_with("#") ? !line.ends_with('\\')
                                        : line.ends_with(';')) {
                end_statement();
            }
        }
    }

    Header take() { return std::move(header_); }

  private:
    void end_comment() {
        const std::string text = said(comment_);
        if (comment_.find(box) != std::string::npos) {
            const std::size_t end = std::min(text.find('\n'), text.size());
            header_.sections.push_back({text.substr(0, end), text.substr(end), {}});
            pending_.clear();
        } else if (header_.opening.empty()) {
            header_.opening = text;
        } else {
            pending_ = text;
        }
        comment_.clear();
    }

    void end_statement() {
        if (!header_.sections.empty()) {
            const bool is_variable = code_.find(" extern ") != std::string::npos;
            const bool is_function = code_.starts_with("VXPADCOM_API") && !is_variable;
            header_.sections.back().declarations.push_back({pending_, code_, declared_name(code_), is_function});
        }
        code_.clear();
    }

    Header header_;
    std::string comment_;
    std::string pending_;
    std::string code_;
    bool in_comment_ = false;
};

// Text in which Doxygen sees no command. It looks for none in quotes.
std::string plain(std::string_view text) {
    std::string result;
    bool is_quoted = false;
    for (const char c : text) {
        is_quoted = is_quoted != (c == '"');
        if (!is_quoted && std::string_view("\\@<>&#%").find(c) != std::string_view::npos) {
            result += '\\';
        }
        result += c;
    }
    return result;
}

// Lists with numbers as Doxygen knows them.
std::string doxygen_text(std::string_view text) {
    std::string result;
    for (const std::string& line : split(plain(text), "\n")) {
        const std::size_t item = after_number(line);
        result += " * " + (item > 0 ? "-# " + line.substr(item) : line) + "\n";
    }
    return result;
}

// Comments behind enumerators belong to these.
std::string doxygen_code(const std::string& code) {
    std::string result;
    for (const std::string& part : split(code, "/* ")) {
        const std::size_t end = result.empty() ? 0 : std::min(part.find("*/"), part.size());
        result += (result.empty() ? "" : "/**< ") + plain(part.substr(0, end)) + part.substr(end);
    }
    return result;
}

} // namespace

Header read_header(std::string_view text) {
    HeaderReader reader;
    for (const std::string& line : split(text, "\n")) {
        reader.read(line);
    }
    return reader.take();
}

std::string page_of(const HeaderSection& section) {
    std::string name = "vxpadcom_";
    for (const char c : section.title) {
        name += is_name(c) ? static_cast<char>(std::tolower(static_cast<unsigned char>(c))) : '_';
    }
    return name;
}

std::string for_doxygen(const Header& header) {
    std::string text = "/** @mainpage The application's interface\n" + doxygen_text(header.opening) + " */\n";
    for (const HeaderSection& section : header.sections) {
        text += "/** @defgroup " + page_of(section) + " " + plain(section.title) + "\n" + doxygen_text(section.text) +
                " * @{\n */\n";
        for (const Declaration& declaration : section.declarations) {
            text += declaration.comment.empty() ? "" : "/**\n" + doxygen_text(declaration.comment) + " */\n";
            text += doxygen_code(declaration.code) + "\n\n";
        }
        text += "/** @} */\n";
    }
    return text;
}

Page overview(const Header& header) {
    Page page{"libvxpadcom",
              '7',
              "drives USB signature pads",
              {"#include <vxpadcom/vxpadcom.h>", "cc app.c $(pkg-config --cflags --libs vxpadcom)"},
              {}};
    page.sections = read_markdown(header.opening);
    Block functions;
    for (const HeaderSection& section : header.sections) {
        std::string names;
        for (const Declaration& declaration : section.declarations) {
            if (declaration.is_function) {
                names += (names.empty() ? "" : ", ") + declaration.name + "(3)";
            }
        }
        functions.entries.push_back({"`" + section.title + "`", names});
    }
    page.sections.push_back({"Functions", {functions}});
    page.sections.push_back(
        {"See also", {{.text = "vxpadctl(1), vxpad-emulator(1), vxpadcom-recording(5), vxpadcom-ids(5)"}}});
    return page;
}

std::string functions_page(const HeaderSection& section, std::string_view page, std::string_view source) {
    std::string names;
    for (const Declaration& declaration : section.declarations) {
        if (declaration.name.empty()) {
            continue;
        }
        if (page.find("\\fB" + declaration.name + "\\fP") == std::string_view::npos) {
            throw std::runtime_error(declaration.name + " is missing on its page, " + page_of(section));
        }
        names += (names.empty() ? "" : ", ") + declaration.name;
    }
    constexpr std::string_view synopsis = ".SH SYNOPSIS\n";
    const std::size_t begin = page.find(synopsis);
    const std::size_t end = page.find(".SH \"Author\"");
    if (begin == std::string_view::npos || end == std::string_view::npos || end < begin) {
        throw std::runtime_error(page_of(section) + " has not the parts that Doxygen's pages have");
    }
    const std::size_t functions = begin + synopsis.size();
    return as_man({names, '3', section.title, {}, {}}, source, page_of(section)) + std::string(synopsis) +
           ".B #include <vxpadcom/vxpadcom.h>\n" + std::string(page.substr(functions, end - functions)) +
           ".SH \"SEE ALSO\"\nlibvxpadcom(7)\n";
}

} // namespace manual
