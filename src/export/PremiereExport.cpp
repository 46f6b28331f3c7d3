#include "export/PremiereExport.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <pugixml.hpp>
#include <sstream>

#include "base/SafeText.h"
#include "base/Text.h"
#include "export/SetRate.h"

namespace qv::PremiereExport {

const std::vector<SequenceRate> rateTable{{24, true}, {24, false}, {25, false}, {30, true},
                                          {30, false}, {50, false}, {60, true}, {60, false}};

SequenceRate SequenceRate::closest(double rate) {
    if (!(rate > 0)) return {25, false};
    SequenceRate best = rateTable.front();
    double bestGap = std::abs(best.fps() - rate);
    for (const SequenceRate& r : rateTable) {
        double gap = std::abs(r.fps() - rate);
        if (gap < bestGap) {  // strict: the earlier entry keeps a tie
            best = r;
            bestGap = gap;
        }
    }
    return best;
}

int64_t frames(double seconds, double fps) {
    // Beyond 2^53 frames a double counts no whole frames any more; NaN is no time at all.
    double f = std::round(seconds * fps);
    if (!std::isfinite(f)) return f > 0 ? maxFrames : f < 0 ? -maxFrames : 0;
    return static_cast<int64_t>(std::clamp(f, -static_cast<double>(maxFrames), static_cast<double>(maxFrames)));
}

ClipFrames clipFrames(const ExportClip& clip, double fps) {
    int64_t start = frames(clip.start, fps), end = frames(clip.start + clip.duration, fps);
    int64_t in = frames(clip.sourceIn, fps);
    // The file's last whole frame, so that no importer finds the clip reading
    // a frame past the file's end after rounding start and end apart.
    double whole = std::floor(clip.item.duration * fps + 1e-6);
    int64_t last = std::isfinite(whole) ? static_cast<int64_t>(std::clamp(whole, 0.0, double(maxFrames))) : 0;
    int64_t length = std::min(end - start, last - in);
    return {start, start + length, in, in + length};
}

std::vector<MotionKey> motionKeys(const ExportClip& clip, double fps, const EffectSettings& effects) {
    const ClipFrames span = clipFrames(clip, fps);
    if (!clip.motion) return {{span.in, MotionSample{}}};
    const ClipMotion& m = *clip.motion;
    double step = m.effect.shake ? std::clamp(0.2 / (std::max(effects.shakeSpeed, 0.05) * 0.5), 0.08, 1.0)
                                 : std::max(clip.duration / 6, 0.2);
    std::vector<double> times;
    double end = clip.start + clip.duration;
    for (int64_t k = 0;; ++k) {
        double t = clip.start + static_cast<double>(k) * step;
        if (!(t < end)) break;
        times.push_back(t);
    }
    times.push_back(end);
    // Key frames count in file frames and never leave the clip.
    std::vector<MotionKey> keys;
    for (double t : times)
        keys.push_back({std::clamp(frames(clip.sourceIn + t - clip.start, fps), span.in, span.out),
                        MotionFX::sample(m.effect, t - m.planStart, m.planDuration, effects)});
    return keys;
}

std::vector<std::vector<ExportClip>> lanes(std::vector<ExportClip> clips, SequenceRate rate) {
    double fps = rate.fps();
    std::stable_sort(clips.begin(), clips.end(),
                     [](const ExportClip& a, const ExportClip& b) { return a.start < b.start; });
    std::vector<std::vector<ExportClip>> out;
    for (ExportClip& clip : clips) {
        auto fits = [&](const std::vector<ExportClip>& lane) {
            const ExportClip& last = lane.back();
            return frames(clip.start, fps) >= frames(last.start + last.duration, fps);
        };
        auto lane = std::find_if(out.begin(), out.end(), fits);
        if (lane == out.end()) lane = out.insert(out.end(), std::vector<ExportClip>{});
        lane->push_back(std::move(clip));
    }
    return out;
}

std::vector<Track> audioPair(const std::vector<ExportClip>& clips) {
    std::vector<Track> pair;
    for (int channel : {1, 2}) {
        Track t;
        t.kind = Kind::audio;
        t.clips = clips;
        t.channel = channel;
        t.attributes = {{"premiereTrackType", "Stereo"},
                        {"currentExplodedTrackIndex", std::to_string(channel - 1)},
                        {"totalExplodedTrackCount", "2"}};
        pair.push_back(std::move(t));
    }
    return pair;
}

std::vector<Track> soundTracks(const std::vector<ExportClip>& lane) {
    int channels = 0;
    for (const ExportClip& c : lane) channels = std::max(channels, c.item.audioChannels);
    if (channels >= 2) return audioPair(lane);
    Track mono;
    mono.kind = Kind::audio;
    mono.clips = lane;
    mono.attributes = {{"premiereTrackType", "Mono"}};
    return {mono};
}

std::string pathURL(const std::filesystem::path& path) {
    std::error_code ec;
    std::filesystem::path absolute = std::filesystem::absolute(path, ec);
    const std::string text = (ec ? path : absolute).string();
    // The characters a file URL's path keeps as they are; every other byte
    // (blanks, accents as UTF-8 bytes, '%', '#', '?', ';'...) is escaped.
    auto keeps = [](unsigned char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               std::string_view("-._~!$&'()*+,=:@/").find(static_cast<char>(c)) != std::string_view::npos;
    };
    static const char* hex = "0123456789ABCDEF";
    std::string url = "file://";
    for (unsigned char c : text) {
        if (keeps(c)) {
            url.push_back(static_cast<char>(c));
        } else {
            url.push_back('%');
            url.push_back(hex[c >> 4]);
            url.push_back(hex[c & 0xF]);
        }
    }
    if (url.rfind("file:///", 0) == 0) url.replace(0, 8, "file://localhost/");
    return url;
}

PixelSize frameSize(const std::vector<Track>& video, OutputFormat format) {
    if (auto fixed = fixedSize(format); fixed && std::string_view(rawValue(format)) != "16:9") return *fixed;
    // The most common size among the video clips; between groups of equal
    // size, the one met first.
    struct Group {
        std::string key;
        int count = 0;
        int width = 0, height = 0;
    };
    std::vector<Group> groups;
    for (const Track& t : video)
        for (const ExportClip& c : t.clips) {
            std::string key = std::to_string(c.item.width) + "x" + std::to_string(c.item.height);
            auto g = std::find_if(groups.begin(), groups.end(), [&](const Group& x) { return x.key == key; });
            if (g == groups.end()) g = groups.insert(groups.end(), Group{key, 0, c.item.width, c.item.height});
            ++g->count;
        }
    if (groups.empty()) return {1920, 1080};
    const Group* best = &groups.front();
    for (const Group& g : groups)
        if (g.count > best->count) best = &g;
    return {double(best->width), double(best->height)};
}

std::string trackTitle(const Track& track, const std::vector<MediaSource>& sources, int number) {
    std::set<int> from;
    for (const ExportClip& c : track.clips) from.insert(c.sourceIndex);
    const bool video = track.kind == Kind::video;
    if (from.empty()) return (video ? "V" : "A") + std::to_string(number);
    if (from.size() == 1 && static_cast<size_t>(*from.begin()) < sources.size())
        return sources[static_cast<size_t>(*from.begin())].name;
    return video ? "Montage" : "Son des caméras";
}

bool isSecondOfPair(const Track& track) {
    auto it = track.attributes.find("currentExplodedTrackIndex");
    return it != track.attributes.end() && it->second != "0";
}

std::vector<Track> wholeClips(std::vector<Track> tracks, SequenceRate rate) {
    const double fps = rate.fps();
    for (Track& t : tracks)
        std::erase_if(t.clips, [&](const ExportClip& c) {
            ClipFrames f = clipFrames(c, fps);
            return f.end <= f.start;
        });
    return tracks;
}

std::vector<Track> withCopies(std::vector<Track> tracks, const PictureChoices& choices) {
    if (choices.copies.empty()) return tracks;
    std::map<Uuid, MediaItem> made;  // original id to the copy's item
    for (Track& t : tracks) {
        if (t.kind != Kind::video) continue;
        for (ExportClip& c : t.clips) {
            auto copy = choices.copies.find(c.item.url);
            if (copy == choices.copies.end()) continue;
            auto [it, fresh] = made.try_emplace(c.item.id, c.item);
            if (fresh) {
                MediaItem& item = it->second;
                item.id = Uuid::make();
                item.url = copy->second;
                item.frameRate = SequenceRate::closest(c.item.frameRate).fps();
                item.audioChannels = 0;
                item.sampleRate = 0;
                item.picture = {};  // whole frames of square pixels at a constant rate
                item.previewCopy.clear();
            }
            c.item = it->second;
        }
    }
    return tracks;
}

namespace {

// A number that cannot be written (NaN, infinite) is written as 0.
double finite(double v) { return std::isfinite(v) ? v : 0.0; }

std::string num(int64_t v) {
    char buf[24];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    return std::string(buf, r.ptr);
}

// The single way an element comes to exist: text when a value is given,
// attributes in byte order of their key. Children are appended by the caller.
pugi::xml_node el(pugi::xml_node parent, const char* name, const std::optional<std::string>& value = {},
                  const std::map<std::string, std::string>& attrs = {}) {
    pugi::xml_node node = parent.append_child(name);
    // Names from the disk may hold any byte; the document stays XML 1.0.
    if (value) node.text().set(xmlSafe(*value).c_str());
    for (const auto& [key, v] : attrs) node.append_attribute(key.c_str()).set_value(xmlSafe(v).c_str());
    return node;
}

void rateElement(pugi::xml_node parent, SequenceRate rate) {
    pugi::xml_node r = el(parent, "rate");
    el(r, "timebase", num(rate.timebase));
    el(r, "ntsc", rate.ntsc ? "TRUE" : "FALSE");
}

void effectHeader(pugi::xml_node effect, const char* name, const char* id, const char* category,
                  const char* type, const char* mediaType) {
    el(effect, "name", name);
    el(effect, "effectid", id);
    el(effect, "effectcategory", category);
    el(effect, "effecttype", type);
    el(effect, "mediatype", mediaType);
}

void audioLevel(pugi::xml_node parent, double db) {
    pugi::xml_node effect = el(el(parent, "filter"), "effect");
    effectHeader(effect, "Audio Levels", "audiolevels", "audiolevels", "audiolevels", "audio");
    pugi::xml_node p = el(effect, "parameter");
    el(p, "parameterid", "level");
    el(p, "name", "Level");
    el(p, "valuemin", "0");
    el(p, "valuemax", "3.98109");
    el(p, "value", cformat("%.5f", finite(std::min(std::pow(10.0, db / 20), 3.98109))));  // capped at +12 dB
}

// How the importers name a file's fields.
const char* fieldDominance(const MediaItem& item) {
    switch (item.picture.fields) {
        case media::FieldOrder::topFirst: return "upper";
        case media::FieldOrder::bottomFirst: return "lower";
        default: return "none";
    }
}

// How the importers name a file's pixel shape, and whether it is the
// widescreen form of standard definition (their "anamorphic").
struct PixelShape {
    const char* name = "square";
    bool anamorphic = false;
};

PixelShape pixelShape(const MediaItem& item) {
    if (!item.picture.anamorphic()) return {};
    struct Known {
        double aspect;
        bool hd;
        PixelShape shape;
    };
    static const Known known[] = {
        {4.0 / 3, true, {"HD-(1440x1080)", false}}, {1.5, true, {"HD-(1280x1080)", false}},
        {10.0 / 11, false, {"NTSC-601", false}},    {40.0 / 33, false, {"NTSC-601", true}},
        {12.0 / 11, false, {"PAL-601", false}},     {16.0 / 11, false, {"PAL-601", true}},
    };
    const double aspect = item.picture.pixelAspect;
    const bool hd = item.height >= 720;
    const Known* best = nullptr;
    for (const Known& k : known)
        if (k.hd == hd && (!best || std::abs(k.aspect - aspect) < std::abs(best->aspect - aspect))) best = &k;
    if (!best) return {};
    // 720-line HD shares the 4:3 pixel of 1440 × 1080 under its own name.
    if (best->aspect == 4.0 / 3 && item.height < 1000) return {"HD-(960x720)", false};
    return best->shape;
}

struct Slot {
    std::string id;
    Kind kind = Kind::video;
    int trackIndex = 0;  // from 1, among the tracks of its kind
    int clipIndex = 0;   // from 1, position in Track.clips
};

// One document being built; holds what `render` prepares before any element.
class Writer {
public:
    Writer(const std::vector<MediaSource>& sources, SequenceRate rate, const std::map<Uuid, double>& levels,
           const std::set<Uuid>& muted, const EffectSettings& effects, OutputFormat format,
           const std::map<Uuid, CameraFrame>& framing)
        : sources_(sources), rate_(rate), fps_(rate.fps()), levels_(levels), muted_(muted),
          effects_(effects), format_(format), framing_(framing) {}

    std::string run(const std::string& name, const std::vector<Track>& video, const std::vector<Track>& audio,
                    double duration);

private:
    int64_t frame(double seconds) const { return frames(seconds, fps_); }
    void decideSize(const std::vector<Track>& video);
    void prepare(const std::vector<Track>& video, const std::vector<Track>& audio);
    void trackElement(pugi::xml_node parent, const Track& track, const std::vector<Slot>& slots);
    void clipitem(pugi::xml_node parent, const Track& track, size_t index, const Slot& slot);
    void fileDefinition(pugi::xml_node parent, const MediaItem& item, const std::string& id);
    void fadeElement(pugi::xml_node parent, const Fade& fade);
    bool needsMotion(const ExportClip& clip, const CameraFrame& crop) const;
    void motionFilter(pugi::xml_node parent, const ExportClip& clip, const CameraFrame& crop);

    const std::vector<MediaSource>& sources_;
    SequenceRate rate_;
    double fps_;
    const std::map<Uuid, double>& levels_;
    const std::set<Uuid>& muted_;
    const EffectSettings& effects_;
    OutputFormat format_;
    const std::map<Uuid, CameraFrame>& framing_;

    int width_ = 1920, height_ = 1080;
    std::vector<std::vector<Slot>> videoSlots_, audioSlots_;  // per track, per clip
    std::map<Uuid, std::vector<Slot>> groups_;                // in walking order
    std::map<Uuid, std::string> fileIds_;                     // item id to "file-n"
    std::set<Uuid> written_;                                  // items whose definition stands
};

void Writer::decideSize(const std::vector<Track>& video) {
    PixelSize size = frameSize(video, format_);
    width_ = static_cast<int>(size.width);
    height_ = static_cast<int>(size.height);
}

void Writer::prepare(const std::vector<Track>& video, const std::vector<Track>& audio) {
    int counter = 0;
    auto walk = [&](const std::vector<Track>& tracks, Kind kind, std::vector<std::vector<Slot>>& out) {
        for (size_t t = 0; t < tracks.size(); ++t) {
            out.emplace_back();
            for (size_t c = 0; c < tracks[t].clips.size(); ++c) {
                Slot slot{"clipitem-" + std::to_string(++counter), kind, static_cast<int>(t) + 1,
                          static_cast<int>(c) + 1};
                out.back().push_back(slot);
                groups_[tracks[t].clips[c].group].push_back(slot);
            }
        }
    };
    walk(video, Kind::video, videoSlots_);
    walk(audio, Kind::audio, audioSlots_);

    for (const auto* tracks : {&video, &audio})
        for (const Track& t : *tracks)
            for (const ExportClip& c : t.clips)
                if (!fileIds_.count(c.item.id)) fileIds_[c.item.id] = "file-" + std::to_string(fileIds_.size() + 1);
}

std::string Writer::run(const std::string& name, const std::vector<Track>& video, const std::vector<Track>& audio,
                        double duration) {
    decideSize(video);
    prepare(video, audio);

    pugi::xml_document doc;
    pugi::xml_node decl = doc.append_child(pugi::node_declaration);
    decl.append_attribute("version").set_value("1.0");
    decl.append_attribute("encoding").set_value("UTF-8");
    doc.append_child(pugi::node_doctype).set_value("xmeml");

    pugi::xml_node sequence = el(el(doc, "xmeml", {}, {{"version", "4"}}), "sequence", {}, {{"id", "sequence-1"}});
    el(sequence, "uuid", Uuid::make().lowerText());
    el(sequence, "duration", num(frame(duration)));
    rateElement(sequence, rate_);
    el(sequence, "name", name);
    pugi::xml_node media = el(sequence, "media");

    pugi::xml_node videoNode = el(media, "video");
    pugi::xml_node chars = el(el(videoNode, "format"), "samplecharacteristics");
    rateElement(chars, rate_);
    el(chars, "width", num(width_));
    el(chars, "height", num(height_));
    el(chars, "anamorphic", "FALSE");
    el(chars, "pixelaspectratio", "square");
    el(chars, "fielddominance", "none");
    for (size_t t = 0; t < video.size(); ++t) trackElement(videoNode, video[t], videoSlots_[t]);

    pugi::xml_node audioNode = el(media, "audio");
    el(audioNode, "numOutputChannels", "2");
    pugi::xml_node audioChars = el(el(audioNode, "format"), "samplecharacteristics");
    el(audioChars, "depth", "16");
    el(audioChars, "samplerate", "48000");
    for (size_t t = 0; t < audio.size(); ++t) trackElement(audioNode, audio[t], audioSlots_[t]);

    pugi::xml_node timecode = el(sequence, "timecode");
    rateElement(timecode, rate_);
    el(timecode, "string", "00:00:00:00");
    el(timecode, "frame", "0");
    el(timecode, "displayformat", rate_.dropFrame && rate_.canDropFrame() ? "DF" : "NDF");

    std::ostringstream out;
    doc.save(out, "    ", pugi::format_indent, pugi::encoding_utf8);
    return out.str();
}

void Writer::trackElement(pugi::xml_node parent, const Track& track, const std::vector<Slot>& slots) {
    pugi::xml_node node = el(parent, "track", {}, track.attributes);
    // At one frame a fade-in stands before the clip, other fades after it.
    struct Entry {
        int64_t frame;
        int order;
        size_t index;
    };
    std::vector<Entry> entries;
    for (size_t i = 0; i < track.clips.size(); ++i) entries.push_back({frame(track.clips[i].start), 1, i});
    for (size_t i = 0; i < track.fades.size(); ++i)
        entries.push_back({frame(track.fades[i].start), track.fades[i].alignment == "start-black" ? 0 : 2, i});
    std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
        return a.frame != b.frame ? a.frame < b.frame : a.order < b.order;
    });
    for (const Entry& e : entries) {
        if (e.order == 1)
            clipitem(node, track, e.index, slots[e.index]);
        else
            fadeElement(node, track.fades[e.index]);
    }
    el(node, "enabled", "TRUE");
    el(node, "locked", "FALSE");
    if (track.kind == Kind::audio) el(node, "outputchannelindex", num(track.channel));
}

void Writer::clipitem(pugi::xml_node parent, const Track& track, size_t index, const Slot& slot) {
    const ExportClip& clip = track.clips[index];
    const MediaItem& item = clip.item;
    const MediaSource& source = sources_.at(static_cast<size_t>(clip.sourceIndex));
    const std::string& fileId = fileIds_.at(item.id);
    bool audio = track.kind == Kind::audio;

    pugi::xml_node node = el(parent, "clipitem", {}, {{"id", slot.id}});
    el(node, "masterclipid", "masterclip-" + fileId.substr(5));
    el(node, "name", item.fileName());
    el(node, "enabled", audio && muted_.count(source.id) ? "FALSE" : "TRUE");
    el(node, "duration", num(frame(item.duration)));
    rateElement(node, rate_);
    ClipFrames f = clipFrames(clip, fps_);
    el(node, "start", num(f.start));
    el(node, "end", num(f.end));
    el(node, "in", num(f.in));
    // Derived, so that a clip's source length always equals its sequence length.
    el(node, "out", num(f.out));
    if (!audio) el(node, "alphatype", "none");

    if (written_.insert(item.id).second)
        fileDefinition(node, item, fileId);
    else
        el(node, "file", {}, {{"id", fileId}});

    if (!audio) {
        auto f = framing_.find(source.id);
        CameraFrame crop = f == framing_.end() ? CameraFrame{} : f->second;
        if (needsMotion(clip, crop)) motionFilter(node, clip, crop);
    } else {
        pugi::xml_node st = el(node, "sourcetrack");
        el(st, "mediatype", "audio");
        el(st, "trackindex", num(std::min(track.channel, std::max(1, item.audioChannels))));
        auto level = levels_.find(source.id);
        if (level != levels_.end() && level->second != 0) audioLevel(node, level->second);
    }

    const std::vector<Slot>& linked = groups_.at(clip.group);
    if (linked.size() < 2) return;
    for (const Slot& s : linked) {
        pugi::xml_node link = el(node, "link");
        el(link, "linkclipref", s.id);
        el(link, "mediatype", s.kind == Kind::audio ? "audio" : "video");
        el(link, "trackindex", num(s.trackIndex));
        el(link, "clipindex", num(s.clipIndex));
        if (s.kind == Kind::audio) el(link, "groupindex", "1");
    }
}

void Writer::fileDefinition(pugi::xml_node parent, const MediaItem& item, const std::string& id) {
    pugi::xml_node file = el(parent, "file", {}, {{"id", id}});
    el(file, "name", item.fileName());
    el(file, "pathurl", pathURL(item.url));
    // The file's own rate; a sound file takes the sequence's.
    SequenceRate fileRate = item.hasVideo ? SequenceRate::closest(item.frameRate) : rate_;
    rateElement(file, fileRate);
    el(file, "duration", num(frames(item.duration, fileRate.fps())));
    pugi::xml_node media = el(file, "media");
    if (item.hasVideo) {
        pugi::xml_node chars = el(el(media, "video"), "samplecharacteristics");
        rateElement(chars, fileRate);
        // The stored size, its pixels named: an importer widens them itself.
        const PixelShape shape = pixelShape(item);
        el(chars, "width", num(item.storedWidth()));
        el(chars, "height", num(item.height));
        el(chars, "anamorphic", shape.anamorphic ? "TRUE" : "FALSE");
        el(chars, "pixelaspectratio", shape.name);
        el(chars, "fielddominance", fieldDominance(item));
    }
    if (item.audioChannels >= 1) {
        pugi::xml_node audio = el(media, "audio");
        pugi::xml_node chars = el(audio, "samplecharacteristics");
        el(chars, "depth", "16");
        el(chars, "samplerate", num(item.sampleRate > 0 ? static_cast<int64_t>(item.sampleRate) : 48000));
        el(audio, "channelcount", num(item.audioChannels));
    }
}

void Writer::fadeElement(pugi::xml_node parent, const Fade& fade) {
    pugi::xml_node node = el(parent, "transitionitem");
    rateElement(node, rate_);
    int64_t start = frame(fade.start);
    el(node, "start", num(start));
    el(node, "end", num(std::max(frame(fade.end), start + 1)));  // at least one frame
    el(node, "alignment", fade.alignment);
    effectHeader(el(node, "effect"), "Cross Fade (+3dB)", "KGAudioTransCrossFade3dB", "audiotransition",
                 "transition", "audio");
}

// A plain clip of the sequence's own size, uncropped and still in 16:9 needs
// nothing; any crop, size change, other format or effect gets a motion filter.
bool Writer::needsMotion(const ExportClip& clip, const CameraFrame& crop) const {
    bool sameSize = clip.item.width < 1 || (clip.item.width == width_ && clip.item.height == height_);
    return clip.motion || std::string_view(rawValue(format_)) != "16:9" || !crop.isNeutral() || !sameSize;
}

void Writer::motionFilter(pugi::xml_node parent, const ExportClip& clip, const CameraFrame& crop) {
    Reframe::Placement place =
        Reframe::place({double(clip.item.width), double(clip.item.height)}, {double(width_), double(height_)}, crop);
    const std::vector<MotionKey> keys = motionKeys(clip, fps_, effects_);
    bool keyed = keys.size() >= 2;
    bool shaken = clip.motion && clip.motion->effect.shake;

    pugi::xml_node effect = el(el(parent, "filter"), "effect");
    effectHeader(effect, "Basic Motion", "basic", "motion", "motion", "video");

    auto scale = [&](pugi::xml_node n, const MotionSample& s) {
        n.text().set(cformat("%.3f", finite(s.scale * place.scale * 100)).c_str());
    };
    auto center = [&](pugi::xml_node n, const MotionSample& s) {
        el(n, "horiz", cformat("%.5f", finite(s.x + place.x)));
        el(n, "vert", cformat("%.5f", finite(s.y + place.y)));
    };
    auto rotation = [&](pugi::xml_node n, const MotionSample& s) {
        n.text().set(cformat("%.3f", finite(s.rotation)).c_str());
    };
    auto parameter = [&](const char* id, const char* name, const char* min, const char* max, bool withKeys,
                         auto&& writeValue) {
        pugi::xml_node p = el(effect, "parameter");
        el(p, "parameterid", id);
        el(p, "name", name);
        if (min) el(p, "valuemin", min);
        if (max) el(p, "valuemax", max);
        writeValue(el(p, "value"), keys.front().sample);
        if (!withKeys) return;
        for (const MotionKey& k : keys) {
            pugi::xml_node kf = el(p, "keyframe");
            el(kf, "when", num(k.when));
            writeValue(el(kf, "value"), k.sample);
        }
    };
    parameter("scale", "Scale", "0", "1000", keyed, scale);
    if (shaken || place.x != 0 || place.y != 0) parameter("center", "Center", nullptr, nullptr, shaken && keyed, center);
    if (shaken) parameter("rotation", "Rotation", "-8640", "8640", keyed, rotation);
}

}  // namespace

std::string render(const std::string& name, const std::vector<MediaSource>& sources, SequenceRate rate,
                   const std::vector<Track>& video, const std::vector<Track>& audio, double duration,
                   const std::map<Uuid, double>& levels, const std::set<Uuid>& muted, const EffectSettings& effects,
                   OutputFormat format, const std::map<Uuid, CameraFrame>& framing) {
    // A clip that keeps no whole frame (a cut closer than a frame to the next
    // one, or past its file's end) is left out: the next clip takes its place.
    return Writer(sources, rate, levels, muted, effects, format, framing)
        .run(name, wholeClips(video, rate), wholeClips(audio, rate), std::isfinite(duration) ? duration : 0);
}

Timeline synchroTimeline(const std::vector<MediaSource>& sources, const SyncResult& result,
                         const std::map<Uuid, double>& levels, const PictureChoices& picture) {
    // Each file's own id as its group links its picture and its sound. The
    // picture stands its camera's offset later; what would fall before the
    // sequence's start is cut.
    std::vector<ExportClip> pictures, sounds;
    for (const PlacedItem& p : result.placed) {
        if (p.item.hasVideo) {
            ExportClip c{p.item, p.sourceIndex, p.start + p.pictureOffset, 0, p.item.duration, p.item.id, std::nullopt};
            if (c.start < 0) {
                c.sourceIn = -c.start;
                c.duration += c.start;
                c.start = 0;
            }
            if (c.duration > 0) pictures.push_back(std::move(c));
        }
        if (p.item.audioChannels >= 1)
            sounds.push_back({p.item, p.sourceIndex, p.start, 0, p.item.duration, p.item.id, std::nullopt});
    }

    const SequenceRate rate = picture.rate.value_or(setRate(sources, result));

    auto clipsOf = [&](const std::vector<ExportClip>& clips, size_t source) {
        std::vector<ExportClip> out;
        for (const ExportClip& c : clips)
            if (static_cast<size_t>(c.sourceIndex) == source) out.push_back(c);
        return out;
    };

    std::vector<Track> video;
    for (size_t s = 0; s < sources.size(); ++s) {
        if (sources[s].kind == SourceKind::audio) continue;
        for (auto& lane : lanes(clipsOf(pictures, s), rate)) {
            Track t;
            t.clips = std::move(lane);
            video.push_back(std::move(t));
        }
    }
    video = withCopies(std::move(video), picture);

    // Recorders first: the sound of the set leads, the cameras' sound follows.
    std::vector<size_t> order(sources.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
        return sources[a].kind == SourceKind::audio && sources[b].kind != SourceKind::audio;
    });
    std::vector<Track> audio;
    for (size_t s : order)
        for (const auto& lane : lanes(clipsOf(sounds, s), rate))
            for (Track& t : soundTracks(lane)) audio.push_back(std::move(t));

    // The sequence ends where its last clip does: clips stop on their file's
    // last whole frame, which may be a frame before the rounded end of the set.
    const double fps = rate.fps();
    int64_t last = 0;
    for (const auto* tracks : {&video, &audio})
        for (const Track& t : *tracks)
            for (const ExportClip& c : t.clips) {
                const ClipFrames f = clipFrames(c, fps);
                if (f.end > f.start) last = std::max(last, f.end);  // a clip of no whole frame is left out
            }
    const double duration = static_cast<double>(last) / fps;

    return {rate, std::move(video), std::move(audio), duration, levels};
}

std::string makeXML(const std::string& name, const std::vector<MediaSource>& sources, const SyncResult& result,
                    const std::map<Uuid, double>& levels, const std::set<Uuid>& muted, const PictureChoices& picture) {
    Timeline t = synchroTimeline(sources, result, levels, picture);
    return render(name, sources, t.rate, t.video, t.audio, t.duration, t.levels, muted, EffectSettings{},
                  OutputFormat::landscape, {});
}

}  // namespace qv::PremiereExport
