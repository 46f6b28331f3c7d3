// How files of one source belong together before any sound is heard: takes
// by name, family or sample clock; pieces of a recording by clock or name;
// and the stamps recorders and cameras write, damaged ones included.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

#include "support/Fixtures.h"
#include "sync/DeviceClock.h"
#include "sync/FileGroups.h"

namespace fs = std::filesystem;

namespace qv {
namespace {

MediaItem item(const std::string& name, double duration, std::optional<DeviceClock> clock = std::nullopt) {
    MediaItem i;
    i.url = "/set/Son 2/" + name;
    i.duration = duration;
    i.audioChannels = 1;
    i.clock = clock;
    return i;
}

DeviceClock samplesAt(double seconds) { return {DeviceClock::Kind::samples, seconds, false, 1.0 / 48000}; }

std::vector<int> takesOf(const std::vector<MediaItem>& items) {
    std::vector<const MediaItem*> pointers;
    for (const auto& i : items) pointers.push_back(&i);
    return FileGroups::takes(pointers);
}

TEST(FileGroups, TakesByTrackSuffixFamilyOrClockButNotByClipNumbers) {
    // A recorder's take: a mix, two inputs and a safety copy, named alike.
    auto named = takesOf({item("ZOOM0001_LR.WAV", 120), item("ZOOM0001_Tr1.WAV", 120), item("ZOOM0001_Tr2.WAV", 120.2),
                          item("ZOOM0001_LR-12.WAV", 120), item("ZOOM0002_LR.WAV", 120)});
    EXPECT_EQ(named, (std::vector<int>{1, 1, 1, 1, 0}));
    // Clips numbered one after the other are clips, not tracks; so are
    // tracks of one name whose lengths differ.
    EXPECT_EQ(takesOf({item("clip_1.wav", 60), item("clip_2.wav", 60)}), (std::vector<int>{0, 0}));
    EXPECT_EQ(takesOf({item("A_Tr1.wav", 60), item("A_Tr2.wav", 90)}), (std::vector<int>{0, 0}));
    // Names that say nothing, but one stamp: the same moment, even for a
    // file cut short.
    EXPECT_EQ(takesOf({item("a.wav", 30, samplesAt(3600)), item("b.wav", 12, samplesAt(3600)),
                       item("c.wav", 30, samplesAt(3700))}),
              (std::vector<int>{1, 1, 0}));
    auto family = item("x.wav", 30), other = item("y.wav", 30);
    family.family = other.family = "F00D";
    EXPECT_EQ(takesOf({family, other}), (std::vector<int>{1, 1}));

    std::vector<MediaItem> take = {item("ZOOM0001_LR.WAV", 120), item("ZOOM0001_Tr1.WAV", 120)};
    std::vector<const MediaItem*> members = {&take[0], &take[1]};
    EXPECT_EQ(FileGroups::laneName(take[1], members), "Tr1");
    EXPECT_EQ(FileGroups::laneName(take[0], members), "LR");
}

TEST(FileGroups, PiecesFollowByClockOrNameSequence) {
    using FileGroups::Link;
    // A camera's chapters: the chapter digits count on, the file number stays.
    EXPECT_EQ(FileGroups::link(item("GX010050.MP4", 600), item("GX020050.MP4", 600)), Link::sequence);
    EXPECT_EQ(FileGroups::link(item("GX090050.MP4", 600), item("GX100050.MP4", 600)), Link::sequence);
    EXPECT_EQ(FileGroups::link(item("clip 9.mp4", 60), item("clip 10.mp4", 60)), Link::sequence);
    EXPECT_EQ(FileGroups::link(item("GX010050.MP4", 600), item("GX020051.MP4", 600)), Link::none);
    EXPECT_EQ(FileGroups::link(item("GX010050.MP4", 600), item("GX030050.MP4", 600)), Link::none);
    // A recorder that splits at 2 GB: the next file's first sample is the
    // one after this one's last, by its clock, whatever their names.
    EXPECT_EQ(FileGroups::link(item("a.wav", 70, samplesAt(3600)), item("z.wav", 70, samplesAt(3670))), Link::clock);
    EXPECT_EQ(FileGroups::link(item("a.wav", 70, samplesAt(3600)), item("z.wav", 70, samplesAt(3680))), Link::none);
    // Across midnight the nearer way round counts.
    EXPECT_EQ(FileGroups::link(item("a.wav", 70, samplesAt(86380)), item("z.wav", 70, samplesAt(50))), Link::clock);
}

// A wave file with a bext chunk of `bext` bytes and a short data chunk.
void writeStamped(const fs::path& file, const std::string& bext, uint32_t rate = 48000) {
    auto le = [](uint64_t v, int n) {
        std::string s;
        for (int k = 0; k < n; ++k) s.push_back(static_cast<char>(v >> (8 * k) & 0xff));
        return s;
    };
    std::string fmt = le(1, 2) + le(1, 2) + le(rate, 4) + le(rate * 2, 4) + le(2, 2) + le(16, 2);
    std::string body = "WAVE";
    body += "fmt " + le(fmt.size(), 4) + fmt;
    body += "bext" + le(bext.size(), 4) + bext + (bext.size() % 2 ? std::string(1, '\0') : "");
    body += "data" + le(200, 4) + std::string(200, '\0');
    std::ofstream(file, std::ios::binary) << "RIFF" << le(body.size(), 4) << body;
}

std::string bext(const std::string& date, const std::string& time, uint64_t reference) {
    std::string b(602, '\0');
    b.replace(320, date.size(), date);
    b.replace(330, time.size(), time);
    for (int k = 0; k < 8; ++k) b[static_cast<size_t>(338 + k)] = static_cast<char>(reference >> (8 * k) & 0xff);
    return b;
}

TEST(FileGroups, StampsAreReadToTheSampleAndNonsenseIsNotBelieved) {
    test::TempDir dir;
    writeStamped(dir / "ok.wav", bext("2024-06-15", "23:10:05", 83405ull * 48000 + 123));
    auto stamps = DeviceStamps::readWave(dir / "ok.wav");
    ASSERT_TRUE(stamps.clock);
    EXPECT_TRUE(stamps.clock->dated);
    EXPECT_DOUBLE_EQ(stamps.clock->resolution, 1.0 / 48000);
    EXPECT_NEAR(std::fmod(stamps.clock->seconds, 86400), 83405 + 123 / 48000.0, 1e-6);

    // A count beyond one day, a date no calendar has, a time of letters:
    // no clock at all, and nothing else breaks.
    writeStamped(dir / "bad.wav", bext("9999-99-99", "xx:yy:zz", ~0ull));
    EXPECT_FALSE(DeviceStamps::readWave(dir / "bad.wav").clock);
    writeStamped(dir / "short.wav", std::string(40, '\x7f'));
    EXPECT_FALSE(DeviceStamps::readWave(dir / "short.wav").clock);
    // Only the time of day left: a clock to the second.
    writeStamped(dir / "time.wav", bext("", "01:02:03", ~0ull));
    auto coarse = DeviceStamps::readWave(dir / "time.wav");
    ASSERT_TRUE(coarse.clock);
    EXPECT_DOUBLE_EQ(coarse.clock->seconds, 3723);
    EXPECT_FALSE(coarse.clock->dated);

    // Timecode, drop frame included: 00:10:00;00 at 29.97 is frame 17982.
    auto tc = DeviceStamps::fromTimecode("00:10:00;00", 30000.0 / 1001);
    ASSERT_TRUE(tc);
    EXPECT_NEAR(tc->seconds, 17982 * 1001.0 / 30000, 1e-9);
    EXPECT_FALSE(DeviceStamps::fromTimecode("25:00:00:00", 25));
    EXPECT_FALSE(DeviceStamps::fromTimecode("10:00:00:25", 25));
}

}  // namespace
}  // namespace qv
