#include "manual/markdown.hpp"

#include <gmock/gmock.h>
#include <string>
#include <vector>

using namespace manual;
using testing::ElementsAre;
using testing::SizeIs;

TEST(Markdown, HasSectionsAndParagraphs) {
    const auto sections = read_markdown("# Title\n\nOne\ntwo.\n\nThree.\n\n## Next\n\nFour.\n");
    ASSERT_THAT(sections, SizeIs(2));
    EXPECT_EQ(sections[0].heading, "");
    ASSERT_THAT(sections[0].blocks, SizeIs(2));
    EXPECT_EQ(sections[0].blocks[0].text, "One two.");
    EXPECT_EQ(sections[0].blocks[1].text, "Three.");
    EXPECT_EQ(sections[1].heading, "Next");
    EXPECT_EQ(sections[1].blocks[0].text, "Four.");
}

TEST(Markdown, KeepsIndentedLines) {
    const auto blocks = read_markdown("Text\n\n    a  b\n\n      c\n\nMore\n\n```\nd\n\n# e\n```\n")[0].blocks;
    ASSERT_THAT(blocks, SizeIs(4));
    EXPECT_THAT(blocks[1].lines, ElementsAre("a  b", "", "  c"));
    EXPECT_EQ(blocks[2].text, "More");
    EXPECT_THAT(blocks[3].lines, ElementsAre("d", "", "# e"));
}

TEST(Markdown, MakesListsOfTables) {
    const auto blocks =
        read_markdown("| a | b |\n|---|---|\n| `x`, `y` | one `|` |\n| z | two | three |\n\nEnd\n")[0].blocks;
    ASSERT_THAT(blocks, SizeIs(2));
    ASSERT_THAT(blocks[0].entries, SizeIs(2));
    EXPECT_EQ(blocks[0].entries[0].head, "`x`, `y`");
    EXPECT_EQ(blocks[0].entries[0].text, "one `|`");
    EXPECT_EQ(blocks[0].entries[1].text, "two; three");
}

TEST(Markdown, TablesEndWithTheirLines) {
    const auto blocks = read_markdown("| a | |\n\n| b | c | | d |\n")[0].blocks;
    ASSERT_THAT(blocks, SizeIs(2));
    EXPECT_EQ(blocks[0].entries[0].text, "");
    EXPECT_EQ(blocks[1].entries[0].text, "c; d");
}

TEST(Markdown, MakesListsOfItems) {
    const auto blocks = read_markdown("Which:\n- one\n  more\n- two\n\n1. three\n   four\n2. five\n\nEnd\n")[0].blocks;
    ASSERT_THAT(blocks, SizeIs(4));
    ASSERT_THAT(blocks[1].entries, SizeIs(2));
    EXPECT_EQ(blocks[1].entries[0].text, "one more");
    EXPECT_EQ(blocks[2].entries[0].head, "1.");
    EXPECT_EQ(blocks[2].entries[0].text, "three four");
    EXPECT_EQ(blocks[2].entries[1].text, "five");
    EXPECT_EQ(blocks[3].text, "End");
}

TEST(Markdown, ItemsGoOnBehindAnEmptyLine) {
    const auto blocks = read_markdown("* one\n\n  more\n\nEnd\n")[0].blocks;
    ASSERT_THAT(blocks, SizeIs(2));
    EXPECT_EQ(blocks[0].entries[0].text, "one more");
    EXPECT_EQ(blocks[1].text, "End");
}

TEST(Markdown, LosesMarks) {
    const auto text = [](const std::string& line) { return read_markdown(line)[0].blocks[0].text; };
    EXPECT_EQ(text("see [the file](../a/b.txt), [x]"), "see the file, [x]");
    EXPECT_EQ(text("[x] or [the file](b.txt)"), "[x] or the file");
    EXPECT_EQ(text("[it](https://example.org)"), "it (https://example.org)");
    EXPECT_EQ(text("**bold** and `[a](b) **`"), "`bold` and `[a](b) **`");
}

TEST(Markdown, TakesAnyText) {
    for (const char* text :
         {"", "|", "|-|", "|-|\n|-|", "- ", "1. ", "```", "[](", "    ", "`", "## ", "\n\n\n", "[a]("}) {
        EXPECT_NO_FATAL_FAILURE(read_markdown(text)) << text;
    }
}
