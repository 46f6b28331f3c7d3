#include <gtest/gtest.h>

#include "looks/Image.h"
#include "platform/VideoFrame.h"
#include "support/Fixtures.h"

namespace qv {
namespace {

TEST(StillFiles, PngRoundTripsAndVideoFramesAreFoundByTime) {
    test::TempDir dir;
    media::RgbaFrame frame{5, 3, {}};
    for (int i = 0; i < 5 * 3 * 4; ++i) frame.pixels.push_back(uint8_t(i * 13 % 256 | (i % 4 == 3 ? 0x80 : 0)));
    ASSERT_TRUE(media::writePng(dir / "image.png", frame).ok());
    auto back = media::decodeVideoFrame(dir / "image.png", 0);
    ASSERT_TRUE(back) << back.error().message;
    EXPECT_EQ(back->width, 5);
    EXPECT_EQ(back->pixels, frame.pixels);

    EXPECT_FALSE(media::writePng(dir / "empty.png", media::RgbaFrame{}).ok());
    test::writeText(dir / "texte.mp4", "pas une vidéo");
    EXPECT_FALSE(media::decodeVideoFrame(dir / "texte.mp4", 0).ok());

    if (!test::haveFFmpeg()) GTEST_SKIP() << "ffmpeg absent";
    // Ten frames a second, frame N with red N × 12.
    ASSERT_TRUE(test::ffmpeg({"-f", "lavfi", "-i", "color=c=black:s=32x32:r=10:d=2", "-vf",
                              "geq=r='N*12':g=128:b=128", "-pix_fmt", "yuv444p", "-c:v", "libx264", "-qp", "0",
                              (dir / "ramp.mp4").string()}));
    auto red = [&](double t) {
        auto f = media::decodeVideoFrame(dir / "ramp.mp4", t);
        return f ? int(f->pixels[(16 * 32 + 16) * 4]) : -1;
    };
    EXPECT_NEAR(red(1.25), 12 * 12, 4);  // the frame that began at 1.2 s
    EXPECT_NEAR(red(0), 0, 4);
    EXPECT_NEAR(red(-3), 0, 4);
    EXPECT_NEAR(red(50), 19 * 12, 4);  // past the end: the last frame

    // Through the picture type and back, straight alpha survives.
    const Image img = Image::fromRgba8(frame.pixels.data(), 5, 3, 5 * 4);
    EXPECT_EQ(img.toRgba8(), frame.pixels);
}

}  // namespace
}  // namespace qv
