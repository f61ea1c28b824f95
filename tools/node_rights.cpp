#include "node_rights.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace vxpadctl {

namespace {

enum AclTag : unsigned int { owner_entry = 1, user_entry = 2, group_of_file = 4, group_entry = 8, mask_entry = 16 };

constexpr unsigned int read_and_write = 6;
constexpr std::size_t acl_header = 4; // the version
constexpr std::size_t acl_entry = 8;  // tag, rights, id

bool allows(unsigned int rights) {
    return (rights & read_and_write) == read_and_write;
}

std::string letters(unsigned int rights) {
    return std::string(1, (rights & 4) != 0 ? 'r' : '-') + ((rights & 2) != 0 ? 'w' : '-');
}

// "crw-rw----"
std::string mode_letters(mode_t mode) {
    std::string text(1, S_ISCHR(mode) ? 'c' : S_ISREG(mode) ? '-' : '?');
    for (const unsigned int shift : {6U, 3U, 0U}) {
        const unsigned int rights = mode >> shift & 7;
        text += letters(rights) + ((rights & 1) != 0 ? 'x' : '-');
    }
    return text;
}

} // namespace

NodeRights rights_of(const std::filesystem::path& node) {
    NodeRights rights;
    struct stat status {};
    if (::stat(node.c_str(), &status) != 0) {
        rights.open_error = errno;
        return rights;
    }
    rights.is_there = true;
    rights.owner = status.st_uid;
    rights.group = status.st_gid;
    rights.mode = status.st_mode;
    std::array<std::uint8_t, 4096> attribute{};
    const ssize_t size = ::getxattr(node.c_str(), "system.posix_acl_access", attribute.data(), attribute.size());
    if (size > 0) {
        rights.acl = parse_acl(std::span{attribute}.first(static_cast<std::size_t>(size)));
    }
    if (const int fd = ::open(node.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK); fd >= 0) {
        ::close(fd);
    } else {
        rights.open_error = errno;
    }
    return rights;
}

User this_user() {
    User user{::geteuid(), {::getegid()}};
    if (const int count = ::getgroups(0, nullptr); count > 0) {
        std::vector<gid_t> groups(static_cast<std::size_t>(count));
        groups.resize(static_cast<std::size_t>(std::max(::getgroups(count, groups.data()), 0)));
        user.groups.insert(user.groups.end(), groups.begin(), groups.end());
    }
    return user;
}

Acl parse_acl(std::span<const std::uint8_t> attribute) {
    const auto number = [&](std::size_t at, std::size_t size) {
        std::uint32_t value = 0;
        for (std::size_t i = size; i-- > 0;) {
            value = value << 8 | attribute[at + i];
        }
        return value;
    };
    constexpr std::uint32_t known_version = 2;
    Acl acl;
    if (attribute.size() < acl_header || number(0, 4) != known_version) {
        return acl;
    }
    for (std::size_t at = acl_header; at + acl_entry <= attribute.size(); at += acl_entry) {
        const unsigned int rights = number(at + 2, 2) & 7;
        const std::uint32_t id = number(at + 4, 4);
        switch (number(at, 2)) {
        case user_entry:
            acl.entries.push_back({AclEntry::Kind::user, id, rights});
            break;
        case group_entry:
            acl.entries.push_back({AclEntry::Kind::group, id, rights});
            break;
        case group_of_file:
            acl.group = rights;
            break;
        case mask_entry:
            acl.mask = rights;
            break;
        default:
            break;
        }
    }
    return acl;
}

// In the kernel's order: the first entry for the user counts, except that any of the groups may allow it.
std::optional<std::string> granted_by(const NodeRights& rights, const User& user) {
    if (!rights.is_there) {
        return std::nullopt;
    }
    if (user.id == 0) {
        return "root";
    }
    const auto when = [](bool allowed, const char* by) {
        return allowed ? std::optional<std::string>(by) : std::nullopt;
    };
    if (user.id == rights.owner) {
        return when(allows(rights.mode >> 6 & 7), "owner");
    }
    const unsigned int mask = rights.acl.mask.value_or(7);
    for (const AclEntry& entry : rights.acl.entries) {
        if (entry.kind == AclEntry::Kind::user && entry.id == user.id) {
            return when(allows(entry.rights & mask), "access list");
        }
    }
    const auto is_member = [&](gid_t group) { return std::ranges::find(user.groups, group) != user.groups.end(); };
    bool any_group = is_member(rights.group);
    // With an access list the mode's group bits are the mask.
    if (any_group && allows(rights.acl.group.value_or(rights.mode >> 3 & 7) & mask)) {
        return "group";
    }
    for (const AclEntry& entry : rights.acl.entries) {
        if (entry.kind == AclEntry::Kind::group && is_member(entry.id)) {
            any_group = true;
            if (allows(entry.rights & mask)) {
                return "access list";
            }
        }
    }
    return when(!any_group && allows(rights.mode & 7), "others");
}

std::string describe_rights(const NodeRights& rights) {
    if (!rights.is_there) {
        return "the device file is missing";
    }
    std::string text = mode_letters(rights.mode) + (rights.acl.entries.empty() ? " " : "+ ") + user_name(rights.owner) +
                       " " + group_name(rights.group);
    for (const AclEntry& entry : rights.acl.entries) {
        const bool is_user = entry.kind == AclEntry::Kind::user;
        text += std::string(is_user ? ", user " : ", group ") + (is_user ? user_name(entry.id) : group_name(entry.id)) +
                " " + letters(entry.rights & rights.acl.mask.value_or(7));
    }
    return text;
}

std::string user_name(uid_t id) {
    const passwd* entry = ::getpwuid(id);
    return entry != nullptr ? entry->pw_name : std::to_string(id);
}

std::string group_name(gid_t id) {
    const ::group* entry = ::getgrgid(id);
    return entry != nullptr ? entry->gr_name : std::to_string(id);
}

} // namespace vxpadctl
