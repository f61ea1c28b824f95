// Which locks are taken, and in which order: the lock lines of a call, read back.
#pragma once

#include "captures.hpp"
#include "support/lines.hpp"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace lock_lines {

// The lock's name in a line, as the table calls it.
inline std::string name_of(const std::string& expression) {
    static const std::vector<std::pair<std::string, std::string>> names{
        {"gen_thread_mutex_lock", "start"},
        {"dev_list_short_lock", "list"},
        {"exception_list_lock", "records"},
        {"device_lock", "pad"},
        {"info_lock", "info"},
        {"processing_input_report_callback_lock", "callback"},
        {"interface_routine_count_lock", "count"},
        {"access_data_lock", "data"},
        {"print_wchar_to_asci_lock", "text"},
        {"print_bits_lock", "bits"},
        {"print_bytes_lock", "bytes"},
        {"queue[", "queue"},
    };
    for (const auto& [part, name] : names) {
        if (expression.find(part) != std::string::npos) {
            return name;
        }
    }
    return expression;
}

using Locks = std::map<long, std::string>; // of each thread

// "list" is taken and released, "+list" taken and "-list" released behind others. Of a queue no release is told.
inline Locks locks_during(const std::function<void()>& call) {
    const std::string going = ">>>>>>>>     going to pthread_mutex_lock() -> ";
    const std::string taken = "########   was called pthread_mutex_lock() -> ";
    const std::string released = "<<<<<<<< was called pthread_mutex_unlock() -> ";
    std::string output;
    {
        const standins::EnvironmentGuard on(lines::mutex_switch, "1");
        const standins::OutputCapture capture(STDOUT_FILENO);
        call();
        output = capture.text();
    }
    std::map<long, std::vector<std::string>> words;
    std::map<long, std::string> wanted;
    for (const lines::Line& line : lines::parse_output(output)) {
        if (line.colour != lines::yellow) {
            continue;
        }
        auto& of_thread = words[line.thread];
        if (const auto at = line.text.find(going); at != std::string::npos) {
            wanted[line.thread] = name_of(line.text.substr(at + going.size()));
        } else if (const auto at_taken = line.text.find(taken); at_taken != std::string::npos) {
            const std::string name = name_of(line.text.substr(at_taken + taken.size()));
            EXPECT_EQ(wanted[line.thread], name) << "what it was going to take";
            of_thread.push_back(name == "queue" ? name : "+" + name);
        } else if (const auto at_released = line.text.find(released); at_released != std::string::npos) {
            const std::string name = name_of(line.text.substr(at_released + released.size()));
            if (!of_thread.empty() && of_thread.back() == "+" + name) {
                of_thread.back() = name;
            } else {
                of_thread.push_back("-" + name);
            }
        }
    }
    Locks locks;
    for (const auto& [thread, all] : words) {
        for (const std::string& word : all) {
            locks[thread] += (locks[thread].empty() ? "" : " ") + word;
        }
    }
    return locks;
}

// Of the calling thread.
inline std::string own_locks_during(const std::function<void()>& call) {
    return locks_during(call)[syscall(SYS_gettid)];
}

} // namespace lock_lines
