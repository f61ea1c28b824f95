#include "signature_plot.hpp"

#include <gmock/gmock.h>

using namespace vxpadctl;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

RecordedPacket recorded(std::vector<std::uint8_t> bytes) {
    return {std::chrono::microseconds(0), std::move(bytes)};
}

// x, y and pressure
const std::vector<RecordedPacket> two_strokes{recorded({9, 9, 0}), recorded({1, 2, 3}), recorded({4, 5, 6}),
                                              recorded({4, 5, 0}), recorded({4, 5, 0}), recorded({7, 8, 9})};

std::size_t count(std::string_view text, std::string_view what) {
    std::size_t found = 0;
    for (auto at = text.find(what); at != std::string_view::npos; at = text.find(what, at + 1)) {
        ++found;
    }
    return found;
}

} // namespace

TEST(SignaturePlot, PressureZeroLiftsThePen) {
    const Signature signature = signature_in(two_strokes, parse_layout("x=0:u8,y=1:u8,pressure=2:u8"));
    EXPECT_THAT(signature.strokes,
                ElementsAre(ElementsAre(PlotPoint{1, 2, 3}, PlotPoint{4, 5, 6}), ElementsAre(PlotPoint{7, 8, 9})));
    EXPECT_EQ(signature.too_short, 0U);
}

TEST(SignaturePlot, WithoutPressureThePenIsNeverUp) {
    const Signature signature = signature_in(two_strokes, parse_layout("x=0:u8,y=1:u8"));
    ASSERT_EQ(signature.strokes.size(), 1U);
    EXPECT_EQ(signature.strokes[0].size(), two_strokes.size());
}

TEST(SignaturePlot, PacketsThatAreTooShortAreCounted) {
    std::vector<RecordedPacket> packets = two_strokes;
    packets.insert(packets.begin() + 2, {recorded({1, 2}), recorded({})});
    const Signature signature = signature_in(packets, parse_layout("x=0:u8,y=1:u8,pressure=2:u8"));
    EXPECT_EQ(signature.too_short, 2U);
    EXPECT_EQ(signature.strokes.size(), 2U);
    EXPECT_EQ(signature.strokes[0].size(), 2U);
}

TEST(SignaturePlot, NoPressureAtAllIsNoStroke) {
    EXPECT_THAT(signature_in(two_strokes, parse_layout("x=0:u8,y=1:u8,pressure=2:i8,z=1:u8")).strokes, Not(IsEmpty()));
    const std::vector<RecordedPacket> lifted{recorded({1, 2, 0}), recorded({1, 2, 0x80})};
    EXPECT_THAT(signature_in(lifted, parse_layout("x=0:u8,y=1:u8,pressure=2:i8")).strokes, IsEmpty());
}

TEST(SignaturePlot, PictureFitsTheData) {
    const std::vector<Stroke> strokes{{{-100, 50, 1}, {900, 250, 1}}, {{0, 450, 1}, {10, 460, 1}}};
    const std::string svg = draw_svg(strokes, "sig.rec");
    // The longer side is 1000, and 3 % of it are the margin.
    EXPECT_THAT(
        svg, AllOf(StartsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg xmlns=\"http://www.w3.org/2000/svg\""),
                   HasSubstr("viewBox=\"-130.00 20.00 1060.00 470.00\""), HasSubstr("<title>sig.rec</title>"),
                   HasSubstr("<path d=\"M-100 50L900 250\" stroke-width=\"14.00\"/>"),
                   HasSubstr("<path d=\"M0 450L10 460\""), EndsWith("</g>\n</svg>\n")));
    EXPECT_EQ(count(svg, "<path"), 2U);
}

TEST(SignaturePlot, PictureHasABackgroundAndASizeForEveryProgram) {
    const std::string svg = draw_svg(std::vector<Stroke>{{{0, 0, 1}, {1000, 100, 1}}}, "");
    EXPECT_THAT(svg, HasSubstr("viewBox=\"-30.00 -30.00 1060.00 160.00\" width=\"800\" height=\"121\">"));
    EXPECT_THAT(svg,
                HasSubstr("<rect x=\"-60.00\" y=\"-60.00\" width=\"1120.00\" height=\"220.00\" fill=\"#fff\"/>\n<g "));
    EXPECT_THAT(svg, Not(HasSubstr("style")));
    EXPECT_THAT(draw_svg(std::vector<Stroke>{{{0, 0, 1}, {0, 100, 1}}}, ""), HasSubstr(" height=\"800\">"));
}

TEST(SignaturePlot, LinesAreAsWideAsThePressure) {
    const std::vector<Stroke> stroke{{{0, 0, 1}, {1000, 0, 500}, {1000, 10, 501}, {0, 10, 1000}}};
    const std::string svg = draw_svg(stroke, "");
    // Neighbours of the same width are one line, and the next begins where it ends.
    EXPECT_THAT(svg, HasSubstr("<path d=\"M0 0L1000 0L1000 10\" stroke-width=\"8.50\"/>\n"
                               "<path d=\"M1000 10L0 10\" stroke-width=\"14.00\"/>\n"));
}

TEST(SignaturePlot, OnePointIsADot) {
    const std::string svg = draw_svg(std::vector<Stroke>{{{7, 8, 9}}}, "");
    EXPECT_THAT(svg, AllOf(HasSubstr("<path d=\"M7 8L7 8\""), HasSubstr("viewBox=\"6.97 7.97 0.06 0.06\"")));
}

TEST(SignaturePlot, LargestNumbersDoNoHarm) {
    const std::vector<Stroke> stroke{{{-2147483648, 0, 1}, {4294967295, 4294967295, 4294967295}}};
    EXPECT_THAT(draw_svg(stroke, ""), AllOf(HasSubstr("M-2147483648 0L4294967295 4294967295"), Not(HasSubstr("nan")),
                                            Not(HasSubstr("inf")), Not(HasSubstr("e+"))));
}

TEST(SignaturePlot, TitleIsEscaped) {
    const std::string svg = draw_svg(std::vector<Stroke>{{{7, 8, 9}}}, "</title><script>&\033\n");
    EXPECT_THAT(draw_svg(std::vector<Stroke>{{{7, 8, 9}}}, "\xff\"&"), HasSubstr("<title>\ufffd&quot;&amp;</title>"));
    EXPECT_THAT(
        svg, AllOf(HasSubstr("<title>&lt;/title&gt;&lt;script&gt;&amp;\\x1b\\x0a</title>"), Not(HasSubstr("<script"))));
}
