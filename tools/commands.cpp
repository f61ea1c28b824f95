#include "commands.hpp"

#include "doctor.hpp"
#include "id_commands.hpp"
#include "library.hpp"
#include "pad_commands.hpp"
#include "pen_commands.hpp"
#include "ssp_commands.hpp"
#include "upload_command.hpp"
#include "watch_command.hpp"

#include <string>

namespace vxpadctl {

namespace {

template <bool (*run)(const Session& session, const Arguments& arguments, std::FILE* results)>
bool in_session(const Arguments& arguments, std::FILE* results) {
    const Session session;
    return run(session, arguments, results);
}

constexpr std::array<Command, 29> commands{{
    {"list",
     Section::reports,
     {{{"", "the pads that are plugged in, numbered from 1"}}},
     {},
     "--json",
     in_session<list>},
    {"info", Section::reports, {{{"PAD", "what a pad says about itself"}}}, {take_pad}, "--json", in_session<info>},
    {"watch", Section::reports, {{{"", "pads that come and go, a line each"}}}, {}, "--json --seconds", watch},
    {"doctor",
     Section::reports,
     {{{"[PLACE]", "examines every pad on the bus, or one: rights, udev rule, who has it, whether it answers,\n"
                   "versions, kernel messages; says what to do"}}},
     {take_bus_pad},
     "--json --bundle",
     doctor},
    {"ids", Section::reports, {{{"", "the USB ids that are looked for, and where they come from"}}}, {}, "--json", ids},
    {"ids add",
     Section::reports,
     {{{"VENDOR PRODUCT --transport hid|vcom --type TYPE [--name NAME]",
        "has pads with these ids found: writes a file (as root for all users), prints the udev rule"}}},
     {take_new_id},
     "--transport --type --name",
     ids_add},
    {"feature get",
     Section::reports,
     {{{"PAD", "reads a feature report"}}},
     {take_pad},
     "--interface --length",
     in_session<feature_get>},
    {"feature set",
     Section::reports,
     {{{"PAD HEX...", "sends a feature report"}}},
     {take_pad, take_report},
     "--interface --fill --reply",
     in_session<feature_set>},
    {"report read",
     Section::reports,
     {{{"PAD", "waits for input reports"}}},
     {take_pad, expect_layout_for_json},
     "--interface --wait --count --json --layout --layout-file",
     in_session<report_read>},
    {"report write",
     Section::reports,
     {{{"PAD HEX...", "sends an output report"}}},
     {take_pad, take_report},
     "--interface --fill",
     in_session<report_write>},
    {"ssp send",
     Section::ssp,
     {{{"PAD HEX...", "sends a whole message as it is"},
       {"PAD --component COMPONENT --message ID [HEX...]",
        "sends a message to a component, HEX is what follows the message id"}}},
     {take_pad, take_message},
     "--interface --component --message --reply --timeout",
     in_session<ssp_send>},
    {"ssp receive",
     Section::ssp,
     {{{"PAD", "waits for messages, or with --pen-data for pen data"}}},
     {take_pad, expect_layout_for_json},
     "--interface --timeout --count --pen-data --json --layout --layout-file",
     in_session<ssp_receive>},
    {"ssp components",
     Section::ssp,
     {{{"PAD", "the components of a pad"}}},
     {take_pad},
     "--json",
     in_session<ssp_components>},
    {"ssp modes", Section::ssp, {{{"PAD", "the modes of its signpad"}}}, {take_pad}, "--json", in_session<ssp_modes>},
    {"ssp description",
     Section::ssp,
     {{{"PAD", "ids, version and serial number as the signpad tells them"}}},
     {take_pad},
     "--json",
     in_session<ssp_description>},
    {"ssp connection",
     Section::ssp,
     {{{"PAD [get]", "tells the connection type"}, {"PAD set TYPE", "sets it, 0 to 127"}}},
     {take_pad, take_connection},
     "--json",
     in_session<ssp_connection>},
    {"config set",
     Section::ssp,
     {{{"PAD VARIABLE VALUE", "sets a configuration variable (up to 40 bytes) to a value (up to 20 bytes)"}}},
     {take_pad, take_variable, take_value},
     "",
     in_session<config_set>},
    {"config persist",
     Section::ssp,
     {{{"PAD VARIABLE", "has the pad keep a variable's value"}}},
     {take_pad, take_variable},
     "",
     in_session<config_persist>},
    {"config state",
     Section::ssp,
     {{{"PAD", "how far a pad is with applying its configuration"}}},
     {take_pad},
     "--json",
     in_session<config_state>},
    {"button input",
     Section::ssp,
     {{{"PAD", "the button that the user pressed last in mode user-input"}}},
     {take_pad},
     "--json",
     in_session<button_input>},
    {"button event",
     Section::ssp,
     {{{"PAD MODE", "the last button event of a mode"}}},
     {take_pad, take_mode},
     "--json",
     in_session<button_event>},
    {"button set",
     Section::ssp,
     {{{"PAD MODE BUTTON FIRST SECOND", "sets the state of a button, two numbers of 32 bits"}}},
     {take_pad, take_mode, take_button, take_button_state},
     "",
     in_session<button_set>},
    {"button refresh",
     Section::ssp,
     {{{"PAD MODE", "has the pad show the buttons of a mode anew"}}},
     {take_pad, take_mode},
     "",
     in_session<button_refresh>},
    {"monitor",
     Section::pen,
     {{{"PAD", "shows what comes: rate, packets so far, pressure or rate as a bar, the last packets; on\n"
               "anything but a terminal a line each second"}}},
     {take_pad},
     "--interface --seconds --count --layout --layout-file --json",
     monitor},
    {"record",
     Section::pen,
     {{{"PAD -o FILE", "writes what comes into a recording, a text file with a time for each packet"}}},
     {take_pad, expect_output},
     "-o --interface --seconds --count",
     record},
    {"replay",
     Section::pen,
     {{{"FILE", "shows the packets of a recording at their times, a line each: seconds, pressure, bytes"},
       {"FILE --pad N", "has virtual pad N send them, for a program under vxpad-emulator run"}}},
     {take_file, expect_shown_for_json},
     "--speed --fast --pad --layout --layout-file --json",
     replay,
     "From outside, the request replay N FILE of vxpad-emulator-control does the same"},
    {"plot",
     Section::pen,
     {{{"FILE --layout LAYOUT -o FILE", "draws a recording as a picture: SVG, PNG or PDF"}}},
     {take_file, expect_output, expect_layout, take_picture_format},
     "-o --format --layout --layout-file",
     plot,
     "A plot takes x, y and pressure: the pen is up where pressure is 0, and never where the layout has none"},
    {"export",
     Section::pen,
     {{{"FILE --format FORMAT [-o FILE]",
        "writes a recording as CSV, JSON or InkML, with a layout by its fields; - is the\n"
        "standard input"}}},
     {take_file, take_export_format},
     "-o --format --layout --layout-file",
     export_recording},
    {"upload",
     Section::pen,
     {{{"PAD FILE", "sends a file as output reports, over several interfaces at once"}}},
     {take_pad, take_file},
     "--interfaces",
     in_session<upload>,
     "The file is cut into whole reports, the last one filled up with zeros"},
}};

} // namespace

std::string_view Command::family() const {
    return name.substr(0, name.find(' '));
}

bool Command::has_option(std::string_view option) const {
    const std::string words = " --trace " + std::string(options) + " ";
    return words.find(" " + std::string(option) + " ") != std::string::npos;
}

std::span<const Command> all_commands() {
    return commands;
}

} // namespace vxpadctl
