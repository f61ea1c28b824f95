// The emulator's faults, met through the header for C++: pad 1 classic with two interfaces, pad 2 over VCOM. What fails
// throws the header's exception, and the pad is sound afterwards. The library's pauses are skipped but while it
// receives.
#include "vxpadcom/vxpadcom.hpp"

#include "pad_test.hpp"

#include <algorithm>
#include <cctype>
#include <gmock/gmock.h>
#include <mutex>

using namespace std::chrono_literals;
using testing::AnyOf;
using testing::HasSubstr;
using testing::StartsWith;
using vxpadcom::byte_buffer;

namespace {

constexpr unsigned int hid = 1;
constexpr unsigned int vcom = 2;

const byte_buffer components_request{0x00, 0x00, 0x00, 0x10};
const byte_buffer components_reply{0x00, 0x06, 0x00, 0x10, 0x01, 0x04, 0x05, 0x0b, 0x03, 0x01};

// As gtest wants a name.
std::string name_of(unsigned int pad, std::string fault) {
    std::ranges::replace_if(
        fault, [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
    return (pad == hid ? "hid_" : "vcom_") + fault;
}

// How an action ends: "" or what its exception says.
std::string outcome(const std::function<void()>& action) {
    try {
        action();
    } catch (const vxpadcom::error& error) {
        EXPECT_FALSE(error.function().empty());
        EXPECT_FALSE(error.message().empty());
        EXPECT_THAT(error.code(), AnyOf(VXPCEC_INVALID_HANDLE, VXPCEC_INVALID_PARAMETER, VXPCEC_UNKNOWN));
        EXPECT_EQ(error.what(), error.function() + ": " + error.message());
        return error.what();
    }
    return {};
}

class CppFaults : public testing::Test {
  protected:
    void SetUp() override {
        pads::longest_pause_us = 0;
        pads::plug_only({hid, vcom});
        session.search();
        ASSERT_EQ(session.size(), 2u);
    }

    void TearDown() override {
        SCOPED_TRACE("when the fault is gone");
        pads::longest_pause_us = 0;
        pads::plug_only({}); // what a pad has promised to send is gone with it
        pads::heal();
        session.search();
        ASSERT_EQ(session.size(), 2u);
        for (const vxpadcom::pad pad : session) {
            EXPECT_EQ(outcome([&] { expect_feature(pad, 0x90); }), "");
        }
        EXPECT_EQ(outcome([&] { EXPECT_EQ(components(), components_reply); }), "");
    }

    static void fault(unsigned int pad, const std::string& what) { pads::to_pad("fault", static_cast<int>(pad), what); }

    static byte_buffer report() {
        byte_buffer bytes(64);
        std::generate(bytes.begin(), bytes.end(),
                      [next = 0x80]() mutable { return static_cast<unsigned char>(next++); });
        return bytes;
    }

    static void expect_feature(vxpadcom::pad pad, unsigned char first) {
        byte_buffer sent = report();
        sent.front() = first;
        pad.set_feature(sent);
        EXPECT_EQ(pad.get_feature(), sent);
    }

    byte_buffer components(std::chrono::milliseconds time_out = 2s) const {
        session[vcom].send_ssp(components_request);
        return session[vcom].receive_ssp(time_out);
    }

    vxpadcom::session session;
};

// ---- one exchange under each fault ----

struct Case {
    unsigned int pad;
    const char* fault;
    std::optional<byte_buffer> answer; // how it begins; nothing: it fails
};

void PrintTo(const Case& tested, std::ostream* stream) {
    *stream << name_of(tested.pad, tested.fault);
}

class CppFaultyExchange : public CppFaults, public testing::WithParamInterface<Case> {
  protected:
    byte_buffer exchange() const {
        if (GetParam().pad == hid) {
            return session[hid].get_feature();
        }
        return components(GetParam().answer ? 2000ms : 40ms);
    }
};

INSTANTIATE_TEST_SUITE_P(
    All, CppFaultyExchange,
    testing::Values(
        // of transfers
        Case{hid, "stall,on=get-feature", {}}, Case{hid, "silence,on=get-feature", {}},
        Case{hid, "garbage,on=get-feature,count=1", byte_buffer{}}, Case{hid, "short=10,on=get-feature", {}},
        Case{hid, "delay=40,on=get-feature", byte_buffer{0x80, 0x81, 0x82}},
        Case{hid, "wrong-command,on=get-feature,count=1", byte_buffer{0x81, 0x81, 0x82}},
        Case{hid, "status=5,on=get-feature,count=1", byte_buffer{0x80, 0x05, 0x82}},
        Case{hid, "unplug,on=get-feature", {}}, Case{vcom, "unplug,on=bulk-out", {}},
        Case{vcom, "stall,on=bulk-in", {}}, Case{vcom, "silence,on=bulk-in", {}},
        // of messages
        Case{vcom, "split=1", components_reply}, Case{vcom, "merge", {}},
        Case{vcom, "delay-reply=40", components_reply}, Case{vcom, "twice", components_reply}, Case{vcom, "drop", {}},
        Case{vcom, "wrong-component", byte_buffer{0x01, 0x06, 0x00, 0x10, 0x01}},
        Case{vcom, "wrong-result", byte_buffer{0x00, 0x06, 0x00, 0x10, 0x02}}, Case{vcom, "noise=61", components_reply},
        Case{vcom, "cut=5", {}}, Case{vcom, "replace=00000010", byte_buffer{0x00, 0x00, 0x00, 0x10}},
        Case{vcom, "junk", {}}),
    [](const auto& tested) { return name_of(tested.param.pad, tested.param.fault); });

TEST_P(CppFaultyExchange, AnswersOrThrows) {
    std::vector<vxpadcom::pad> removed;
    session.on_removed([&](vxpadcom::pad pad) { removed.push_back(pad); });
    session[hid].set_feature(report());
    fault(GetParam().pad, GetParam().fault);
    byte_buffer answer;
    const std::string failure = outcome([&] { answer = exchange(); });
    session.on_removed({});
    if (GetParam().answer) {
        EXPECT_EQ(failure, "");
        ASSERT_GE(answer.size(), GetParam().answer->size());
        answer.resize(GetParam().answer->size());
        EXPECT_EQ(answer, *GetParam().answer);
    } else {
        EXPECT_THAT(failure, HasSubstr("for device: " + std::to_string(GetParam().pad)));
    }
    const bool pulls_out = std::string_view{GetParam().fault}.starts_with("unplug");
    EXPECT_EQ(removed.empty(), !pulls_out);
    EXPECT_EQ(removed.empty() || removed.front() == session[GetParam().pad], true);
}

// ---- every call under each fault ----

struct AnyCall {
    unsigned int pad;
    const char* fault;
};

void PrintTo(const AnyCall& tested, std::ostream* stream) {
    *stream << name_of(tested.pad, tested.fault);
}

class CppFaultyCalls : public CppFaults, public testing::WithParamInterface<AnyCall> {};

// Over VCOM what makes no sense is like what does not come, and that takes seconds.
std::vector<AnyCall> any_calls() {
    std::vector<AnyCall> all;
    for (const char* fault : {"stall", "silence,count=1", "garbage", "short=1", "delay=5", "wrong-command", "status=5",
                              "unplug", "unplug,after=2"}) {
        all.push_back({hid, fault});
    }
    for (const char* fault :
         {"stall", "silence,count=1", "garbage", "delay=5", "unplug", "unplug,after=2", "split=3", "merge",
          "delay-reply=5", "twice", "wrong-component", "wrong-result", "noise=7", "junk"}) {
        all.push_back({vcom, fault});
    }
    return all;
}

INSTANTIATE_TEST_SUITE_P(All, CppFaultyCalls, testing::ValuesIn(any_calls()),
                         [](const auto& tested) { return name_of(tested.param.pad, tested.param.fault); });

TEST_P(CppFaultyCalls, EndWithAResultOrTheOneException) {
    const vxpadcom::pad pad = session[GetParam().pad];
    const std::vector<std::function<void()>> calls{
        [&] { EXPECT_THAT(pad.serial_number(), StartsWith(pad.number() == hid ? "A" : "B")); },
        [&] { EXPECT_EQ(pad.report_size(), 64u); },
        [&] { EXPECT_EQ(pad.get_feature().size(), 64u); },
        [&] { pad.set_feature(report()); },
        [&] { pad.write(report()); },
        [&] { static_cast<void>(pad.read()); },
        [&] { EXPECT_LE(pad.upload(byte_buffer(1000)).sent, 1000u); },
        [&] { pad.send_ssp(components_request); },
        [&] { EXPECT_LE(pad.receive_ssp(20ms).size(), 4096u); },
        [&] {
            pads::longest_pause_us = 500;
            vxpadcom::reception reports{pad};
            static_cast<void>(reports.next(50ms));
        },
    };
    for (const auto& call : calls) {
        pads::to_pad("clear-faults", static_cast<int>(pad.number()));
        fault(pad.number(), GetParam().fault);
        pads::longest_pause_us = 0;
        outcome(call);
    }
}

// ---- receiving under each fault ----

class CppFaultyReception : public CppFaults, public testing::WithParamInterface<AnyCall> {};

INSTANTIATE_TEST_SUITE_P(All, CppFaultyReception,
                         testing::Values(AnyCall{hid, "stall,on=input"}, AnyCall{hid, "garbage,on=input"},
                                         AnyCall{hid, "short=10,on=input"}, AnyCall{hid, "delay=5,on=input"},
                                         AnyCall{hid, "wrong-command,on=input"}, AnyCall{hid, "status=5,on=input"},
                                         AnyCall{vcom, "split=3,on=pen"}, AnyCall{vcom, "merge,on=pen"},
                                         AnyCall{vcom, "delay-reply=5,on=pen"}, AnyCall{vcom, "twice,on=pen"},
                                         AnyCall{vcom, "drop,on=pen"}, AnyCall{vcom, "noise=7,on=pen"},
                                         AnyCall{vcom, "cut=3,on=pen"}, AnyCall{vcom, "replace=bf10,on=pen"}),
                         [](const auto& tested) { return name_of(tested.param.pad, tested.param.fault); });

TEST_P(CppFaultyReception, GoesOn) {
    pads::longest_pause_us = 1'000'000; // all of them
    vxpadcom::reception reports{session[GetParam().pad]};
    fault(GetParam().pad, GetParam().fault + std::string{",count=3,after=5"});
    pads::to_pad("play", static_cast<int>(GetParam().pad), "loop 200");
    for (int i = 0; i < 30; ++i) {
        ASSERT_EQ(outcome([&] { EXPECT_TRUE(reports.next(10s)); }), "") << i;
    }
    pads::to_pad("stop", static_cast<int>(GetParam().pad));
}

TEST_F(CppFaults, APadThatIsPulledOutWhileItSendsEndsItsReceptionOnly) {
    pads::longest_pause_us = 1'000'000;
    for (const auto& [pad, other, what] :
         {std::tuple{hid, vcom, "unplug,on=input,after=5"}, {vcom, hid, "unplug,on=pen,after=5"}}) {
        SCOPED_TRACE(what);
        session.search();
        vxpadcom::reception lost{session[pad]};
        vxpadcom::reception stays{session[other]};
        if (pad == hid) {
            fault(pad, what);
        }
        pads::to_pad("play", static_cast<int>(pad), "loop 200");
        pads::to_pad("play", static_cast<int>(other), "loop 200");
        if (pad == vcom) {
            ASSERT_TRUE(lost.next(10s));
            pads::to_pad("unplug", static_cast<int>(pad));
        }
        std::string end;
        while (end.empty()) {
            end = outcome([&] { EXPECT_TRUE(lost.next(10s)); });
        }
        EXPECT_EQ(end, "reception: pad " + std::to_string(pad) + " was removed");
        EXPECT_EQ(outcome([&] { EXPECT_TRUE(stays.next(10s)); }), "");
        pads::to_pad("stop", static_cast<int>(other));
        pads::heal();
    }
}

TEST_F(CppFaults, AnUploadBeginsAnewAfterOneThatWasBrokenOff) {
    const byte_buffer data(200'000, 0x55);
    std::size_t parts = 0;
    const auto broken = session[hid].upload(data, vxpadcom::pad::all_interfaces, [&](vxpadcom::upload_progress) {
        if (++parts == 1) {
            fault(hid, "unplug,on=set-feature,after=100");
        }
    });
    EXPECT_EQ(parts, 2u);
    EXPECT_LT(broken.sent, broken.total);
    EXPECT_GE(broken.sent, 65536u);
    pads::heal();
    session.search();
    EXPECT_EQ(session[hid].upload(data).sent, data.size());
    EXPECT_THAT(emulator::request("uploads 1"), HasSubstr("received=3125 ")); // since it was plugged in
}

} // namespace
