// Log lines, records, refused arguments, and the tools that are exported.
#include "captures.hpp"
#include "scenarios/families.hpp"
#include "scenarios/steps.hpp"

#include <unistd.h>

#include <array>
#include <cstdlib>
#include <initializer_list>
#include <utility>

namespace faults {

using standins::EnvironmentGuard;
using standins::LogCapture;

namespace {

void with_logging_callback(Run& run) {
    plug_hid();
    const VcomPad second;
    expect_pads(run, 2);
    {
        const LogCapture log;
        run.expect_healthy(set_feature(run, 1) && write_file(run, 2), "a pad does not answer");
        start(run);
    }
    stop(run);
}

void with_trace_lines(Run& run) {
    const EnvironmentGuard information("LIBVXPADCOM_DEBUG", "1");
    const EnvironmentGuard functions("LIBVXPADCOM_DEBUG_FUNC", "1");
    const EnvironmentGuard locks("LIBVXPADCOM_DEBUG_MUTEX", "1");
    plug_hid();
    start(run);
    stop(run);
}

void records_and_texts(Run& run) {
    plug_hid();
    expect_pads(run, 1);
    std::array<char16_t, 64> text{};
    unsigned int reply = 0;
    const int handle = GetFeature(9, 0, text.data(), 65, &reply);
    run.api("GetFeature", handle);
    const auto number = static_cast<unsigned int>(handle);
    for (const auto& [function, get] : std::initializer_list<std::pair<const char*, decltype(&GetExceptionName)>>{
             {"GetExceptionType", GetExceptionType},
             {"GetExceptionName", GetExceptionName},
             {"GetExceptionMessage", GetExceptionMessage},
             {"TranslateErrorCode", TranslateErrorCode}}) {
        run.api(function, get(number, text.data(), 64, &reply), {VXPCEC_UNKNOWN});
    }
    run.api("GetExceptionCode", GetExceptionCode(number, &reply), {VXPCEC_UNKNOWN});
    run.api("GetExceptionCode", GetExceptionCode(62, &reply), {VXPCEC_UNKNOWN});
    run.api("SayHello", SayHello(u"hello", text.data(), 64, &reply), {VXPCEC_INVALID_PARAMETER});
    stop(run);
}

void wrong_arguments(Run& run) {
    plug_hid();
    expect_pads(run, 1);
    const std::initializer_list<int> wrong{VXPCEC_INVALID_PARAMETER};
    std::array<unsigned char, 65> report{};
    unsigned int reply = 0;
    run.api("SetFeature", SetFeature(1, 0, nullptr, 65, &reply), wrong);
    run.api("GetFeature", GetFeature(1, 0, report.data(), 1, &reply), wrong);
    run.api("WriteFile", WriteFile(1, 0, report.data(), 65, nullptr), wrong);
    run.api("ReadFile", ReadFile(1, 0, nullptr, 65, &reply), wrong);
    run.api("WriteFileBuffer", WriteFileBuffer(1, 1, nullptr, 65, &reply), wrong);
    run.api("SendSspMessage", SendSspMessage(1, 0, nullptr, 4), wrong);
    run.api("ReceiveSspMessage", ReceiveSspMessage(1, 0, nullptr, 4, 10, &reply), wrong);
    run.api("GetSerialNumber", GetSerialNumber(1, nullptr, 4, &reply), wrong);
    run.api("SetOnDataReceivedHandler", SetOnDataReceivedHandler(99, 0, nullptr, nullptr));
    run.api("GetFeature", GetFeature(99, 0, report.data(), 65, &reply));
    run.api("GetFeature", GetFeature(1, 77, report.data(), 65, &reply));
    stop(run);
}

void files(Run& run) {
    std::array<char, 32> name{"/tmp/vxpad-faults-XXXXXX"};
    const int made = mkstemp(name.data());
    run.expect(made >= 0, "no file can be made here");
    close(made);
    const Bytes content(5000, 1);
    const long saved = save_file(name.data(), content.data(), 5000);
    run.plain("save_file", static_cast<int>(saved));
    run.expect(saved == 5000 || saved == -1, "save_file returns something else");
    unsigned int size = 0;
    unsigned char* const loaded = load_file(name.data(), &size);
    run.plain("load_file", loaded == nullptr ? -1 : static_cast<int>(size));
    run.expect_healthy(loaded != nullptr && size == 5000, "the file does not come back");
    given_up(loaded);
    unlink(name.data());
}

void queues(Run& run) {
    uni_queue* const queue = init_uni_queue();
    run.plain("init_uni_queue", queue == nullptr ? -1 : 0);
    if (queue == nullptr) {
        return;
    }
    for (int i = 0; i < 3; ++i) {
        void* const data = Malloc(10);
        if (run.plain("add_uni_frame", add_uni_frame(queue, data, 10)) != 1) {
            given_up(data);
        }
    }
    unsigned int length = 0;
    given_up(get_uni_frame(queue, &length));
    run.plain("get_uni_queue_size", get_uni_queue_size(queue));
    destroy_uni_queue(queue);
}

constexpr Scenario scenarios_here[]{
    {"logging-callback", with_logging_callback},
    {"trace-lines", with_trace_lines},
    {"records-and-texts", records_and_texts},
    {"wrong-arguments", wrong_arguments},
    {"files", files},
    {"queues", queues},
};

} // namespace

std::span<const Scenario> diagnosis() {
    return scenarios_here;
}

} // namespace faults
