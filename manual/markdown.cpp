#include "markdown.hpp"

#include <cctype>
#include <cstddef>

namespace manual {

namespace {

constexpr std::string_view bullet = "\u2022";

std::string trimmed(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front())) != 0) {
        text.remove_prefix(1);
    }
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back())) != 0) {
        text.remove_suffix(1);
    }
    return std::string(text);
}

// Without the marks of links, and with ` for **. Between ` and ` nothing is a mark.
std::string inline_text(std::string_view text) {
    std::string result;
    bool is_code = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        is_code = is_code != (text[i] == '`');
        const std::size_t middle = text.find("](", i);
        const std::size_t end = text.find(')', middle);
        if (!is_code && text[i] == '[' && end != std::string_view::npos && text.find('[', i + 1) > middle) {
            const std::string_view target = text.substr(middle + 2, end - middle - 2);
            result += inline_text(text.substr(i + 1, middle - i - 1));
            result += target.starts_with("http") ? " (" + std::string(target) + ")" : "";
            i = end;
        } else if (!is_code && text.substr(i, 2) == "**") {
            result += '`';
            ++i;
        } else {
            result += text[i];
        }
    }
    return result;
}

std::vector<std::string> cells(std::string_view line) {
    std::vector<std::string> result;
    std::string cell;
    bool is_code = false;
    for (const char c : line.substr(1)) {
        is_code = is_code != (c == '`');
        if (c == '|' && !is_code) {
            result.push_back(inline_text(trimmed(cell)));
            cell.clear();
        } else {
            cell += c;
        }
    }
    return result;
}

bool is_rule_of_table(std::string_view line) {
    return line.find_first_not_of("|-: ") == std::string_view::npos;
}

// "- " or "12. " at the beginning, with what follows; empty where there is neither.
std::string_view list_mark(std::string_view line) {
    if (line.starts_with("- ") || line.starts_with("* ")) {
        return line.substr(0, 2);
    }
    std::size_t digits = 0;
    while (digits < line.size() && std::isdigit(static_cast<unsigned char>(line[digits])) != 0) {
        ++digits;
    }
    return digits > 0 && line.substr(digits).starts_with(". ") ? line.substr(0, digits + 2) : std::string_view();
}

class Reader {
  public:
    Reader() { sections_.push_back({"", {}}); }

    void read(std::string_view line) {
        if (line.starts_with("```")) {
            end_paragraph();
            in_fence_ = !in_fence_;
        } else if (in_fence_ || (line.starts_with("    ") && paragraph_.empty() && !in_item_)) {
            add_line(in_fence_ ? line : line.substr(4));
        } else if (trimmed(line).empty()) {
            end_paragraph();
            in_table_ = false;
            add_blank_ = true;
            return;
        } else {
            read_text(line);
        }
        add_blank_ = false;
    }

    std::vector<Section> take() {
        end_paragraph();
        std::erase_if(sections_, [](const Section& section) { return section.blocks.empty(); });
        return std::move(sections_);
    }

  private:
    std::vector<Block>& blocks() { return sections_.back().blocks; }

    void read_text(std::string_view line) {
        in_table_ = in_table_ && line.starts_with('|');
        if (line.starts_with('#') || line.starts_with('|')) {
            end_paragraph();
            in_item_ = false;
        }
        if (line.starts_with("# ")) {
            return;
        }
        if (line.starts_with("## ")) {
            sections_.push_back({inline_text(trimmed(line.substr(3))), {}});
        } else if (line.starts_with("### ")) {
            blocks().push_back({.text = "`" + inline_text(trimmed(line.substr(4))) + "`"});
        } else if (line.starts_with('|')) {
            read_row(line);
        } else if (const std::string_view mark = list_mark(line); !mark.empty()) {
            const bool goes_on = in_item_;
            end_paragraph();
            const bool is_numbered = mark.find('.') != std::string_view::npos;
            if (!goes_on || is_numbered != numbered_) {
                blocks().emplace_back();
            }
            numbered_ = is_numbered;
            const std::string head = is_numbered ? trimmed(mark) : std::string(bullet);
            blocks().back().entries.push_back({head, ""});
            in_item_ = true;
            paragraph_ = line.substr(mark.size());
        } else {
            if (add_blank_ && line.front() != ' ') {
                in_item_ = false;
            }
            paragraph_ += (paragraph_.empty() ? "" : " ") + trimmed(line);
        }
    }

    void read_row(std::string_view line) {
        if (is_rule_of_table(line)) {
            if (in_table_ && blocks().back().entries.size() == 1) { // what stood above was the head
                blocks().back().entries.pop_back();
            }
            return;
        }
        if (!in_table_) {
            blocks().emplace_back();
            in_table_ = true;
        }
        Entry entry;
        for (const std::string& cell : cells(line)) {
            if (entry.head.empty()) {
                entry.head = cell;
            } else {
                entry.text += (entry.text.empty() || cell.empty() ? "" : "; ") + cell;
            }
        }
        blocks().back().entries.push_back(entry);
    }

    void add_line(std::string_view line) {
        if (blocks().empty() || blocks().back().lines.empty()) {
            blocks().emplace_back();
        } else if (add_blank_) {
            blocks().back().lines.emplace_back();
        }
        blocks().back().lines.emplace_back(line);
    }

    void end_paragraph() {
        const std::string text = inline_text(paragraph_);
        paragraph_.clear();
        if (text.empty()) {
            return;
        }
        if (in_item_) {
            std::string& item = blocks().back().entries.back().text;
            item += (item.empty() ? "" : " ") + text;
        } else {
            blocks().push_back({.text = text});
        }
    }

    std::vector<Section> sections_;
    std::string paragraph_;
    bool in_fence_ = false;
    bool in_item_ = false;
    bool in_table_ = false;
    bool numbered_ = false;  // the items are
    bool add_blank_ = false; // an empty line came last
};

} // namespace

std::vector<Section> read_markdown(std::string_view text) {
    Reader reader;
    for (const std::string& line : split(text, "\n")) {
        reader.read(line);
    }
    return reader.take();
}

} // namespace manual
