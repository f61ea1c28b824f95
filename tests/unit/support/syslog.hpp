// What the library sends to syslog: the test program defines the function itself.
#pragma once

#include <string>
#include <vector>

namespace syslog_standin {

struct Entry {
    int priority;
    std::string text;
    bool operator==(const Entry&) const = default;
};

std::vector<Entry>& entries();

// Entries are also printed to standard error, "syslog PRIORITY: TEXT", for calls that end the process.
extern bool echo;

} // namespace syslog_standin
