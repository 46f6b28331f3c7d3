// Time texts at their boundaries, locale-free numbers, natural order and
// the repeatable generator.
#include <gtest/gtest.h>

#include "base/Format.h"
#include "base/SafeText.h"
#include "base/SplitMix64.h"
#include "base/Text.h"
#include "base/Uuid.h"

namespace qv {
namespace {

TEST(Format, TimecodeFloorsAndGrowsHours) {
    EXPECT_EQ(Format::timecode(-5), "0:00");
    EXPECT_EQ(Format::timecode(59.999), "0:59");
    EXPECT_EQ(Format::timecode(3599.9), "59:59");
    EXPECT_EQ(Format::timecode(3600), "1:00:00");
    EXPECT_EQ(Format::timecode(3725.9), "1:02:05");
}

TEST(Format, DurationRoundsAndDropsSeconds) {
    EXPECT_EQ(Format::duration(59.4), "59 s");
    EXPECT_EQ(Format::duration(59.5), "1 min");  // rounds first, half away from zero
    EXPECT_EQ(Format::duration(3599.4), "59 min");
    EXPECT_EQ(Format::duration(3599.5), "1 h 00");
    EXPECT_EQ(Format::duration(3600 + 5 * 60 + 59), "1 h 05");
}

TEST(Format, FileTimeAndCountdown) {
    EXPECT_EQ(Format::fileTime(-1), "0m00");
    EXPECT_EQ(Format::fileTime(65.5), "1m06");
    EXPECT_EQ(Format::fileTime(3661), "1h01m01");
    EXPECT_EQ(Format::countdown(-0.5), "0:00");
    EXPECT_EQ(Format::countdown(4.01), "0:05");
    EXPECT_EQ(Format::countdown(60), "1:00");
}

TEST(Text, NumbersIgnoreTheFrenchLocale) {
    EXPECT_EQ(cformat("%.1f", 2.25), "2.2");
    EXPECT_EQ(cformat("%.3f", 1.5), "1.500");
    EXPECT_EQ(shortest(5.0), "5");
    EXPECT_EQ(shortest(0.1), "0.1");
    EXPECT_EQ(parseDouble("2.5"), 2.5);
    EXPECT_FALSE(parseDouble("2,5"));
    EXPECT_FALSE(parseDouble(""));
    EXPECT_EQ(parseInteger("+3"), 3);
    EXPECT_FALSE(parseInteger("3.0"));
    EXPECT_EQ(padRight("Caméra", 8), "Caméra  ");  // letters, not bytes
}

TEST(Text, NaturalOrder) {
    EXPECT_LT(naturalCompare("Cam 2", "Cam 10"), 0);
    EXPECT_LT(naturalCompare("clip 9.mp4", "CLIP 10.mp4"), 0);
    EXPECT_GT(naturalCompare("b", "A"), 0);
    EXPECT_LT(naturalCompare("a", "a1"), 0);
    EXPECT_EQ(split("a::b", ':'), (std::vector<std::string>{"a", "", "b"}));
}

TEST(SplitMix64, PublishedFirstOutputsAndUnitRange) {
    SplitMix64 rng(0), one(1);
    for (uint64_t v : {0xE220A8397B1DCDAFull, 0x6E789E6AA1B965F4ull, 0x06C45D188009454Full}) EXPECT_EQ(rng.next(), v);
    for (uint64_t v : {0x910A2DEC89025CC1ull, 0xBEEB8DA1658EEC67ull, 0xF893A2EEFB32555Eull}) EXPECT_EQ(one.next(), v);
    for (int i = 0; i < 1000; ++i) {
        const double u = rng.unit();
        EXPECT_TRUE(u >= 0.0 && u < 1.0) << u;
    }
}

TEST(Uuid, TextRoundTrip) {
    Uuid u = Uuid::make();
    EXPECT_EQ(Uuid::parse(u.text()), u);
    EXPECT_EQ(Uuid::parse(u.lowerText()), u);
    EXPECT_EQ(u.text()[14], '4');
    EXPECT_FALSE(Uuid::parse("pas un identifiant"));
    EXPECT_TRUE(Uuid().isNil());
}

// Names from the disk are bytes: a terminal must not be driven by them, and
// XML 1.0 refuses controls and broken UTF-8 outright.
TEST(SafeText, TerminalAndXmlForms) {
    const std::string hostile = "Cam\n1\t\x1b[31m\xff\xc3(\xc2\x85\xed\xa0\x80\xef\xbf\xbe<é>";
    EXPECT_EQ(terminalSafe(hostile), "Cam\\n1\\t\\x1b[31m\\xff\\xc3(\\u0085\\xed\\xa0\\x80\xef\xbf\xbe<é>");
    const std::string r = "\xEF\xBF\xBD";
    EXPECT_EQ(xmlSafe(hostile), "Cam" + r + "1" + r + r + "[31m" + r + r + "(" + r + r + r + r + r + "<é>");
    EXPECT_EQ(xmlSafe("Soirée 🎧 <&>"), "Soirée 🎧 <&>");
    EXPECT_EQ(xmlSafe(std::string("a\0b", 3)), "a" + r + "b");
    EXPECT_EQ(xmlSafe("\xf0\x9f\x8e"), r + r + r);  // cut short
    EXPECT_EQ(xmlSafe("\xc0\xaf"), r + r);            // overlong '/'
}

}  // namespace
}  // namespace qv
