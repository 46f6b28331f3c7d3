#include "export/MltExport.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <pugixml.hpp>
#include <sstream>

#include "base/Json.h"
#include "base/SafeText.h"
#include "base/Text.h"

namespace qv::MltExport {

using namespace PremiereExport;

namespace {

// Below this level a fade starts or ends: silent to the ear, and the value
// both editors use for their own audio fades.
constexpr double silentDb = -60;

double finite(double v) { return std::isfinite(v) ? v : 0.0; }

std::string num(int64_t v) { return std::to_string(v); }

pugi::xml_node property(pugi::xml_node parent, const char* name, const std::string& value) {
    pugi::xml_node p = parent.append_child("property");
    p.append_attribute("name").set_value(name);
    p.text().set(xmlSafe(value).c_str());
    return p;
}

pugi::xml_node child(pugi::xml_node parent, const char* name, const std::map<std::string, std::string>& attrs = {}) {
    pugi::xml_node n = parent.append_child(name);
    for (const auto& [key, v] : attrs) n.append_attribute(key.c_str()).set_value(xmlSafe(v).c_str());
    return n;
}

// A filter bound to one entry: its in and out are the entry's, so that its
// key frames count from the clip's first frame, as the editors keep them.
pugi::xml_node filter(pugi::xml_node entry, const char* service, int64_t in, int64_t out) {
    pugi::xml_node f = child(entry, "filter", {{"in", num(in)}, {"out", num(out)}});
    property(f, "mlt_service", service);
    return f;
}

// One value per key ("12=..." relative to the clip's in point), or the plain
// value when the keys all hold the same one.
std::string animation(const std::vector<std::pair<int64_t, std::string>>& keys) {
    bool constant = std::all_of(keys.begin(), keys.end(), [&](const auto& k) { return k.second == keys[0].second; });
    if (constant) return keys.empty() ? std::string() : keys[0].second;
    std::string out;
    int64_t last = -1;
    for (const auto& [at, value] : keys) {
        if (at == last) continue;  // two samples on one frame: the first holds
        if (!out.empty()) out += ";";
        out += num(at) + "=" + value;
        last = at;
    }
    return out;
}

std::string guidesJson(const std::vector<std::pair<int64_t, std::string>>& marks) {
    json::Json list = json::Json::array();
    for (const auto& [frame, name] : marks) list.push_back({{"comment", name}, {"pos", frame}, {"type", 0}});
    return list.dump(-1, ' ', false, json::Json::error_handler_t::replace);
}

class Writer {
public:
    Writer(const std::vector<MediaSource>& sources, const Timeline& timeline, const std::set<Uuid>& muted,
           const TimelineLook& look)
        : sources_(sources), timeline_(timeline), muted_(muted), look_(look), fps_(timeline.rate.fps()),
          profile_(profileOf(timeline, look.format)) {}

    std::string run(const std::string& title, const std::vector<TimelineMarker>& markers);

private:
    int64_t frame(double seconds) const { return frames(seconds, fps_); }
    const MediaSource& sourceOf(const ExportClip& c) const { return sources_.at(static_cast<size_t>(c.sourceIndex)); }
    // A sound track whose every clip comes from a muted source: muted whole.
    bool mutedWhole(const Track& track) const {
        return track.kind == Kind::audio && !track.clips.empty() &&
               std::all_of(track.clips.begin(), track.clips.end(),
                           [&](const ExportClip& c) { return muted_.count(sourceOf(c).id) > 0; });
    }
    std::string producerFor(pugi::xml_node root, const MediaItem& item, pugi::xml_node before);
    void playlist(pugi::xml_node root, const Track& track, const std::string& id, const std::string& title,
                  pugi::xml_node before);
    void pictureFilters(pugi::xml_node entry, const ExportClip& clip, const ClipFrames& f);
    void soundFilters(pugi::xml_node entry, const Track& track, const ExportClip& clip, const ClipFrames& f,
                      bool trackMuted);

    const std::vector<MediaSource>& sources_;
    const Timeline& timeline_;
    const std::set<Uuid>& muted_;
    const TimelineLook& look_;
    double fps_;
    Profile profile_;
    std::map<Uuid, std::string> producers_;  // item id to producer id
};

std::string Writer::producerFor(pugi::xml_node root, const MediaItem& item, pugi::xml_node before) {
    auto known = producers_.find(item.id);
    if (known != producers_.end()) return known->second;
    const std::string id = "producer" + num(static_cast<int64_t>(producers_.size()));
    producers_[item.id] = id;
    const int64_t length = std::max<int64_t>(frame(item.duration), 1);
    pugi::xml_node p = root.insert_child_before("producer", before);
    p.append_attribute("id").set_value(id.c_str());
    p.append_attribute("in").set_value("0");
    p.append_attribute("out").set_value(num(length - 1).c_str());
    property(p, "length", num(length));
    property(p, "eof", "pause");
    const auto alias = look_.aliases.find(item.url.string());
    property(p, "resource", alias != look_.aliases.end() ? alias->second.string() : item.url.string());
    property(p, "mlt_service", "avformat");
    // Fields and pixels as probed, so the editor reads the file as the program does.
    if (item.picture.interlaced()) {
        property(p, "force_progressive", "0");
        property(p, "force_tff", item.picture.fields == media::FieldOrder::topFirst ? "1" : "0");
    }
    if (item.picture.anamorphic()) property(p, "force_aspect_ratio", cformat("%.6f", item.picture.pixelAspect));
    property(p, "seekable", "1");
    property(p, "shotcut:caption", item.fileName());
    property(p, "kdenlive:clipname", item.fileName());
    return id;
}

void Writer::playlist(pugi::xml_node root, const Track& track, const std::string& id, const std::string& title,
                      pugi::xml_node before) {
    pugi::xml_node list = root.insert_child_before("playlist", before);
    list.append_attribute("id").set_value(id.c_str());
    const bool audio = track.kind == Kind::audio;
    property(list, audio ? "shotcut:audio" : "shotcut:video", "1");
    property(list, "shotcut:name", title);
    property(list, "kdenlive:track_name", title);
    if (audio) property(list, "kdenlive:audio_track", "1");

    const bool trackMuted = mutedWhole(track);
    int64_t cursor = 0;
    for (const ExportClip& clip : track.clips) {
        const ClipFrames f = clipFrames(clip, fps_);
        if (f.end <= f.start || f.start < cursor) continue;  // no whole frame, or already covered
        if (f.start > cursor) child(list, "blank", {{"length", num(f.start - cursor)}});
        const std::string producer = producerFor(root, clip.item, root.child("playlist"));
        pugi::xml_node entry =
            child(list, "entry", {{"producer", producer}, {"in", num(f.in)}, {"out", num(f.out - 1)}});
        if (audio) soundFilters(entry, track, clip, f, trackMuted);
        else pictureFilters(entry, clip, f);
        cursor = f.end;
    }
}

void Writer::pictureFilters(pugi::xml_node entry, const ExportClip& clip, const ClipFrames& f) {
    const MediaSource& source = sourceOf(clip);
    // The grade first, on the camera's own pixels, before the frame gets
    // transparent borders that a LUT would tint.
    if (auto cube = look_.cubes.find(source.id); cube != look_.cubes.end()) {
        pugi::xml_node lut = filter(entry, "avfilter.lut3d", f.in, f.out - 1);
        property(lut, "av.file", cube->second.string());
        property(lut, "av.interp", "tetrahedral");
        property(lut, "kdenlive_id", "avfilter.lut3d");
    }

    auto framing = look_.framing.find(source.id);
    const CameraFrame crop = framing == look_.framing.end() ? CameraFrame{} : framing->second;
    const bool sameSize =
        clip.item.width < 1 || (clip.item.width == profile_.width && clip.item.height == profile_.height);
    const bool landscape = look_.format == OutputFormat::landscape;
    if (!clip.motion && landscape && crop.isNeutral() && sameSize) return;
    if (clip.item.width < 1 || clip.item.height < 1) return;  // nothing to place

    const double W = profile_.width, H = profile_.height, w = clip.item.width, h = clip.item.height;
    const Reframe::Placement place = Reframe::place({w, h}, {W, H}, crop);
    std::vector<std::pair<int64_t, std::string>> rects, turns;
    // MLT's out point is the clip's last frame, where the xmeml's is the one
    // after it: the key there is drawn again for the last frame shown.
    std::vector<MotionKey> keys = motionKeys(clip, fps_, look_.effects);
    std::erase_if(keys, [&](const MotionKey& k) { return k.when > f.out - 1; });
    if (clip.motion && (keys.empty() || keys.back().when < f.out - 1)) {
        const double t = clip.start + static_cast<double>(f.out - 1 - f.in) / fps_;
        keys.push_back({f.out - 1, MotionFX::sample(clip.motion->effect, t - clip.motion->planStart,
                                                    clip.motion->planDuration, look_.effects)});
    }
    for (const MotionKey& k : keys) {
        // The picture at its scale, its centre moved by the placement and the
        // motion, in pixels of the output; the rectangle keeps the source's
        // shape, so fitting into it is filling it.
        const double scale = finite(k.sample.scale * place.scale);
        const double dw = w * scale, dh = h * scale;
        const double cx = W / 2 + finite(k.sample.x + place.x) * W, cy = H / 2 + finite(k.sample.y + place.y) * H;
        rects.push_back({k.when - f.in, cformat("%.3f %.3f %.3f %.3f 1", cx - dw / 2, cy - dh / 2, dw, dh)});
        turns.push_back({k.when - f.in, cformat("%.3f", finite(k.sample.rotation))});
    }
    pugi::xml_node affine = filter(entry, "affine", f.in, f.out - 1);
    property(affine, "background", "color:#00000000");
    property(affine, "transition.fill", "1");
    property(affine, "transition.distort", "0");
    property(affine, "transition.rect", animation(rects));
    if (clip.motion && clip.motion->effect.shake) property(affine, "transition.fix_rotate_x", animation(turns));
    property(affine, "transition.rotate_center", "1");
    property(affine, "shotcut:filter", "affineSizePosition");
    property(affine, "kdenlive_id", "affine");
}

void Writer::soundFilters(pugi::xml_node entry, const Track& track, const ExportClip& clip, const ClipFrames& f,
                          bool trackMuted) {
    const MediaSource& source = sourceOf(clip);
    if (!trackMuted && muted_.count(source.id)) {
        // One silent clip among heard ones: the track stays on.
        pugi::xml_node mute = filter(entry, "volume", f.in, f.out - 1);
        property(mute, "gain", "0");
        property(mute, "kdenlive_id", "volume");
    }
    auto level = timeline_.levels.find(source.id);
    if (level != timeline_.levels.end() && level->second != 0) {
        pugi::xml_node gain = filter(entry, "volume", f.in, f.out - 1);
        property(gain, "level", cformat("%.3f", finite(std::min(level->second, 12.0))));  // capped at +12 dB
        property(gain, "shotcut:filter", "audioGain");
        property(gain, "kdenlive_id", "volume");
    }
    // A fade over this clip: the part of it inside the clip rises when the
    // clip begins within it (a rush starting, the far side of a cut) and
    // falls otherwise. A cut's cross-fade thus becomes a frame out and a
    // frame in, which is all a track of one clip at a time can hold.
    for (const Fade& fade : track.fades) {
        const int64_t a = std::max(frame(fade.start), f.start);
        const int64_t b = std::min(std::max(frame(fade.end), frame(fade.start) + 1), f.end);
        if (b <= a) continue;
        const bool rising = f.start >= frame(fade.start);
        const int64_t in = f.in + (a - f.start), out = f.in + (b - f.start) - 1;
        pugi::xml_node v = filter(entry, "volume", in, out);
        const std::string from = cformat("%.1f", rising ? silentDb : 0.0), to = cformat("%.1f", rising ? 0.0 : silentDb);
        property(v, "level", out > in ? "0=" + from + ";" + num(out - in) + "=" + to : to);
        property(v, "shotcut:filter", rising ? "fadeInVolume" : "fadeOutVolume");
        property(v, "kdenlive_id", rising ? "fadein" : "fadeout");
    }
}

std::string Writer::run(const std::string& title, const std::vector<TimelineMarker>& markers) {
    pugi::xml_document doc;
    pugi::xml_node decl = doc.append_child(pugi::node_declaration);
    decl.append_attribute("version").set_value("1.0");
    decl.append_attribute("encoding").set_value("utf-8");
    pugi::xml_node root = child(doc, "mlt", {{"LC_NUMERIC", "C"}, {"producer", "main_bin"}, {"title", title}, {"version", "7.12.0"}});

    const int g = std::gcd(profile_.width, profile_.height);
    child(root, "profile",
          {{"description", cformat("%dx%d %.2f", profile_.width, profile_.height, fps_)},
           {"width", num(profile_.width)},
           {"height", num(profile_.height)},
           {"progressive", "1"},
           {"sample_aspect_num", "1"},
           {"sample_aspect_den", "1"},
           {"display_aspect_num", num(g ? profile_.width / g : 16)},
           {"display_aspect_den", num(g ? profile_.height / g : 9)},
           {"frame_rate_num", num(profile_.rateNum)},
           {"frame_rate_den", num(profile_.rateDen)},
           // Pictures of SD height are BT.601, HD ones BT.709, as decoders
           // take untagged files; a filter working in RGB (the grade's LUT)
           // converts with the profile's matrix.
           {"colorspace", profile_.height >= 720 ? "709" : "601"}});

    const int64_t length = std::max<int64_t>(frame(timeline_.duration), 1);
    pugi::xml_node black = child(root, "producer", {{"id", "black"}, {"in", "0"}, {"out", num(length - 1)}});
    property(black, "length", num(length));
    property(black, "eof", "pause");
    property(black, "resource", "black");
    property(black, "aspect_ratio", "1");
    property(black, "mlt_service", "color");
    property(black, "mlt_image_format", "rgba");
    property(black, "set.test_audio", "0");
    pugi::xml_node background = child(root, "playlist", {{"id", "background"}});
    child(background, "entry", {{"producer", "black"}, {"in", "0"}, {"out", num(length - 1)}});

    // Producers go before the first playlist, the playlists before the bin
    // and the tractor, in the order a reader resolves them.
    pugi::xml_node bin = child(root, "playlist", {{"id", "main_bin"}});
    struct Line {
        std::string id;
        const Track* track;
    };
    std::vector<Line> lines;
    int number = 0;
    for (const Track& t : timeline_.video) {
        ++number;
        lines.push_back({"playlist" + num(static_cast<int64_t>(lines.size())), &t});
        playlist(root, t, lines.back().id, trackTitle(t, sources_, number), bin);
    }
    number = 0;
    for (const Track& t : timeline_.audio) {
        if (isSecondOfPair(t)) continue;  // one stereo track holds both channels
        ++number;
        lines.push_back({"playlist" + num(static_cast<int64_t>(lines.size())), &t});
        playlist(root, t, lines.back().id, trackTitle(t, sources_, number), bin);
    }

    std::vector<std::pair<int64_t, std::string>> marks;
    for (const TimelineMarker& m : markers) {
        const int64_t at = frame(m.time);
        if (at >= 0 && at < length) marks.push_back({at, m.name});
    }
    property(bin, "xml_retain", "1");
    property(bin, "kdenlive:docproperties.guides", guidesJson(marks));

    pugi::xml_node tractor =
        child(root, "tractor", {{"id", "tractor0"}, {"in", "0"}, {"out", num(length - 1)}, {"title", title}});
    property(tractor, "shotcut", "1");
    property(tractor, "kdenlive:sequenceproperties.guides", guidesJson(marks));
    if (!marks.empty()) {
        pugi::xml_node list = child(tractor, "properties", {{"name", "shotcut:markers"}});
        for (size_t i = 0; i < marks.size(); ++i) {
            pugi::xml_node m = child(list, "properties", {{"name", num(static_cast<int64_t>(i))}});
            property(m, "text", marks[i].second);
            property(m, "start", num(marks[i].first));
            property(m, "end", num(marks[i].first));
            property(m, "color", "#e5484d");
        }
    }
    pugi::xml_node multitrack = child(tractor, "multitrack");
    child(multitrack, "track", {{"producer", "background"}});
    for (const Line& line : lines) {
        const bool audio = line.track->kind == Kind::audio;
        const bool silent = mutedWhole(*line.track);
        // Picture tracks lend no sound (the sound tracks hold it); a sound
        // track shows no picture; a track of muted sources is muted whole.
        child(multitrack, "track", {{"producer", line.id}, {"hide", silent ? "both" : audio ? "video" : "audio"}});
    }
    for (size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].track->kind != Kind::audio) continue;
        pugi::xml_node mix = child(tractor, "transition", {{"id", "mix" + num(static_cast<int64_t>(i))}});
        property(mix, "a_track", "0");
        property(mix, "b_track", num(static_cast<int64_t>(i) + 1));
        property(mix, "mlt_service", "mix");
        property(mix, "always_active", "1");
        property(mix, "sum", "1");
        property(mix, "internal_added", "237");
    }

    std::ostringstream out;
    doc.save(out, "  ", pugi::format_indent, pugi::encoding_utf8);
    return out.str();
}

}  // namespace

Profile profileOf(const Timeline& timeline, OutputFormat format) {
    const PixelSize size = frameSize(timeline.video, format);
    Profile p;
    p.width = std::max(2, static_cast<int>(size.width));
    p.height = std::max(2, static_cast<int>(size.height));
    p.rateNum = timeline.rate.ntsc ? timeline.rate.timebase * 1000 : timeline.rate.timebase;
    p.rateDen = timeline.rate.ntsc ? 1001 : 1;
    return p;
}

std::vector<std::filesystem::path> unnameable(const std::vector<MediaSource>& sources) {
    std::vector<std::filesystem::path> files;
    for (const MediaSource& s : sources)
        for (const MediaItem& item : s.items)
            if (xmlSafe(item.url.string()) != item.url.string()) files.push_back(item.url);
    return files;
}

std::string write(const std::string& title, const std::vector<MediaSource>& sources, const Timeline& timeline,
                  const std::set<Uuid>& muted, const TimelineLook& look, const std::vector<TimelineMarker>& markers) {
    Timeline whole = timeline;
    whole.video = wholeClips(timeline.video, timeline.rate);
    whole.audio = wholeClips(timeline.audio, timeline.rate);
    return Writer(sources, whole, muted, look).run(title, markers);
}

}  // namespace qv::MltExport
