#include "scenario.hpp"

#include "scenarios/families.hpp"
#include "scenarios/steps.hpp"

namespace faults {

const std::vector<Scenario>& scenarios() {
    static const std::vector<Scenario> all = [] {
        std::vector<Scenario> collected;
        for (const auto& family : {starts(), transfers(), messages(), receiving(), removals(), diagnosis()}) {
            collected.insert(collected.end(), family.begin(), family.end());
        }
        return collected;
    }();
    return all;
}

void live_on(Run& run) {
    HidInterface& first = plug_hid();
    first.input_reports.push_back(Bytes(64, 7));
    const VcomPad second;
    run.expect_healthy(start(run) == 2, "afterwards a start does not find both pads");
    end_uploads();
    run.expect_healthy(set_feature(run, 1) && get_feature(run, 1), "afterwards the HID pad does not answer");
    run.expect_healthy(set_feature(run, 2) && get_feature(run, 2), "afterwards the VCOM pad does not answer");
    run.expect_healthy(receive(run, 1, 1), "afterwards no report is received");
}

} // namespace faults
