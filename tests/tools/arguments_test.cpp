#include "command_line.hpp"
#include "commands.hpp"
#include "help.hpp"
#include "layout.hpp"
#include "names.hpp"
#include "options.hpp"

#include <algorithm>
#include <gmock/gmock.h>
#include <sstream>
#include <string>
#include <vector>

using namespace vxpadctl;
using testing::HasSubstr;

namespace {

Arguments parsed(std::vector<std::string> words) {
    std::vector<char*> pointers;
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    return parse_arguments(pointers);
}

std::string command_of(const Arguments& arguments) {
    if (arguments.command == nullptr) {
        return arguments.help ? "help" : arguments.version ? "version" : "none";
    }
    return std::string(arguments.command->name);
}

// With one blank between any two words.
std::string in_one_line(const std::string& text) {
    std::istringstream words{text};
    std::string line;
    for (std::string word; words >> word;) {
        line += word + " ";
    }
    return line;
}

// What the usage error says.
std::string refusal(const std::vector<std::string>& words) {
    try {
        parsed(words);
    } catch (const UsageError& error) {
        return error.what();
    }
    return "(accepted)";
}

} // namespace

TEST(Arguments, ListTakesOptionsOnEitherSide) {
    EXPECT_EQ(command_of(parsed({"list"})), "list");
    EXPECT_FALSE(parsed({"list"}).json);
    EXPECT_TRUE(parsed({"list", "--json"}).json);
    const Arguments arguments = parsed({"--trace", "--json", "list"});
    EXPECT_TRUE(arguments.json);
    EXPECT_TRUE(arguments.trace);
}

TEST(Arguments, FeatureSetCollectsBytes) {
    const Arguments arguments = parsed({"feature", "set", "2", "--interface", "1", "01", "--fill", "0203", "--reply"});
    EXPECT_EQ(command_of(arguments), "feature set");
    EXPECT_EQ(arguments.pad, 2U);
    EXPECT_EQ(arguments.interface, 1U);
    EXPECT_TRUE(arguments.fill);
    EXPECT_TRUE(arguments.reply);
    EXPECT_EQ(arguments.bytes, (Bytes{1, 2, 3}));
}

TEST(Arguments, ValuesMayFollowAnEqualsSign) {
    const Arguments arguments = parsed({"report", "read", "1", "--wait=0", "--count=3", "--interface=8"});
    EXPECT_EQ(command_of(arguments), "report read");
    EXPECT_EQ(arguments.wait, 0U);
    EXPECT_EQ(arguments.count, 3U);
    EXPECT_EQ(arguments.interface, 8U);
    EXPECT_EQ(parsed({"feature", "get", "1", "--length=20"}).length, 20U);
}

TEST(Arguments, NumbersMayBeHexadecimal) {
    EXPECT_EQ(parsed({"feature", "get", "0x2", "--length=0X1f"}).pad, 2U);
    EXPECT_EQ(parsed({"feature", "get", "0x2", "--length=0X1f"}).length, 31U);
}

TEST(Arguments, SspSendTakesAWholeMessage) {
    const Arguments arguments = parsed({"ssp", "send", "1", "00:00", "0010", "--reply", "--timeout", "250"});
    EXPECT_EQ(command_of(arguments), "ssp send");
    EXPECT_EQ(arguments.bytes, (Bytes{0, 0, 0, 0x10}));
    EXPECT_TRUE(arguments.reply);
    EXPECT_EQ(arguments.timeout, 250U);
    EXPECT_FALSE(arguments.component);
    EXPECT_EQ(parsed({"ssp", "send", "1", std::string(2 * 65539, '0')}).bytes.size(), 65539U);
}

TEST(Arguments, SspSendToAComponentTakesItsNameOrItsId) {
    const auto component = [](const char* text) {
        return parsed({"ssp", "send", "1", "--component", text, "--message", "0x13"}).component;
    };
    EXPECT_EQ(component("communication"), (ComponentChoice{ComponentChoice::By::type, 1}));
    EXPECT_EQ(component("configuration"), (ComponentChoice{ComponentChoice::By::type, 3}));
    EXPECT_EQ(component("signpad"), (ComponentChoice{ComponentChoice::By::type, 11}));
    EXPECT_EQ(component("11"), (ComponentChoice{ComponentChoice::By::id, 11}));
    EXPECT_EQ(component("0x7f"), (ComponentChoice{ComponentChoice::By::id, 127}));
    const Arguments arguments = parsed({"ssp", "send", "1", "--component=0", "--message=255", "0102"});
    EXPECT_EQ(arguments.message_id, 255U);
    EXPECT_EQ(arguments.bytes, (Bytes{1, 2}));
    EXPECT_TRUE(parsed({"ssp", "send", "1", "--component=0", "--message=16"}).bytes.empty());
}

TEST(Arguments, WrongMessagesAreRefused) {
    EXPECT_EQ(refusal({"ssp", "send", "1"}), "the bytes to send are missing");
    EXPECT_EQ(refusal({"ssp", "send", "1", "--component", "0", "00"}), "--component and --message go together");
    EXPECT_EQ(refusal({"ssp", "send", "1", "--message", "16", "00"}), "--component and --message go together");
    for (const char* component : {"signpads", "128", "-1", ""}) {
        EXPECT_THAT(refusal({"ssp", "send", "1", "--component", component, "--message", "16"}),
                    HasSubstr("--component takes communication, configuration or signpad, or an id from 0 to 127"))
            << component;
    }
    EXPECT_THAT(refusal({"ssp", "send", "1", "--component", "0", "--message", "256"}),
                HasSubstr("--message takes a number from 0 to 255"));
    EXPECT_THAT(refusal({"ssp", "send", "1", std::string(2 * 65540, '0')}), HasSubstr("at most 65539 bytes"));
    EXPECT_THAT(refusal({"ssp", "send", "1", "--component", "0", "--message", "16", std::string(2 * 65536, '0')}),
                HasSubstr("at most 65535 bytes"));
}

TEST(Arguments, SspReceive) {
    const Arguments arguments = parsed({"ssp", "receive", "3", "--pen-data", "--count=2", "--timeout=5"});
    EXPECT_EQ(command_of(arguments), "ssp receive");
    EXPECT_TRUE(arguments.pen_data);
    EXPECT_EQ(arguments.count, 2U);
    EXPECT_EQ(parsed({"ssp", "receive", "3"}).timeout, 1000U);
    EXPECT_THAT(refusal({"ssp", "receive", "3", "--timeout", "0"}), HasSubstr("--timeout takes a number from 1"));
    EXPECT_EQ(refusal({"ssp", "receive", "3", "--wait", "1"}), "'ssp receive' has no option --wait");
}

TEST(Arguments, ConnectionTypesAreReadUnlessOneIsSet) {
    EXPECT_FALSE(parsed({"ssp", "connection", "1"}).connection);
    EXPECT_FALSE(parsed({"ssp", "connection", "1", "get", "--json"}).connection);
    EXPECT_EQ(parsed({"ssp", "connection", "1", "set", "127"}).connection, 127U);
    EXPECT_THAT(refusal({"ssp", "connection", "1", "set", "128"}), HasSubstr("TYPE takes a number from 0 to 127"));
    EXPECT_EQ(refusal({"ssp", "connection", "1", "set"}), "'ssp connection' needs a connection type");
    EXPECT_EQ(refusal({"ssp", "connection", "1", "set", "1", "--json"}), "'ssp connection set' has no option --json");
    EXPECT_EQ(refusal({"ssp", "connection", "1", "get", "1"}), "'ssp connection' cannot make sense of '1'");
}

TEST(Arguments, VariablesAndValuesHaveToFit) {
    const std::string forty(40, 'v');
    const std::string twenty(20, 'w');
    const Arguments arguments = parsed({"config", "set", "1", forty, twenty});
    EXPECT_EQ(arguments.variable, forty);
    EXPECT_EQ(arguments.value, twenty);
    EXPECT_EQ(parsed({"config", "set", "1", "v", ""}).value, "");
    EXPECT_EQ(parsed({"config", "set", "1", "--", "-v", "-1"}).value, "-1");
    EXPECT_EQ(parsed({"config", "persist", "1", forty}).variable, forty);
    EXPECT_EQ(refusal({"config", "set", "1", forty + "v", "w"}), "VARIABLE has from 1 to 40 bytes, not 41");
    EXPECT_EQ(refusal({"config", "persist", "1", ""}), "VARIABLE has from 1 to 40 bytes, not 0");
    EXPECT_EQ(refusal({"config", "set", "1", "v", twenty + "w"}), "VALUE has from 0 to 20 bytes, not 21");
    EXPECT_EQ(refusal({"config", "set", "1", "v"}), "'config set' needs a value");
    EXPECT_EQ(refusal({"config", "persist", "1"}), "'config persist' needs the name of a variable");
}

TEST(Arguments, ModesAndButtonsHaveNamesAndNumbers) {
    for (const char* button : {"rotate-180", "99", "0x63"}) {
        const Arguments arguments = parsed({"button", "set", "1", "doc-sign", button, "1", "4294967295"});
        EXPECT_EQ(arguments.mode, 6U);
        EXPECT_EQ(arguments.button, 99U);
        EXPECT_EQ(arguments.button_state[0], 1U);
        EXPECT_EQ(arguments.button_state[1], 4294967295U);
    }
    EXPECT_EQ(parsed({"button", "event", "1", "signature"}).mode, 0U);
    EXPECT_EQ(parsed({"button", "refresh", "1", "5"}).mode, 5U);
    for (const char* mode : {"user-input", "13", "1", "Signature", ""}) {
        EXPECT_THAT(refusal({"button", "event", "1", mode}), HasSubstr("MODE is signature, doc-view or doc-sign, not"))
            << mode;
    }
    EXPECT_THAT(refusal({"button", "event", "1"}), HasSubstr("'button event' needs a mode: signature"));
    EXPECT_THAT(refusal({"button", "set", "1", "5", "98", "1", "2"}), HasSubstr("BUTTON is zoom-in"));
    EXPECT_EQ(refusal({"button", "set", "1", "5", "next", "1"}), "'button set' needs two numbers, the button's state");
    EXPECT_THAT(refusal({"button", "set", "1", "5", "next", "1", "4294967296"}), HasSubstr("takes a number from 0"));
}

TEST(Arguments, MonitorAndRecordTakeLimits) {
    const Arguments open_end = parsed({"monitor", "2"});
    EXPECT_EQ(command_of(open_end), "monitor");
    EXPECT_EQ(open_end.pad, 2U);
    EXPECT_FALSE(open_end.count);
    EXPECT_EQ(open_end.seconds, most_seconds);
    EXPECT_TRUE(open_end.layout.empty());
    const Arguments limited =
        parsed({"record", "1", "-o", "a b.rec", "--seconds", "2.5", "--count=7", "--interface=1"});
    EXPECT_EQ(command_of(limited), "record");
    EXPECT_EQ(limited.output, "a b.rec");
    EXPECT_EQ(limited.seconds, 2.5);
    EXPECT_EQ(limited.count, 7U);
    EXPECT_EQ(limited.interface, 1U);
    EXPECT_EQ(parsed({"record", "1", "-o", "-"}).output, "-");
    EXPECT_THAT(refusal({"record", "1"}), HasSubstr("-o FILE is missing"));
    EXPECT_EQ(refusal({"monitor", "1", "-o", "x"}), "'monitor' has no option -o");
    for (const char* seconds : {"0", "-1", "x", "1e3", "nan", "inf", "1000001", "", "1s"}) {
        EXPECT_THAT(refusal({"monitor", "1", "--seconds", seconds}), HasSubstr("--seconds takes a number from 0.001"))
            << seconds;
    }
}

TEST(Arguments, LayoutsAreGivenOrRead) {
    const Arguments given = parsed({"plot", "a.rec", "--layout", "x=2:u16le,y=4:u16le", "-o", "a.svg"});
    EXPECT_EQ(command_of(given), "plot");
    EXPECT_EQ(given.file, "a.rec");
    EXPECT_EQ(given.layout.size(), 2U);
    EXPECT_EQ(parsed({"monitor", "1", "--layout", "@pad.layout"}).layout_file, "pad.layout");
    EXPECT_EQ(parsed({"monitor", "1", "--layout-file=pad.layout"}).layout_file, "pad.layout");
    EXPECT_THAT(refusal({"monitor", "1", "--layout", "x=2:u9"}), HasSubstr("--layout 'x=2:u9': the types are u8"));
    EXPECT_THAT(refusal({"plot", "a.rec", "-o", "a.svg"}), HasSubstr("--layout is missing"));
    EXPECT_THAT(refusal({"plot", "a.rec", "--layout", "x=2:u8"}), HasSubstr("-o FILE is missing"));
    EXPECT_EQ(refusal({"record", "1", "-o", "x", "--layout", "x=2:u8"}), "'record' has no option --layout");
}

TEST(Arguments, FormatsAreGivenOrToldByTheResultsName) {
    const auto plotted = [](std::vector<std::string> words) {
        words.insert(words.begin(), {"plot", "a.rec", "--layout", "x=0:u8,y=1:u8", "-o"});
        return parsed(words).format;
    };
    EXPECT_EQ(plotted({"a.svg"}), "svg");
    EXPECT_EQ(plotted({"a.b.png"}), "png");
    EXPECT_EQ(plotted({"a.pdf"}), "pdf");
    EXPECT_EQ(plotted({"-"}), "svg");
    EXPECT_EQ(plotted({"a.csv"}), "svg");
    EXPECT_EQ(plotted({"dir.png/a"}), "svg");
    EXPECT_EQ(plotted({"a.svg", "--format=pdf"}), "pdf");
    EXPECT_EQ(parsed({"export", "a.rec", "--format", "csv"}).format, "csv");
    EXPECT_EQ(parsed({"export", "a.rec", "-o", "a.json"}).format, "json");
    EXPECT_EQ(parsed({"export", "a.rec", "-o", "a.csv", "--format", "json"}).format, "json");
    EXPECT_EQ(parsed({"export", "-", "-o", "a.inkml", "--layout", "@f"}).format, "inkml");
    EXPECT_EQ(parsed({"export", "-", "--format", "csv"}).file, "-");
    EXPECT_EQ(refusal({"export", "a.rec"}), "--format is missing: csv, json or inkml");
    EXPECT_EQ(refusal({"export", "a.rec", "-o", "a.svg"}), "--format is missing: csv, json or inkml");
    EXPECT_EQ(refusal({"export", "a.rec", "--format", "svg"}), "--format takes csv, json or inkml, not 'svg'");
    EXPECT_EQ(refusal({"export", "a.rec", "--format", "0"}), "--format takes csv, json or inkml, not '0'");
    EXPECT_THAT(refusal({"export", "a.rec", "--format", "inkml"}), HasSubstr("--layout is missing"));
    EXPECT_EQ(refusal({"plot", "a.rec", "--layout", "x=0:u8", "-o", "a", "--format", "csv"}),
              "--format takes svg, png or pdf, not 'csv'");
}

TEST(Arguments, JsonAndLayoutsGoTogether) {
    for (const std::vector<std::string>& command : {std::vector<std::string>{"report", "read"}, {"ssp", "receive"}}) {
        std::vector<std::string> words = command;
        words.insert(words.end(), {"1", "--layout", "x=0:u8"});
        EXPECT_EQ(refusal(words), "here --layout goes with --json");
        words.emplace_back("--json");
        EXPECT_TRUE(parsed(words).json);
    }
    EXPECT_TRUE(parsed({"monitor", "1", "--json"}).json);
    EXPECT_TRUE(parsed({"replay", "a.rec", "--json"}).json);
    EXPECT_EQ(refusal({"replay", "a.rec", "--json", "--pad", "1"}),
              "--json shows the packets, --pad has a virtual pad send them");
}

TEST(Arguments, WatchTakesATime) {
    EXPECT_EQ(command_of(parsed({"watch"})), "watch");
    EXPECT_EQ(parsed({"watch", "--seconds", "2", "--json"}).seconds, 2);
    EXPECT_EQ(refusal({"watch", "1"}), "'watch' cannot make sense of '1'");
}

TEST(Arguments, ReplayTakesAFileAndASpeed) {
    const Arguments arguments = parsed({"replay", "a.rec", "--speed=0.5"});
    EXPECT_EQ(command_of(arguments), "replay");
    EXPECT_EQ(arguments.speed, 0.5);
    EXPECT_FALSE(arguments.fast);
    EXPECT_FALSE(arguments.virtual_pad);
    EXPECT_TRUE(parsed({"replay", "a.rec", "--fast"}).fast);
    EXPECT_EQ(parsed({"replay", "a.rec", "--pad", "3"}).virtual_pad, 3U);
    EXPECT_THAT(refusal({"replay", "a.rec", "--speed", "0"}), HasSubstr("--speed takes a number from 0.001 to 1000"));
    EXPECT_THAT(refusal({"replay"}), HasSubstr("'replay' needs a file"));
}

TEST(Arguments, UploadTakesAMask) {
    const Arguments arguments = parsed({"upload", "1", "image", "--interfaces", "0x5"});
    EXPECT_EQ(command_of(arguments), "upload");
    EXPECT_EQ(arguments.file, "image");
    EXPECT_EQ(arguments.interface_mask, 5U);
    EXPECT_EQ(parsed({"upload", "1", "image"}).interface_mask, 0xffffffffU);
    EXPECT_THAT(refusal({"upload", "1", "image", "--interfaces", "0"}),
                HasSubstr("--interfaces takes a number from 1"));
    EXPECT_EQ(refusal({"upload", "1", "image", "--interface", "1"}), "'upload' has no option --interface");
    EXPECT_THAT(refusal({"upload", "1"}), HasSubstr("'upload' needs a file"));
}

TEST(Arguments, HelpAndVersionNeedNothingElse) {
    EXPECT_EQ(command_of(parsed({"--help"})), "help");
    EXPECT_EQ(command_of(parsed({"feature", "-h"})), "help");
    EXPECT_EQ(command_of(parsed({"--version"})), "version");
}

TEST(Arguments, HelpIsAskedForInTwoWays) {
    EXPECT_THAT(parsed({"record", "--help"}).help_topic, testing::ElementsAre("record"));
    EXPECT_THAT(parsed({"feature", "get", "1", "-h", "--length=3"}).help_topic,
                testing::ElementsAre("feature", "get", "1"));
    EXPECT_EQ(command_of(parsed({"help"})), "help");
    EXPECT_THAT(parsed({"help"}).help_topic, testing::IsEmpty());
    EXPECT_THAT(parsed({"help", "ssp", "send"}).help_topic, testing::ElementsAre("ssp", "send"));
    EXPECT_THAT(parsed({"help", "ssp"}).help_topic, testing::ElementsAre("ssp"));
    EXPECT_EQ(refusal({"help", "lst"}), "there is no command 'lst'");
    EXPECT_EQ(refusal({"help", "ssp", "sned"}), "there is no command 'ssp sned'");
    EXPECT_EQ(refusal({"help", "list", "1"}), "there is no command 'list 1'");
}

TEST(Arguments, WrongCommandsAreRefused) {
    EXPECT_EQ(refusal({}), "there is no command");
    EXPECT_EQ(refusal({"lst"}), "there is no command 'lst'");
    EXPECT_EQ(refusal({"feature"}), "'feature' needs to be told what to do");
    EXPECT_EQ(refusal({"report", "set", "1"}), "there is no command 'report set'");
    EXPECT_EQ(refusal({"list", "1"}), "'list' cannot make sense of '1'");
    EXPECT_EQ(refusal({"ssp"}), "'ssp' needs to be told what to do");
    EXPECT_EQ(refusal({"config", "get", "1", "v"}), "there is no command 'config get'");
    EXPECT_EQ(refusal({"button", "input", "1", "5"}), "'button input' cannot make sense of '5'");
    EXPECT_EQ(refusal({"info", "1", "2"}), "'info' cannot make sense of '2'");
}

TEST(Arguments, WrongPadNumbersAreRefused) {
    EXPECT_THAT(refusal({"info"}), HasSubstr("'info' needs the number of a pad"));
    for (const char* pad :
         {"0", "x", "1x", "256", "0x", "0x0", "0x100", "0x1g", "ff", "99999999999999999999", "", "+1"}) {
        EXPECT_THAT(refusal({"info", pad}), HasSubstr("PAD takes a number from 1 to 255")) << pad;
    }
}

TEST(Arguments, OneWordMayBeACommandAndBeginOthers) {
    EXPECT_EQ(command_of(parsed({"ids", "--json"})), "ids");
    EXPECT_EQ(refusal({"ids", "remove"}), "'ids' cannot make sense of 'remove'");
    const Arguments arguments =
        parsed({"ids", "add", "1a2b", "0x3c", "--name", "A pad", "--type=17", "--transport", "vcom"});
    EXPECT_EQ(command_of(arguments), "ids add");
    EXPECT_EQ(arguments.new_id.vendor_id, 0x1a2b);
    EXPECT_EQ(arguments.new_id.product_id, 0x3c);
    EXPECT_EQ(arguments.new_id.transport, id_lines::Transport::vcom);
    EXPECT_EQ(arguments.new_id.pad_type, 17U);
    EXPECT_STREQ(arguments.new_id.name, "A pad");
    EXPECT_EQ(refusal({"ids", "add", "1a2b"}), "'ids add' needs the product's id, as lsusb shows it");
    EXPECT_EQ(refusal({"ids", "add", "1a2b", "3c", "--type", "17"}),
              "'ids add': the transport is neither hid nor vcom");
}

TEST(Arguments, WrongOptionsAreRefused) {
    EXPECT_EQ(refusal({"list", "--jsno"}), "there is no option '--jsno'");
    EXPECT_EQ(refusal({"list", "--json=1"}), "there is no option '--json=1'");
    EXPECT_EQ(refusal({"list", "--wait", "1"}), "'list' has no option --wait");
    EXPECT_EQ(refusal({"feature", "get", "1", "--fill"}), "'feature get' has no option --fill");
    EXPECT_EQ(refusal({"feature", "get", "1", "--length"}), "--length needs a value");
    EXPECT_THAT(refusal({"feature", "get", "1", "--length", "0"}), HasSubstr("--length takes a number from 1"));
    EXPECT_THAT(refusal({"report", "read", "1", "--count=-1"}), HasSubstr("--count takes a number"));
    EXPECT_THAT(refusal({"report", "read", "1", "--interface=4294967296"}), HasSubstr("--interface takes a number"));
}

TEST(Arguments, WrongBytesAreRefused) {
    EXPECT_EQ(refusal({"feature", "set", "1"}), "the bytes to send are missing");
    EXPECT_THAT(refusal({"feature", "set", "1", "xy"}), HasSubstr("'xy' is not hexadecimal"));
    EXPECT_THAT(refusal({"report", "write", "1", std::string(2 * 4097, '0')}), HasSubstr("at most 4096 bytes"));
}

TEST(Arguments, HelpNamesEveryOption) {
    for (const char* name : {"--json",    "--interface", "--length",        "--reply",           "--fill",
                             "--wait",    "--timeout",   "--count",         "--pen-data",        "--component",
                             "--message", "--seconds",   "-o FILE",         "--layout LAYOUT",   "--layout-file",
                             "--speed",   "--fast",      "--pad N",         "--interfaces MASK", "--trace",
                             "--help",    "--version",   "--format FORMAT", "Exit status"}) {
        EXPECT_THAT(help_text(), HasSubstr(name));
    }
}

TEST(Arguments, HelpNamesEveryCommandAndEveryName) {
    for (const char* command : {"list",
                                "info PAD",
                                "feature get PAD",
                                "feature set PAD",
                                "report read PAD",
                                "report write PAD",
                                "ssp send PAD",
                                "ssp receive PAD",
                                "ssp components PAD",
                                "ssp modes PAD",
                                "ssp description PAD",
                                "ssp connection PAD",
                                "config set PAD",
                                "config persist PAD",
                                "config state PAD",
                                "button input PAD",
                                "button event PAD",
                                "button set PAD",
                                "button refresh PAD",
                                "monitor PAD",
                                "record PAD -o FILE",
                                "replay FILE",
                                "plot FILE",
                                "export FILE",
                                "watch",
                                "upload PAD FILE"}) {
        EXPECT_THAT(help_text(), HasSubstr(std::string("\n  ") + command)) << command;
    }
    for (const Names names : {component_types, button_modes, buttons}) {
        for (const Name& name : names) {
            EXPECT_THAT(help_text(), HasSubstr(std::string(name.name)));
        }
    }
}

TEST(Arguments, EveryCommandTakesOptionsThatThereAre) {
    for (const Command& command : all_commands()) {
        std::istringstream names{std::string(command.options)};
        for (std::string name; names >> name;) {
            EXPECT_NE(find_option(name), nullptr) << command.name << " " << name;
        }
    }
}

TEST(Arguments, HelpNamesTheCommandsOfAnOption) {
    const std::string help = in_one_line(help_text());
    EXPECT_THAT(
        help,
        HasSubstr(" --json list, info, watch, doctor, ids, report read, ssp receive, ssp components, ssp modes, ssp "
                  "description, ssp connection, config state, button input, button event, monitor, replay: "
                  "JSON instead of text "));
    EXPECT_THAT(help, HasSubstr(" --interface K feature, report, ssp send, ssp receive, monitor, record: "));
    EXPECT_THAT(help, HasSubstr(" --fill feature set, report write: "));
    for (const Option& option : all_options()) {
        if (option.help.empty() || option.help.starts_with("{}") || option.help.starts_with("the ")) {
            continue;
        }
        for (const Command& command : all_commands()) {
            EXPECT_TRUE(!command.has_option(option.name) || option.help.find(command.name) != std::string_view::npos)
                << option.name << " " << command.name;
        }
    }
}

TEST(Arguments, TheDoctorTakesAPadInThreeWaysOrNone) {
    EXPECT_EQ(parsed({"doctor"}).pad, 0U);
    EXPECT_EQ(parsed({"doctor", "2", "--bundle", "x.txt"}).pad, 2U);
    EXPECT_EQ(parsed({"doctor", "2", "--bundle", "x.txt"}).bundle, "x.txt");
    EXPECT_EQ(parsed({"doctor", "1-4.2"}).node, "1-4.2");
    EXPECT_EQ(parsed({"doctor", "/dev/bus/usb/001/007"}).node, "/dev/bus/usb/001/007");
    EXPECT_EQ(refusal({"doctor", "x"}), "PLACE takes a number from 1 to 255, not 'x'");
    EXPECT_EQ(refusal({"doctor", "1", "2"}), "'doctor' cannot make sense of '2'");
}

TEST(Arguments, HelpNamesTheTypesOfALayout) {
    std::string types = list_field_types();
    types.replace(types.rfind(", "), 2, " and ");
    EXPECT_THAT(in_one_line(help_text()), HasSubstr("the types " + types + ":"));
}
