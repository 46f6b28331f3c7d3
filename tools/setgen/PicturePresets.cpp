// Presets of pictures as cameras write them: a phone's variable frame rate,
// one 29.97 phone among 25 fps cameras, a camcorder's interlaced fields,
// HDV's anamorphic pixels, and an action camera's chapters with the light
// copy and thumbnail it writes beside each.
#include "FrameTimes.h"
#include "PresetBuilder.h"

namespace qv::setgen {

namespace {

// A phone clip whose frames lie 33, 40 or 50 ms apart, at most `seconds`
// long: the whole frames that fit.
FilePlan& phoneClip(Builder& b, int camera, int clip, double start, double seconds) {
    b.rate(camera, 30, 1);  // what the phone calls its rate; its frames follow the light
    FilePlan& f = b.camera(camera, clip, start, seconds);
    frametimes::count(f.duration, &f.duration);
    f.variableRate = true;
    f.note = "variable-rate";
    return f;
}

// Seven 25 fps cameras and a 29.97 phone that starts first, as most sets
// are; the phone's second clip has a variable rate.
SetPlan rates(Builder& b) {
    b.addMusic(24, 1);
    b.rate(1, 30000, 1001);
    b.camera(1, 1, 0.2, 9).note = "phone-29.97";
    for (int c = 2; c <= 8; ++c) {
        b.rate(c, 25, 1);
        b.camera(c, 1, uniform(b.rng(), 1, 3), uniform(b.rng(), 16, 20));
    }
    phoneClip(b, 1, 2, 11, 10);
    b.mainRecorder(1, "prise 1.wav");
    return b.take();
}

// Ten minutes of a phone filming at a variable rate, tiny and silent: what
// its constant-rate copy must follow frame for frame.
SetPlan vfr(Builder& b) {
    b.addMusic(602, 0);
    b.pictureSize(160, 90);
    FilePlan& f = phoneClip(b, 1, 1, 0, 600);
    f.mics.clear();
    f.sound = false;
    f.expect = "unsynced";
    return b.take();
}

// A camcorder's 1080i50 with a bar sweeping across, HDV's 1440 × 1080 of
// wide pixels, and an action camera's two chapters, each with its light
// copy and thumbnail, plus what such folders also hold: a stray light copy
// and a note.
SetPlan fields(Builder& b) {
    b.addMusic(20, 0);
    b.pictureSize(1920, 1080);
    b.rate(1, 25, 1);
    b.style(1).extension = ".MTS";
    FilePlan& interlaced = b.camera(1, 1, 1, 8, "00001.MTS");
    interlaced.interlaced = true;
    interlaced.note = "1080i50";
    b.rate(2, 25, 1);
    FilePlan& hdv = b.camera(2, 1, 2, 8, "clip 1.m2t");
    hdv.storedWidth = 1440;
    hdv.note = "anamorphic";
    b.pictureSize(1280, 720);
    b.rate(3, 50, 1);
    // Such a camera names the copy with an L in second place.
    for (int k = 1; k <= 2; ++k) {
        const std::string number = "0" + std::to_string(k) + "0031";
        FilePlan& chapter = b.camera(3, k, 0.5 + 8.5 * (k - 1), 8.4, "GX" + number + ".MP4");
        chapter.previewCopy = "GL" + number + ".LRV";
        chapter.thumbnail = "GX" + number + ".THM";
        chapter.note = "chapter";
    }
    b.raw("Cam 3/GL090031.LRV", "Cam 3", "not a video", "stray-preview");
    b.raw("Cam 3/notes.txt", "Cam 3", "batterie 2\n", "note");
    b.mainRecorder(1, "prise 1.wav");
    return b.take();
}

}  // namespace

const NamedPresets& picturePresets() {
    static const NamedPresets list = {{"rates", rates}, {"vfr", vfr}, {"fields", fields}};
    return list;
}

}  // namespace qv::setgen
