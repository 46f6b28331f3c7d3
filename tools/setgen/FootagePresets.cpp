// Presets of real weight: phones and action cameras with HDR and odd tags,
// full-HD cameras that write as much grain and as many bits as real ones, and
// 4K phones beside them.
#include "PresetBuilder.h"

namespace qv::setgen {

namespace {

// Phones and action cameras beside ordinary ones, small pictures for tests:
// an SDR camera at 25 fps, an action camera at 50 fps, a phone filming
// 10-bit HEVC in HLG over BT.2020 at 29.97 fps held upright (a 90° rotation
// in its metadata), a PQ (HDR10) clip, an SDR clip over BT.2020 primaries,
// and two hard cases: 10 bits without any colour tag, and a transfer no
// camera uses.
SetPlan hdr(Builder& b) {
    b.addMusic(20, 1);
    b.rate(1, 25, 1);
    b.camera(1, 1, 0.5, 18.5);
    // Camera, rate, start drawn in [from, to), length, recording, rotation, truth's name.
    struct Case {
        int camera, num, den;
        double from, to, length;
        Recording recording;
        int rotation;
        const char* note;
    };
    const Case cases[] = {
        {2, 50, 1, 0.5, 2, 16, Recording::sdr, 0, "action-50fps"},
        {3, 30000, 1001, 0.5, 2, 16, Recording::hlg, 90, "phone-hlg"},
        {4, 25, 1, 1, 3, 14, Recording::pq, 0, "hdr10-pq"},
        {5, 25, 1, 1, 4, 12, Recording::untagged10, 0, "untagged-10bit"},
        {6, 25, 1, 1, 4, 12, Recording::unknownTransfer, 0, "unknown-transfer"},
        {7, 25, 1, 1, 4, 12, Recording::wideSdr, 0, "bt2020-sdr"},
    };
    for (const Case& c : cases) {
        b.rate(c.camera, c.num, c.den);
        FilePlan& file = b.camera(c.camera, 1, uniform(b.rng(), c.from, c.to), c.length);
        file.recording = c.recording;
        file.rotation = c.rotation;
        file.note = c.note;
    }
    b.mainRecorder(1, "prise 1.wav");
    return b.take();
}

// The player's benchmark on real weight: eight full-HD cameras at 25 fps
// writing 20 to 30 Mbit/s of grainy pictures (H.264 High, B-frames, a key
// frame every 2 s) over a minute, and two recorders.
SetPlan realcam(Builder& b) {
    b.addMusic(62, 1);
    b.pictureSize(1920, 1080);
    for (int c = 1; c <= 8; ++c) {
        b.rate(c, 25, 1);
        realFootage(b.camera(c, 1, 0.1 * c, 60), uniform(b.rng(), 20, 30));
    }
    b.recorder(1, "prise 1.wav", 0, 62);
    b.recorder(2, "prise 1.wav", 0.3, 61.5);
    return b.take();
}

// Footage of the same weight where grain covers the whole picture and no
// picture predicts it: eight full-HD cameras at 25 fps, 25 Mbit/s, two
// B-frames coded coarsely between anchors that carry most of the bits, a
// key frame every 2 s. Skipping the B-frames saves the decoder little here.
SetPlan realnoise(Builder& b) {
    b.addMusic(62, 1);
    b.pictureSize(1920, 1080);
    for (int c = 1; c <= 8; ++c) {
        b.rate(c, 25, 1);
        FilePlan& file = b.camera(c, 1, 0.1 * c, 60);
        realFootage(file, 25);
        file.grain = 24;
        file.bFrames = 2;
        file.bitsInP = true;
    }
    b.recorder(1, "prise 1.wav", 0, 62);
    b.recorder(2, "prise 1.wav", 0.3, 61.5);
    return b.take();
}

// What a crowd of phones brings back beside the cameras: four phones
// filming 3840 × 2160 HEVC 10-bit in HLG at 29.97 fps and 50 Mbit/s (a key
// frame a second), started late as phones are, and four full-HD cameras.
// The phones come first, so the first camera on program is a 4K one.
SetPlan phone4k(Builder& b) {
    b.addMusic(32, 1);
    for (int c = 1; c <= 4; ++c) {
        b.rate(c, 30000, 1001);
        b.pictureSize(3840, 2160);
        FilePlan& file = b.camera(c, 1, uniform(b.rng(), 0.2, 3.0), uniform(b.rng(), 26, 29));
        file.recording = Recording::hlg;
        file.note = "phone-4k-hlg";
        file.grain = 6;
        file.bitrateKbps = 50000;
        file.gopSeconds = 1;
        file.bFrames = 2;
    }
    b.pictureSize(1920, 1080);
    for (int c = 5; c <= 8; ++c) {
        b.rate(c, 25, 1);
        realFootage(b.camera(c, 1, 0.1 * c, 31.5), uniform(b.rng(), 20, 25));
    }
    b.recorder(1, "prise 1.wav", 0, 32);
    return b.take();
}

// The same kind of files, small and short, for the tests: three cameras of
// 320 × 180 over twelve seconds, one of them in two clips.
SetPlan realsmall(Builder& b) {
    b.addMusic(12, 0);
    for (int c = 1; c <= 3; ++c) b.rate(c, 25, 1);
    realFootage(b.camera(1, 1, 0.2, 11.5), 25);
    realFootage(b.camera(2, 1, 0.5, 5.0), 25);
    realFootage(b.camera(2, 2, 6.0, 5.8), 25);
    realFootage(b.camera(3, 1, 1.0, 10.5), 25);
    b.recorder(1, "prise 1.wav", 0, 12);
    return b.take();
}

}  // namespace

const NamedPresets& footagePresets() {
    static const NamedPresets list = {{"hdr", hdr},             {"realcam", realcam},     {"realnoise", realnoise},
                                      {"phone4k", phone4k},     {"realsmall", realsmall}};
    return list;
}

}  // namespace qv::setgen
