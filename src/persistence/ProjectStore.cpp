#include "persistence/ProjectStore.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>
#include <map>

#include "base/Bounds.h"
#include "base/Text.h"
#include "platform/Paths.h"

namespace fs = std::filesystem;

namespace qv::ProjectStore {

using json::Json;

namespace {

// 2001-01-01 00:00:00 UTC in Unix seconds.
constexpr double kReferenceEpoch = 978307200.0;

std::string dumpText(const Json& j, int indent) {
    // `replace` keeps a file name that is not UTF-8 from throwing.
    return j.dump(indent, ' ', false, Json::error_handler_t::replace);
}

bool endsWith(const std::string& s, std::string_view tail) {
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

// Decodes one UTF-8 sequence at `i`; an invalid byte gives U+FFFD and
// advances by one, so damaged names cannot stall the loop.
char32_t nextCodePoint(std::string_view s, size_t& i) {
    auto byte = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
    unsigned char b = byte(i);
    int length = b < 0x80 ? 1 : (b >> 5) == 0x6 ? 2 : (b >> 4) == 0xE ? 3 : (b >> 3) == 0x1E ? 4 : 0;
    if (length == 0 || i + length > s.size()) {
        ++i;
        return 0xFFFD;
    }
    char32_t cp = length == 1 ? b : length == 2 ? (b & 0x1F) : length == 3 ? (b & 0x0F) : (b & 0x07);
    for (int k = 1; k < length; ++k) {
        unsigned char c = byte(i + k);
        if ((c >> 6) != 0x2) {
            ++i;
            return 0xFFFD;
        }
        cp = (cp << 6) | (c & 0x3F);
    }
    i += length;
    return cp;
}

// Marks that belong to the character before them (é written as e + ´).
bool isCombining(char32_t c) {
    return (c >= 0x0300 && c <= 0x036F) || (c >= 0x1AB0 && c <= 0x1AFF) || (c >= 0x1DC0 && c <= 0x1DFF) ||
           (c >= 0x20D0 && c <= 0x20FF) || (c >= 0xFE00 && c <= 0xFE0F) || (c >= 0xFE20 && c <= 0xFE2F);
}

// Letters and digits of any script. Outside ASCII a code point counts unless
// it lies in a block of punctuation, symbols, spaces, emoji or private use:
// accented and non-Latin letters stay, decorations go.
bool isLetterOrDigit(char32_t c) {
    if (c < 0x80) return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    if (c <= 0xBF) return c == 0xAA || c == 0xB2 || c == 0xB3 || c == 0xB5 || c == 0xB9 || c == 0xBA ||
                          (c >= 0xBC && c <= 0xBE);
    if (c == 0xD7 || c == 0xF7 || c == 0xFFFD) return false;
    static constexpr std::pair<char32_t, char32_t> kNotLetters[] = {
        {0x2000, 0x206F},    // general punctuation and spaces
        {0x20A0, 0x20CF},    // currency
        {0x2100, 0x214F},    // letter-like symbols
        {0x2190, 0x2BFF},    // arrows, mathematics, shapes, dingbats
        {0x2E00, 0x2E7F},    // supplemental punctuation
        {0x3000, 0x303F},    // CJK punctuation
        {0xD800, 0xF8FF},    // surrogates, private use
        {0xFE10, 0xFE1F}, {0xFE30, 0xFE6F},
        {0xFF00, 0xFF0F}, {0xFF1A, 0xFF20}, {0xFF3B, 0xFF40}, {0xFF5B, 0xFF65},
        {0xFFF0, 0xFFFF},
        {0x1F000, 0x1FAFF},  // emoji and pictographs
        {0xE0000, 0x10FFFF}, // tags, private use planes
    };
    for (auto [lo, hi] : kNotLetters)
        if (c >= lo && c <= hi) return false;
    return true;
}

// Keeps letters, digits, blanks and "-", at most `limit` characters; a
// combining mark follows its base character and does not count.
std::string keepNameCharacters(std::string_view name, size_t limit) {
    std::string out;
    size_t count = 0;
    bool lastKept = false;
    size_t i = 0;
    while (i < name.size()) {
        size_t begin = i;
        char32_t c = nextCodePoint(name, i);
        if (isCombining(c)) {
            if (lastKept) out.append(name.substr(begin, i - begin));
            continue;
        }
        lastKept = false;
        if (!(isLetterOrDigit(c) || c == ' ' || c == '-')) continue;
        if (count == limit) break;
        out.append(name.substr(begin, i - begin));
        ++count;
        lastKept = true;
    }
    return out;
}

// The set folder of a damaged project, when the text still holds it.
std::string legibleFolder(std::string_view text) {
    size_t key = text.find("\"folder\"");
    if (key == std::string_view::npos) return {};
    const size_t colon = text.find(':', key);
    const size_t open = colon == std::string_view::npos ? colon : text.find('"', colon);
    if (open == std::string_view::npos) return {};
    for (size_t i = open + 1; i < text.size(); ++i) {
        if (text[i] == '\\') ++i;
        else if (text[i] == '"') {
            auto value = json::parse(text.substr(open, i - open + 1));
            return value && value->is_string() ? value->get<std::string>() : std::string();
        }
    }
    return {};
}

Damaged setAside(const fs::path& file, const std::string& reason, std::string_view text) {
    Damaged d;
    d.file = file;
    d.reason = reason;
    d.folder = legibleFolder(text);
    if (auto kept = paths::keepAside(file)) d.kept = *kept;
    return d;
}

Date savedAtOf(const Json& doc, Date fallback) {
    const Json* v = json::field(doc, "savedAt");
    return v && v->is_number() ? dateFromReference(v->get<double>()) : fallback;
}

}  // namespace

fs::path directory() {
    return paths::projectsOverride().value_or(paths::dataHome() / "Quorvel" / "Projets");
}

Date dateFromReference(double seconds) {
    // Clamped so that a damaged date cannot overflow the clock's integer.
    double unix = std::clamp(seconds + kReferenceEpoch, -9.0e9, 9.0e9);
    auto d = std::chrono::duration<double>(unix);
    return Date(std::chrono::duration_cast<Date::duration>(d));
}

double referenceSeconds(Date date) {
    return std::chrono::duration<double>(date.time_since_epoch()).count() - kReferenceEpoch;
}

std::string Damaged::message() const {
    std::string text = "Le projet « " + file.filename().string() + " » est endommagé (" + reason + ")";
    if (!folder.empty()) text += ", sur le set « " + folder + " »";
    if (kept) return text + " : il est gardé à part sous « " + kept->filename().string() + " ». Les autres projets ne sont pas touchés.";
    return text + " : il reste à sa place, Quorvel ne l'ouvre pas. Les autres projets ne sont pas touchés.";
}

bool isValidId(std::string_view id) {
    if (id.empty() || id.size() > 200 || id.front() == '.') return false;
    for (char c : id) {
        const auto u = static_cast<unsigned char>(c);
        if (c == '/' || u < 0x20 || u == 0x7F) return false;
    }
    return true;
}

std::optional<fs::path> fileOf(std::string_view id) {
    if (!isValidId(id)) return std::nullopt;
    return directory() / (std::string(id) + ".json");
}

std::optional<fs::path> lockFileOf(std::string_view id) {
    if (!isValidId(id)) return std::nullopt;
    return directory() / (std::string(id) + ".lock");
}

std::vector<Json> documents(std::vector<Damaged>* damaged) {
    struct Found {
        Date savedAt;
        Json doc;
    };
    std::vector<Found> found;
    Date now = std::chrono::system_clock::now();
    std::error_code ec;
    fs::directory_iterator it(directory(), ec);
    for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
        const fs::path& p = it->path();
        std::string name = p.filename().string();
        if (p.extension() != ".json" || endsWith(name, ".sync.json") || endsWith(name, ".pictures.json")) continue;
        std::error_code typeError;
        if (!fs::is_regular_file(fs::symlink_status(p, typeError))) continue;
        auto text = paths::readFile(p, limits::projectBytes);
        // Unreadable for now (rights, disk): left where it is, tried next time.
        if (!text && !paths::isTooBig(text.error())) continue;
        Result<Json> doc = text ? json::read(*text) : Result<Json>(text.error());
        if (doc && !doc->is_object()) doc = Error{"pas un projet"};
        if (!doc) {
            Damaged d = setAside(p, doc.error().message, text ? std::string_view(*text) : std::string_view());
            if (damaged) damaged->push_back(std::move(d));
            continue;
        }
        const Json* id = json::field(*doc, "id");
        if (!id || !id->is_string() || !isValidId(id->get_ref<const std::string&>())) {
            // An id that could name another file is replaced by this file's own name.
            if (!isValidId(p.stem().string())) continue;
            (*doc)["id"] = p.stem().string();
        }
        found.push_back({savedAtOf(*doc, now), std::move(*doc)});
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const Found& a, const Found& b) { return a.savedAt > b.savedAt; });
    std::vector<Json> out;
    out.reserve(found.size());
    for (auto& f : found) out.push_back(std::move(f.doc));
    return out;
}

std::optional<Json> latestDocument(const fs::path& folder) {
    fs::path wanted = paths::standardized(folder);
    for (auto& doc : documents()) {
        fs::path stored = paths::standardized(json::string(doc, "folder", ""));
        if (stored == wanted) return std::move(doc);
    }
    return std::nullopt;
}

namespace {

Status saveText(const std::string& id, const std::string& text) {
    auto file = fileOf(id);
    if (!file) return Error{"identifiant de projet refusé (ce n'est pas un simple nom de fichier)"};
    std::error_code ec;
    fs::create_directories(file->parent_path(), ec);
    return paths::writeAtomically(*file, text);
}

}  // namespace

Status saveDocument(const Json& project) {
    const Json* id = json::field(project, "id");
    return saveText(id && id->is_string() ? id->get<std::string>() : std::string(), dumpText(project, 2));
}

std::vector<ProjectFile> list(std::vector<Damaged>* damaged) {
    Date now = std::chrono::system_clock::now();
    std::vector<ProjectFile> out;
    for (const Json& doc : documents(damaged)) out.push_back(ProjectFile::fromJson(doc, now));
    return out;
}

Result<ProjectFile> read(std::string_view id) {
    auto file = fileOf(id);
    if (!file) return Error{"identifiant de projet refusé"};
    auto text = paths::readFile(*file, limits::projectBytes);
    if (!text) return text.error();
    auto j = json::read(*text);
    if (!j) return j.error();
    if (!j->is_object()) return Error{"pas un projet"};
    return ProjectFile::fromJson(*j);
}

std::optional<ProjectFile> latest(const fs::path& folder) {
    if (auto doc = latestDocument(folder)) return ProjectFile::fromJson(*doc);
    return std::nullopt;
}

Status save(const ProjectFile& project, const std::string* cutList) {
    return saveText(project.id.value_or(""), project.toText(2, cutList));
}

void remove(const std::string& id) {
    auto file = fileOf(id);
    if (!file) return;
    std::error_code ec;
    fs::remove(*file, ec);
}

std::string key(const fs::path& folder) {
    fs::path standard = paths::standardized(folder);
    std::string name = keepNameCharacters(standard.filename().string(), 40);
    char hex[17];
    auto end = std::to_chars(hex, hex + sizeof hex, fnv1a(standard.string()), 16).ptr;
    return name + " " + std::string(hex, end);
}

fs::path syncFile(const fs::path& folder) { return directory() / (key(folder) + ".sync.json"); }

void saveSync(const SyncCache& cache, const fs::path& folder) {
    std::error_code ec;
    fs::create_directories(directory(), ec);
    // A cache that cannot be written only costs a new synchronisation next time.
    (void)paths::writeAtomically(syncFile(folder), dumpText(cache.toJson(), -1));
}

std::optional<SyncCache> loadSync(const fs::path& folder) {
    auto text = paths::readFile(syncFile(folder), limits::cacheBytes);
    if (!text) return std::nullopt;
    auto j = json::parse(*text);
    if (!j) return std::nullopt;
    return SyncCache::fromJson(*j);
}

namespace {

void keepCandidates(SyncCache& cache, const std::string& path, const std::vector<SyncCandidate>& list) {
    if (list.empty()) return;
    auto& kept = cache.candidates[path];
    for (const SyncCandidate& c : list) kept.push_back({c.start, c.strength});
}

std::vector<SyncCandidate> candidatesOf(const SyncCache& cache, const std::string& path) {
    std::vector<SyncCandidate> out;
    auto found = cache.candidates.find(path);
    if (found == cache.candidates.end()) return out;
    for (const auto& c : found->second) {
        if (out.size() == maxCandidates) break;
        out.push_back({c.start, c.strength});
    }
    return out;
}

}  // namespace

Stamps stamps(const std::vector<MediaSource>& sources) {
    Stamps out;
    for (const MediaSource& s : sources)
        for (const MediaItem& item : s.items)
            if (auto stamp = SyncCache::FileStamp::of(item.url)) out.emplace(stamp->path, *stamp);
    return out;
}

SyncCache cache(const SyncResult& result, const Stamps& before) {
    SyncCache out;
    auto stampOf = [&](const MediaItem& item) -> const SyncCache::FileStamp* {
        auto found = before.find(item.url.string());
        return found == before.end() ? nullptr : &found->second;
    };
    for (const auto& p : result.placed) {
        const SyncCache::FileStamp* stamp = stampOf(p.item);
        if (!stamp) continue;
        SyncCache::Placed stored{*stamp, p.start, p.score, p.anchorName, p.ambiguous, binary(p.waveform),
                                 binary(p.bass), p.drift};
        stored.take = p.take;
        stored.lane = p.lane;
        stored.heard = p.heard;
        stored.follows = p.follows.string();
        stored.soundStream = p.sound.stream;
        stored.soundChannels = p.sound.channels;
        stored.placedBy = p.placedBy == PlacedBy::clock ? "horloge" : p.placedBy == PlacedBy::neighbours ? "voisins" : "";
        out.placed.push_back(std::move(stored));
        keepCandidates(out, out.placed.back().file.path, p.candidates);
    }
    for (const auto& u : result.unsynced)
        if (const SyncCache::FileStamp* stamp = stampOf(u.item)) {
            out.unsynced.push_back(*stamp);
            keepCandidates(out, stamp->path, u.candidates);
        }
    return out;
}

std::optional<SyncResult> restore(const SyncCache& cache, const std::vector<MediaSource>& sources) {
    std::map<std::string, std::pair<int, const MediaItem*>> table;
    for (size_t s = 0; s < sources.size(); ++s)
        for (const auto& item : sources[s].items) table[item.url.string()] = {static_cast<int>(s), &item};
    if (cache.placed.size() + cache.unsynced.size() != table.size()) return std::nullopt;

    // The entry's file must be in the set and unchanged since it was stamped.
    auto check = [&](const SyncCache::FileStamp& stored) -> const std::pair<int, const MediaItem*>* {
        auto it = table.find(stored.path);
        if (it == table.end()) return nullptr;
        auto fresh = SyncCache::FileStamp::of(it->second.second->url);
        if (!fresh || !(*fresh == stored)) return nullptr;
        return &it->second;
    };

    SyncResult result;
    for (const auto& p : cache.placed) {
        auto entry = check(p.file);
        if (!entry) return std::nullopt;
        PlacedItem placed;
        placed.sourceIndex = entry->first;
        placed.item = *entry->second;
        placed.start = p.start;
        placed.score = p.score;
        placed.anchorName = p.anchorName;
        placed.ambiguous = p.ambiguous;
        placed.waveform = floats(p.waveform);
        placed.bass = floats(p.bass);
        placed.drift = p.drift;
        placed.candidates = candidatesOf(cache, p.file.path);
        placed.take = p.take;
        placed.lane = p.lane;
        placed.heard = p.heard;
        placed.sound = {p.soundStream, p.soundChannels};
        placed.placedBy = p.placedBy == "horloge" ? PlacedBy::clock : p.placedBy == "voisins" ? PlacedBy::neighbours : PlacedBy::sound;
        // The piece before must be a placed file of this very cache.
        if (!p.follows.empty()) {
            const bool known = std::any_of(cache.placed.begin(), cache.placed.end(),
                                           [&](const SyncCache::Placed& q) { return q.file.path == p.follows; });
            auto earlier = table.find(p.follows);
            if (!known || earlier == table.end()) return std::nullopt;
            placed.follows = earlier->second.second->url;
        }
        result.placed.push_back(std::move(placed));
    }
    for (const auto& u : cache.unsynced) {
        auto entry = check(u);
        if (!entry) return std::nullopt;
        result.unsynced.push_back({entry->first, *entry->second, "", candidatesOf(cache, u.path)});
    }
    std::stable_sort(result.placed.begin(), result.placed.end(),
                     [](const PlacedItem& a, const PlacedItem& b) { return a.start < b.start; });
    return result;
}

std::vector<float> floats(const std::vector<uint8_t>& bytes) {
    std::vector<float> out(bytes.size() / 4);
    for (size_t i = 0; i < out.size(); ++i) {
        const uint8_t* b = &bytes[4 * i];
        uint32_t bits = uint32_t(b[0]) | (uint32_t(b[1]) << 8) | (uint32_t(b[2]) << 16) | (uint32_t(b[3]) << 24);
        out[i] = std::bit_cast<float>(bits);
    }
    return out;
}

std::vector<uint8_t> binary(const std::vector<float>& values) {
    std::vector<uint8_t> out(values.size() * 4);
    for (size_t i = 0; i < values.size(); ++i) {
        uint32_t bits = std::bit_cast<uint32_t>(values[i]);
        for (int k = 0; k < 4; ++k) out[4 * i + k] = static_cast<uint8_t>(bits >> (8 * k));
    }
    return out;
}

}  // namespace qv::ProjectStore
