// LookRenderer: the frame filter. Given one camera's frame, already placed in
// output coordinates, the camera's number and the time on the set's time
// line, it returns the frame with the camera's colour grade and the image
// effects of the plan on screen then, always in the order grade, lens blur,
// shutter trail, VHS. The preview and an export each own one renderer and
// call the same `process`, so both show the same picture.
//
// Sizes of the effects are given for 1080 lines and scale with
// k = frame height / 1080. Grain and VHS noise depend only on the time, so a
// frame renders the same at preview and in export; the shutter trail is the
// one effect that depends on earlier frames (per camera), and a seek starts
// it afresh.
//
// Threads: `process` may run on several threads at once (one frame each,
// typically different cameras); `update` from any thread. One lock guards
// the snapshot, the baked cubes, the trails and the text cache. It is held
// for copies, look-ups and stores, and across the whole shutter step, which
// reads and writes its camera's accumulator; cubes are baked and text is
// drawn outside it.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "effects/EffectSettings.h"
#include "effects/MotionFX.h"
#include "looks/ColorGrade.h"
#include "looks/Image.h"
#include "looks/ImageOps.h"

namespace qv {

class LookRenderer {
public:
    // One plan of the edit: seconds on the set's time line, the camera shown,
    // and its drawn effect, of which only lens, shutter and vhs matter here.
    struct Plan {
        double start = 0;
        double end = 0;
        int camera = 0;
        ResolvedEffect effect;
    };

    // What the application model hands over.
    struct Snapshot {
        bool enabled = false;              // false: frames pass untouched
        std::map<int, ColorGrade> grades;  // by camera number
        std::vector<Plan> plans;           // in order of time
        EffectSettings effects;
    };

    // Side of the baked cubes.
    static constexpr int kCubeSize = 33;

    LookRenderer();
    LookRenderer(const LookRenderer&) = delete;
    LookRenderer& operator=(const LookRenderer&) = delete;

    // Installs the snapshot once the cubes of its grades are baked. Cubes of
    // the previous snapshot are reused, those no longer used are dropped,
    // and frames keep the old snapshot while the new cubes are computed.
    void update(Snapshot snapshot);

    // The filtered frame. A frame 1 pixel wide or high, or any frame while
    // the snapshot is disabled, comes back as it went in.
    Image process(Image image, int camera, double time);

    // Whether `process` can change this camera's frames at all: the snapshot
    // is enabled and the camera has a grade other than neutral, or a plan of
    // it has lens, shutter or VHS. Read under the lock.
    bool changesCamera(int camera);

    // The key of a baked cube: the grade with the fields the cube does not
    // carry (sharpen, vignette and its shape, texture, grain and its shape)
    // put back to neutral.
    static ColorGrade reduced(const ColorGrade& grade);

    // Today's date as the VHS stamp shows it, "MMM. dd yyyy" in English and
    // in capitals ("NOV. 05 2025"), fixed for the run of the program.
    static const std::string& stampDate();

private:
    struct Trail {
        ImageOps::ImageAccumulator accumulator;
        double lastTime = 0;
        int frame = 0;  // frames since the trail began
    };
    using CubeMap = std::unordered_map<ColorGrade, std::shared_ptr<const std::vector<float>>>;

    void shutter(Image& image, int camera, double time, const EffectSettings& settings);  // lock held
    void vhs(Image& image, const EffectSettings& settings, double time, double k);
    std::shared_ptr<const Image> text(const std::string& string, double size);

    std::mutex lock_;
    // -- All the following fields are guarded by lock_.
    std::shared_ptr<const Snapshot> snapshot_;
    CubeMap cubes_;
    std::map<int, Trail> trails_;
    std::unordered_map<std::string, std::shared_ptr<const Image>> textCache_;
};

}  // namespace qv
