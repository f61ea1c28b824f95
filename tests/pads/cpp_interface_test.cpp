// The header for C++ on virtual pads: 1 classic with two interfaces, 2 over VCOM.
#include "vxpadcom/vxpadcom.hpp"

#include "pad_test.hpp"

#include <gmock/gmock.h>
#include <mutex>
#include <span>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using namespace std::chrono_literals;

namespace {

class CppInterface : public testing::Test {
  protected:
    void SetUp() override {
        pads::heal();
        emulator::request("stop 1");
        emulator::request("stop 2");
        session.search();
        ASSERT_EQ(session.size(), 2u);
    }

    vxpadcom::session session;
};

unsigned long number_in(const vxpadcom::byte_buffer& report) {
    unsigned long number = 0;
    for (const std::size_t at : {11u, 10u, 9u, 8u}) {
        number = number << 8 | report[at];
    }
    return number;
}

TEST_F(CppInterface, PadsTellWhoTheyAre) {
    const vxpadcom::pad pad = session[1];
    EXPECT_EQ(pad.number(), 1u);
    EXPECT_EQ(pad.serial_number(), "A1");
    EXPECT_EQ(pad.product_name(), "Pad \ufffd");
    EXPECT_EQ(pad.vendor_name(), "ACME");
    EXPECT_EQ(pad.interface_count(), 2u);
    EXPECT_EQ(pad.report_size(), 64u);
    EXPECT_NE(pad.vendor_id(), 0u);
    EXPECT_NE(pad.product_id(), 0u);
    EXPECT_EQ(pad, vxpadcom::pad{1});
    EXPECT_NE(pad, session[2]);
}

// What an action's exception says.
template <class Action> std::string failure_of(Action action) {
    try {
        action();
    } catch (const vxpadcom::error& error) {
        return error.what();
    }
    return "nothing is thrown";
}

TEST_F(CppInterface, APadThatIsNotThereIsToldInASentence) {
    EXPECT_EQ(failure_of([&] { static_cast<void>(session[0]); }),
              "session: there is no pad 0: only 1 to 2 ('vxpadctl list' tells why)");
    EXPECT_EQ(failure_of([&] { static_cast<void>(session[3]); }),
              "session: there is no pad 3: only 1 to 2 ('vxpadctl list' tells why)");
    emulator::request("unplug 1");
    emulator::request("unplug 2");
    session.search();
    EXPECT_EQ(failure_of([&] { static_cast<void>(session[1]); }),
              "session: there is no pad 1: none was found ('vxpadctl list' tells why)");
}

TEST_F(CppInterface, OnlyOneSessionAtATime) {
    EXPECT_THROW(vxpadcom::session{}, vxpadcom::error);
    EXPECT_EQ(session[1].serial_number(), "A1") << "it does no harm to the one that there is";
}

TEST_F(CppInterface, TextBecomesUtf8) {
    EXPECT_EQ(vxpadcom::to_utf8(u"a\u00e9\u20ac\U0001f58a"), "a\u00e9\u20ac\U0001f58a");
    const char16_t broken[] = {0xd83d, u'x', 0xdc00, 0xffff, 0};
    EXPECT_EQ(vxpadcom::to_utf8({broken, 5}), "\ufffdx\ufffd\ufffd");
}

TEST_F(CppInterface, ReportsGoThereAndBack) {
    vxpadcom::byte_buffer report(64);
    for (std::size_t i = 0; i < report.size(); ++i) {
        report[i] = static_cast<unsigned char>(0x80 + i);
    }
    session[1].set_feature(report);
    EXPECT_EQ(session[1].get_feature(), report);
    session[1].set_feature(std::span<const unsigned char>{report}, 1);
    EXPECT_EQ(session[1].get_feature(1, 64), report);
    session[1].write(report);

    EXPECT_EQ(session[1].read(), std::nullopt);
    emulator::request("input 1 0 0102ff");
    std::optional<vxpadcom::byte_buffer> input;
    ASSERT_TRUE(pads::wait_for([&] { return (input = session[1].read()).has_value(); }));
    EXPECT_EQ(input->size(), 64u);
    EXPECT_EQ((*input)[2], 0xff);
}

TEST_F(CppInterface, AFailureHasCodeFunctionAndMessage) {
    try {
        session[1].get_feature(0, 0);
        FAIL() << "nothing is thrown";
    } catch (const vxpadcom::error& error) {
        EXPECT_EQ(error.code(), VXPCEC_INVALID_PARAMETER);
        EXPECT_EQ(error.function(), "GetFeature");
        EXPECT_THAT(error.message(), HasSubstr("dst_length"));
        EXPECT_THAT(error.what(), StartsWith("GetFeature: "));
    }
    EXPECT_THROW(vxpadcom::pad{9}.serial_number(), vxpadcom::error);
}

TEST_F(CppInterface, AnUploadArrivesWithProgress) {
    emulator::request("reset-uploads 1");
    const vxpadcom::byte_buffer data(256'000, 0x55);
    std::vector<std::size_t> sent;
    const auto upload = session[1].upload(data, vxpadcom::pad::all_interfaces,
                                          [&](vxpadcom::upload_progress progress) { sent.push_back(progress.sent); });
    EXPECT_EQ(upload.sent, data.size());
    EXPECT_EQ(upload.total, data.size());
    EXPECT_THAT(sent, ElementsAre(65536, 131072, 196608, 256000));
    EXPECT_THAT(emulator::request("uploads 1"), HasSubstr("received=4000 "));
    EXPECT_EQ(session[1].upload({}).total, 0u);
}

TEST_F(CppInterface, SspMessagesGoThereAndBack) {
    const unsigned char which_components[] = {0x00, 0x00, 0x00, 0x10};
    session[2].send_ssp(which_components);
    const auto reply = session[2].receive_ssp(1s);
    ASSERT_GT(reply.size(), 4u);
    EXPECT_EQ(reply[3], 0x10);
    EXPECT_THROW(session[2].receive_ssp(20ms), vxpadcom::error);
}

// Numbers of the next reports.
std::vector<unsigned long> numbers_of(vxpadcom::reception& reports, std::size_t count) {
    std::vector<unsigned long> numbers;
    while (numbers.size() < count) {
        const auto report = reports.next(5s);
        if (!report) {
            ADD_FAILURE() << "no report after " << numbers.size();
            break;
        }
        numbers.push_back(number_in(*report));
    }
    return numbers;
}

TEST_F(CppInterface, EveryReportComesInOrder) {
    vxpadcom::reception reports{session[2]};
    emulator::request("play 2 1000 500");
    const auto numbers = numbers_of(reports, 1000);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        ASSERT_EQ(numbers[i], numbers[0] + i);
    }
    EXPECT_EQ(reports.lost(), 0u);
}

TEST_F(CppInterface, InputReportsComeInOrder) {
    vxpadcom::reception reports{session[1]};
    emulator::request("play 1 loop 500");
    // hidapi keeps 32 reports: on a machine that is busy elsewhere for long it drops some
    EXPECT_THAT(numbers_of(reports, 200), testing::Truly([](const std::vector<unsigned long>& numbers) {
                    return std::adjacent_find(numbers.begin(), numbers.end(), std::greater_equal<>{}) == numbers.end();
                }));
}

TEST_F(CppInterface, AReceiverCallsUntilItsEnd) {
    std::atomic<int> calls = 0;
    {
        vxpadcom::receiver receiver{session[1], [&](vxpadcom::bytes report) {
                                        EXPECT_EQ(report.size(), 64u);
                                        ++calls;
                                    }};
        EXPECT_EQ(failure_of([&] { vxpadcom::reception{session[1]}; }),
                  "receiver: interface 0 of pad 1 is being received from already");
        emulator::request("play 1 loop 500");
        ASSERT_TRUE(pads::wait_for([&] { return calls >= 20; }));
    }
    const int at_its_end = calls;
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(calls, at_its_end);
    vxpadcom::reception another{session[1]};
    EXPECT_TRUE(another.next(5s));
}

TEST_F(CppInterface, AReceiverThatCannotStartLeavesNothingBehind) {
    EXPECT_THROW((vxpadcom::reception{session[1], 9}), vxpadcom::error);
    EXPECT_EQ(failure_of([&] { vxpadcom::reception(session[1], 7); }), "receiver: there is no interface 7 of pad 1");
    EXPECT_EQ(failure_of([&] { vxpadcom::reception(vxpadcom::pad{3}); }),
              "SetDataReceivingEnabled: interface 0 of pad 3 cannot be received from");
    EXPECT_THROW(vxpadcom::reception{vxpadcom::pad{9}}, vxpadcom::error);
    EXPECT_NO_THROW(vxpadcom::reception{session[1]});
}

TEST_F(CppInterface, ARemovalIsTold) {
    std::mutex lock;
    std::vector<unsigned int> removed;
    session.on_removed([&](vxpadcom::pad pad) {
        const std::lock_guard guard{lock};
        removed.push_back(pad.number());
    });
    vxpadcom::reception reports{session[1]};
    EXPECT_EQ(reports.next(10ms), std::nullopt);
    emulator::request("input 1 0 01");
    EXPECT_TRUE(reports.next(5s));
    emulator::request("unplug 1");
    EXPECT_THROW(reports.next(10s), vxpadcom::error);
    EXPECT_TRUE(pads::wait_for([&] {
        const std::lock_guard guard{lock};
        return !removed.empty() && removed.front() == 1;
    }));
    EXPECT_THROW(session[1].get_feature(), vxpadcom::error);
    session.on_removed({});
}

TEST_F(CppInterface, ASearchEndsReceiving) {
    vxpadcom::reception reports{session[1]};
    std::atomic<int> ends = 0;
    const vxpadcom::receiver receiver{session[1], [](vxpadcom::bytes) {}, 1, {}, [&] { ++ends; }};
    session.search();
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(failure_of([&] { reports.next(std::chrono::milliseconds::max()); }),
              "reception: the session has ended, or searched again");
    vxpadcom::reception again{session[1]};
    { const vxpadcom::reception of_the_other_interface{session[1], 1}; }
    emulator::request("input 1 0 01");
    EXPECT_TRUE(again.next(5s));
}

TEST_F(CppInterface, MessagesAreToldAcrossSearches) {
    std::mutex lock;
    std::vector<std::string> messages;
    session.on_log([&](const std::string& message) {
        const std::lock_guard guard{lock};
        messages.push_back(message);
    });
    session.search();
    EXPECT_THROW(session[1].get_feature(0, 0), vxpadcom::error);
    session.on_log({});
    const std::lock_guard guard{lock};
    EXPECT_THAT(messages, testing::Contains(HasSubstr("dst_length is <= 1")));
}

} // namespace
