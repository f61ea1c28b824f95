// Replies of a pad's components, hostile or healthy, to every call that asks for one.
//
// Byte 0: the pad's type. Then what the pad answers to the list of components and to that of modes; then calls: a byte
// that chooses one, a byte for its argument and what the pad answers to it. An answer is a byte (bits 0 and 1: from
// whom, bit 2 it repeats the request's message id, bit 3 the result says success, bit 4 it is the healthy answer, bit 5
// there is none) and, unless it is healthy, a counted payload. What a call gives stands in the answer; the record's
// tables hold what the lists said and nothing else; failures have documented codes and end in time. The whole gives the
// same over both transports.
#include "messages.hpp"
#include "pads.hpp"

#include <algorithm>
#include <array>
#include <iterator>
#include <string>

namespace {

using fuzz::bus;
using fuzz::Bytes;

constexpr std::array<unsigned int, 4> types{15, 16, 17, 10};
constexpr std::size_t most_calls = 12;

struct Answer {
    unsigned char kind = 0;
    Bytes payload;

    static Answer from(fuzz::Input& input) {
        Answer answer{input.byte(), {}};
        if ((answer.kind & 0x10) == 0) {
            answer.payload = input.counted();
        }
        return answer;
    }
};

struct Call {
    unsigned int which;
    unsigned char argument;
    Answer answer;
};

struct Script {
    unsigned int pad_type;
    Answer components;
    Answer modes;
    std::vector<Call> calls;

    explicit Script(fuzz::Input input)
        : pad_type{types[input.below(types.size())]}, components{Answer::from(input)}, modes{Answer::from(input)} {
        while (!input.has_ended() && calls.size() < most_calls) {
            const unsigned int which = input.byte();
            const unsigned char argument = input.byte();
            calls.push_back({which, argument, Answer::from(input)});
        }
    }
};

const Bytes component_query{0, 0, 0, 0x10};

Bytes healthy_payload(const Bytes& request) {
    const unsigned char id = request[0];
    const unsigned char command = request[3];
    if (request == component_query) {
        return {0x10, 1, 4, 5, 11, 3, 1};
    }
    if (id == 1 && command == 0x12) {
        return {0x12, 1, 4, 13, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0, 6, 0, 0, 0};
    }
    if (id == 1 && command == 0x13) {
        return {0x13, 1, request[4], request[5], 0x77};
    }
    if (id == 1 && command == 0x10) {
        Bytes description(31, 0x20);
        description[0] = 0x10;
        description[1] = 1;
        description[30] = 2;
        fuzz::append(description, {'S', 'N'});
        return description;
    }
    return {command, 1, 3};
}

Bytes answer_to(const Bytes& request, const Answer& answer) {
    if ((answer.kind & 0x10) != 0) {
        return cut_stream::base(request[0], healthy_payload(request));
    }
    Bytes payload = answer.payload;
    if ((answer.kind & 4) != 0) {
        payload.insert(payload.begin(), {request[3], static_cast<unsigned char>((answer.kind & 8) != 0 ? 1 : 0)});
    }
    if (payload.empty()) {
        payload.push_back(request[3]);
    }
    switch (answer.kind & 3) {
    case 0:
    case 1:
        return cut_stream::base(request[0], payload);
    case 2:
        return cut_stream::base((request[0] + 1) & 0x7F, payload);
    default:
        payload.resize(std::min<std::size_t>(payload.size(), 64));
        return cut_stream::legacy((answer.kind & 0x40) != 0 ? 0xC0 : 0x80, payload);
    }
}

// What came of a script: for each call its result and what the record held behind it.
using Outcome = std::vector<std::string>;

class Run {
  public:
    explicit Run(const Script& script) : script_{script} {}

    Outcome over_vcom() {
        bus().reset();
        bus().cost_us["libusb_bulk_transfer"] = 20'000;
        standins::UsbDevice& pad = bus().plug(standins::vcom_pad());
        pad.answer = [this](standins::UsbDevice& asked, const Bytes& sent) {
            if (const Bytes reply = answer(fuzz::unframed(sent)); !reply.empty()) {
                asked.incoming.push_back(fuzz::framed(reply));
            }
        };
        fuzz::VcomRecord record{script_.pad_type};
        perform(*record.get());
        return outcome_;
    }

    Outcome over_hid() {
        bus().reset();
        bus().cost_us["hid_get_feature_report"] = 20'000;
        standins::HidInterface& pad = bus().plug(standins::pad_of_type(script_.pad_type));
        bus().hooks.send_feature = [this, stream = Bytes{}](standins::HidInterface& asked,
                                                            std::span<const unsigned char> report) mutable {
            if (report.size() > 2 && report[1] == 0xF8) {
                stream.insert(stream.end(), report.begin() + 2, report.end());
                const Bytes message = fuzz::unframed(stream);
                if (message.size() > 3 && message.size() == 4U + message[1] + 256U * message[2]) {
                    stream.clear();
                    if (const Bytes reply = answer(message); !reply.empty()) {
                        const auto reports = fuzz::reports_of(fuzz::framed(reply));
                        asked.feature_replies.insert(asked.feature_replies.end(), reports.begin(), reports.end());
                    }
                }
            }
            return std::optional<int>{};
        };
        fuzz::HidRecord record{pad, script_.pad_type};
        perform(*record.get());
        return outcome_;
    }

  private:
    Bytes answer(const Bytes& request) {
        if (request.size() < 4) {
            return {};
        }
        const bool asks_for_components = request == component_query;
        const bool asks_for_modes = !asks_for_components && request[3] == 0x12;
        const Answer& chosen = asks_for_components ? script_.components : asks_for_modes ? script_.modes : *answer_;
        if ((chosen.kind & 0x20) != 0) {
            return {};
        }
        const Bytes reply = answer_to(request, chosen);
        (asks_for_components ? component_list_ : asks_for_modes ? mode_list_ : last_) = reply;
        return reply;
    }

    // The payload of the last answer of that kind, where it says success.
    static Bytes payload_of(const Bytes& reply, unsigned char message_id) {
        const bool fits = reply.size() > 4 && (reply[0] & 0x80) == 0 && reply[3] == message_id && reply[4] == 1;
        return fits ? Bytes(reply.begin() + 3, reply.end()) : Bytes{};
    }

    template <typename Table> static void require_table(const Table& table, const Bytes& payload, const char* what) {
        using Entry = std::decay_t<decltype(table[0])>;
        const std::size_t came = payload.size() < 3 ? 0 : (payload.size() - 3) / sizeof(Entry);
        const std::size_t count = came == 0 ? 0 : std::min({came, std::size_t{payload[2]}, std::size(table)});
        for (std::size_t i = 0; i < std::size(table); ++i) {
            Entry wanted = 0;
            for (std::size_t k = 0; i < count && k < sizeof(Entry); ++k) {
                wanted = static_cast<Entry>(wanted | Entry{payload[3 + i * sizeof(Entry) + k]} << 8 * k);
            }
            fuzz::require(table[i] == wanted, what);
        }
    }

    // Tables are filled by answers alone, and only once.
    static bool is_filled(std::span<const std::uint8_t> table) {
        return std::any_of(table.begin(), table.end(), [](auto entry) { return entry != 0; });
    }

    void perform(vx_device& record) {
        for (const Call& call : script_.calls) {
            answer_ = &call.answer;
            last_.clear();
            const std::int64_t start = bus().now_us();
            const int result = make(record, call);
            fuzz::require(bus().now_us() - start < 60'000'000, "time");
            fuzz::require(result >= -20 && result <= 255, "result");
            if (is_filled(record.components_id_table)) {
                require_table(record.components_id_table, payload_of(component_list_, 0x10), "table of components");
            }
            if (record.count_of_modes > 0) {
                require_table(record.modes_id_table, payload_of(mode_list_, 0x12), "table of modes");
            }
            outcome_.push_back(std::to_string(call.which) + " " + std::to_string(result) + " " +
                               std::to_string(record.vendor_id) + " " + std::to_string(record.product_id) + " " +
                               record.serial_number + " " + std::to_string(record.count_of_modes));
        }
    }

    // Where the call gives a number or succeeds, the answer said so.
    int require_in_answer(int result, unsigned char message_id, std::size_t at) const {
        const Bytes payload = payload_of(last_, message_id);
        fuzz::require(result < 0 || (payload.size() > at && payload[at] == result), "what the answer says");
        return result;
    }

    int make(vx_device& record, const Call& call) {
        const std::string text(call.argument, static_cast<char>(call.argument));
        switch (call.which % 14) {
        case 0:
            return ssp_common_is_ssp_supported(&record);
        case 1:
            return ssp_common_components_id_initialize_table(&record);
        case 2:
            return ssp_common_component_id_get_id(&record, call.argument);
        case 3:
            return ssp_common_ct_signpad_initialize_modes_id_table(&record);
        case 4:
            return ssp_common_ct_signpad_get_mode_id(&record, call.argument);
        case 5:
            return require_in_answer(ssp_common_get_user_input(&record), 0x13, 4);
        case 6:
            return require_in_answer(ssp_common_get_button_event(&record, call.argument % 7), 0x13, 4);
        case 7:
            return require_in_answer(ssp_common_get_conf_state(&record), 0x10, 2);
        case 8:
            return ssp_common_set_configuration_variable(&record, text.c_str(), text.c_str());
        case 9:
            return ssp_common_persist_configuration_variable(&record, text.c_str());
        case 10:
            return ssp_common_set_button_state(&record, call.argument, 1, 2, call.argument % 7);
        case 11:
            return ssp_common_signature_buttons_refresh(&record);
        case 12:
            return require_in_answer(ssp_common_ct_communication_get_current_connection(&record), 0x10, 2);
        default:
            return describe(record);
        }
    }

    int describe(vx_device& record) const {
        const int result = ssp_common_get_pad_description(&record);
        fuzz::require(std::find(std::begin(record.serial_number), std::end(record.serial_number), '\0') !=
                          std::end(record.serial_number),
                      "an end of the serial number");
        if (result == 0) {
            Bytes payload = payload_of(last_, 0x10);
            fuzz::require(payload.size() >= 31, "size of a description");
            const std::size_t length = payload[30];
            payload.resize(31 + length);
            const auto begin = payload.begin() + 31;
            fuzz::require(std::equal(begin, begin + static_cast<std::ptrdiff_t>(length), record.serial_number,
                                     [](unsigned char one, char other) { return static_cast<char>(one) == other; }),
                          "serial number");
            std::uint32_t vendor = 0;
            for (unsigned int i = 0; i < 4; ++i) {
                vendor |= std::uint32_t{payload[2 + i]} << 8 * i;
            }
            fuzz::require(record.vendor_id == vendor, "vendor");
        }
        return result;
    }

    const Script& script_;
    const Answer* answer_ = nullptr;
    Bytes component_list_;
    Bytes mode_list_;
    Bytes last_; // neither of the lists
    Outcome outcome_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Script script{fuzz::Input{data, size}};
    if (script.calls.empty()) {
        return 0;
    }
    const Outcome over_vcom = Run{script}.over_vcom();
    fuzz::require_all_given_back();
    const Outcome over_hid = Run{script}.over_hid();
    fuzz::require_all_given_back();
    for (std::size_t i = 0; i < over_vcom.size(); ++i) {
        if (over_vcom[i] != over_hid[i]) {
            std::fprintf(stderr, "VCOM: %s\nHID:  %s\n", over_vcom[i].c_str(), over_hid[i].c_str());
        }
    }
    fuzz::require(over_vcom == over_hid, "the same over both transports");
    return 0;
}
