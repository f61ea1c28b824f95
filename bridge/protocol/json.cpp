// Requests and messages as JSON: all that knows of it, since its header is large.
#include "protocol/messages.hpp"
#include "protocol/requests.hpp"

#include "base/text.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <nlohmann/json.hpp>

namespace bridge {

namespace {

using Json = nlohmann::json;
using Ordered = nlohmann::ordered_json;

constexpr std::int64_t largest_id = std::int64_t{1} << 53; // a browser's numbers are exact up to there

// What is wrong, without the id yet.
struct Wrong : std::runtime_error {
    using runtime_error::runtime_error;
};

std::int64_t number_in(const Json& value, const char* name, std::int64_t least, std::int64_t most) {
    const bool is_small = value.is_number_integer() && (!value.is_number_unsigned() ||
                                                        value.get<std::uint64_t>() <= static_cast<std::uint64_t>(most));
    if (!is_small || value.get<std::int64_t>() < least || value.get<std::int64_t>() > most) {
        throw Wrong{std::string{name} + " is a number from " + std::to_string(least) + " to " + std::to_string(most)};
    }
    return value.get<std::int64_t>();
}

const std::string& text_in(const Json& value, const char* name) {
    if (!value.is_string()) {
        throw Wrong{std::string{name} + " is a text"};
    }
    return value.get_ref<const std::string&>();
}

constexpr std::int64_t most_pads = std::numeric_limits<unsigned int>::max();
constexpr std::int64_t last_interface = 31;

void take_pad(Request& request, const Json& value) {
    request.pad = static_cast<unsigned int>(number_in(value, "pad", 1, most_pads));
}

void take_interface(Request& request, const Json& value) {
    request.interface = static_cast<unsigned int>(number_in(value, "interface", 0, last_interface));
}

void take_interfaces(Request& request, const Json& value) {
    if (!value.is_array() || value.empty()) {
        throw Wrong{"interfaces is a list of numbers"};
    }
    request.interfaces = 0;
    for (const Json& one : value) {
        request.interfaces |= 1U << number_in(one, "an interface", 0, last_interface);
    }
}

void take_report_size(Request& request, const Json& value) {
    request.size = static_cast<std::size_t>(number_in(value, "size", 1, longest_report));
}

void take_upload_size(Request& request, const Json& value) {
    request.size = static_cast<std::size_t>(number_in(value, "size", 1, longest_upload));
}

void take_bytes(Request& request, const Json& value) {
    const std::string& digits = text_in(value, "bytes");
    if (digits.empty() || digits.size() > 2 * longest_report || digits.size() % 2 != 0 ||
        digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        throw Wrong{"bytes are pairs of hexadecimal digits, at most " + std::to_string(longest_report)};
    }
    request.bytes = emulator::parse_hex(digits);
}

void take_timeout(Request& request, const Json& value) {
    request.timeout = std::chrono::milliseconds{number_in(value, "timeout", 1, longest_wait.count())};
}

void take_layout(Request& request, const Json& value) {
    const std::string& text = text_in(value, "layout");
    if (text.size() > longest_layout) {
        throw Wrong{"layout is too long"};
    }
    try {
        request.layout = vxpadctl::parse_layout(text);
    } catch (const std::invalid_argument& error) {
        throw Wrong{std::string{"layout "} + error.what()};
    }
}

struct Member {
    std::string_view name;
    void (*take)(Request& request, const Json& value);
    bool is_needed;
};

struct Form {
    std::string_view name;
    Ask ask;
    std::array<Member, 4> members; // an empty name: no further ones
};

constexpr Member pad{"pad", take_pad, true};
constexpr Member interface { "interface", take_interface, false };
constexpr Member bytes{"bytes", take_bytes, true};

constexpr std::array<Form, 9> forms{{
    {"list", Ask::list, {}},
    {"info", Ask::info, {pad}},
    {"get-feature", Ask::get_feature, {pad, interface, Member{"size", take_report_size, false}}},
    {"set-feature", Ask::set_feature, {pad, interface, bytes}},
    {"write", Ask::write, {pad, interface, bytes}},
    {"ssp", Ask::ssp, {pad, interface, bytes, Member{"timeout", take_timeout, false}}},
    {"start", Ask::start, {pad, interface, Member{"layout", take_layout, false}}},
    {"stop", Ask::stop, {pad, interface}},
    {"upload",
     Ask::upload,
     {pad, Member{"interfaces", take_interfaces, false}, Member{"size", take_upload_size, true}}},
}};

const Form& form_of(const Json& message) {
    const auto asked = message.find("ask");
    const auto form =
        asked == message.end() ? forms.end() : std::ranges::find(forms, text_in(*asked, "ask"), &Form::name);
    if (form == forms.end()) {
        std::string names;
        for (const Form& one : forms) {
            names.append(names.empty() ? "" : ", ").append(one.name);
        }
        throw Wrong{"ask is one of " + names};
    }
    return *form;
}

void take_members(Request& request, const Json& message) {
    const Form& form = form_of(message);
    request.ask = form.ask;
    std::size_t taken = 2; // id and ask
    for (const Member& member : form.members) {
        const auto value = member.name.empty() ? message.end() : message.find(member.name);
        if (value != message.end()) {
            member.take(request, *value);
            ++taken;
        } else if (member.is_needed) {
            throw Wrong{std::string{member.name} + " is missing"};
        }
    }
    if (taken != message.size()) {
        throw Wrong{"there is a member that " + std::string{form.name} + " does not know"};
    }
}

// Only a name may be no UTF-8, and what it is then nobody can tell.
std::string text_of(const Ordered& message) {
    return message.dump(-1, ' ', false, Ordered::error_handler_t::replace);
}

std::string id_text(unsigned int id) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%04x", id);
    return text.data();
}

Ordered answer(std::int64_t id, bool is_well) {
    return {{"id", id}, {"ok", is_well}};
}

Ordered event(const char* name) {
    return {{"event", name}};
}

Ordered json_of(const Pad& told) {
    return {{"pad", told.id},
            {"maker", told.facts.maker},
            {"product", told.facts.product},
            {"serial", told.facts.serial},
            {"vendor_id", id_text(told.facts.vendor_id)},
            {"product_id", id_text(told.facts.product_id)},
            {"report_bytes", told.facts.report_bytes}};
}

} // namespace

Request parse_request(std::string_view text) {
    std::optional<std::int64_t> id;
    try {
        const Json message = Json::parse(text, nullptr, false);
        if (!message.is_object()) {
            throw Wrong{"a request is a JSON object"};
        }
        const auto found = message.find("id");
        if (found == message.end()) {
            throw Wrong{"id is missing"};
        }
        id = number_in(*found, "id", 0, largest_id);
        Request request;
        request.id = *id;
        take_members(request, message);
        return request;
    } catch (const Wrong& wrong) {
        throw BadRequest{id, wrong.what()};
    }
}

std::string done(std::int64_t id) {
    return text_of(answer(id, true));
}

std::string pads_told(std::int64_t id, std::span<const Pad> pads) {
    Ordered message = answer(id, true);
    message["pads"] = Ordered::array();
    for (const Pad& told : pads) {
        message["pads"].push_back(json_of(told));
    }
    return text_of(message);
}

std::string pad_told(std::int64_t id, const Pad& told, std::span<const unsigned int> receiving) {
    Ordered message = answer(id, true);
    message.update(json_of(told));
    message["receiving"] = std::vector<unsigned int>(receiving.begin(), receiving.end());
    return text_of(message);
}

std::string bytes_told(std::int64_t id, std::span<const unsigned char> told) {
    Ordered message = answer(id, true);
    message["bytes"] = emulator::hex(told);
    return text_of(message);
}

std::string upload_done(std::int64_t id, std::size_t sent) {
    Ordered message = answer(id, true);
    message["sent"] = sent;
    return text_of(message);
}

std::string failed(std::optional<std::int64_t> id, std::string_view code, std::string_view why) {
    Ordered message{{"id", nullptr}, {"ok", false}, {"error", code}, {"message", why}};
    if (id) {
        message["id"] = *id;
    }
    return text_of(message);
}

std::string welcome(std::string_view version, std::string_view layout) {
    Ordered message = event("welcome");
    message["version"] = version;
    message["layout"] = layout;
    return text_of(message);
}

std::string plugged(const Pad& told) {
    Ordered message = event("plugged");
    message.update(json_of(told));
    return text_of(message);
}

std::string unplugged(unsigned int id) {
    Ordered message = event("unplugged");
    message["pad"] = id;
    return text_of(message);
}

std::string upload_progress(std::int64_t id, std::size_t sent, std::size_t total) {
    Ordered message = event("progress");
    message["id"] = id;
    message["sent"] = sent;
    message["total"] = total;
    return text_of(message);
}

std::string pen_data(unsigned int id, unsigned int from, std::span<const PenPacket* const> packets,
                     const vxpadctl::Layout& layout) {
    Ordered message = event("pen");
    message["pad"] = id;
    message["interface"] = from;
    Ordered& list = message["packets"] = Ordered::array();
    for (const PenPacket* packet : packets) {
        Ordered told{{"us", packet->at.count()}, {"bytes", emulator::hex(packet->bytes)}};
        Ordered& fields = told["fields"] = Ordered::object();
        for (const vxpadctl::Field& field : layout) {
            if (const auto value = field.read(packet->bytes)) {
                fields[field.name] = *value;
            }
        }
        list.push_back(std::move(told));
    }
    return text_of(message);
}

} // namespace bridge
