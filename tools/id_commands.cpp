#include "id_commands.hpp"

#include "added_ids.hpp"
#include "findings.hpp"
#include "hex.hpp"
#include "library.hpp"
#include "messages.hpp"
#include "printing.hpp"
#include "table.hpp"
#include "text.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace vxpadctl {

namespace {

namespace fs = std::filesystem;

std::string transport_name(id_lines::Transport transport) {
    return std::string(id_lines::transport_names[static_cast<std::size_t>(transport)]);
}

// What a line of the list tells. Without a file the id is built in.
struct KnownId {
    UsbId id;
    id_lines::Transport transport;
    std::optional<unsigned int> type; // nothing: the pad's own description tells
    std::string name;
    std::string maker; // only of pads whose manufacturer's name begins with it
    std::optional<std::string> file;
    unsigned int line = 0;
};

std::vector<KnownId> known_ids(const std::vector<AddedId>& added) {
    std::vector<KnownId> known;
    for (const AddedId& one : added) {
        known.push_back({id_of(one.id), one.id.transport, one.id.pad_type, one.id.name, {}, one.file, one.line});
    }
    for (const BuiltInId& one : built_in_ids()) {
        const bool is_replaced =
            std::ranges::any_of(added, [&](const AddedId& other) { return id_of(other.id) == one.id; });
        if (!is_replaced) {
            known.push_back({one.id, one.transport, one.type, {}, std::string(one.maker), std::nullopt});
        }
    }
    return known;
}

std::string table_of(const std::vector<KnownId>& known) {
    std::vector<Row> rows{{"ID", "TRANSPORT", "TYPE", "NAME", "FROM"}};
    for (const KnownId& one : known) {
        const std::string name = one.maker.empty() ? one.name : "if made by " + one.maker;
        rows.push_back({to_text(one.id), transport_name(one.transport), one.type ? std::to_string(*one.type) : "-",
                        name.empty() ? "-" : for_terminal(name),
                        one.file ? for_terminal(*one.file) + ":" + std::to_string(one.line) : "built in"});
    }
    return format_table(std::move(rows), RowEnd::whole);
}

std::string json_of(const std::vector<KnownId>& known) {
    std::string text = "[";
    for (const KnownId& one : known) {
        text += (&one == &known.front() ? "" : ",\n ");
        text += "{\"vendor_id\": " + json_string(hex_id(one.id.vendor)) +
                ", \"product_id\": " + json_string(hex_id(one.id.product)) +
                ", \"transport\": " + json_string(transport_name(one.transport)) +
                ", \"type\": " + (one.type ? std::to_string(*one.type) : "null") +
                ", \"name\": " + json_string(one.name) +
                ", \"maker\": " + (one.maker.empty() ? "null" : json_string(one.maker)) +
                ", \"file\": " + (one.file ? json_string(*one.file) : "null") +
                ", \"line\": " + (one.file ? std::to_string(one.line) : "null") + "}";
    }
    return text + "]\n";
}

std::string line_of(const id_lines::Id& id) {
    std::string line = hex_id(id.vendor_id) + " " + hex_id(id.product_id) + " " + transport_name(id.transport) + " " +
                       std::to_string(id.pad_type);
    return id.name[0] == '\0' ? line : line + " " + id.name;
}

// The system's for root, else the user's, unless the environment names another one.
fs::path folder_for_new_ids(const std::string& line) {
    const id_files::Places places = id_files::find_places();
    if (places.named != nullptr) {
        std::error_code ignored;
        if (!fs::is_directory(places.named, ignored)) {
            throw std::runtime_error(std::string(id_files::variable) + " is " + for_terminal(places.named) +
                                     ", which is no folder. The line for a file of your own:\n" + line);
        }
        return places.named;
    }
    if (::geteuid() == 0) {
        ::umask(022); // all users are to read it
        return places.system;
    }
    if (places.user[0] == '\0') {
        throw std::runtime_error("you have no home directory. The line for a file of your own:\n" + line);
    }
    return places.user;
}

void write_new_file(const fs::path& path, const std::string& text) {
    OwnedFile file{std::fopen(path.c_str(), "wxe")}; // one that is there stays as it is
    if (!file) {
        throw std::runtime_error("cannot write " + for_terminal(path.string()) + ": " + std::strerror(errno));
    }
    print(file.get(), text);
    try {
        flush(file.get(), path);
    } catch (...) {
        ::unlink(path.c_str());
        throw;
    }
}

} // namespace

bool ids(const Arguments& arguments, std::FILE* results) {
    const AddedIds added = read_added_ids();
    const std::vector<KnownId> known = known_ids(added.ids);
    print(results, arguments.json ? json_of(known) : table_of(known));
    for (const std::string& complaint : added.complaints) {
        std::cerr << "vxpadctl: " << say(Message::left_out, {complaint}) << '\n';
    }
    return added.complaints.empty();
}

bool ids_add(const Arguments& arguments, std::FILE* results) {
    const UsbId id = id_of(arguments.new_id);
    for (const AddedId& one : read_added_ids().ids) {
        if (id_of(one.id) == id) {
            throw std::runtime_error(to_text(id) + " stands in " + for_terminal(one.file) + ":" +
                                     std::to_string(one.line) + " already");
        }
    }
    const std::string line = line_of(arguments.new_id);
    const fs::path folder = folder_for_new_ids(line);
    std::error_code failure;
    fs::create_directories(folder, failure);
    if (failure) {
        throw std::runtime_error("cannot make " + for_terminal(folder.string()) + ": " + failure.message());
    }
    const fs::path path = folder / (hex_id(id.vendor) + "-" + hex_id(id.product) + ".ids");
    write_new_file(path, "# vendor product transport type name\n" + line + "\n");
    print(results, for_terminal(path.string()) + ": " + for_terminal(line) + "\n" + explain_rule(id) + "\n");
    return true;
}

} // namespace vxpadctl
