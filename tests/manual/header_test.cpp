#include "manual/header.hpp"

#include <gmock/gmock.h>
#include <string>

using namespace manual;
using testing::HasSubstr;
using testing::SizeIs;

namespace {

const std::string small_header = R"(/*
 * lib: things.
 *
 * 1. First
 *    rule.
 * And so on.
 */
#ifndef X
#define X

/* -----------------
 * Things & more
 *
 * Said of all.
 * -------------- */

/* Codes. */
enum {
    A = 0, /* one */
    B = 1  /* <two> */
};

/* A size. */
#define SIZE 3

/*
 * Reads one. It reads
 * *reply, never "<x>" <y>.
 *  * deep
 */
VXPADCOM_API int ReadOne(int a,
                         int b);
VXPADCOM_API int ReadTwo(void);

VXPADCOM_API int Untold(void);

/* Called. */
typedef void (*called)(int a, int b);

/* ------
 * Others
 * ------ */

/* A word. */
VXPADCOM_API extern char* word;
#endif
)";

} // namespace

TEST(Header, IsReadBySections) {
    const Header header = read_header(small_header);
    EXPECT_EQ(header.opening, "lib: things.\n\n1. First\n   rule.\n\nAnd so on.");
    ASSERT_THAT(header.sections, SizeIs(2));
    EXPECT_EQ(header.sections[0].title, "Things & more");
    EXPECT_EQ(page_of(header.sections[0]), "vxpadcom_things___more");
    const auto& declarations = header.sections[0].declarations;
    ASSERT_THAT(declarations, SizeIs(6));
    EXPECT_EQ(declarations[1].code, "#define SIZE 3");
    EXPECT_EQ(declarations[2].name, "ReadOne");
    EXPECT_TRUE(declarations[2].is_function);
    EXPECT_EQ(declarations[2].comment, "Reads one. It reads\n*reply, never \"<x>\" <y>.\n * deep");
    EXPECT_EQ(declarations[3].name, "ReadTwo");
    EXPECT_EQ(declarations[3].comment, declarations[2].comment);
    EXPECT_EQ(declarations[5].name, "called");
    EXPECT_FALSE(declarations[5].is_function);
    EXPECT_EQ(header.sections[1].declarations[0].name, "word");
    EXPECT_FALSE(header.sections[1].declarations[0].is_function);
}

// A function without a comment of its own is for Doxygen to complain of.
TEST(Header, KeepsWhatNobodyTells) {
    const auto declarations = read_header(small_header).sections[0].declarations;
    EXPECT_EQ(declarations[4].name, "Untold");
    EXPECT_EQ(declarations[4].comment, "");
    EXPECT_THAT(for_doxygen(read_header(small_header)), HasSubstr("\n\nVXPADCOM_API int Untold(void);"));
}

TEST(Header, BecomesWhatDoxygenReads) {
    const std::string result = for_doxygen(read_header(small_header));
    EXPECT_THAT(result, HasSubstr("/** @defgroup vxpadcom_things___more Things \\& more\n"));
    EXPECT_THAT(result, HasSubstr(" * Reads one. It reads\n * *reply, never \"<x>\" \\<y\\>.\n *  * deep\n "
                                  "*/\nVXPADCOM_API int ReadTwo(void);\n"));
    EXPECT_THAT(result, HasSubstr("B = 1  /**< \\<two\\> */"));
    EXPECT_THAT(result, HasSubstr(" * -# First\n"));
}

TEST(Header, BecomesAnOverview) {
    const std::string page = as_man(overview(read_header(small_header)), "lib 1");
    EXPECT_THAT(page, HasSubstr("ReadOne(3), ReadTwo(3), Untold(3)\n"));
    EXPECT_THAT(page, HasSubstr("First rule.\n"));
}
