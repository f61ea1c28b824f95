#include "captures.hpp"

#include "vxpadcom/vxpadcom.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace standins {

OutputCapture::OutputCapture(int descriptor)
    : captured_(descriptor), original_(dup(descriptor)), file_(memfd_create("captured", MFD_CLOEXEC)) {
    std::fflush(nullptr);
    if (original_ < 0 || file_ < 0 || dup2(file_, captured_) < 0) {
        throw std::runtime_error("cannot redirect output");
    }
}

OutputCapture::~OutputCapture() {
    std::fflush(nullptr);
    dup2(original_, captured_);
    close(original_);
    close(file_);
}

// Does not flush: a line counts only when the library itself has flushed it.
std::string OutputCapture::text() const {
    std::string all(static_cast<std::size_t>(lseek(file_, 0, SEEK_END)), '\0');
    const ssize_t got = pread(file_, all.data(), all.size(), 0);
    all.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    return all;
}

LogCapture::LogCapture() {
    RegisterLoggingCallBackProcedure(reinterpret_cast<void*>(&receive), this);
    clear();
}

LogCapture::~LogCapture() {
    RegisterLoggingCallBackProcedure(nullptr, nullptr);
}

std::vector<std::string> LogCapture::messages() const {
    const std::lock_guard guard(mutex_);
    return messages_;
}

int LogCapture::count(std::string_view part) const {
    const std::lock_guard guard(mutex_);
    return static_cast<int>(std::count_if(messages_.begin(), messages_.end(), [&](const std::string& message) {
        return message.find(part) != std::string::npos;
    }));
}

void LogCapture::clear() {
    const std::lock_guard guard(mutex_);
    messages_.clear();
}

void LogCapture::receive(void* self, const char16_t* message) {
    std::string text;
    for (; *message; ++message) {
        text.push_back(*message > 0xff ? '?' : static_cast<char>(*message));
    }
    auto& capture = *static_cast<LogCapture*>(self);
    const std::lock_guard guard(capture.mutex_);
    capture.messages_.push_back(std::move(text));
}

EnvironmentGuard::EnvironmentGuard(const char* name, const char* value) : name_(name) {
    if (const char* former = std::getenv(name)) {
        former_ = former;
    }
    if (value) {
        setenv(name, value, 1);
    } else {
        unsetenv(name);
    }
}

EnvironmentGuard::~EnvironmentGuard() {
    if (former_) {
        setenv(name_.c_str(), former_->c_str(), 1);
    } else {
        unsetenv(name_.c_str());
    }
}

} // namespace standins
