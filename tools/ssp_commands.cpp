#include "ssp_commands.hpp"

#include "chosen_pad.hpp"
#include "hex.hpp"
#include "names.hpp"
#include "printing.hpp"
#include "ssp_pad.hpp"
#include "text.hpp"

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace vxpadctl {

namespace {

SspPad chosen_pad(const Session& session, const Arguments& arguments) {
    expect_interface(session, arguments);
    return SspPad(arguments.pad, arguments.interface);
}

std::string named(const Arguments& arguments) {
    return "pad " + std::to_string(arguments.pad);
}

Bytes receive(const Arguments& arguments) {
    if (auto message = receive_message(arguments.pad, arguments.interface, arguments.timeout)) {
        return *message;
    }
    throw std::runtime_error("no SSP message came within " + std::to_string(arguments.timeout) + " ms (vxpadctl info " +
                             std::to_string(arguments.pad) + " tells whether the pad speaks SSP)");
}

void print_fact(const Arguments& arguments, const char* label, const char* key, unsigned int value,
                std::FILE* results) {
    if (arguments.json) {
        print(results, "{" + json_string(key) + ": " + std::to_string(value) + "}\n");
    } else {
        print(results, label + (": " + std::to_string(value)) + "\n");
    }
}

std::string variable(const Arguments& arguments) {
    return "variable " + for_terminal(arguments.variable) + " of " + named(arguments);
}

std::string mode(const Arguments& arguments) {
    return "mode " + std::string(name_of(button_modes, arguments.mode)) + " of " + named(arguments);
}

} // namespace

bool ssp_send(const Session& session, const Arguments& arguments, std::FILE* results) {
    SspPad pad = chosen_pad(session, arguments);
    if (arguments.component) {
        const ComponentChoice& component = *arguments.component;
        const unsigned int id =
            component.by == ComponentChoice::By::type ? pad.component_id(component.number) : component.number;
        pad.send(id, static_cast<std::uint8_t>(*arguments.message_id), arguments.bytes);
    } else {
        send_message(arguments.pad, arguments.interface, arguments.bytes);
    }
    if (arguments.reply) {
        print(results, hex_dump(receive(arguments)));
        return true;
    }
    // Left in the pad, the answer would be taken for that to the next run's first question.
    constexpr unsigned int time_to_answer = 100;
    receive_message(arguments.pad, arguments.interface, time_to_answer);
    print_sent(arguments, arguments.bytes.size() + (arguments.component ? message_header + message_id_size : 0),
               results);
    return true;
}

bool ssp_receive(const Session& session, const Arguments& arguments, std::FILE* results) {
    expect_interface(session, arguments);
    if (arguments.pen_data) {
        PenData pen_data{arguments.pad, arguments.interface};
        print_as_it_comes(
            arguments, std::chrono::milliseconds(arguments.timeout), "pen data", [&] { return pen_data.take(); },
            results);
        return true;
    }
    BytesPrinter printer{arguments, results};
    for (unsigned int i = 0; i < arguments.count.value_or(1); ++i) {
        printer.print(receive(arguments));
    }
    return true;
}

bool ssp_components(const Session& session, const Arguments& arguments, std::FILE* results) {
    const auto types = chosen_pad(session, arguments).components();
    print(results,
          arguments.json ? type_list_json(types, component_types) : type_table(types, component_types, "COMPONENT"));
    return true;
}

bool ssp_modes(const Session& session, const Arguments& arguments, std::FILE* results) {
    const auto types = chosen_pad(session, arguments).modes();
    print(results, arguments.json ? type_list_json(types, mode_types) : type_table(types, mode_types, "MODE"));
    return true;
}

bool ssp_description(const Session& session, const Arguments& arguments, std::FILE* results) {
    const PadDescription description = chosen_pad(session, arguments).description();
    print(results, arguments.json ? description_json(description) + "\n" : description_details(description));
    return true;
}

bool ssp_connection(const Session& session, const Arguments& arguments, std::FILE* results) {
    SspPad pad = chosen_pad(session, arguments);
    if (!arguments.connection) {
        print_fact(arguments, "Connection type", "connection", pad.connection(), results);
        return true;
    }
    pad.set_connection(*arguments.connection);
    print(results, named(arguments) + " was told to use connection type " + std::to_string(*arguments.connection) +
                       " (it does not answer that)\n");
    return true;
}

bool config_set(const Session& session, const Arguments& arguments, std::FILE* results) {
    chosen_pad(session, arguments).set_variable(arguments.variable, arguments.value);
    print(results, variable(arguments) + " set to '" + for_terminal(arguments.value) + "'\n");
    return true;
}

bool config_persist(const Session& session, const Arguments& arguments, std::FILE* results) {
    chosen_pad(session, arguments).persist_variable(arguments.variable);
    print(results, variable(arguments) + " persisted\n");
    return true;
}

bool config_state(const Session& session, const Arguments& arguments, std::FILE* results) {
    const unsigned int state = chosen_pad(session, arguments).configuration_state();
    const std::string_view known = name_of(configuration_states, state);
    const std::string_view word = known.empty() ? "unknown" : known;
    if (arguments.json) {
        print(results, "{\"state\": " + std::to_string(state) + ", \"name\": " + json_string(word) + "}\n");
    } else {
        print(results, "Configuration: " + std::string(word) + " (" + std::to_string(state) + ")\n");
    }
    return true;
}

bool button_input(const Session& session, const Arguments& arguments, std::FILE* results) {
    print_fact(arguments, "Button", "button", chosen_pad(session, arguments).user_input(), results);
    return true;
}

bool button_event(const Session& session, const Arguments& arguments, std::FILE* results) {
    print_fact(arguments, "Button", "button", chosen_pad(session, arguments).button_event(arguments.mode), results);
    return true;
}

bool button_set(const Session& session, const Arguments& arguments, std::FILE* results) {
    const auto& [first, second] = arguments.button_state;
    chosen_pad(session, arguments).set_button(arguments.mode, arguments.button, first, second);
    print(results, "button " + std::string(name_of(buttons, arguments.button)) + " in " + mode(arguments) + " set to " +
                       std::to_string(first) + " " + std::to_string(second) + "\n");
    return true;
}

bool button_refresh(const Session& session, const Arguments& arguments, std::FILE* results) {
    chosen_pad(session, arguments).refresh_buttons(arguments.mode);
    print(results, "buttons of " + mode(arguments) + " refreshed\n");
    return true;
}

std::optional<SspFacts> ssp_facts(unsigned int pad) {
    SspPad ssp{pad};
    if (!ssp.speaks_ssp()) {
        return std::nullopt;
    }
    SspFacts facts;
    facts.output_packet_size = output_packet_size(pad);
    facts.input_report_size = input_report_size(pad);
    // What a pad does not tell is left out.
    const auto ask = [](auto& fact, auto question) {
        try {
            fact = question();
        } catch (const SspError&) {
        }
    };
    ask(facts.description, [&] { return ssp.description(); });
    ask(facts.connection, [&] { return ssp.connection(); });
    return facts;
}

} // namespace vxpadctl
