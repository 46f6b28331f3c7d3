#include "sync/FileGroups.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "base/Text.h"

namespace qv::FileGroups {

namespace {

// Files of one take last alike: a device stops all of them at once.
constexpr double takeLengths = 0.5;

std::string stemOf(const MediaItem& item) { return item.url.stem().string(); }

bool isSeparator(char c) { return c == '_' || c == '-' || c == ' ' || c == '.'; }

// A suffix a device gives the files of one take: a track or input number
// ("Tr1", "Ch2"), a mix or pair ("LR", "MS", "Mix"), a safety copy ("D",
// "BU", "LR-12"). A bare number is not one: "clip_1", "clip_2" are clips.
bool isTrackToken(std::string token) {
    token = toLower(token);
    if (token.size() > 2 && token.ends_with("db")) token.resize(token.size() - 2);
    bool digits = false;
    while (!token.empty() && std::isdigit(static_cast<unsigned char>(token.back()))) {
        token.pop_back();
        digits = true;
    }
    if (digits && !token.empty() && isSeparator(token.back())) token.pop_back();
    static const std::vector<std::string> numbered = {"tr", "ch", "track", "trk", "in", "input", "mic"};
    static const std::vector<std::string> named = {"lr", "l", "r", "ms", "m", "s", "st", "stereo", "mix", "master",
                                                   "main", "mono", "d", "bu", "backup", "safe", "safety"};
    if (digits && std::find(numbered.begin(), numbered.end(), token) != numbered.end()) return true;
    return std::find(named.begin(), named.end(), token) != named.end();
}

// The suffixes of two names that share a prefix ending at a separator,
// when both suffixes are track tokens.
bool differByTrack(const std::string& a, const std::string& b) {
    size_t common = 0;
    while (common < a.size() && common < b.size() && a[common] == b[common]) ++common;
    // Back to the last separator of the shared part: the suffixes start after it.
    while (common > 0 && !isSeparator(a[common - 1])) --common;
    if (common < 2) return false;
    return isTrackToken(a.substr(common)) && isTrackToken(b.substr(common));
}

// What the device wrote says so even when one file was cut short; names
// alone need lengths that agree.
bool sameMoment(const MediaItem& a, const MediaItem& b) {
    if (!a.family.empty() && a.family == b.family) return true;
    if (a.clock && b.clock && a.clock->kind == DeviceClock::Kind::samples && a.clock->comparable(*b.clock) &&
        std::fabs(a.clock->until(*b.clock)) <= std::max(a.clock->resolution, b.clock->resolution))
        return true;
    if (std::fabs(a.duration - b.duration) > takeLengths || a.url.extension() != b.url.extension()) return false;
    return differByTrack(stemOf(a), stemOf(b));
}

// Runs of digits and of other characters.
std::vector<std::string> tokens(const std::string& name) {
    std::vector<std::string> out;
    for (char c : name) {
        const bool digit = std::isdigit(static_cast<unsigned char>(c)) != 0;
        if (out.empty() || (std::isdigit(static_cast<unsigned char>(out.back().back())) != 0) != digit)
            out.emplace_back();
        out.back().push_back(c);
    }
    return out;
}

std::optional<long long> number(const std::string& digits) {
    if (digits.empty() || digits.size() > 15) return std::nullopt;
    return std::stoll(digits);
}

// Whether digit run `b` counts one on from `a`: as whole numbers, or, in
// runs of equal width, in the stretch where they differ ("010050" to
// "020050" for a camera's second chapter of file 50).
bool countsOn(const std::string& a, const std::string& b) {
    auto x = number(a), y = number(b);
    if (x && y && *y == *x + 1) return true;
    if (a.size() != b.size()) return false;
    size_t first = 0, last = a.size();
    while (first < a.size() && a[first] == b[first]) ++first;
    while (last > first && a[last - 1] == b[last - 1]) --last;
    if (first >= last) return false;
    auto p = number(a.substr(first, last - first)), q = number(b.substr(first, last - first));
    return p && q && *q == *p + 1;
}

bool inSequence(const MediaItem& earlier, const MediaItem& later) {
    if (toLower(earlier.url.extension().string()) != toLower(later.url.extension().string())) return false;
    const auto a = tokens(stemOf(earlier)), b = tokens(stemOf(later));
    if (a.size() != b.size() || a.empty()) return false;
    int changed = 0;
    for (size_t k = 0; k < a.size(); ++k) {
        if (a[k] == b[k]) continue;
        const bool digits = std::isdigit(static_cast<unsigned char>(a[k][0])) != 0;
        if (!digits || !countsOn(a[k], b[k])) return false;
        ++changed;
    }
    return changed == 1;
}

}  // namespace

std::vector<int> takes(const std::vector<const MediaItem*>& items) {
    std::vector<int> take(items.size(), 0);
    int next = 0;
    for (size_t i = 0; i < items.size(); ++i) {
        if (take[i]) continue;
        bool any = false;
        for (size_t j = i + 1; j < items.size(); ++j)
            if (!take[j] && sameMoment(*items[i], *items[j])) {
                if (!any) take[i] = ++next;
                take[j] = take[i];
                any = true;
            }
    }
    return take;
}

std::string laneName(const MediaItem& item, const std::vector<const MediaItem*>& take) {
    const std::string stem = stemOf(item);
    size_t common = stem.size();
    for (const MediaItem* other : take) {
        if (other == &item) continue;
        const std::string o = stemOf(*other);
        size_t k = 0;
        while (k < common && k < o.size() && stem[k] == o[k]) ++k;
        common = k;
    }
    while (common > 0 && !isSeparator(stem[common - 1])) --common;
    if (common > 0 && common < stem.size() && take.size() > 1) return stem.substr(common);
    if (!item.tracks.empty()) {
        std::string names;
        for (const auto& t : item.tracks) names += (names.empty() ? "" : "+") + t;
        if (!names.empty() && names.size() <= 32) return names;
    }
    return stem;
}

std::optional<double> clockStep(const MediaItem& earlier, const MediaItem& later) {
    if (!earlier.clock || !later.clock || !earlier.clock->comparable(*later.clock)) return std::nullopt;
    const double step = earlier.clock->until(*later.clock);
    // A device whose clock runs 1000 ppm off still counts its own samples:
    // the next file starts where this one ended, give or take a frame.
    const double slack = std::max(2 * earlier.clock->resolution, 0.001) + 0.001 * earlier.duration;
    if (std::fabs(step - earlier.duration) > slack) return std::nullopt;
    return step;
}

Link link(const MediaItem& earlier, const MediaItem& later) {
    if (clockStep(earlier, later)) return Link::clock;
    return inSequence(earlier, later) ? Link::sequence : Link::none;
}

}  // namespace qv::FileGroups
