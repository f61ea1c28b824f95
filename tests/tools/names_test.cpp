#include "names.hpp"

#include <gtest/gtest.h>
#include <set>

using namespace vxpadctl;

TEST(Names, AreFoundFromEitherSide) {
    EXPECT_EQ(name_of(component_types, 3), "configuration");
    EXPECT_EQ(value_of(component_types, "configuration"), 3U);
    EXPECT_EQ(name_of(mode_types, 13), "user-input");
    EXPECT_EQ(name_of(configuration_states, 4), "failed");
    EXPECT_EQ(name_of(component_types, 2), "");
    EXPECT_EQ(value_of(component_types, ""), std::nullopt);
}

TEST(Names, AreUniqueWithinTheirFamily) {
    for (const Names names : {component_types, mode_types, buttons, configuration_states}) {
        std::set<std::uint32_t> values;
        std::set<std::string_view> words;
        for (const Name& name : names) {
            EXPECT_TRUE(values.insert(name.value).second) << name.name;
            EXPECT_TRUE(words.insert(name.name).second) << name.name;
        }
    }
}

TEST(Names, TheModesWithButtonsAreThoseThatTheLibraryTakes) {
    EXPECT_EQ(list_names(button_modes), "signature, doc-view or doc-sign");
    EXPECT_EQ(name_of(button_modes, 13), "");
}
