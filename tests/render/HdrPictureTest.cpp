// HLG and PQ footage as the player, the render and the proxies show it:
// BT.709 SDR along the road ffmpeg users write as
//   zscale=t=linear:npl=100,format=gbrpf32le,zscale=p=bt709,tonemap=hable,zscale=t=bt709:m=bt709:r=tv
// measured against ffmpeg's own run of that road. Footage with no colour
// tag, or with a transfer nobody films in, keeps the plain BT.709 reading.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

#include "platform/Notices.h"
#include "platform/ProxyWriter.h"
#include "playback/SourceTimeline.h"
#include "render/RenderFixtures.h"
#include "setgen/FrameCode.h"
#include "support/Fixtures.h"

namespace qv {
namespace {

namespace fs = std::filesystem;

const char* const hdrRoad =
    "zscale=t=linear:npl=100,format=gbrpf32le,zscale=p=bt709,tonemap=tonemap=hable,zscale=t=bt709:m=bt709:r=tv,"
    "format=gbrp";
// The same road without the tone curve: wide-gamut SDR into BT.709.
const char* const gamutRoad =
    "zscale=t=linear:npl=100,format=gbrpf32le,zscale=p=bt709,zscale=t=bt709:m=bt709:r=tv,format=gbrp";
const char* const bt709Reading = "scale=in_color_matrix=bt709:in_range=tv";
// ffmpeg's tone curve takes a PQ picture without light metadata from
// 10 000 cd/m², but in the road above it only sees linear light, where PQ
// and HLG look alike, and falls back to HLG's 1 000: the peak it would have
// chosen is given to it here.
const char* const bareRoad =
    "zscale=t=linear:npl=100,format=gbrpf32le,zscale=p=bt709,tonemap=tonemap=hable:peak=100,zscale=t=bt709:m=bt709:r=tv,"
    "format=gbrp";

class HdrPicture : public ::testing::Test {
protected:
    void SetUp() override {
        if (!test::haveFFmpeg()) GTEST_SKIP() << "ffmpeg missing";
        set_ = test::generatedSet("hdr", 3);
        ASSERT_FALSE(set_.empty());
    }

    // The file of the set that stands for a case of the truth ("phone-hlg").
    fs::path clip(const std::string& name) const {
        std::ifstream in(set_ / "truth.json");
        auto truth = json::Json::parse(in, nullptr, false);
        for (const auto& f : truth["files"])
            if (f.value("case", "") == name) return set_ / f["path"].get<std::string>();
        return {};
    }

    // Frame `k` of `file` as ffmpeg makes it through `filter`, display-turned, RGBA.
    static media::RgbaFrame reference(const fs::path& file, int k, const std::string& filter, int width, int height) {
        test::TempDir dir;
        const fs::path raw = dir / "frame.rgba";
        media::RgbaFrame f;
        if (!test::ffmpeg({"-i", file.string(), "-vf", "select=eq(n\\," + std::to_string(k) + ")," + filter, "-vsync",
                           "0", "-frames:v", "1", "-pix_fmt", "rgba", "-f", "rawvideo", raw.string()}))
            return f;
        std::ifstream in(raw, std::ios::binary);
        f.pixels.assign(std::istreambuf_iterator<char>(in), {});
        if (f.pixels.size() != static_cast<size_t>(width) * height * 4) return {};
        f.width = width;
        f.height = height;
        return f;
    }

    // Each 2 × 2 block to one pixel: what a monitor at half size shows.
    static media::RgbaFrame halve(const media::RgbaFrame& f) {
        media::RgbaFrame h;
        h.width = f.width / 2;
        h.height = f.height / 2;
        h.pixels.resize(static_cast<size_t>(h.width) * h.height * 4);
        for (int y = 0; y < h.height; ++y)
            for (int x = 0; x < h.width; ++x)
                for (int c = 0; c < 4; ++c) {
                    int sum = 0;
                    for (int dy = 0; dy < 2; ++dy)
                        for (int dx = 0; dx < 2; ++dx)
                            sum += f.pixels[((static_cast<size_t>(2 * y + dy)) * f.width + 2 * x + dx) * 4 + c];
                    h.pixels[(static_cast<size_t>(y) * h.width + x) * 4 + c] = static_cast<uint8_t>((sum + 2) / 4);
                }
        return h;
    }

    // Mean absolute difference of R, G and B, in 8-bit levels.
    static double meanError(const media::RgbaFrame& a, const media::RgbaFrame& b) {
        if (a.width != b.width || a.height != b.height || a.pixels.empty()) return 255;
        double sum = 0;
        for (size_t i = 0; i < a.pixels.size(); i += 4)
            for (size_t c = 0; c < 3; ++c) sum += std::abs(int(a.pixels[i + c]) - int(b.pixels[i + c]));
        return sum / (a.pixels.size() / 4 * 3);
    }

    // The smallest error against frames k - 1 to k + 1 of the reference: the
    // test is about colours; which frame a time shows is measured elsewhere.
    static double errorNear(const media::RgbaFrame& ours, const fs::path& file, int k, const std::string& filter,
                            bool halved = false) {
        double best = 255;
        for (int n = std::max(0, k - 1); n <= k + 1; ++n) {
            auto ref = reference(file, n, filter, halved ? ours.width * 2 : ours.width, halved ? ours.height * 2 : ours.height);
            best = std::min(best, meanError(ours, halved ? halve(ref) : ref));
        }
        return best;
    }

    // Frame k of `file` as the player's tiles read it, at half size.
    static media::RgbaFrame playerTile(const fs::path& file, int k) {
        auto item = MediaScanner::probe(file);
        if (!item) return {};
        PlacedItem placed;
        placed.item = *item;
        SourceReader reader(SourceTimeline::composition({placed}, item->duration, true));
        reader.setOutputSize(item->width / 2, item->height / 2);
        auto picture = reader.pictureAt((k + 0.5) / item->frameRate);
        return picture && *picture ? (*picture)->frame : media::RgbaFrame{};
    }

    fs::path set_;
};

TEST_F(HdrPicture, HlgPqAndWideGamutReachThePlayersTilesAsTheZscaleRoadMakesThem) {
    struct Case {
        const char* name;
        media::ColourRoad road;
        const char* reference;
    };
    for (const Case& c : {Case{"phone-hlg", media::ColourRoad::hdr, hdrRoad},
                          Case{"hdr10-pq", media::ColourRoad::hdr, hdrRoad},
                          Case{"bt2020-sdr", media::ColourRoad::wideGamut, gamutRoad}}) {
        SCOPED_TRACE(c.name);
        const fs::path file = clip(c.name);
        auto item = MediaScanner::probe(file);
        ASSERT_TRUE(item);
        EXPECT_EQ(item->colour.bitDepth, 10);
        EXPECT_EQ(media::colourRoad(item->colour), c.road);
        auto tile = playerTile(file, 12);
        ASSERT_EQ(tile.width, item->width / 2);  // the phone stands upright
        EXPECT_LE(errorNear(tile, file, 12, c.reference, true), 2.0);
        // Read as if it were BT.709, the same picture is far off: the
        // measure above can tell a wrong road.
        EXPECT_GT(errorNear(tile, file, 12, bt709Reading, true), 6.0);
    }
}

TEST_F(HdrPicture, TheRenderAndTheProxyShowHlgAndPqAsTheZscaleRoadMakesThem) {
    const std::map<std::string, int> cameras = {{"phone-hlg", 2}, {"hdr10-pq", 3}};
    for (const auto& [name, camera] : cameras) {
        SCOPED_TRACE(name);
        const fs::path file = clip(name);
        auto item = MediaScanner::probe(file);
        ASSERT_TRUE(item);
        const std::string relative = fs::relative(file, set_).string();

        // The render, in ProRes so that its own loss stays far below the bound.
        auto job = test::jobAt(set_, {{relative, 0}});
        job.segments = test::plans({{0, camera}}, item->duration);
        job.planEffects.resize(job.segments.size());
        job.range = {0, 0.8};
        test::TempDir out;
        auto video = test::renderNow(job, VideoCodec::prores, out / "out.mov");
        ASSERT_TRUE(video.ok()) << video.error().message;
        auto reader = media::VideoReader::open(*video);
        ASSERT_TRUE(reader.ok());
        const int k = static_cast<int>(0.5 * item->frameRate);
        auto rendered = reader->frameAt(k / item->frameRate + 0.01);
        ASSERT_TRUE(rendered.ok());
        EXPECT_LE(errorNear((*rendered)->frame, file, k, hdrRoad), 2.0);
        // The phone's picture stands upright, its frame code along the top.
        auto code = test::codeOf((*rendered)->frame);
        ASSERT_TRUE(code) << "the frame code survives the tone curve";
        EXPECT_EQ(code->camera, camera + 1);
        EXPECT_NEAR(code->frame, k, 1);

        // The proxy is SDR BT.709; H.264 at its light quality loses a little more.
        std::atomic<bool> cancel{false};
        ASSERT_TRUE(media::writeProxy(file, out / "proxy.mp4", media::ProxyOptions{}, cancel).ok());
        auto proxy = MediaScanner::probe(out / "proxy.mp4");
        ASSERT_TRUE(proxy);
        EXPECT_EQ(proxy->colour.transfer, media::h273::transferBt709);
        auto proxyReader = media::VideoReader::open(out / "proxy.mp4");
        auto shown = proxyReader->frameAt((k + 0.5) / item->frameRate);
        ASSERT_TRUE(shown.ok());
        EXPECT_LE(errorNear((*shown)->frame, file, k, hdrRoad), 3.0);
    }
}

TEST_F(HdrPicture, PqWithoutLightMetadataIsMappedFromTheTopOfItsTransfer) {
    // The HDR10 clip written again without its mastering display and light
    // levels, as a camera that leaves them out would.
    test::TempDir dir;
    const fs::path bare = dir / "nu.mp4";
    ASSERT_TRUE(test::ffmpeg({"-i", clip("hdr10-pq").string(), "-map", "0:v", "-c:v", "libx265", "-x265-params",
                              "log-level=error:colorprim=bt2020:transfer=smpte2084:colormatrix=bt2020nc", "-pix_fmt",
                              "yuv420p10le", "-color_primaries", "bt2020", "-color_trc", "smpte2084", "-colorspace",
                              "bt2020nc", "-tag:v", "hvc1", bare.string()}));
    auto tile = playerTile(bare, 12);
    ASSERT_GT(tile.width, 0);
    EXPECT_LE(errorNear(tile, bare, 12, bareRoad, true), 2.0);
    // From a display of 1 000 cd/m² the same picture is clearly brighter.
    EXPECT_GT(errorNear(tile, bare, 12, hdrRoad, true), 6.0);
}

TEST_F(HdrPicture, AConversionThatFailsFallsBackAndIsLoggedOncePerFile) {
    // PQ in a packed layout the colour library cannot read, as capture
    // cards write it: the pictures still show, and the journal hears of it once.
    test::TempDir dir;
    const fs::path packed = dir / "carte.mkv";
    ASSERT_TRUE(test::ffmpeg({"-i", clip("hdr10-pq").string(), "-frames:v", "8", "-an", "-c:v", "rawvideo",
                              "-pix_fmt", "uyvy422", "-color_trc", "smpte2084", "-color_primaries", "bt2020",
                              "-colorspace", "bt2020nc", packed.string()}));
    std::vector<std::string> notes;
    media::setNoticeSink([&](const std::string& m) { notes.push_back(m); });
    for (int pass = 0; pass < 2; ++pass) {
        auto reader = media::VideoReader::open(packed);
        ASSERT_TRUE(reader.ok());
        for (int k = 0; k < 6; ++k) {
            auto picture = reader->frameAt((k + 0.5) / 25);
            ASSERT_TRUE(picture.ok());
            EXPECT_GT((*picture)->frame.width, 0);
        }
    }
    media::setNoticeSink(nullptr);
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_EQ(notes[0].rfind("Couleurs HDR non converties, lues comme BT.709 : " + packed.string() + " (", 0), 0u)
        << notes[0];
}

TEST_F(HdrPicture, UntaggedTenBitsAndAnUnknownTransferKeepThePlainBt709ReadingAndAreLogged) {
    for (const char* name : {"untagged-10bit", "unknown-transfer"}) {
        SCOPED_TRACE(name);
        const fs::path file = clip(name);
        auto item = MediaScanner::probe(file);
        ASSERT_TRUE(item);
        EXPECT_EQ(item->colour.bitDepth, 10);
        EXPECT_NE(media::colourRoad(item->colour), media::ColourRoad::hdr);
        // Small pictures of 8 bits would be read as BT.601; 10 bits never are.
        auto tile = playerTile(file, 5);
        ASSERT_GT(tile.width, 0);
        EXPECT_LE(errorNear(tile, file, 5, bt709Reading, true), 2.0);
    }
    // One line for each kind, naming only its files: the HLG phone (Cam 3)
    // and the SDR cameras say what they are.
    const auto lines = MediaScanner::colourNotes(MediaScanner::scan(set_));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "Couleurs non reconnues, lues comme BT.709 : Cam 6/clip 1.mp4 (transfert inconnu (9) BT.709 10 bits)");
    EXPECT_EQ(lines[1], "Couleurs non étiquetées, lues comme BT.709 : Cam 5/clip 1.mp4 (non étiqueté 10 bits)");
}

}  // namespace
}  // namespace qv
