// Who may open a device file, and by which entry of its rights.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vxpadctl {

// A user or a group that the access list names besides owner and group.
struct AclEntry {
    enum class Kind { user, group } kind;
    std::uint32_t id;
    unsigned int rights; // 4 read, 2 write
    bool operator==(const AclEntry&) const = default;
};

struct Acl {
    std::vector<AclEntry> entries;
    std::optional<unsigned int> group;     // rights of the file's group where a mask limits them
    std::optional<unsigned int> mask = {}; // of everybody but the owner and others
};

struct NodeRights {
    uid_t owner = 0;
    gid_t group = 0;
    mode_t mode = 0;
    Acl acl;
    bool is_there = false;
    int open_error = 0; // what opening it for reading and writing said
};

struct User {
    uid_t id;
    std::vector<gid_t> groups; // with the first one
};

NodeRights rights_of(const std::filesystem::path& node);
User this_user();

// As the kernel keeps it in the extended attribute. An attribute that makes no sense gives an empty list.
Acl parse_acl(std::span<const std::uint8_t> attribute);

// By what the user may read and write: "root", "owner", "access list", "group", "others", or nothing.
std::optional<std::string> granted_by(const NodeRights& rights, const User& user);

// "crw-rw----+ root plugdev, user clerk rw"
std::string describe_rights(const NodeRights& rights);

// The number where it has no name.
std::string user_name(uid_t id);
std::string group_name(gid_t id);

} // namespace vxpadctl
