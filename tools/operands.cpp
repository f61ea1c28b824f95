#include "operands.hpp"

#include "hex.hpp"
#include "library.hpp"
#include "names.hpp"
#include "values.hpp"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <utility>

namespace vxpadctl {

namespace {

constexpr std::size_t longest_variable = 40;
constexpr std::size_t longest_value = 20;

void take_hex(Operands& operands, Bytes& bytes) {
    try {
        while (!operands.empty()) {
            parse_hex(operands.next("bytes"), bytes);
        }
    } catch (const std::invalid_argument& error) {
        throw UsageError(error.what());
    }
}

bool has_layout(const Arguments& arguments) {
    return !arguments.layout.empty() || !arguments.layout_file.empty();
}

// Without a name of its own, what the file is called tells.
std::string_view format_of(const Arguments& arguments) {
    const std::string_view file = arguments.output;
    const auto dot = file.rfind('.');
    return !arguments.format.empty() || dot == std::string_view::npos ? std::string_view(arguments.format)
                                                                      : file.substr(dot + 1);
}

void expect_format(std::string_view format, Names names) {
    if (!value_of(names, format)) {
        throw UsageError("--format takes " + list_names(names) + (format.empty() ? "" : ", not " + quoted(format)));
    }
}

void expect_size(const Bytes& bytes, std::size_t least, std::size_t most, std::string_view what) {
    if (bytes.size() < least) {
        throw UsageError("the bytes to send are missing");
    }
    if (bytes.size() > most) {
        throw UsageError(std::string(what) + " at most " + std::to_string(most) + " bytes");
    }
}

} // namespace

Operands::Operands(std::string command, std::span<const std::string_view> words)
    : command_{std::move(command)}, words_{words} {}

std::string_view Operands::next(std::string_view what) {
    if (words_.empty()) {
        throw UsageError(quoted(command_) + " needs " + std::string(what));
    }
    const std::string_view word = words_.front();
    words_ = words_.subspan(1);
    return word;
}

bool Operands::skip(std::string_view word) {
    const bool found = !words_.empty() && words_.front() == word;
    if (found) {
        words_ = words_.subspan(1);
    }
    return found;
}

void Operands::expect_end() const {
    if (!words_.empty()) {
        throw UsageError(quoted(command_) + " cannot make sense of " + quoted(words_.front()));
    }
}

void take_pad(Operands& operands, Arguments& arguments) {
    arguments.pad = parse_number("PAD", operands.next("the number of a pad (vxpadctl list shows them)"), 1, 255);
}

void take_report(Operands& operands, Arguments& arguments) {
    take_hex(operands, arguments.bytes);
    expect_size(arguments.bytes, 1, longest_report, "a report has");
}

void take_message(Operands& operands, Arguments& arguments) {
    if (arguments.component.has_value() != arguments.message_id.has_value()) {
        throw UsageError("--component and --message go together");
    }
    take_hex(operands, arguments.bytes);
    if (arguments.component) {
        expect_size(arguments.bytes, 0, longest_payload - message_id_size, "a message takes");
    } else {
        expect_size(arguments.bytes, 1, longest_message, "a message has");
    }
}

void take_connection(Operands& operands, Arguments& arguments) {
    if (!operands.skip("set")) {
        operands.skip("get");
        return;
    }
    if (arguments.json) {
        throw UsageError("'ssp connection set' has no option --json");
    }
    arguments.connection = parse_number("TYPE", operands.next("a connection type"), 0, 127);
}

void take_variable(Operands& operands, Arguments& arguments) {
    arguments.variable = parse_text("VARIABLE", operands.next("the name of a variable"), 1, longest_variable);
}

void take_value(Operands& operands, Arguments& arguments) {
    arguments.value = parse_text("VALUE", operands.next("a value"), 0, longest_value);
}

void take_mode(Operands& operands, Arguments& arguments) {
    arguments.mode = parse_name("MODE", operands.next("a mode: " + list_names(button_modes)), button_modes);
}

void take_button(Operands& operands, Arguments& arguments) {
    arguments.button = parse_name("BUTTON", operands.next("a button: " + list_names(buttons)), buttons);
}

void take_button_state(Operands& operands, Arguments& arguments) {
    for (std::uint32_t& value : arguments.button_state) {
        value = parse_number("a button's state", operands.next("two numbers, the button's state"), 0,
                             std::numeric_limits<std::uint32_t>::max());
    }
}

void take_file(Operands& operands, Arguments& arguments) {
    arguments.file = operands.next("a file");
}

void take_new_id(Operands& operands, Arguments& arguments) {
    std::string line{operands.next("the vendor's id, as lsusb shows it")};
    line.append(" ").append(operands.next("the product's id, as lsusb shows it"));
    for (const std::string* word : {&arguments.new_transport, &arguments.new_type, &arguments.new_name}) {
        line.append(" ").append(*word);
    }
    const id_lines::Line parsed = id_lines::parse(line);
    if (!parsed.is_id) {
        throw UsageError(std::string("'ids add': ") + (parsed.complaint != nullptr ? parsed.complaint : "no id"));
    }
    arguments.new_id = parsed.id;
}

void expect_output(Operands&, Arguments& arguments) {
    if (arguments.output.empty()) {
        throw UsageError("-o FILE is missing, where the result goes (- is the standard output)");
    }
}

void expect_layout(Operands&, Arguments& arguments) {
    if (!has_layout(arguments)) {
        throw UsageError("--layout is missing: where x and y are in a packet");
    }
}

void expect_layout_for_json(Operands&, Arguments& arguments) {
    if (has_layout(arguments) && !arguments.json) {
        throw UsageError("here --layout goes with --json");
    }
}

void expect_shown_for_json(Operands&, Arguments& arguments) {
    if (arguments.json && arguments.virtual_pad) {
        throw UsageError("--json shows the packets, --pad has a virtual pad send them");
    }
}

// A picture is SVG unless another name tells.
void take_picture_format(Operands&, Arguments& arguments) {
    std::string_view format = format_of(arguments);
    if (arguments.format.empty() && !value_of(picture_formats, format)) {
        format = name_of(picture_formats, svg_format);
    }
    expect_format(format, picture_formats);
    arguments.format = format;
}

void take_export_format(Operands& operands, Arguments& arguments) {
    std::string_view format = format_of(arguments);
    if (arguments.format.empty() && !value_of(export_formats, format)) {
        throw UsageError("--format is missing: " + list_names(export_formats));
    }
    expect_format(format, export_formats);
    arguments.format = format;
    if (arguments.format == name_of(export_formats, inkml_format)) {
        expect_layout(operands, arguments);
    }
}

} // namespace vxpadctl
