// Lines that change in their place while a person watches.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

namespace vxpadctl {

class TerminalView {
  public:
    explicit TerminalView(std::FILE* file);

    // Elsewhere, say in a file, nothing can be drawn.
    bool is_terminal() const { return is_terminal_; }

    // Over the lines that were drawn before. They are cut to the terminal's width, and the last ones left out where it
    // is too low. Throws as flush() does.
    void draw(const std::vector<std::string>& lines);

  private:
    std::FILE* file_;
    bool is_terminal_;
    std::size_t drawn_ = 0;
};

// "[######------]"
std::string bar(double part, std::size_t columns);

} // namespace vxpadctl
