#include "doctor.hpp"

#include "added_ids.hpp"
#include "examination.hpp"
#include "library.hpp"
#include "messages.hpp"
#include "printing.hpp"
#include "run_apart.hpp"
#include "text.hpp"
#include "values.hpp"
#include "version_line.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <sys/utsname.h>
#include <unistd.h>
#include <vxpadcom/vxpadcom.h>

namespace vxpadctl {

namespace {

namespace fs = std::filesystem;

// Whoever has not answered by then will hardly do so later: the library's own requests give up a pad after a second.
constexpr std::chrono::milliseconds longest_answer{4000};
constexpr std::chrono::milliseconds between_tellings{1000};
constexpr std::chrono::milliseconds longest_journal{900};

// Which file was loaded: its name tells the version, libvxpadcom.so.0.1.0.
std::string library_file() {
    Dl_info info{};
    std::error_code ignored;
    if (::dladdr(reinterpret_cast<void*>(&Initialize), &info) == 0 || info.dli_fname == nullptr) {
        return "?";
    }
    return fs::canonical(info.dli_fname, ignored).filename().string();
}

std::string kernel_version() {
    utsname names{};
    return ::uname(&names) == 0 ? names.release : "?";
}

std::vector<std::pair<std::string, std::string>> versions() {
    return {{"vxpadctl", VXPADCOM_VERSION_STRING},
            {"library", library_file()},
            {"libusb", version_line::of_libusb()},
            {"hidapi", version_line::of_hidapi()},
            {"Linux", kernel_version()}};
}

// What journalctl has to say, for those who may not read the kernel's own file but are in the journal's group.
std::string journal() {
    std::string text;
    std::FILE* out =
        ::popen("journalctl --dmesg --boot=0 --quiet --no-pager --output=cat --lines=5000 2>/dev/null", "r");
    if (out == nullptr) {
        return text;
    }
    char part[4096];
    while (const std::size_t size = std::fread(part, 1, sizeof part, out)) {
        text.append(part, size);
    }
    ::pclose(out);
    return text;
}

KernelLog kernel_log() {
    KernelLog log = read_kernel_log();
    if (log.trouble.empty()) {
        return log;
    }
    const ApartWork piece{journal};
    const auto text = run_apart({&piece, 1}, {longest_journal, longest_journal}, [](auto&&...) {}).front();
    std::string_view rest = text ? std::string_view(*text) : std::string_view();
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        log.lines.push_back(only_ascii(rest.substr(0, end)));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    if (!log.lines.empty()) {
        log.trouble.clear();
    }
    return log;
}

bool is_chosen(const Arguments& arguments, const BusDevice& device, unsigned int number) {
    if (!arguments.node.empty()) {
        return device.node == arguments.node || device.port == arguments.node;
    }
    return arguments.pad == 0 || arguments.pad == number;
}

// With a look at each, before any is asked: the asking would be seen.
std::vector<Examined> chosen_pads(const Arguments& arguments, std::span<const BusDevice> on_bus) {
    std::vector<Examined> pads;
    for (std::size_t i = 0; i < on_bus.size(); ++i) {
        const auto number = static_cast<unsigned int>(i + 1);
        if (is_chosen(arguments, on_bus[i], number)) {
            pads.push_back({.number = number, .look = look_at(on_bus[i])});
            pads.back().finding = obstacle_of(pads.back().look, ::getpid());
        }
    }
    if (pads.empty() && (arguments.pad != 0 || !arguments.node.empty())) {
        throw std::runtime_error(
            say(Message::no_such_pad, {arguments.node.empty() ? std::to_string(arguments.pad) : arguments.node}));
    }
    return pads;
}

bool is_gone(const BusDevice& device) {
    std::error_code ignored;
    return !fs::exists(device.node, ignored);
}

std::string seconds(std::chrono::milliseconds time) {
    return std::to_string(std::chrono::duration_cast<std::chrono::seconds>(time).count());
}

void ask(std::span<Examined> pads, std::span<const AddedId> added) {
    std::vector<Examined*> asked;
    std::vector<ApartWork> pieces;
    for (Examined& pad : pads) {
        if (pad.finding != Finding::well) {
            continue;
        }
        const BusDevice& device = pad.look.device;
        asked.push_back(&pad);
        pieces.push_back({[&device, type = pad_type(device.id, added)] {
                              const auto answer = ask_pad(device, type);
                              return answer ? to_text(*answer) : std::string();
                          },
                          [&device] { return is_gone(device); }});
    }
    const auto tell = [&](std::span<const std::size_t> waited_for, std::chrono::milliseconds time) {
        for (const std::size_t piece : waited_for) {
            std::cerr << "vxpadctl: " +
                             say(Message::asking,
                                 {name_of(asked[piece]->look.device), seconds(time), seconds(longest_answer)}) +
                             "\n";
        }
    };
    const auto answers = run_apart(pieces, {longest_answer, between_tellings}, tell);
    for (std::size_t i = 0; i < asked.size(); ++i) {
        asked[i]->answer = parse_answer(answers[i].value_or(""));
        if (!asked[i]->answer) {
            // Somebody may have been quicker.
            const Look again = look_at(asked[i]->look.device);
            if (obstacle_of(again, ::getpid()) == Finding::busy) {
                asked[i]->look = again;
                asked[i]->finding = Finding::busy;
                continue;
            }
            asked[i]->finding = Finding::silent;
            // Who was ended while he asked could not do so.
            for (const InterfaceDriver& driver : asked[i]->look.drivers) {
                if (!driver.driver.empty()) {
                    give_back(asked[i]->look.device, driver.interface);
                }
            }
        }
    }
}

Examination examine(const Arguments& arguments) {
    const AddedIds added = read_added_ids();
    const std::vector<SearchedId> ids = searched_ids(added.ids);
    Examination examination{versions(), surroundings_of_this_process(), this_user(), {}, {}, {}};
    examination.pads = chosen_pads(arguments, in_search_order(list_on_bus(ids), ids));
    ask(examination.pads, added.ids);
    const std::vector<BusDevice> at_last = list_on_bus(ids);
    for (Examined& pad : examination.pads) {
        if (std::ranges::find(at_last, pad.look.device.node, &BusDevice::node) == at_last.end()) {
            pad.finding = Finding::unplugged;
        }
        pad.advice = advice_for(pad.finding, pad.look, examination.around);
    }
    find_twins(examination.pads, examination.around);
    const KernelLog log = kernel_log();
    examination.kernel_log_trouble = log.trouble;
    examination.left_out = added.complaints;
    for (Examined& pad : examination.pads) {
        pad.kernel_messages = messages_about(pad.look.device.port, log.lines);
    }
    return examination;
}

std::string now() {
    const std::time_t time = std::time(nullptr);
    std::tm parts{};
    char text[32] = {};
    ::gmtime_r(&time, &parts);
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M UTC", &parts);
    return text;
}

void write_bundle(const Examination& examination, const std::string& name) {
    const char* home = std::getenv("HOME");
    const Masks masks = masks_of(examination, home == nullptr ? "" : home, user_name(::getuid()));
    const std::string text = "vxpadctl doctor, " + now() + "\n" + examination_text(examination) +
                             "\nThe same for programs:\n" + examination_json(examination);
    const OwnedFile file = create_file(name);
    print(file.get(), masked(text, masks));
    flush(file.get(), name);
    std::cerr << "vxpadctl: " << say(Message::bundle_written, {for_terminal(name)}) << '\n';
}

} // namespace

void take_bus_pad(Operands& operands, Arguments& arguments) {
    if (operands.empty()) {
        return;
    }
    const std::string_view word = operands.next("a pad");
    if (word.find_first_of("/-") != std::string_view::npos) {
        arguments.node = word;
    } else {
        arguments.pad = parse_number("PLACE", word, 1, 255);
    }
}

bool doctor(const Arguments& arguments, std::FILE* results) {
    const Examination examination = examine(arguments);
    print(results, arguments.json ? examination_json(examination) : examination_text(examination));
    flush(results);
    if (!arguments.bundle.empty()) {
        write_bundle(examination, arguments.bundle);
    }
    return examination.is_well();
}

} // namespace vxpadctl
