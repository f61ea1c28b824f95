// Pads that come and go, as people and programs hear of them.
#include "vxpadctl_test.hpp"

using testing::HasSubstr;
using testing::MatchesRegex;
using namespace vxpadctl_test;

namespace {

const std::string helpers = R"sh(
begin() { # OPTION...
    vxpadctl watch "$@" >events 2>log & watcher=$!
    until grep -qs watching log; do sleep 0.01; done
}
await_lines() { until [ "$(wc -l <events)" -ge "$1" ]; do sleep 0.01; done; }
end() {
    kill -INT $watcher
    wait $watcher
    echo status $?
}
)sh";

std::string lines(int times, const std::string& one, const std::string& other) {
    std::string text;
    for (int i = 0; i < times; ++i) {
        text += one + other;
    }
    return text;
}

class Watch : public Vxpadctl {
  protected:
    Outcome watch(const std::vector<std::string>& pads, const std::string& script) const {
        return run(pads, "cd " + quoted(directory_) + helpers + script);
    }

    // Without the times.
    std::string events() const {
        const std::string command = "sed -E 's/[0-9]{4}(-[0-9]{2}){2}T[0-9]{2}(:[0-9]{2}){2}\\.[0-9]{3}Z/TIME/' <" +
                                    quoted(directory_ / "events") + " >" + quoted(directory_ / "timeless");
        EXPECT_EQ(std::system(command.c_str()), 0);
        return contents(directory_ / "timeless");
    }
};

} // namespace

TEST_F(Watch, FiftyPlugsAndUnplugsAreAHundredLines) {
    const auto outcome = watch({"--pad=type=16,serial=A", "--vcom=type=17,serial=B"}, R"sh(
begin --json
i=0
while [ $i -lt 50 ]; do
    for pad in 1 2; do
        vxpad-emulator-control unplug $pad
        vxpad-emulator-control plug $pad
    done
    i=$((i + 1))
done
await_lines 200
end
)sh");
    EXPECT_EQ(outcome.out, "status 130\n");
    const auto event = [](const char* what, const char* device) {
        return std::string("{\"event\": \"") + what + "\", \"at\": \"TIME\", " + device + "}\n";
    };
    const char* hid = R"("path": "1-1", "vendor_id": "f1a0", "product_id": "1001", "type": 16, "serial": "A")";
    const char* vcom = R"("path": "1-2", "vendor_id": "f1a0", "product_id": "7c01", "type": null, "serial": "B")";
    EXPECT_EQ(events(),
              lines(50, event("left", hid) + event("arrived", hid), event("left", vcom) + event("arrived", vcom)));
}

TEST_F(Watch, TellsPeopleInALine) {
    const auto outcome = watch({"--pad=type=1,serial=\\u001b[1m", "--vcom=named=yes,maker=Quillon Ltd,type=15",
                                "--vcom=named=yes,maker=Other"},
                               R"sh(
begin
n=0
for request in 'unplug 3' 'plug 3' 'unplug 1' 'unplug 2' 'plug 2'; do
    vxpad-emulator-control $request
    case $request in *3) ;; *) n=$((n + 1)); await_lines $n ;; esac
done
end
cat log >&2
)sh");
    EXPECT_EQ(outcome.out, "status 130\n");
    EXPECT_EQ(outcome.err, "vxpadctl: watching, Ctrl-C ends it\nvxpadctl: interrupted\n");
    EXPECT_THAT(events(), MatchesRegex("TIME  left     1-1  f1a4:0101  type 1  \\\\x1b\\[1m\n"
                                       "TIME  left     1-2  [0-9a-f]{4}:[0-9a-f]{4}  type [?]  .*\n"
                                       "TIME  arrived  1-2  [0-9a-f]{4}:[0-9a-f]{4}  type [?]  .*\n"));
}

TEST_F(Watch, TellsPadsWhoseIdsAFileAdds) {
    const std::string file = write("my.ids", "1234 5678 hid 16\n");
    const auto outcome = watch({"--pad=vendor=1234,id=5678,serial=A", "--ids=" + file}, R"sh(
begin
vxpad-emulator-control unplug 1
await_lines 1
end
)sh");
    EXPECT_EQ(outcome.out, "status 130\n");
    EXPECT_EQ(events(), "TIME  left     1-1  1234:5678  type 16  A\n");
}

// Where no udev runs nobody hears of anything: the socket on which news would come is taken away.
TEST_F(Watch, SeesWhatNoNewsTell) {
    const auto outcome = watch({"--vcom=type=16,serial=A"}, R"sh(
begin
rm "$UMOCKDEV_DIR"/monitor*
for request in 'unplug 1' 'plug 1' 'unplug 1'; do
    vxpad-emulator-control $request
    n=$((n + 1))
    await_lines $n
done
end
)sh");
    EXPECT_EQ(outcome.out, "status 130\n");
    EXPECT_EQ(events(), "TIME  left     1-1  f1a0:7c01  type ?  A\nTIME  arrived  1-1  f1a0:7c01  type ?  A\n"
                        "TIME  left     1-1  f1a0:7c01  type ?  A\n");
}

TEST_F(Watch, EndsInTimeAndWithItsReader) {
    const auto outcome = watch({"--pad=type=16"}, R"sh(
vxpadctl watch --seconds 0.1 2>/dev/null; echo status $?
mkfifo pipe
head -n 1 <pipe >first & reader=$!
vxpadctl watch >pipe 2>log & watcher=$!
until grep -qs watching log; do sleep 0.01; done
vxpad-emulator-control unplug 1
wait $reader
vxpad-emulator-control plug 1
wait $watcher; echo status $?
grep -c left first
)sh");
    EXPECT_EQ(outcome.out, "status 0\nstatus 0\n1\n");
    EXPECT_EQ(outcome.err, "");
}

TEST_F(Watch, ResultsThatCannotBeWrittenAreAFailure) {
    const auto outcome = watch({"--pad=type=16"}, R"sh(
vxpadctl watch >/dev/full 2>log & watcher=$!
until grep -qs watching log; do sleep 0.01; done
vxpad-emulator-control unplug 1
wait $watcher; echo status $?
)sh");
    EXPECT_EQ(outcome.out, "status 1\n");
    EXPECT_THAT(contents(directory_ / "log"), HasSubstr("cannot write the result: No space left on device"));
}
