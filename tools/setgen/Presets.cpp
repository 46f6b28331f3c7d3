// The presets of the generator: the table of every preset by name, and the
// plain families (unit-test sets, hard cases, sync puzzles).
#include "Presets.h"

#include <algorithm>
#include <cmath>

#include "PresetBuilder.h"

namespace qv::setgen {

namespace {

SetPlan tiny(Builder& b) {
    b.addMusic(20, 0);
    for (int c = 1; c <= 2; ++c) {
        double d = uniform(b.rng(), 8, 12);
        b.camera(c, 1, uniform(b.rng(), 0, 20 - d), d);
    }
    b.mainRecorder(1, "prise 1.wav");
    return b.take();
}

SetPlan test(Builder& b) {
    b.addMusic(60, 1);
    for (int c = 1; c <= 3; ++c) {
        int clips = uniformInt(b.rng(), 1, 2);
        auto spans = layout(b.rng(), 0, 60, clips, clips == 1 ? 15 : 10, clips == 1 ? 40 : 25, 2);
        for (size_t k = 0; k < spans.size(); ++k) b.camera(c, static_cast<int>(k) + 1, spans[k].first, spans[k].second);
    }
    b.mainRecorder(1, "prise 1.wav");
    if (chance(b.rng(), 0.5)) {
        double start = uniform(b.rng(), 5, 20);
        double length = uniform(b.rng(), 25, 60 - start);
        b.recorder(2, chance(b.rng(), 0.5) ? "prise 1.flac" : "prise 1.mp3", start, length);
    }
    return b.take();
}

SetPlan demo(Builder& b) {
    b.addMusic(180, 2);
    b.cameras(4, 1, 3, 15, 70, 3);
    b.mainRecorder(1, "prise 1.wav");
    double start = uniform(b.rng(), 3, 20);
    b.recorder(2, "prise 1.m4a", start, 180 - start - uniform(b.rng(), 0, 15));
    return b.take();
}

SetPlan hard(Builder& b) {
    b.addMusic(90, 1);
    SplitMix64& rng = b.rng();

    // Cam 1: a good clip, one without any sound stream, one cut in half.
    auto spans = layout(rng, 0, 90, 3, 14, 25, 2);
    b.camera(1, 1, spans[0].first, spans[0].second, "clip 1.mp4");
    FilePlan& mute = b.camera(1, 2, spans[1].first, spans[1].second, "clip 2.mov");
    mute.mics.clear();
    mute.sound = false;
    mute.expect = "unsynced";
    mute.note = "no-audio";
    FilePlan& damaged = b.camera(1, 3, spans[2].first, spans[2].second, "clip 3.mp4");
    damaged.truncate = true;
    damaged.sound = false;
    damaged.expect = "unreadable";
    damaged.note = "damaged";

    // Cam 2: two microphones in one file, and a clip in a card folder.
    spans = layout(rng, 0, 90, 3, 14, 25, 2);
    b.camera(2, 1, spans[0].first, spans[0].second, "clip 1.mp4");
    FilePlan& twin = b.camera(2, 2, spans[1].first, spans[1].second, "clip 2.mp4");
    twin.mics.push_back(Microphone::recorder(rng));
    twin.note = "two-streams";
    b.camera(2, 3, spans[2].first, spans[2].second, "Carte SD/clip 3.mp4").note = "nested";

    // Cam 3: an upper-case extension, and a clip whose sound is digital silence.
    spans = layout(rng, 0, 90, 2, 20, 35, 2);
    b.camera(3, 1, spans[0].first, spans[0].second, "CLIP0001.MP4").note = "upper-case";
    FilePlan& silent = b.camera(3, 2, spans[1].first, spans[1].second, "CLIP0002.MP4");
    silent.silent = true;
    silent.sound = false;
    silent.expect = "unsynced";
    silent.note = "silent-video";

    b.mainRecorder(1, "prise 1.wav");
    double start = uniform(rng, 5, 25);
    FilePlan& inverted = b.recorder(2, "prise 1.m4a", start, uniform(rng, 45, 90 - start));
    inverted.mics.front().gain = -std::fabs(inverted.mics.front().gain);
    inverted.note = "inverted";
    FilePlan& shortFile = b.recorder(3, "court.wav", uniform(rng, 10, 80), 0.6);
    shortFile.sound = false;
    shortFile.expect = "unsynced";
    shortFile.note = "short";

    // What a card or a laptop leaves behind beside the media.
    std::string appleDouble("\x00\x05\x16\x07\x00\x02\x00\x00Mac OS X        ", 24);
    appleDouble.resize(4096, '\0');
    b.raw("Son 1/.DS_Store.wav", "Son 1", appleDouble, "hidden");
    b.raw("notes.txt", "",
          "Set du samedi, club. Cam 1 au fond, Cam 2 sur la scène, Cam 3 à l'épaule.\n"
          "Son 1 : enregistreur sur la table, Son 2 : micro dans la salle.\n",
          "text");
    return b.take();
}

SetPlan hour(Builder& b) {
    b.addMusic(3600, -1);
    b.pictureSize(160, 90);
    for (int c = 1; c <= 6; ++c) {
        int clips = uniformInt(b.rng(), 3, 5);
        double mean = 3600 * uniform(b.rng(), 0.75, 0.9) / clips;
        auto spans = layout(b.rng(), 0, 3600, clips, 0.6 * mean, 1.4 * mean, 5);
        for (size_t k = 0; k < spans.size(); ++k) b.camera(c, static_cast<int>(k) + 1, spans[k].first, spans[k].second);
    }
    FilePlan& whole = b.recorder(1, "prise 1.wav", 0, 3600);
    whole.channels = 1;
    whole.pcmBits = 16;
    std::string ext = chance(b.rng(), 0.5) ? ".flac" : ".m4a";
    auto spans = layout(b.rng(), 0, 3600, 2, 1300, 1750, 10);
    for (size_t k = 0; k < spans.size(); ++k)
        b.recorder(2, "prise " + std::to_string(k + 1) + ext, spans[k].first, spans[k].second);
    return b.take();
}

SetPlan nocorr(Builder& b) {
    // Three unrelated sets: the longest sound file is the reference, the
    // others find nothing in it.
    int a = b.addMusic(40, 0), c1 = b.addMusic(30, 0), c2 = b.addMusic(25, 0);
    b.recorder(1, "prise 1.wav", 0, 40, a);
    b.camera(1, 1, 0, 30, {}, c1).expect = "unsynced";
    b.camera(2, 1, 0, 25, {}, c2).expect = "unsynced";
    return b.take();
}

SetPlan silence(Builder& b) {
    b.addMusic(30, 0);
    auto quiet = [](FilePlan& f, const char* expect) {
        f.silent = true;
        f.sound = false;
        f.expect = expect;
    };
    // The reference is placed whatever it holds; nothing can join it.
    quiet(b.recorder(1, "silence.wav", 0, 30), "placed");
    quiet(b.camera(1, 1, 2, 20), "unsynced");
    quiet(b.camera(2, 1, 8, 15), "unsynced");
    return b.take();
}

SetPlan longshort(Builder& b) {
    // Two hours at 8 kHz keep the render and the file light.
    b.addMusic(7200, -1, 8000);
    FilePlan& whole = b.recorder(1, "prise 1.flac", 0, 7200);
    whole.sampleRate = 8000;
    whole.channels = 1;
    whole.pcmBits = 16;
    b.camera(1, 1, uniform(b.rng(), 300, 6800), 5.0);
    return b.take();
}

SetPlan drops(Builder& b) {
    b.addMusic(240, 3);
    b.cameras(2, 1, 2, 30, 100, 3);
    b.mainRecorder(1, "prise 1.wav");
    return b.take();
}

// Every moment filmed: camera 1 runs from the first second to the last, so
// an automatic edit never needs a plan without a picture.
SetPlan covered(Builder& b) {
    b.addMusic(120, 2);
    b.camera(1, 1, 0, 120);
    for (int c = 2; c <= 3; ++c) {
        auto spans = layout(b.rng(), 0, 120, 2, 15, 40, 3);
        for (size_t k = 0; k < spans.size(); ++k) b.camera(c, static_cast<int>(k) + 1, spans[k].first, spans[k].second);
    }
    b.recorder(1, "prise 1.wav", 0.5, 118);
    return b.take();
}


// Real club footage: the music repeats 8-bar phrases; an action camera dates
// its files when they close, by a clock hours off; two phones hear the room
// faintly; a short clip is heard clearly by the table and faintly by the
// phones; two stretches are each recorded once and kept twice (MP3 and PCM
// in a MOV, Opus in Matroska and AAC in an MP4); a recorder runs 100 ppm
// fast for 20 minutes; another has ten seconds of digital silence; one clip
// was filmed while nothing else ran.
SetPlan club(Builder& b) {
    const double length = 1560;
    // A packed room: the crowd is heard as well as the track's repeats.
    b.addMusic(length, -1, 48000, true, 3.0);
    SplitMix64& rng = b.rng();

    b.recorder(1, "table.wav", 0, 1450).note = "reference";
    FilePlan& slow = b.recorder(2, "enregistreur.wav", 150, 1200);
    slow.drift = 100;
    slow.note = "drift";
    FilePlan& gapped = b.recorder(3, "micro salle.wav", 20, 1100);
    gapped.gaps.push_back({400, 410});
    gapped.note = "digital-silence";

    // Cam 1: end-of-recording dates from a clock 3 h 17 min 5 s ahead.
    CameraStyle& action = b.style(1);
    action.dated = true;
    action.datesAtEnd = true;
    action.clock = 3 * 3600 + 17 * 60 + 5;
    action.extension = ".mp4";
    auto spans = layout(rng, 30, 1400, 5, 40, 110, 20);
    for (size_t k = 0; k < spans.size(); ++k)
        b.camera(1, static_cast<int>(k) + 1, spans[k].first, spans[k].second).note = "end-dates";

    // Cam 2 and 3: phones far from the speakers, both filming 600 to 700 s.
    for (int c = 2; c <= 3; ++c) {
        b.style(c).extension = ".mp4";
        auto faint = [&](FilePlan& f) {
            f.mics.front().gain = (c == 2 ? 0.12 : -0.1);
            f.mics.front().hiss = 0.02;
            f.note = "faint";
        };
        faint(b.camera(c, 1, c == 2 ? 595 : 605, 100));
        faint(b.camera(c, 2, c == 2 ? 900 : 1000, 60));
    }
    // Cam 4: four seconds in the phones' stretch, heard clearly.
    b.style(4).extension = ".mp4";
    b.camera(4, 1, 641.3, 4.0, "court.mp4").note = "short-clip";

    // One stretch recorded once, in four containers.
    Microphone booth = Microphone::recorder(rng);
    auto same = [&](FilePlan& f) {
        f.mics = {booth};
        f.sampleRate = 48000;
        f.channels = 2;
        f.note = "container";
    };
    same(b.recorder(4, "extrait.mp3", 300, 120));
    FilePlan& opus = b.recorder(4, "extrait.mkv", 700, 120);
    same(opus);
    CameraStyle& mov = b.style(5);
    mov.extension = ".mov";
    mov.dated = false;
    FilePlan& pcm = b.camera(5, 1, 300, 120, "extrait.mov");
    same(pcm);
    pcm.audioCodec = "pcm";
    CameraStyle& mp4 = b.style(6);
    mp4.extension = ".mp4";
    mp4.dated = false;
    same(b.camera(6, 1, 700, 120, "extrait.mp4"));
    // The MP3 and the MOV hold the same recording, and so do the MKV and the MP4.

    // Cam 7: filmed after every other device stopped, in the same track as
    // the table's last minutes: its phrases are all over them, its moment
    // is nowhere.
    b.style(7).dated = false;
    FilePlan& alone = b.camera(7, 1, 1458, 20, "seul.mp4");
    alone.expect = "unsynced";
    alone.note = "isolated";
    return b.take();
}

// For the video export: one camera at each common rate (25, 23.976 and
// 29.97), the first with two files, and a recorder under all of them.
SetPlan render(Builder& b) {
    b.addMusic(20, 1);
    b.rate(1, 25, 1);
    b.rate(2, 24000, 1001);
    b.rate(3, 30000, 1001);
    b.camera(1, 1, 0.5, 9.0);
    b.camera(1, 2, 10.0, 9.5);
    b.camera(2, 1, 1.0, 17.0);
    b.camera(3, 1, 0.7, 18.3);
    b.recorder(1, "prise 1.wav", 0, 20);
    return b.take();
}

// A minute of full-HD pictures from three cameras, for the export benchmark.
SetPlan fullhd(Builder& b) {
    b.addMusic(64, 1);
    b.pictureSize(1920, 1080);
    for (int c = 1; c <= 3; ++c) {
        b.rate(c, 25, 1);
        b.camera(c, 1, 0.2 * c, 63);
    }
    b.recorder(1, "prise 1.wav", 0, 64);
    return b.take();
}

// The player's benchmark: eight full-HD cameras at 25 fps and two recorders
// over a minute, each camera a little late on the one before.
SetPlan multicam(Builder& b) {
    b.addMusic(63, 1);
    b.pictureSize(1920, 1080);
    for (int c = 1; c <= 8; ++c) {
        b.rate(c, 25, 1);
        b.camera(c, 1, 0.1 * c, 62);
    }
    b.recorder(1, "prise 1.wav", 0, 63);
    b.recorder(2, "prise 1.wav", 0.3, 62.5);
    return b.take();
}

// A full rig: eight cameras and two recorders over two minutes, for the
// workspace's screenshots and the interface's own trials.
SetPlan eight(Builder& b) {
    b.addMusic(120, 2);
    b.cameras(8, 1, 2, 25, 80, 3);
    b.mainRecorder(1, "prise 1.wav");
    double start = uniform(b.rng(), 3, 15);
    b.recorder(2, "prise 1.m4a", start, 120 - start - uniform(b.rng(), 0, 10));
    return b.take();
}

// A camera's clock against a weak match: a phone dates its clips by a true
// clock; its first clip is heard clearly by the table, its second was filmed
// after every other device had stopped, while the track's phrases went on,
// so its sound matches only repeats of what the table heard.
SetPlan lateclip(Builder& b) {
    const double length = 420;
    b.addMusic(length, -1, 48000, true, 3.0);
    b.recorder(1, "table.wav", 0, 330).note = "reference";
    FilePlan& room = b.recorder(2, "salle.wav", 40, 270);
    room.mics.front().gain = 0.5;
    // Three phones, each late at another moment of the track.
    const double during[] = {120, 170, 230}, after[] = {336, 361, 386};
    for (int c = 1; c <= 3; ++c) {
        CameraStyle& phone = b.style(c);
        phone.dated = true;
        phone.datesAtEnd = false;
        phone.clock = 3600 * c;
        phone.extension = ".mp4";
        b.camera(c, 1, during[c - 1], 40).note = "dated";
        FilePlan& late = b.camera(c, 2, after[c - 1], 22);
        late.expect = "unsynced";
        late.note = "after-everyone";
    }
    // Another camera, undated, whose clips only the sound can place.
    b.style(4).dated = false;
    b.camera(4, 1, 60, 80);
    b.camera(4, 2, 200, 60);
    return b.take();
}

// A short clip in looped music with crowd noise: the 8-bar phrases repeat,
// two phones hear the room faintly over the clip's moment, three others
// filmed only the next bars, and the clip's own microphone is half drowned
// in the crowd. Against the table its true start still leads, if unclearly.
SetPlan loop(Builder& b) {
    const double length = 300;
    b.addMusic(length, -1, 48000, true, 0.7);
    b.recorder(1, "table.wav", 0, 290).note = "reference";
    for (int c = 2; c <= 3; ++c) {
        b.style(c).extension = ".mp4";
        b.style(c).dated = false;
        FilePlan& f = b.camera(c, 1, c == 2 ? 95 : 102, 90);
        f.mics.front().gain = c == 2 ? 0.3 : -0.25;
        f.mics.front().hiss = 0.02;
        f.note = "faint";
    }
    // Three phones filmed only the next bars: they hear the clip's phrase
    // repeated, never its moment.
    for (int c = 4; c <= 6; ++c) {
        b.style(c).extension = ".mp4";
        b.style(c).dated = false;
        b.camera(c, 1, 150, 22).note = "next-bars";
    }
    b.style(1).dated = false;
    FilePlan& clip = b.camera(1, 1, 141.7, 4.0, "court.mp4");
    clip.mics.front().hiss = 0.18;
    clip.note = "short-clip";
    return b.take();
}

// Every codec and container a set brings, each holding its own stretch of
// the table's recording: their delays (Opus pre-skip, AAC priming, MP3
// encoder delay and padding, Vorbis) must all come out to the sample.
SetPlan codecs(Builder& b) {
    b.addMusic(150, 1);
    b.recorder(1, "table.wav", 0, 150).note = "reference";
    struct Wrap {
        const char* name;
        const char* codec;
    };
    const Wrap sounds[] = {{"opus.mkv", ""},       {"opus.webm", ""},       {"opus.opus", ""},
                           {"opus.ogg", "opus"},  {"vorbis.ogg", ""},      {"vorbis.webm", "vorbis"},
                           {"vorbis.mkv", "vorbis"}, {"lame.mp3", ""},     {"aac.m4a", ""}};
    int recorder = 2;
    for (const Wrap& w : sounds) {
        double start = uniform(b.rng(), 2, 120);
        FilePlan& f = b.recorder(recorder++, w.name, start, uniform(b.rng(), 15, 25));
        f.audioCodec = w.codec;
        if (std::string(w.name).starts_with("opus")) f.sampleRate = 48000;  // Opus knows no 44.1 kHz
        f.note = "codec";
    }
    // AAC in the two video containers, at both common sound rates.
    int camera = 1;
    for (const char* extension : {".mp4", ".mov"})
        for (int rate : {48000, 44100}) {
            CameraStyle& s = b.style(camera);
            s.extension = extension;
            s.sampleRate = rate;
            s.dated = false;
            b.camera(camera, 1, uniform(b.rng(), 2, 120), uniform(b.rng(), 15, 25)).note = "codec";
            ++camera;
        }
    return b.take();
}

const NamedPresets& plainPresets() {
    static const NamedPresets list = {
        {"tiny", tiny},     {"test", test},       {"demo", demo},        {"hard", hard}, {"hour", hour},
        {"nocorr", nocorr}, {"silent", silence}, {"longshort", longshort}, {"drops", drops},
        {"covered", covered}, {"club", club},   {"render", render},   {"fullhd", fullhd},
        {"multicam", multicam}, {"eight", eight},
        {"lateclip", lateclip}, {"loop", loop}, {"codecs", codecs}};
    return list;
}

// Every preset, family by family; a new family adds its list here.
NamedPresets makers() {
    NamedPresets all;
    for (const NamedPresets* family : {&plainPresets(), &footagePresets(), &devicePresets(), &picturePresets(), &visionPresets()})
        all.insert(all.end(), family->begin(), family->end());
    return all;
}

}  // namespace

const std::vector<std::string>& presetNames() {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> n;
        for (const auto& [name, make] : makers()) n.push_back(name);
        return n;
    }();
    return names;
}

Result<SetPlan> makePlan(const std::string& preset, uint64_t seed) {
    for (const auto& [name, make] : makers()) {
        if (name != preset) continue;
        Builder builder(preset, seed);
        return make(builder);
    }
    return Error{"Préréglage inconnu : " + preset};
}

}  // namespace qv::setgen
