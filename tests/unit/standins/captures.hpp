// What a test overhears and sets: output streams, the logging callback, environment variables.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace standins {

// Collects what is written to a file descriptor (1 or 2) as long as it lives.
class OutputCapture {
  public:
    explicit OutputCapture(int descriptor);
    ~OutputCapture();
    OutputCapture(const OutputCapture&) = delete;
    OutputCapture& operator=(const OutputCapture&) = delete;

    std::string text() const;

  private:
    int captured_;
    int original_;
    int file_;
};

// Registers itself as the library's logging callback: create it after Initialize(), which forgets callbacks. Units
// above 0xff arrive as '?'.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> messages() const;
    int count(std::string_view part) const; // messages that contain part
    void clear();

  private:
    static void receive(void* self, const char16_t* message);

    mutable std::mutex mutex_;
    std::vector<std::string> messages_;
};

// Sets a variable, or with nullptr removes it, and puts the former state back.
class EnvironmentGuard {
  public:
    EnvironmentGuard(const char* name, const char* value);
    ~EnvironmentGuard();
    EnvironmentGuard(const EnvironmentGuard&) = delete;
    EnvironmentGuard& operator=(const EnvironmentGuard&) = delete;

  private:
    std::string name_;
    std::optional<std::string> former_;
};

} // namespace standins
