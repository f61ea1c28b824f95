#include "manual/page.hpp"

#include <gmock/gmock.h>
#include <string>

using namespace manual;
using testing::HasSubstr;
using testing::StartsWith;

TEST(Help, CutsTextsIntoLines) {
    const std::string text = as_help(Block{.text = std::string(60, 'a') + " " + std::string(39, 'b') + " `c`"});
    EXPECT_EQ(text, std::string(60, 'a') + " " + std::string(39, 'b') + "\nc\n");
}

TEST(Help, PutsTextsBehindHeadsUnlessTheseAreLong) {
    EXPECT_EQ(as_help(Block{.entries = {{"-o FILE", "the result"}, {"--json", "JSON"}, {"--x", ""}}}),
              "  -o FILE  the result\n"
              "  --json   JSON\n"
              "  --x\n");
    EXPECT_EQ(as_help(Block{.entries = {{"PAD --component COMPONENT", "sends"}, {"PAD", "too"}}}),
              "  PAD --component COMPONENT\n"
              "       sends\n"
              "  PAD  too\n");
    const std::string longest(24, 'h');
    EXPECT_EQ(as_help(Block{.entries = {{longest, "a"}, {longest + "h", "b"}}}),
              "  " + longest + "  a\n  " + longest + "h\n" + std::string(28, ' ') + "b\n");
}

TEST(Help, KeepsLinesAsTheyAre) {
    EXPECT_EQ(as_help(Block{.lines = {"a  `b`", "c"}}), "  a  `b`\n  c\n");
}

TEST(Help, HasSectionsButNotWhatOnlyAManualTells) {
    const Page page{
        "tool",
        '1',
        "does",
        {"tool A", "tool B"},
        {{"", {{.text = "It does."}}}, {"Exit status", {{.text = "0"}}}, {"See also", {{.text = "other"}}, true}}};
    EXPECT_EQ(as_help(page), "Usage: tool A\n       tool B\n\nIt does.\n\nExit status:\n0\n");
}

TEST(Man, HasNameSynopsisAndSections) {
    const Page page{"a-tool",
                    '1',
                    "does it",
                    {"a-tool [-o FILE] NAME..."},
                    {{"", {{.text = "It's `-x`."}}}, {"See also", {{.text = "b"}, {.text = "c"}}, true}}};
    EXPECT_EQ(as_man(page, "set 1.0"), ".TH \"A\\-TOOL\" 1 \"\" \"set 1.0\" \"libvxpadcom\"\n"
                                       ".ad l\n.nh\n"
                                       ".SH NAME\na\\-tool \\- does it\n"
                                       ".SH SYNOPSIS\n.nf\n"
                                       "\\fBa\\-tool\\fR [\\fB\\-o\\fR \\fIFILE\\fR] \\fINAME\\fR\\&...\n.fi\n"
                                       ".SH \"DESCRIPTION\"\nIt\\(aqs \\fB\\-x\\fR\\&.\n"
                                       ".SH \"SEE ALSO\"\nb\n.PP\nc\n");
}

TEST(Man, TellsCapitalsFromWhatIsTyped) {
    const auto head = [](const std::string& text) {
        const std::string page = as_man({"n", '1', "s", {}, {{"", {{.entries = {{text, "t"}}}}}}}, "v");
        const auto begin = page.find(".TP\n") + 4;
        return page.substr(begin, page.find("\nt\n") - begin);
    };
    EXPECT_EQ(head("--layout LAYOUT"), "\\fB\\-\\-layout\\fR \\fILAYOUT\\fR");
    EXPECT_EQ(head("N:FAULT"), "\\fIN\\fR\\fB:\\fR\\fIFAULT\\fR");
    EXPECT_EQ(head("short=BYTES"), "\\fBshort=\\fR\\fIBYTES\\fR");
    EXPECT_EQ(head("play N [COUNT|once]"), "\\fBplay\\fR \\fIN\\fR [\\fICOUNT\\fR|\\fBonce\\fR]");
    EXPECT_EQ(head("unknown=loop-back"), "\\fBunknown=loop\\-back\\fR");
    EXPECT_EQ(head("U16le"), "\\fBU16le\\fR");
    EXPECT_EQ(head("`Maker`, X"), "\\fBMaker\\fR, X");
}

TEST(Man, TakesNothingInATextForARequest) {
    const std::string page = as_man(
        {"n",
         '1',
         "s",
         {},
         {{"", {{.text = ".so x"}, {.text = "'\\n\"^~é…🖊"}, {.entries = {{"x", ""}}}, {.lines = {".x", ""}}}}}},
        "v");
    EXPECT_THAT(page, HasSubstr("\n\\&.so x\n"));
    EXPECT_THAT(page, HasSubstr("\n\\(aq\\(rsn\\(dq\\(ha\\(ti\\[u00E9]\\[u2026]\\[u1F58A]\n"));
    EXPECT_THAT(page, HasSubstr(".TP\n\\fBx\\fR\n\\&\n"));
    EXPECT_THAT(page, HasSubstr(".nf\n\\&.x\n\\&\n.fi"));
}
