// The words behind a command's name. A command takes them with the functions below, one behind the other; they throw
// UsageError.
#pragma once

#include "arguments.hpp"

#include <span>
#include <string>
#include <string_view>

namespace vxpadctl {

// The words that are left.
class Operands {
  public:
    Operands(std::string command, std::span<const std::string_view> words);

    bool empty() const { return words_.empty(); }
    std::string_view next(std::string_view what);
    bool skip(std::string_view word);
    void expect_end() const;

  private:
    std::string command_;
    std::span<const std::string_view> words_;
};

void take_pad(Operands& operands, Arguments& arguments);
void take_report(Operands& operands, Arguments& arguments);
void take_message(Operands& operands, Arguments& arguments); // whole, or what follows the message id
void take_connection(Operands& operands, Arguments& arguments);
void take_variable(Operands& operands, Arguments& arguments);
void take_value(Operands& operands, Arguments& arguments);
void take_mode(Operands& operands, Arguments& arguments);
void take_button(Operands& operands, Arguments& arguments);
void take_button_state(Operands& operands, Arguments& arguments);
void take_file(Operands& operands, Arguments& arguments);
void take_new_id(Operands& operands, Arguments& arguments); // with the options that belong to it

// Options without which there is nothing to do.
void expect_output(Operands& operands, Arguments& arguments);
void expect_layout(Operands& operands, Arguments& arguments);

// Options that make sense together.
void expect_layout_for_json(Operands& operands, Arguments& arguments);
void expect_shown_for_json(Operands& operands, Arguments& arguments);

// The format that is given, else that of the file's name.
void take_picture_format(Operands& operands, Arguments& arguments);
void take_export_format(Operands& operands, Arguments& arguments);

} // namespace vxpadctl
