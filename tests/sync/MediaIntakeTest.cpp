// Scanner and audio loader on real files made with ffmpeg: what a set
// folder holds, and what bad input must come to (skipped or unreadable,
// never a crash or a hang).
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <functional>

#include "support/Fixtures.h"
#include "sync/AudioLoader.h"
#include "sync/MediaScanner.h"

namespace fs = std::filesystem;

namespace qv {
namespace {

using test::ffmpeg;
using test::makeClip;
using test::makeWav;
using test::TempDir;

// Writes a quarter-turn into the first track header's matrix, as a phone
// filming upright does (this ffmpeg no longer writes "rotate" metadata).
bool rotateQuarterTurn(const fs::path& file) {
    std::fstream f(file, std::ios::in | std::ios::out | std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    size_t at = bytes.find("tkhd");
    if (at == std::string::npos || bytes[at + 4] != 0) return false;  // version 0 only
    const uint8_t matrix[36] = {0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                0, 0, 0, 0, 0, 0, 0, 0, 0x40, 0, 0, 0};
    f.seekp(static_cast<std::streamoff>(at + 4 + 40));
    f.write(reinterpret_cast<const char*>(matrix), sizeof matrix);
    return static_cast<bool>(f);
}

std::vector<std::string> names(const std::vector<MediaSource>& sources) {
    std::vector<std::string> out;
    for (const auto& s : sources) out.push_back(s.name);
    return out;
}

class MediaIntake : public ::testing::Test {
protected:
    void SetUp() override {
        if (!test::haveFFmpeg()) GTEST_SKIP() << "ffmpeg absent: media files cannot be made";
    }
    TempDir dir;
};

TEST_F(MediaIntake, FoldersBecomeSourcesInNaturalOrder) {
    EXPECT_TRUE(MediaScanner::scan(dir.path()).empty());
    EXPECT_TRUE(MediaScanner::scan(dir / "missing").empty());
    test::writeText(dir / "notes.txt", "rien");
    fs::create_directories(dir / "Vide");
    test::writeText(dir / "Vide" / "a.txt", "rien");
    EXPECT_TRUE(MediaScanner::scan(dir.path()).empty());

    ASSERT_TRUE(makeClip(dir / "Cam 10" / "a.mp4", 1));
    ASSERT_TRUE(makeClip(dir / "Cam 2" / "clip 10.mp4", 1));
    ASSERT_TRUE(makeClip(dir / "Cam 2" / "Carte" / "clip 2.MP4", 1));
    ASSERT_TRUE(makeClip(dir / "Cam 2" / "clip 1.mov", 1));
    ASSERT_TRUE(makeWav(dir / "Son 1" / "rec.wav", 2));
    ASSERT_TRUE(makeWav(dir / "loose.wav", 2));
    test::writeText(dir / "Cam 2" / ".hidden.mp4", "x");

    auto sources = MediaScanner::scan(dir.path());
    ASSERT_EQ(names(sources), (std::vector<std::string>{"Cam 2", "Cam 10", "Son 1", dir.path().filename().string()}));
    const MediaSource& cam2 = sources[0];
    EXPECT_EQ(cam2.kind, SourceKind::camera);
    ASSERT_EQ(cam2.items.size(), 3u);  // nested clips mix in by file name alone
    EXPECT_EQ(cam2.items[0].fileName(), "clip 1.mov");
    EXPECT_EQ(cam2.items[1].fileName(), "clip 2.MP4");
    EXPECT_EQ(cam2.items[2].fileName(), "clip 10.mp4");
    EXPECT_EQ(sources[2].kind, SourceKind::audio);
    EXPECT_NEAR(sources[2].totalDuration(), 2.0, 0.05);

    const MediaItem& clip = cam2.items[0];
    EXPECT_TRUE(clip.hasVideo);
    EXPECT_EQ(clip.width, 64);
    EXPECT_EQ(clip.height, 36);
    EXPECT_NEAR(clip.frameRate, 25.0, 1e-9);
    EXPECT_EQ(clip.audioChannels, 1);
    EXPECT_EQ(clip.sampleRate, 48000.0);
}

TEST_F(MediaIntake, ProbeReadsRotationDatesAndSilentVideo) {
    ASSERT_TRUE(makeClip(dir / "rot.mp4", 1, true, {"-metadata", "creation_time=2024-05-01T22:10:05.000000Z"}));
    ASSERT_TRUE(rotateQuarterTurn(dir / "rot.mp4"));
    auto rotated = MediaScanner::probe(dir / "rot.mp4");
    ASSERT_TRUE(rotated);
    EXPECT_EQ(rotated->width, 36);
    EXPECT_EQ(rotated->height, 64);
    ASSERT_TRUE(rotated->recordedAt);
    EXPECT_EQ(std::chrono::duration_cast<std::chrono::seconds>(rotated->recordedAt->time_since_epoch()).count(),
              1714601405);

    ASSERT_TRUE(makeClip(dir / "Cam" / "mute.mp4", 1, false));
    auto sources = MediaScanner::scan(dir.path());
    ASSERT_EQ(sources.size(), 2u);
    ASSERT_EQ(sources[0].items.size(), 1u);
    EXPECT_EQ(sources[0].items[0].audioChannels, 0);
    EXPECT_EQ(sources[0].kind, SourceKind::camera);
}

// Bad input, one row each: what the file is, whether the scanner must list
// it as unreadable (true) or leave it out (false), and the reason it gives
// when it refuses it (none for a file it takes or passes by).
struct BadFile {
    const char* name;
    std::function<void(const fs::path&)> make;
    bool unreadable;
    const char* reason = nullptr;
};

TEST_F(MediaIntake, BadFilesAreSkippedOrUnreadableNeverFatal) {
    std::vector<BadFile> table = {
        {"zero.mp4", [](const fs::path& p) { test::writeText(p, ""); }, true, "fichier vide"},
        {"text.mp4", [](const fs::path& p) { test::writeText(p, "ceci n'est pas une vidéo\n"); }, true,
         "pas un fichier vidéo ou audio"},
        {"truncated.mp4",
         [](const fs::path& p) {
             makeClip(p, 2);
             fs::resize_file(p, fs::file_size(p) / 2);
         },
         true, "fichier tronqué"},
        {"broken.wav", [](const fs::path& p) { test::writeText(p, std::string("RIFF\x10\0\0\0WAVEfmt ", 16)); }, true,
         "fichier tronqué"},
        {"x.mov", [](const fs::path& p) { fs::create_directories(p / "inner"); }, false},
        {"loop.mp4", [](const fs::path& p) { fs::create_symlink(p.filename(), p); }, false,
         "trop de liens symboliques"},
        {"fifo.wav", [](const fs::path& p) { mkfifo(p.c_str(), 0600); }, false, "pas un fichier ordinaire"},
        {"hasard.mov", [](const fs::path& p) { fs::create_symlink("/dev/urandom", p); }, false,
         "pas un fichier ordinaire"},
        {"nom\xff\xfe.wav", [](const fs::path& p) { makeWav(p, 1); }, false},
    };
    // Without read permission a clip is unreadable; root reads it anyway.
    if (geteuid() != 0) {
        table.push_back({"secret.mp4",
                         [](const fs::path& p) {
                             makeClip(p, 1);
                             fs::permissions(p, fs::perms::none);
                         },
                         true, "accès refusé"});
    }
    fs::create_directories(dir / "Cam 1");
    ASSERT_TRUE(makeClip(dir / "Cam 1" / "good.mp4", 1));
    for (const auto& row : table) row.make(dir / "Cam 1" / row.name);
    fs::create_symlink(dir / "Cam 1", dir / "Cam 1" / "boucle");

    std::vector<MediaScanner::Refusal> refused;
    auto sources = MediaScanner::scan(dir.path(), &refused);
    ASSERT_EQ(sources.size(), 1u);
    const MediaSource& cam = sources[0];
    for (const auto& row : table) {
        auto r = std::find_if(refused.begin(), refused.end(),
                              [&](const auto& x) { return x.name == std::string("Cam 1/") + row.name; });
        if (!row.reason) {
            EXPECT_EQ(r, refused.end()) << row.name << " : " << r->reason;
        } else if (r == refused.end()) {
            ADD_FAILURE() << row.name << " not named";
        } else {
            EXPECT_EQ(r->message(), std::string("Fichier illisible : Cam 1/") + row.name + " (" + row.reason + ")");
        }
    }
    EXPECT_EQ(cam.kind, SourceKind::camera);
    std::vector<std::string> unreadable;
    for (const auto& u : cam.unreadable) unreadable.push_back(u.filename().string());
    for (const auto& row : table) {
        bool listed = std::find(unreadable.begin(), unreadable.end(), row.name) != unreadable.end();
        EXPECT_EQ(listed, row.unreadable) << row.name;
    }
    // The non-UTF-8 name is a good file: it stays usable beside its damaged sisters.
    ASSERT_EQ(cam.items.size(), 2u);
    EXPECT_EQ(cam.items[0].fileName(), "good.mp4");

    // Every file the loader is handed fails cleanly or gives sound.
    for (const auto& row : table) {
        auto r = AudioLoader::loadWithLibav(dir / "Cam 1" / row.name);
        if (!r) {
            EXPECT_NE(r.error().message.find("Impossible de lire l'audio de"), std::string::npos);
        }
    }
}

// A source's kind comes from what its files hold; the names the interface
// suggests (Cam 1, Son 1) decide nothing.
TEST_F(MediaIntake, KindFollowsTheFilesNotTheFolderName) {
    ASSERT_TRUE(makeClip(dir / "Son 2" / "plan.mp4", 1));
    ASSERT_TRUE(makeWav(dir / "Cam 1" / "micro.wav", 1));
    auto sources = MediaScanner::scan(dir.path());
    ASSERT_EQ(names(sources), (std::vector<std::string>{"Cam 1", "Son 2"}));
    EXPECT_EQ(sources[0].kind, SourceKind::audio);
    EXPECT_EQ(sources[1].kind, SourceKind::camera);
}

TEST_F(MediaIntake, UnopenableWavAloneMakesAnAudioSourceWithNoItems) {
    fs::create_directories(dir / "Enregistreur");
    test::writeText(dir / "Enregistreur" / "x.wav", "garbage");
    auto sources = MediaScanner::scan(dir.path());
    ASSERT_EQ(sources.size(), 1u);
    EXPECT_EQ(sources[0].kind, SourceKind::audio);
    EXPECT_TRUE(sources[0].items.empty());
    EXPECT_EQ(sources[0].unreadable.size(), 1u);

    auto r = AudioLoader::loadWithFFmpeg(dir / "Enregistreur" / "x.wav");
    ASSERT_FALSE(r);
    EXPECT_EQ(r.error().message, "Impossible de lire l'audio de x.wav.");
}

// Energy of one frequency in a 2 kHz signal (Goertzel).
double tone(const std::vector<float>& x, double hz) {
    double w = 2 * M_PI * hz / AudioLoader::analysisRate, c = 2 * std::cos(w), s1 = 0, s2 = 0;
    for (float v : x) {
        double s = v + c * s1 - s2;
        s2 = s1;
        s1 = s;
    }
    return std::sqrt(s1 * s1 + s2 * s2 - c * s1 * s2) / static_cast<double>(x.size());
}

TEST_F(MediaIntake, LibavRoadMixesEveryStreamAtTheAnalysisRate) {
    ASSERT_TRUE(ffmpeg({"-f", "lavfi", "-i", "sine=f=250:r=44100:d=3", "-f", "lavfi", "-i", "sine=f=600:r=48000:d=3",
                        "-map", "0", "-map", "1", "-c:a", "aac", (dir / "two.m4a").string()}));
    auto mixed = AudioLoader::loadWithLibav(dir / "two.m4a");
    ASSERT_TRUE(mixed);
    EXPECT_NEAR(static_cast<double>(mixed->size()), 3.0 * AudioLoader::analysisRate, 120);
    EXPECT_GT(tone(*mixed, 250), 0.02);
    EXPECT_GT(tone(*mixed, 600), 0.02);
    EXPECT_LT(tone(*mixed, 420), 0.005);
    // The executable picks one stream by itself; it keeps the time base.
    auto tool = AudioLoader::loadWithFFmpeg(dir / "two.m4a");
    ASSERT_TRUE(tool);
    EXPECT_NEAR(static_cast<double>(tool->size()), 3.0 * AudioLoader::analysisRate, 120);
}

TEST(Decimate, LengthsAndUnityGain) {
    EXPECT_TRUE(AudioLoader::decimate(std::vector<float>(33, 1.0f)).empty());
    EXPECT_EQ(AudioLoader::decimate(std::vector<float>(34, 1.0f)).size(), 1u);
    EXPECT_EQ(AudioLoader::decimate(std::vector<float>(37, 1.0f)).size(), 2u);
    auto out = AudioLoader::decimate(std::vector<float>(4001, 1.0f));
    EXPECT_EQ(out.size(), (4001u - 33) / 4 + 1);
    for (float v : out) EXPECT_NEAR(v, 1.0f, 1e-6f);
}

}  // namespace
}  // namespace qv
