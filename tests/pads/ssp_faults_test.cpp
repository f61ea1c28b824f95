// Pads that speak SSP and misbehave, on both transports. The library's pauses are skipped.
#include "ssp_pad_test.hpp"

#include <algorithm>
#include <cstring>

using namespace pads;

namespace {

// What fails does so soon; what succeeds is given all the time that a busy machine may take.
constexpr unsigned int short_time_out = 40;
constexpr unsigned int long_time_out = 2000;

const MessageAnswer right_answer{{}, components_reply};
const MessageAnswer send_fails{send_failure, {}};
const MessageAnswer receive_fails{receive_failure, {}};

MessageAnswer answer(const Bytes& message) {
    return {{}, message};
}

// As gtest wants a name.
std::string name_of(std::string text) {
    std::ranges::replace_if(
        text, [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
    return text;
}

// ---- one exchange ----

struct Case {
    Transport transport;
    const char* fault;
    MessageAnswer expected;
    double at_most = 0.5; // seconds
};

void PrintTo(const Case& tested, std::ostream* stream) {
    *stream << tested.transport.name << " " << tested.fault;
}

std::vector<Case> cases() {
    // What went wrong before it reached the library is the same on both transports.
    std::vector<Case> all;
    for (const auto& transport : {hid, vcom}) {
        const std::vector<Case> of_messages{
            {transport, "drop", receive_fails},
            {transport, "merge", receive_fails},
            {transport, "noise=1", right_answer},
            {transport, "noise=61,seed=1", right_answer},
            {transport, "noise=5000,seed=2", right_answer},
            {transport, "wrong-component", answer({0x01, 0x06, 0x00, 0x10, 0x01, 0x04, 0x05, 0x0b, 0x03, 0x01})},
            {transport, "wrong-result", answer({0x00, 0x06, 0x00, 0x10, 0x02, 0x04, 0x05, 0x0b, 0x03, 0x01})},
            {transport, "junk", receive_fails},
            // Lengths that lie. Of what is missing nothing may come from anywhere else.
            {transport, "replace=00000010", answer({0x00, 0x00, 0x00, 0x10})},
            {transport, "replace=0000001001040b", answer({0x00, 0x00, 0x00, 0x10})},
            {transport, "replace=00ffff10010405", receive_fails},
            {transport, "replace=c510", receive_fails},
            {transport, "replace=80bf", answer({0x80, 0xbf})},
        };
        all.insert(all.end(), of_messages.begin(), of_messages.end());
    }
    Bytes filled(3 + 0x0201);
    std::ranges::copy(Bytes{0x00, 0x00, 0x02, 0x10}, filled.begin());
    const std::vector<Case> of_transports{
        {vcom, "delay-reply=40", right_answer}, // on a HID pad the pauses between the questions are skipped
        {vcom, "split=1", right_answer},
        {vcom, "split=5", right_answer},
        {vcom, "replace=00000210", receive_fails},
        {vcom, "replace=00", receive_fails},
        {vcom, "replace=bf10", receive_fails},
        {vcom, "stall,on=bulk-out", right_answer},
        {vcom, "stall,on=bulk-in", receive_fails},
        {vcom, "silence,on=bulk-in", receive_fails},
        {vcom, "silence,on=bulk-out", right_answer, 1.5},
        {vcom, "delay=40,on=bulk", right_answer},
        {vcom, "garbage,on=bulk-in", receive_fails},
        {vcom, "garbage,on=bulk-out", receive_fails},
        {vcom, "wrong-command,on=bulk-in", receive_fails},
        {vcom, "wrong-command,on=bulk-out", receive_fails},
        {vcom, "status=170,on=bulk-in", receive_fails},
        {vcom, "short=0,on=bulk-in", receive_fails},
        {vcom, "short=4,on=bulk-in", receive_fails},
        {vcom, "short=0,on=bulk-out", receive_fails},
        {vcom, "short=5,on=bulk-out", receive_fails},
        // A report's zeros complete what the pad has left out.
        {hid, "split=62", right_answer},
        {hid, "split=5", answer({0x00, 0x06, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00})},
        {hid, "replace=00000210", answer(filled)},
        {hid, "replace=00", answer({0x00, 0x00, 0x00, 0x00})},
        {hid, "stall,on=set-feature", right_answer},
        {hid, "stall,on=get-feature", right_answer},
        {hid, "silence,on=set-feature", send_fails, 1.5},
        {hid, "silence,on=get-feature", receive_fails, 1.5},
        {hid, "delay=40", right_answer},
        // The pad has handed its reply out, to be lost on the way.
        {hid, "garbage,on=get-feature", receive_fails},
        {hid, "wrong-command,on=get-feature", receive_fails},
        {hid, "status=5,on=get-feature", receive_fails},
        {hid, "short=0,on=get-feature", receive_fails},
        {hid, "short=63,on=get-feature", receive_fails},
        {hid, "garbage,on=set-feature", receive_fails},
        {hid, "wrong-command,on=set-feature", receive_fails},
        {hid, "short=0,on=set-feature", receive_fails},
    };
    all.insert(all.end(), of_transports.begin(), of_transports.end());
    return all;
}

class FaultyExchange : public testing::TestWithParam<Case> {
  protected:
    void SetUp() override {
        plug_only({pad()});
        ASSERT_EQ(Initialize(), 0);
    }
    void TearDown() override {
        Deinitialize();
        plug_only({});
    }
    static int pad() { return GetParam().transport.pad; }
};

INSTANTIATE_TEST_SUITE_P(All, FaultyExchange, testing::ValuesIn(cases()), [](const auto& tested) {
    return name_of(tested.param.transport.name + std::string("_") + tested.param.fault);
});

TEST_P(FaultyExchange, EndsAsDocumentedAndLeavesAUsablePad) {
    const Removals removals;
    to_pad("fault", pad(), GetParam().fault + std::string(",count=1"));
    MessageAnswer got;
    const auto time_out = GetParam().expected == receive_fails ? short_time_out : long_time_out;
    const auto seconds = seconds_of([&] { got = exchange_messages(components_request, time_out); });
    EXPECT_EQ(got, GetParam().expected);
    EXPECT_LT(seconds, patience(GetParam().at_most));
    to_pad("clear-faults", pad());
    if (std::string(GetParam().fault) == "junk") { // it has no end
        to_pad("unplug", pad());
        to_pad("plug", pad());
        EXPECT_EQ(Initialize(), 0);
    } else {
        drop_late_replies(); // nothing tells the library whether a message answers this request or an older one
    }
    EXPECT_EQ(exchange_messages(components_request), right_answer);
}

class SspFaults : public SspPad {
  protected:
    void SetUp() override {
        SspPad::SetUp();
        initialize();
    }

    static void expect_usable_pad() {
        to_pad("clear-faults", pad());
        drop_late_replies();
        EXPECT_EQ(exchange_messages(components_request), right_answer);
    }
};

INSTANTIATE_TEST_SUITE_P(On, SspFaults, testing::Values(hid, vcom), name_of_transport);

TEST_P(SspFaults, MessagesMayBeCutAtEveryByte) {
    const auto whole = framed(components_reply);
    for (std::size_t cut = 0; cut < whole.size(); ++cut) {
        fault("cut=" + std::to_string(cut) + ",count=1");
        // A HID pad's report goes on with zeros, which complete the message if its token has come.
        auto message = components_reply;
        std::fill(message.begin() + static_cast<std::ptrdiff_t>(cut < 3 ? 0 : cut - 3), message.end(),
                  static_cast<unsigned char>(0));
        message.resize(4U + message[1]);
        const bool completed = !GetParam().is_vcom() && cut >= 3;
        EXPECT_EQ(exchange_messages(components_request, short_time_out), completed ? answer(message) : receive_fails)
            << "cut at " << cut;
        EXPECT_EQ(exchange_messages(components_request), right_answer) << "after a cut at " << cut;
    }
}

TEST_P(SspFaults, ALateReplyComesBeforeTheNextOne) {
    fault("delay-reply=100,count=1");
    EXPECT_EQ(exchange_messages(components_request, short_time_out), receive_fails);
    MessageAnswer late;
    EXPECT_TRUE(wait_for([&] {
        late = receive_message(100);
        return late.failure == Failure{};
    }));
    EXPECT_EQ(late, right_answer);
    expect_usable_pad();
}

TEST_P(SspFaults, WhatIsNoMessageIsPassedOver) {
    for (const Bytes& nonsense : {Bytes{0xaa}, Bytes{0xaa, 0x55}, Bytes{0xaa, 0x55, 0x01}, Bytes{0x55, 0x02},
                                  Bytes{0xaa, 0xaa, 0x55, 0xaa}, Bytes(200, 0xaa), Bytes(1, 0), Bytes(5000, 0)}) {
        put_into_stream(pad(), nonsense);
        EXPECT_EQ(receive_message(short_time_out), receive_fails) << hex(nonsense).substr(0, 20);
        put_into_stream(pad(), nonsense);
        EXPECT_EQ(exchange_messages(components_request), right_answer) << hex(nonsense).substr(0, 20);
    }
    Bytes tokens;
    for (int i = 0; i < 100; ++i) {
        tokens = tokens + Bytes{0xaa, 0x55, 0x02};
    }
    put_into_stream(pad(), tokens);
    EXPECT_EQ(exchange_messages(components_request).failure, Failure{});
    expect_usable_pad();
}

TEST_P(SspFaults, AFloodWithoutATokenEndsWithTheTimeOut) {
    constexpr unsigned int ample = 60'000; // reading that much takes as long as the machine does
    put_into_stream(pad(), Bytes(20000, 0x55));
    EXPECT_EQ(exchange_messages(components_request, ample), right_answer);
    fault("junk");
    MessageAnswer got;
    EXPECT_LT(seconds_of([&] { got = exchange_messages(components_request, short_time_out); }), patience(30));
    EXPECT_EQ(got, receive_fails);
    fault("unplug,count=1");
    exchange_messages(components_request);
    expect_sound_pad();
}

// As long as the buffer for one read holds it.
TEST_P(SspFaults, MessagesAreBoundedInSize) {
    const std::size_t longest = GetParam().is_vcom() ? 4096 - 3 : 66 * 62 - 3; // whole reports
    const auto message = [](std::size_t size) { return base_message(0x7f, Bytes(size - 3, 0x33)); };
    put_into_stream(pad(), framed(message(longest)));
    EXPECT_EQ(receive_message(1000, 8192), answer(message(longest)));
    put_into_stream(pad(), framed(message(6000)) + framed(components_reply));
    EXPECT_EQ(receive_message(1000, 8192), right_answer) << "what was too long is passed over";
    expect_usable_pad();
    put_into_stream(pad(), framed(message(30000)));
    EXPECT_EQ(receive_message(200, 8192), receive_fails);
    expect_usable_pad();
}

TEST_P(SspFaults, PenDataInsteadOfAReplyIsNoReply) {
    fault("replace=c5010203040506,count=1");
    EXPECT_EQ(exchange_messages(components_request, short_time_out), receive_fails);
    fault("drop,on=pen");
    to_pad("pen", pad(), "0102");
    expect_usable_pad();
}

TEST_P(SspFaults, AnyBytesDoNoHarm) {
    for (unsigned int seed = 0; seed < 200; ++seed) {
        put_into_stream(pad(), numbered_bytes(1 + seed * 7 % 300, seed));
        const auto got = exchange_messages(components_request, short_time_out);
        if (got.failure != Failure{}) {
            EXPECT_EQ(got, receive_fails);
        } else {
            EXPECT_GT(got.message.size(), 1U);
        }
    }
    expect_usable_pad();
}

// ---- replies of components ----

struct Request {
    const char* name;
    unsigned char component;
    unsigned char message_id;
    int (*ask)(vx_device* device);
};

const std::vector<Request> requests{
    {"components", 0, 0x10,
     [](vx_device* device) {
         std::memset(device->components_id_table, 0, sizeof device->components_id_table);
         return ssp_common_components_id_initialize_table(device);
     }},
    {"description", signpad_id, 0x10, ssp_common_get_pad_description},
    {"pen data", signpad_id, 0x11, [](vx_device* device) { return ssp_biodata_sending(device, 0); }},
    {"modes", signpad_id, 0x12,
     [](vx_device* device) {
         std::memset(device->modes_id_table, 0, sizeof device->modes_id_table);
         return ssp_common_ct_signpad_initialize_modes_id_table(device);
     }},
    {"user input", signpad_id, 0x13, ssp_common_get_user_input},
    {"button", signpad_id, 0x13, [](vx_device* device) { return ssp_common_get_button_event(device, 5); }},
    {"refresh", signpad_id, 0x13, ssp_common_doc_view_buttons_refresh},
    {"state", handler_id, 0x10, ssp_common_get_conf_state},
    {"connection", communication_id, 0x10, ssp_common_ct_communication_get_current_connection},
};

class FaultyReply : public SspPad {
  protected:
    void TearDown() override {
        record_.reset();
        SspPad::TearDown();
    }

    vx_device* record() {
        if (!record_) {
            record_ = std::make_unique<OwnRecord>();
            for (const auto& request : requests) { // each table is filled
                EXPECT_GE(request.ask(record_->get()), 0) << request.name;
            }
        }
        return record_->get();
    }

    // The result of one request that is answered with these bytes.
    int result_of(int (*ask)(vx_device* device), const Bytes& reply) {
        vx_device* device = record();
        fault("replace=" + hex(reply) + ",count=1");
        const int result = ask(device);
        to_pad("clear-faults", pad());
        return result;
    }

  private:
    std::unique_ptr<OwnRecord> record_;
};

INSTANTIATE_TEST_SUITE_P(On, FaultyReply, testing::Values(hid, vcom), name_of_transport);

TEST_P(FaultyReply, IsAFailure) {
    for (const auto& [name, component, id, ask] : requests) {
        SCOPED_TRACE(name);
        std::vector<Bytes> replies{
            base_message(component, {static_cast<unsigned char>(id + 1), 1, 1, 1, 1}),
            base_message(component, {id, 0, 1, 1, 1}),
            base_message(static_cast<unsigned char>(component + 1), {id, 1, 1, 1, 1}),
            base_message(component, {id, 2}),
            base_message(component, {id}),
            base_message(component, {0}),
            legacy_message({0, 0, id, 1, 1}),
        };
        if (id != 0x11) { // which answers with nothing else
            replies.push_back(base_message(component, {id, 1}));
        }
        if (id == 0x13) { // the mode, but no button
            replies.push_back(base_message(component, {id, 1, 1}));
        }
        for (const auto& reply : replies) {
            EXPECT_EQ(result_of(ask, reply), -1) << hex(reply);
            EXPECT_GE(ask(record()), 0) << "after " << hex(reply);
        }
    }
}

TEST_P(FaultyReply, IsReadOnlyAsFarAsItCame) {
    const auto& components = requests[0];
    const auto& description = requests[1];
    const auto& modes = requests[3];
    vx_device* device = record();

    // The two counts say 255.
    EXPECT_EQ(result_of(components.ask, base_message(0, {0x10, 1, 255, 7, 11})), 0);
    EXPECT_EQ(Bytes(device->components_id_table, device->components_id_table + 4), (Bytes{7, 11, 0, 0}));
    EXPECT_EQ(components.ask(device), 0);
    EXPECT_EQ(result_of(modes.ask, base_message(signpad_id, {0x12, 1, 255, 9, 0, 0, 0, 5, 0})), 0);
    EXPECT_EQ(device->modes_id_table[0], 9U);
    EXPECT_EQ(device->modes_id_table[1], 0U) << "half a number is none";
    EXPECT_EQ(modes.ask(device), 0);

    // More than the tables hold.
    EXPECT_EQ(result_of(components.ask, base_message(0, Bytes{0x10, 1, 200} + Bytes(200, 9))), 0);
    EXPECT_EQ(Bytes(device->components_id_table, device->components_id_table + 128), Bytes(128, 9));
    EXPECT_EQ(components.ask(device), 0);
    EXPECT_EQ(result_of(modes.ask, base_message(signpad_id, Bytes{0x12, 1, 255} + Bytes(4 * 255, 9))), 0);
    EXPECT_EQ(device->modes_id_table[31], 0x09090909U);
    EXPECT_EQ(modes.ask(device), 0);
    for (const auto& [component, request] : {std::pair{Bytes{0x10, 1, 0}, components}, {Bytes{0x12, 1, 0}, modes}}) {
        EXPECT_EQ(result_of(request.ask, base_message(request.component, component)), -1) << "none at all";
        EXPECT_EQ(request.ask(device), 0);
    }

    // The serial number's length says 255.
    Bytes payload{0x10, 1};
    payload.resize(30, 1);
    EXPECT_EQ(result_of(description.ask, base_message(signpad_id, payload + Bytes{255, 's', 'n'})), 0);
    EXPECT_STREQ(device->serial_number, "sn");
    EXPECT_EQ(result_of(description.ask, base_message(signpad_id, payload + Bytes{255})), 0);
    EXPECT_STREQ(device->serial_number, "");
    EXPECT_EQ(result_of(description.ask, base_message(signpad_id, payload)), -1) << "not even a length";
    EXPECT_EQ(description.ask(device), 0);

    // A message that is longer than the buffer for replies, and one whose end does not come.
    EXPECT_EQ(result_of(description.ask, base_message(signpad_id, payload + Bytes(2000, 255))), 0);
    EXPECT_EQ(std::strlen(device->serial_number), 255U);
    EXPECT_LT(seconds_of([&] {
                  EXPECT_EQ(result_of(description.ask, Bytes{signpad_id, 0xff, 0xff, 0x10, 1}), -1);
              }),
              patience(3));
    EXPECT_EQ(description.ask(device), 0);
}

} // namespace
