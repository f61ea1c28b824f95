#include "page.hpp"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace manual {

namespace {

constexpr std::size_t widest_head = 24;
constexpr std::size_t indentation = 2;

bool is_capital(char c) {
    return (c >= 'A' && c <= 'Z') || c == '_';
}

bool is_alphanumeric(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

// The words of a text behind what stands in the line already, in lines that fit and begin in that column.
std::string wrapped(std::string line, std::string_view text, std::size_t column) {
    std::string result;
    bool begun = false;
    for (const std::string& word : split(text, " ")) {
        if (word.empty()) {
            continue;
        }
        if (begun && line.size() + 1 + word.size() > help_width) {
            result += line + "\n";
            line = std::string(column, ' ');
            begun = false;
        }
        line += (begun ? " " : "") + word;
        begun = true;
    }
    return result + line + "\n";
}

std::string without_marks(std::string_view text) {
    std::string result;
    std::ranges::copy_if(text, std::back_inserter(result), [](char c) { return c != '`'; });
    return result;
}

// On lines of its own where the head is too long.
std::string help_entry(const Entry& entry, std::size_t column) {
    std::string line = std::string(indentation, ' ') + without_marks(entry.head);
    std::string result;
    if (entry.text.empty()) {
        return line + "\n";
    }
    if (line.size() + indentation > column) {
        result = line + "\n";
        line.clear();
    }
    line.resize(column, ' ');
    return result + wrapped(line, without_marks(entry.text), column);
}

std::string capitals(std::string_view text) {
    std::string result;
    std::ranges::transform(text, std::back_inserter(result),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return result;
}

// The code point of a character in UTF-8 whose first byte is at that place, which moves to its last one.
std::uint32_t code_point(std::string_view text, std::size_t& at) {
    const auto first = static_cast<unsigned char>(text[at]);
    std::size_t more = first >= 0xf0 ? 3 : first >= 0xe0 ? 2 : 1;
    std::uint32_t code = first & (0x3fU >> more);
    for (; more > 0 && at + 1 < text.size(); --more) {
        code = code << 6 | (static_cast<unsigned char>(text[++at]) & 0x3fU);
    }
    return code;
}

// Text that means nothing to troff.
std::string literal(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (static_cast<unsigned char>(c) >= 0x80) {
            char name[16];
            std::snprintf(name, sizeof name, "\\[u%04X]", code_point(text, i));
            result += name;
            continue;
        }
        switch (c) {
        case '\\':
            result += "\\(rs";
            break;
        case '-':
            result += "\\-";
            break;
        case '\'':
            result += "\\(aq";
            break;
        case '"':
            result += "\\(dq";
            break;
        case '^':
            result += "\\(ha";
            break;
        case '~':
            result += "\\(ti";
            break;
        case '.':
            result += result.empty() ? "\\&." : ".";
            break;
        default:
            result += c;
        }
    }
    return result;
}

// Text with its marked parts in bold.
std::string marked(std::string_view text) {
    std::string result;
    bool bold = false;
    for (const std::string& part : split(text, "`")) {
        if (!part.empty()) {
            result += bold ? "\\fB" + literal(part) + "\\fR" : literal(part);
        }
        bold = !bold;
    }
    return result;
}

// What is to be typed in bold, what stands for something else in italics, and the signs between them as they are.
std::string typeset_head(std::string_view head) {
    constexpr std::string_view signs = " []|";
    if (head.find('`') != std::string_view::npos) {
        return marked(head);
    }
    std::string result;
    std::size_t begin = 0;
    const auto font_at = [&](std::size_t i) {
        if (signs.find(head[i]) != std::string_view::npos || head.substr(i).starts_with("...")) {
            return 'R';
        }
        if (!is_capital(head[i])) {
            return head[i] == '.' && i > 0 && head[i - 1] == '.' ? 'R' : 'B';
        }
        std::size_t first = i;
        std::size_t last = i;
        while (first > 0 && is_capital(head[first - 1])) {
            --first;
        }
        while (last + 1 < head.size() && is_capital(head[last + 1])) {
            ++last;
        }
        const bool alone = (first == 0 || !is_alphanumeric(head[first - 1])) &&
                           (last + 1 == head.size() || !is_alphanumeric(head[last + 1]));
        return alone ? 'I' : 'B';
    };
    for (std::size_t i = 1; i <= head.size(); ++i) {
        if (i < head.size() && font_at(i) == font_at(begin)) {
            continue;
        }
        const std::string text = literal(head.substr(begin, i - begin));
        result += font_at(begin) == 'R' ? text : std::string("\\f") + font_at(begin) + text + "\\fR";
        begin = i;
    }
    return result;
}

std::string man_block(const Block& block, bool first) {
    std::string result;
    if (!block.text.empty()) {
        result += (first ? "" : ".PP\n") + marked(block.text) + "\n";
    }
    for (const Entry& entry : block.entries) {
        result += ".TP\n" + typeset_head(entry.head) + "\n";
        result += entry.text.empty() ? "\\&\n" : marked(entry.text) + "\n";
    }
    if (!block.lines.empty()) {
        result += first ? "" : ".PP\n";
        result += ".RS 4\n.nf\n";
        for (const std::string& line : block.lines) {
            result += line.empty() ? "\\&\n" : literal(line) + "\n";
        }
        result += ".fi\n.RE\n";
    }
    return result;
}

} // namespace

std::vector<std::string> split(std::string_view text, std::string_view separator) {
    std::vector<std::string> parts;
    for (std::size_t end = text.find(separator); end != std::string_view::npos; end = text.find(separator)) {
        parts.emplace_back(text.substr(0, end));
        text.remove_prefix(end + separator.size());
    }
    parts.emplace_back(text);
    return parts;
}

std::string usage_lines(const std::vector<std::string>& usages) {
    constexpr std::string_view word = "Usage: ";
    std::string text;
    for (const std::string& usage : usages) {
        text +=
            wrapped(text.empty() ? std::string(word) : std::string(word.size(), ' '), usage, word.size() + indentation);
    }
    return text;
}

std::string as_help(const Block& block) {
    std::string text;
    if (!block.text.empty()) {
        text += wrapped("", without_marks(block.text), 0);
    }
    std::size_t widest = 0;
    for (const Entry& entry : block.entries) {
        if (const std::size_t size = without_marks(entry.head).size(); size <= widest_head) {
            widest = std::max(widest, size);
        }
    }
    for (const Entry& entry : block.entries) {
        text += help_entry(entry, widest + 2 * indentation);
    }
    for (const std::string& line : block.lines) {
        text += std::string(indentation, ' ') + line + "\n";
    }
    return text;
}

std::string as_help(const Page& page) {
    std::string text = usage_lines(page.usages);
    for (const Section& section : page.sections) {
        if (section.only_in_manual) {
            continue;
        }
        text += section.heading.empty() ? "" : "\n" + section.heading + ":\n";
        bool first = !section.heading.empty();
        for (const Block& block : section.blocks) {
            text += (first ? "" : "\n") + as_help(block);
            first = false;
        }
    }
    return text;
}

std::string as_man(const Page& page, std::string_view source, std::string_view title) {
    const std::string section{page.section};
    std::string text = ".TH \"" + literal(capitals(title.empty() ? std::string_view(page.name) : title)) + "\" " +
                       section + " \"\" \"" + literal(source) + "\" \"libvxpadcom\"\n.ad l\n.nh\n.SH NAME\n" +
                       literal(page.name) + " \\- " + literal(page.summary) + "\n";
    if (!page.usages.empty()) {
        text += ".SH SYNOPSIS\n.nf\n";
        for (const std::string& usage : page.usages) {
            text += typeset_head(usage) + "\n";
        }
        text += ".fi\n";
    }
    for (const Section& each : page.sections) {
        text += ".SH \"" + (each.heading.empty() ? "DESCRIPTION" : literal(capitals(each.heading))) + "\"\n";
        bool first = true;
        for (const Block& block : each.blocks) {
            text += man_block(block, first);
            first = false;
        }
    }
    return text;
}

} // namespace manual
