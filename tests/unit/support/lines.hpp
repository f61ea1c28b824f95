// Reading trace lines back.
#pragma once

#include "captures.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <regex>
#include <string>
#include <string_view>
#include <vector>

// Sanitizers report on purpose what some tests do on purpose: unlocking a mutex that is not locked, for instance.
#if defined(__SANITIZE_THREAD__)
#define VXPAD_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VXPAD_THREAD_SANITIZER 1
#endif
#endif
#ifndef VXPAD_THREAD_SANITIZER
#define VXPAD_THREAD_SANITIZER 0
#endif

namespace lines {

constexpr const char* debug_switch = "LIBVXPADCOM_DEBUG";
constexpr const char* function_switch = "LIBVXPADCOM_DEBUG_FUNC";
constexpr const char* mutex_switch = "LIBVXPADCOM_DEBUG_MUTEX";

constexpr const char* blue = "34";
constexpr const char* yellow = "33";
constexpr const char* green = "32";

// What call writes to a file descriptor (1 or 2).
template <class Call> std::string written(int descriptor, Call call) {
    std::string text;
    {
        const standins::OutputCapture output(descriptor);
        call();
        text = output.text();
    }
    if (testing::Test::HasFailure()) { // a report of the test's own may be part of it
        std::fputs(text.c_str(), stdout);
    }
    return text;
}

struct Line {
    std::string colour;
    long thread = 0;
    std::string time;
    std::string file;   // with the padding that was printed
    std::string number; // with the padding that was printed
    std::string text;   // behind the prefix, without the line end
    std::string reason; // error lines only: what stands behind the colour reset
};

// Every byte of the output must belong to a line of this form.
inline std::vector<Line> parse(const std::string& output, const std::regex& form) {
    std::vector<Line> found;
    auto position = output.cbegin();
    std::smatch match;
    while (std::regex_search(position, output.cend(), match, form, std::regex_constants::match_continuous)) {
        found.push_back({match[1], std::atol(match[2].str().c_str()), match[3], match[4], match[5], match[6],
                         match.size() > 7 ? match[7].str() : std::string()});
        position = match[0].second;
    }
    EXPECT_EQ(std::string(position, output.cend()), "") << "not a line of the expected form";
    return found;
}

inline std::vector<Line> parse_output(const std::string& output) {
    static const std::regex form("\x1b\\[(\\d\\d)m(\\d+): (\\d\\d:\\d\\d:\\d\\d\\.\\d\\d\\d):( *[\\w.]+):( *\\d+): "
                                 "([^\n]*)\n\x1b\\[0m");
    return parse(output, form);
}

// Error lines: no padding of the file name, the colour reset before the line end.
inline std::vector<Line> parse_errors(const std::string& output) {
    static const std::regex form("\x1b\\[(31)m(\\d+): (\\d\\d:\\d\\d:\\d\\d\\.\\d\\d\\d): ([\\w.]+):( *\\d+): "
                                 "([^\x1b]*)\x1b\\[0m([^\n]*)\n");
    return parse(output, form);
}

inline std::vector<std::string> texts(const std::vector<Line>& all, std::string_view colour = {}) {
    std::vector<std::string> result;
    for (const Line& line : all) {
        if (colour.empty() || line.colour == colour) {
            result.push_back(line.text);
        }
    }
    return result;
}

// Switches all three kinds of lines off, whatever the test was started with.
struct AllSwitchesOff {
    standins::EnvironmentGuard debug{debug_switch, nullptr};
    standins::EnvironmentGuard function{function_switch, nullptr};
    standins::EnvironmentGuard mutex{mutex_switch, nullptr};
};

} // namespace lines
