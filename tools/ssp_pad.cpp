#include "ssp_pad.hpp"

#include "library.hpp"
#include "names.hpp"
#include "text.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <utility>
#include <vxpadcom/internals.h>
#include <vxpadcom/vxpadcom.h>

namespace vxpadctl {

namespace {

constexpr std::size_t reply_header = 2; // message id and result
constexpr std::uint8_t result_ok = 1;
constexpr std::uint8_t state_reply = 0x10;
constexpr std::size_t list_header = 3; // the same and a count

constexpr std::uint32_t first_type_with_buttons = 15;
constexpr std::uint32_t last_type_with_buttons = 17;

constexpr int removed = -20;

constexpr const char* silent_pad =
    "\nIt does not speak SSP, or it is stuck. To see the library's own account, add --trace.";

std::uint32_t number_at(const Bytes& bytes, std::size_t at) {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < sizeof number; ++i) {
        number |= (at + i < bytes.size() ? bytes[at + i] : 0u) << 8 * i;
    }
    return number;
}

// Only ASCII is text in every pad's eyes.
std::string ascii_text(std::span<const char> bytes) {
    constexpr char16_t unknown = 0xffff;
    std::u16string text;
    for (const char c : bytes) {
        text += static_cast<unsigned char>(c) < 0x80 ? static_cast<char16_t>(c) : unknown;
    }
    return to_utf8(text);
}

std::string text_at(const Bytes& bytes, std::size_t at, std::size_t size) {
    std::string text;
    for (std::size_t i = at; i < std::min(at + size, bytes.size()); ++i) {
        text += static_cast<char>(bytes[i]);
    }
    return ascii_text(text);
}

// The entries of a table that the reply's count, its third byte, and the table have in common. The table alone does not
// tell how many of its zeros are types.
template <typename Entry, std::size_t size>
std::vector<std::uint32_t> listed(const Entry (&table)[size], const Bytes& reply) {
    const std::size_t came = reply.size() < list_header ? 0 : (reply.size() - list_header) / sizeof(Entry);
    const std::size_t count = came == 0 ? 0 : std::min({std::size_t{reply[2]}, came, size});
    return {table, table + count};
}

} // namespace

// The library's requests reach a pad through two entries of its record. This one's lead back to the selected pad and
// keep what went through them: the requests' own results are just negative.
struct SspPad::Record : vx_device {
    unsigned int interface = 0;
    Bytes request;
    bool sent = false;
    int result = 0; // of sending or receiving
    std::optional<Bytes> reply;

    static int send(vx_device* device, void* data, unsigned int length);
    static int receive(vx_device* device, void* data, unsigned int* length, unsigned int time_out, unsigned char legacy,
                       int selector);
};

int SspPad::Record::send(vx_device* device, void* data, unsigned int length) {
    auto& record = static_cast<Record&>(*device);
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    record.request = Bytes(bytes, bytes + length);
    record.reply.reset();
    record.result = core_send_ssp_message(record.interface, data, static_cast<int>(length));
    record.sent = record.result == 0;
    return record.result;
}

int SspPad::Record::receive(vx_device* device, void* data, unsigned int* length, unsigned int time_out, unsigned char,
                            int) {
    auto& record = static_cast<Record&>(*device);
    record.result = core_receive_ssp_message(record.interface, data, length, time_out);
    if (record.result == 0) {
        const auto* bytes = static_cast<const std::uint8_t*>(data);
        record.reply = Bytes(bytes, bytes + *length);
    }
    return record.result;
}

SspPad::SspPad(unsigned int pad, unsigned int interface)
    : pad_{pad}, name_{"pad " + std::to_string(pad)}, record_{std::make_unique<Record>()} {
    const UsbId id = usb_id(pad); // asking for it selects the pad
    record_->pad_type = pad_type(id, read_added_ids().ids);
    record_->interface = interface;
    record_->send_ssp_message = Record::send;
    record_->receive_ssp_message = Record::receive;
}

SspPad::SspPad(SspPad&& other) noexcept = default;
SspPad::~SspPad() = default;

// Of the last reply, as far as it came.
Bytes SspPad::payload() const {
    if (!record_->reply || record_->reply->size() < message_header) {
        return {};
    }
    return {record_->reply->begin() + message_header, record_->reply->end()};
}

// Whether the last reply is the asked component's to that message, with a result that is not success.
bool SspPad::is_refused() const {
    const Bytes reply = payload();
    return reply.size() >= reply_header && record_->request.size() > message_header &&
           record_->reply->front() == record_->request.front() && reply[0] == record_->request[message_header] &&
           reply[1] != result_ok;
}

// Why the last request failed.
std::string SspPad::failure() const {
    if (record_->result == removed) {
        return name_ + " is gone: it was pulled out, or cannot be opened again";
    }
    if (!record_->sent) {
        return name_ + " cannot be sent SSP messages";
    }
    if (!record_->reply) {
        return name_ + " does not answer";
    }
    if (is_refused()) {
        return name_ + " refuses the request with result " + std::to_string(payload()[1]);
    }
    std::string dump = hex_dump(*record_->reply);
    dump.pop_back();
    return "the answer of " + name_ + " makes no sense:\n" + dump;
}

template <typename Request> int SspPad::perform(Request request) {
    record_->sent = false;
    record_->result = 0;
    record_->reply.reset();
    return request(static_cast<vx_device*>(record_.get()));
}

template <typename Request> unsigned int SspPad::answer(Request request) {
    const int result = perform(request);
    if (result < 0) {
        throw SspError(failure());
    }
    return static_cast<unsigned int>(result);
}

bool SspPad::speaks_ssp() {
    return perform(ssp_common_is_ssp_supported) == 1;
}

const std::vector<std::uint32_t>& SspPad::components() {
    if (components_) {
        return *components_;
    }
    if (perform(ssp_common_components_id_initialize_table) != 0) {
        throw SspError(failure() + (record_->result == removed || record_->reply ? "" : silent_pad));
    }
    return components_.emplace(listed(record_->components_id_table, payload()));
}

void SspPad::expect_component(std::uint32_t type) {
    if (std::ranges::find(components(), type) == components().end()) {
        throw SspError(name_ + " has no component " + std::string(name_of(component_types, type)) +
                       " (vxpadctl ssp components " + std::to_string(pad_) + " shows what it has)");
    }
}

const std::vector<std::uint32_t>& SspPad::modes() {
    if (modes_) {
        return *modes_;
    }
    expect_component(signpad);
    answer(ssp_common_ct_signpad_initialize_modes_id_table);
    return modes_.emplace(listed(record_->modes_id_table, payload()));
}

unsigned int SspPad::component_id(std::uint32_t type) {
    expect_component(type);
    return answer([&](vx_device* device) { return ssp_common_component_id_get_id(device, static_cast<int>(type)); });
}

void SspPad::send(unsigned int component_id, std::uint8_t message_id, const Bytes& data) {
    answer([&](vx_device* device) {
        return make_and_send_ssp_data_sequence(device, static_cast<int>(component_id), message_id, data.data(),
                                               static_cast<unsigned int>(data.size()));
    });
}

// The library keeps ids and serial number and only traces the version.
PadDescription SspPad::description() {
    expect_component(signpad);
    answer(ssp_common_get_pad_description);
    constexpr std::array<std::size_t, 4> numbers{10, 14, 18, 22};
    constexpr std::size_t manufacturer = 26;
    const Bytes reply = payload();
    std::string version;
    for (const std::size_t at : numbers) {
        version.append(version.empty() ? "" : ".").append(std::to_string(number_at(reply, at)));
    }
    return {{record_->vendor_id, record_->product_id},
            version + " " + text_at(reply, manufacturer, 4),
            ascii_text(record_->serial_number)};
}

unsigned int SspPad::connection() {
    expect_component(communication);
    return answer(ssp_common_ct_communication_get_current_connection);
}

void SspPad::set_connection(unsigned int type) {
    expect_component(communication);
    answer([&](vx_device* device) {
        return ssp_common_ct_communication_set_current_connection(device, static_cast<int>(type));
    });
}

unsigned int SspPad::configuration_state() {
    expect_component(configuration);
    return answer(ssp_common_get_conf_state);
}

// A change that the pad has taken may fail while it is applied.
template <typename Request> void SspPad::change_configuration(Request request) {
    expect_component(configuration);
    if (perform(request) == 0) {
        return;
    }
    const Bytes reply = payload();
    const bool failed_later = reply.size() > reply_header && reply[0] == state_reply && reply[1] == result_ok;
    throw SspError(failed_later ? name_ + " has failed to apply the change" : failure());
}

void SspPad::set_variable(const std::string& variable, const std::string& value) {
    change_configuration([&](vx_device* device) {
        return ssp_common_set_configuration_variable(device, variable.c_str(), value.c_str());
    });
}

void SspPad::persist_variable(const std::string& variable) {
    change_configuration(
        [&](vx_device* device) { return ssp_common_persist_configuration_variable(device, variable.c_str()); });
}

void SspPad::expect_buttons() const {
    if (record_->pad_type < first_type_with_buttons || record_->pad_type > last_type_with_buttons) {
        throw SspError(name_ + " is of type " + std::to_string(record_->pad_type) + "; only pads of the types " +
                       std::to_string(first_type_with_buttons) + " to " + std::to_string(last_type_with_buttons) +
                       " can be asked for buttons");
    }
}

template <typename Request> unsigned int SspPad::ask_mode(std::uint32_t mode, Request request) {
    expect_buttons();
    if (std::ranges::find(modes(), mode) == modes().end()) {
        throw SspError(name_ + " has no mode " + std::string(name_of(mode_types, mode)) + " (vxpadctl ssp modes " +
                       std::to_string(pad_) + " shows what it has)");
    }
    return answer(request);
}

unsigned int SspPad::user_input() {
    return ask_mode(user_input_mode, ssp_common_get_user_input);
}

unsigned int SspPad::button_event(std::uint32_t mode) {
    return ask_mode(mode,
                    [&](vx_device* device) { return ssp_common_get_button_event(device, static_cast<int>(mode)); });
}

void SspPad::refresh_buttons(std::uint32_t mode) {
    static constexpr std::array<std::pair<std::uint32_t, int (*)(vx_device*)>, 3> refreshes{{
        {signature_mode, ssp_common_signature_buttons_refresh},
        {doc_view_mode, ssp_common_doc_view_buttons_refresh},
        {doc_sign_mode, ssp_common_doc_sign_buttons_refresh},
    }};
    for (const auto& [type, refresh] : refreshes) {
        if (type == mode) {
            ask_mode(mode, refresh);
        }
    }
}

void SspPad::set_button(std::uint32_t mode, unsigned int button, std::uint32_t first, std::uint32_t second) {
    expect_buttons();
    expect_component(configuration);
    change_configuration([&](vx_device* device) {
        const int result = ssp_common_set_button_state(device, static_cast<unsigned char>(button), first, second, mode);
        if (result < 0 && !record_->sent && record_->result == 0) {
            throw SspError("mode " + std::string(name_of(mode_types, mode)) + " has no button " +
                           std::string(name_of(buttons, button)));
        }
        return result;
    });
}

} // namespace vxpadctl
