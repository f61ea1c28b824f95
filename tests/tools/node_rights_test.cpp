#include "node_rights.hpp"

#include "machine_tree.hpp"

#include <cerrno>
#include <gmock/gmock.h>
#include <sys/stat.h>

using namespace vxpadctl;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;

namespace {

constexpr mode_t device = S_IFCHR;
const User clerk{1000, {1000, 44}};

NodeRights rights(mode_t mode, uid_t owner = 0, gid_t group = 0) {
    NodeRights made;
    made.is_there = true;
    made.owner = owner;
    made.group = group;
    made.mode = device | mode;
    return made;
}

// As logind makes it for the user at the seat.
constexpr std::array<std::uint8_t, 44> seat_acl{2,  0, 0, 0,                          // version
                                                1,  0, 6, 0, 0xff, 0xff, 0xff, 0xff,  // owner
                                                2,  0, 6, 0, 0xe8, 3,    0,    0,     // user 1000
                                                4,  0, 0, 0, 0xff, 0xff, 0xff, 0xff,  // group of the file
                                                16, 0, 6, 0, 0xff, 0xff, 0xff, 0xff,  // mask
                                                32, 0, 0, 0, 0xff, 0xff, 0xff, 0xff}; // others

} // namespace

TEST(NodeRights, RootMayEverything) {
    EXPECT_THAT(granted_by(rights(0), {0, {0}}), Optional(std::string("root")));
}

TEST(NodeRights, TheModeGrantsToOwnerGroupAndOthers) {
    EXPECT_THAT(granted_by(rights(0600, 1000), clerk), Optional(std::string("owner")));
    EXPECT_THAT(granted_by(rights(0660, 0, 44), clerk), Optional(std::string("group")));
    EXPECT_THAT(granted_by(rights(0666), clerk), Optional(std::string("others")));
    EXPECT_EQ(granted_by(rights(0660), clerk), std::nullopt);
    EXPECT_EQ(granted_by(rights(0664), clerk), std::nullopt) << "reading alone is not enough";
}

TEST(NodeRights, TheFirstEntryForTheUserCounts) {
    EXPECT_EQ(granted_by(rights(0066, 1000), clerk), std::nullopt);
    EXPECT_EQ(granted_by(rights(0606, 0, 44), clerk), std::nullopt);
}

TEST(NodeRights, TheAccessListGrantsToTheUserAtTheSeat) {
    NodeRights at_seat = rights(0660);
    at_seat.acl = parse_acl(seat_acl);
    EXPECT_THAT(at_seat.acl.entries, ElementsAre(AclEntry{AclEntry::Kind::user, 1000, 6}));
    EXPECT_THAT(granted_by(at_seat, clerk), Optional(std::string("access list")));
    EXPECT_EQ(granted_by(at_seat, {1001, {1001}}), std::nullopt);
    EXPECT_EQ(granted_by(at_seat, {1001, {0}}), std::nullopt) << "the mode's group bits are the mask";
    at_seat.acl.mask = 4;
    EXPECT_EQ(granted_by(at_seat, clerk), std::nullopt);
}

TEST(NodeRights, TheAccessListGrantsToGroups) {
    NodeRights listed = rights(0660);
    listed.acl.entries = {{AclEntry::Kind::group, 44, 6}};
    listed.acl.mask = 6;
    EXPECT_THAT(granted_by(listed, clerk), Optional(std::string("access list")));
    listed.mode = device | 0666;
    listed.acl.entries = {{AclEntry::Kind::group, 44, 4}};
    EXPECT_EQ(granted_by(listed, clerk), std::nullopt) << "a member is none of the others";
}

TEST(NodeRights, AnAccessListThatMakesNoSenseIsEmpty) {
    for (std::size_t size = 0; size < seat_acl.size(); ++size) {
        EXPECT_LE(parse_acl(std::span(seat_acl).first(size)).entries.size(), 1U);
    }
    std::array<std::uint8_t, 12> other_version{3, 0, 0, 0, 2, 0, 6, 0, 0xe8, 3, 0, 0};
    EXPECT_TRUE(parse_acl(other_version).entries.empty());
}

TEST(NodeRights, AreDescribedAsPeopleKnowThem) {
    NodeRights at_seat = rights(0660);
    at_seat.acl = parse_acl(seat_acl);
    at_seat.acl.entries[0].id = 4000000000U;
    EXPECT_EQ(describe_rights(at_seat), "crw-rw----+ root root, user 4000000000 rw");
    EXPECT_EQ(describe_rights({}), "the device file is missing");
}

using NodeRightsOfFiles = vxpadctl_test::MachineTree;

TEST_F(NodeRightsOfFiles, AreRead) {
    const NodeRights read = rights_of(pad_.node);
    EXPECT_TRUE(read.is_there);
    EXPECT_EQ(read.owner, ::geteuid());
    EXPECT_EQ(read.open_error, 0);
}

TEST_F(NodeRightsOfFiles, OfAMissingFileSayWhy) {
    const NodeRights read = rights_of(directory_ / "none");
    EXPECT_FALSE(read.is_there);
    EXPECT_EQ(read.open_error, ENOENT);
    EXPECT_EQ(granted_by(read, {0, {0}}), std::nullopt);
}
