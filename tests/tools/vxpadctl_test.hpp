// Runs vxpadctl as people do, over virtual pads.
#pragma once

#include "scratch.hpp"

#include <cstdlib>
#include <gmock/gmock.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace vxpadctl_test {

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

inline std::string quoted(const std::string& word) {
    std::string text = "'";
    for (const char c : word) {
        text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return text + "'";
}

// In front of a command, where the tests run as root: an ordinary user's it is then.
inline std::string as_somebody() {
    return ::geteuid() == 0 ? "setpriv --reuid=65534 --clear-groups " : "";
}

class Vxpadctl : public Scratch {
  protected:
    // Runs a shell command among virtual pads.
    Outcome run(const std::vector<std::string>& emulator_options, const std::string& script) const {
        std::ostringstream command;
        command << "timeout -k 5 50 " << quoted(PROGRAM_DIRECTORY "/vxpad-emulator") << " run";
        for (const std::string& option : emulator_options) {
            command << ' ' << quoted(option);
        }
        command << " --";
        return run_under(command.str(), script);
    }

    // Without any.
    Outcome run_alone(const std::string& script) const { return run_under("timeout -k 5 50", script); }

  private:
    Outcome run_under(const std::string& runner, const std::string& script) const {
        const std::string command = runner + " sh -c " + quoted("PATH=" PROGRAM_DIRECTORY ":$PATH\n" + script) + " >" +
                                    quoted(directory_ / "out") + " 2>" + quoted(directory_ / "err");
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents(directory_ / "out"),
                contents(directory_ / "err")};
    }
};

} // namespace vxpadctl_test
