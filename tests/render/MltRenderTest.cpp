// The MLT export as melt renders it: files whose names XML cannot hold are
// found through a link. (Frames, zooms, crops and grades through melt stand
// beside our own render in FrameExactTest and PictureTest.)
#include <gtest/gtest.h>

#include <cmath>

#include "export/MltExport.h"
#include "platform/Paths.h"
#include "render/RenderFixtures.h"
#include "support/TempHome.h"

namespace qv {
namespace {

namespace fs = std::filesystem;
using test::meltMontage;
using test::meltProgram;

// A name XML cannot hold (bytes that are not UTF-8, control characters)
// reaches melt through a link of a plain name; the link lives in the cache.
TEST(MeltRender, FilesWhoseNamesXmlCannotHoldAreFoundThroughALink) {
    if (!fs::exists(meltProgram)) GTEST_SKIP() << "melt missing";
    fs::path generated = test::generatedSet("render", 1);
    if (generated.empty()) GTEST_SKIP() << "generator missing";
    TempHome home;
    const char* cache = std::getenv("XDG_CACHE_HOME");
    const std::optional<std::string> kept = cache ? std::optional<std::string>(cache) : std::nullopt;
    setenv("XDG_CACHE_HOME", (home.root() / "cache").c_str(), 1);
    struct Restore {
        const std::optional<std::string>& value;
        ~Restore() { value ? setenv("XDG_CACHE_HOME", value->c_str(), 1) : unsetenv("XDG_CACHE_HOME"); }
    } restore{kept};
    const fs::path set = home.root() / "set";
    const std::string odd = "clip\xff\x01\t\n 1.mp4";
    fs::create_directories(set / "Cam 1");
    fs::copy_file(generated / "Cam 1" / "clip 1.mp4", set / "Cam 1" / odd);
    VideoRender::Job job = test::jobAt(set, {{"Cam 1/" + odd, 0}});
    ASSERT_EQ(job.result.placed.size(), 1u);
    job.segments = test::plans({{0, 0}}, job.result.duration());
    job.range = {0.5, 1.5};

    TimelineLook look;
    look.aliases = paths::plainNameLinks(MltExport::unnameable(job.sources));
    ASSERT_EQ(look.aliases.size(), 1u);
    const fs::path link = look.aliases.begin()->second;
    EXPECT_EQ(link.parent_path(), paths::cacheHome() / "quorvel" / "liens");
    EXPECT_TRUE(fs::equivalent(link, set / "Cam 1" / odd));
    // Asked again, the same link.
    EXPECT_EQ(paths::plainNameLink(set / "Cam 1" / odd), link);

    test::TempDir dir;
    fs::path out = meltMontage(job, dir.path(), look);
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(test::checkFrameCodes(out, job, 0.5, 25, 25, 1.0), 0);
}

}  // namespace
}  // namespace qv
