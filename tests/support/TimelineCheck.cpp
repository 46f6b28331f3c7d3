#include "support/TimelineCheck.h"

#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <pugixml.hpp>
#include <set>

#include "base/Text.h"
#include "support/XmemlCheck.h"

namespace qv::test {

namespace {

using Json = nlohmann::json;

class OtioReader {
public:
    explicit OtioReader(std::vector<std::string>& problems) : problems_(problems) {}

    OtioTimeline read(const Json& doc) {
        OtioTimeline t;
        if (!schema(doc, "Timeline.1", "timeline")) return t;
        t.name = doc.value("name", "");
        t.rate = rate_ = number(doc["global_start_time"], "rate");
        time(doc["global_start_time"], "global_start_time");
        const Json& stack = doc["tracks"];
        if (!schema(stack, "Stack.1", "tracks")) return t;
        common(stack, "stack");
        for (const Json& m : stack["markers"]) {
            if (!schema(m, "Marker.2", "marker")) continue;
            auto [at, length] = range(m["marked_range"], "marker");
            t.markers.push_back({at, m.value("name", "")});
            if (length != 0) fault("marker of a length");
        }
        for (const Json& track : stack["children"]) t.tracks.push_back(readTrack(track));
        return t;
    }

private:
    void fault(const std::string& what) { problems_.push_back(what); }

    bool schema(const Json& j, const char* want, const std::string& where) {
        if (!j.is_object() || j.value("OTIO_SCHEMA", "") != want) {
            fault(where + " : " + want + " attendu");
            return false;
        }
        return true;
    }
    double number(const Json& j, const char* key) {
        if (!j.is_object() || !j.contains(key) || !j[key].is_number()) {
            fault(std::string("nombre manquant : ") + key);
            return 0;
        }
        return j[key].get<double>();
    }
    // A time of the timeline's rate on a whole frame.
    int64_t time(const Json& j, const std::string& where) {
        if (!schema(j, "RationalTime.1", where)) return 0;
        const double rate = number(j, "rate"), value = number(j, "value");
        if (std::abs(rate - rate_) > 1e-9) fault(where + " : cadence " + shortest(rate));
        if (value != std::floor(value)) fault(where + " : entre deux images");
        return static_cast<int64_t>(value);
    }
    std::pair<int64_t, int64_t> range(const Json& j, const std::string& where) {
        if (!schema(j, "TimeRange.1", where)) return {0, 0};
        const int64_t start = time(j["start_time"], where), duration = time(j["duration"], where);
        if (duration < 0) fault(where + " : durée négative");
        return {start, duration};
    }
    void common(const Json& j, const std::string& where) {
        for (const char* key : {"metadata", "name", "effects", "markers", "enabled"})
            if (!j.contains(key)) fault(where + " : champ manquant " + key);
    }

    OtioTrack readTrack(const Json& j) {
        OtioTrack track;
        if (!schema(j, "Track.1", "track")) return track;
        common(j, "track");
        track.kind = j.value("kind", "");
        track.name = j.value("name", "");
        if (track.kind != "Video" && track.kind != "Audio") fault("piste de genre " + track.kind);
        int64_t at = 0;
        for (const Json& c : j["children"]) {
            OtioItem item;
            item.start = at;
            if (c.value("OTIO_SCHEMA", "") == "Gap.1") {
                common(c, "gap");
                item.gap = true;
                item.duration = range(c["source_range"], "gap").second;
                if (!track.items.empty() && track.items.back().gap) fault("deux vides de suite");
            } else if (schema(c, "Clip.1", "clip")) {
                common(c, "clip");
                auto [in, duration] = range(c["source_range"], "clip");
                item.in = in;
                item.duration = duration;
                item.name = c.value("name", "");
                item.enabled = c.value("enabled", true);
                const Json& ref = c["media_reference"];
                if (schema(ref, "ExternalReference.1", "media_reference")) {
                    item.url = ref.value("target_url", "");
                    if (!item.url.starts_with("file://")) fault("adresse de fichier : " + item.url);
                    auto [from, length] = range(ref["available_range"], "available_range");
                    if (in < from || in + duration > from + length) fault("clip hors de son fichier : " + item.name);
                }
            }
            if (item.duration <= 0) fault("élément sans image");
            at += item.duration;
            track.items.push_back(item);
        }
        return track;
    }

    std::vector<std::string>& problems_;
    double rate_ = 0;
};

// Whole frames of an MLT key frame list ("0=...;12=...") or nothing for a
// plain value.
std::vector<long long> keyFrames(const std::string& value) {
    std::vector<long long> out;
    if (value.find('=') == std::string::npos) return out;
    for (const auto& key : split(value, ';')) out.push_back(parseInteger(key.substr(0, key.find('='))).value_or(-1));
    return out;
}

}  // namespace

OtioTimeline readOtio(const std::string& bytes, std::vector<std::string>& problems) {
    Json doc = Json::parse(bytes, nullptr, false);
    if (doc.is_discarded()) {
        problems.push_back("JSON illisible");
        return {};
    }
    return OtioReader(problems).read(doc);
}

std::vector<std::string> mltProblems(const std::string& bytes) {
    std::vector<std::string> problems;
    auto fault = [&](std::string what) { problems.push_back(std::move(what)); };
    if (auto error = strictXmlError(bytes); !error.empty()) {
        fault("XML refusé : " + error);
        return problems;
    }
    pugi::xml_document doc;
    doc.load_string(bytes.c_str());
    pugi::xml_node root = doc.child("mlt");
    if (std::string(root.attribute("LC_NUMERIC").value()) != "C") fault("LC_NUMERIC n'est pas C");
    pugi::xml_node profile = root.child("profile");
    for (const char* a : {"width", "height", "frame_rate_num", "frame_rate_den"})
        if (profile.attribute(a).as_int() <= 0) fault(std::string("profil sans ") + a);

    auto prop = [](pugi::xml_node n, const char* name) {
        return std::string(n.find_child_by_attribute("property", "name", name).text().get());
    };
    std::map<std::string, long long> lengths;  // producer id to frames
    for (pugi::xml_node p : root.children("producer")) {
        const std::string id = p.attribute("id").value();
        if (!lengths.emplace(id, parseInteger(prop(p, "length")).value_or(-1)).second) fault("producteur double " + id);
    }
    std::set<std::string> playlists;
    for (pugi::xml_node list : root.children("playlist")) {
        playlists.insert(list.attribute("id").value());
        for (pugi::xml_node e : list.children()) {
            const std::string kind = e.name();
            if (kind == "blank" && e.attribute("length").as_llong() <= 0) fault("vide sans longueur");
            if (kind != "entry") continue;
            const std::string producer = e.attribute("producer").value();
            auto length = lengths.find(producer);
            const long long in = e.attribute("in").as_llong(), out = e.attribute("out").as_llong();
            if (length == lengths.end()) fault("producteur inconnu " + producer);
            else if (in < 0 || out < in || out >= length->second) fault("entrée hors de son fichier : " + producer);
            for (pugi::xml_node f : e.children("filter")) {
                const long long fin = f.attribute("in").as_llong(), fout = f.attribute("out").as_llong();
                if (fin < in || fout > out || fout < fin) fault("filtre hors de son clip");
                for (pugi::xml_node p : f.children("property")) {
                    const std::string name = p.attribute("name").value();
                    if (name != "transition.rect" && name != "transition.fix_rotate_x" && name != "level") continue;
                    for (long long k : keyFrames(p.text().get()))
                        if (k < 0 || k > fout - fin) fault("image clé hors du clip : " + std::string(p.text().get()));
                }
            }
        }
    }
    for (pugi::xml_node t : root.child("tractor").child("multitrack").children("track"))
        if (!playlists.count(t.attribute("producer").value())) fault("piste sans liste " + std::string(t.attribute("producer").value()));
    return problems;
}

std::string urlPath(const std::string& url) {
    std::string path = url.substr(url.find("//") + 2);
    path = path.substr(path.find('/'));
    std::string out;
    for (size_t i = 0; i < path.size(); ++i) {
        if (path[i] == '%' && i + 2 < path.size()) {
            out.push_back(static_cast<char>(std::stoi(path.substr(i + 1, 2), nullptr, 16)));
            i += 2;
        } else {
            out.push_back(path[i]);
        }
    }
    return out;
}

}  // namespace qv::test
