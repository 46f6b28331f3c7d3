#include "sync/DeviceClock.h"

#include <array>
#include <cmath>
#include <cstring>
#include <fstream>

namespace qv {

double DeviceClock::until(const DeviceClock& later) const {
    double d = later.seconds - seconds;
    if (!dated && !later.dated) {
        // A set that runs past midnight: the nearer way round the clock.
        d = std::fmod(d, 86400.0);
        if (d > 43200) d -= 86400;
        if (d <= -43200) d += 86400;
    }
    return d;
}

namespace DeviceStamps {

namespace {

// Chunks worth reading are small; anything larger is not a stamp.
constexpr uint64_t largestStamp = 1 << 20;
constexpr int mostChunks = 256;

uint64_t little(const unsigned char* p, int bytes) {
    uint64_t v = 0;
    for (int k = bytes - 1; k >= 0; --k) v = (v << 8) | p[k];
    return v;
}

struct Chunks {
    uint32_t sampleRate = 0;
    std::string bext, ixml;
};

// Walks RIFF, RF64 and BW64 files: four-character ids, 32-bit sizes
// (RF64's data size in its `ds64` chunk), bodies padded to even sizes.
void walkRiff(std::ifstream& in, uint64_t fileSize, bool sixtyFour, Chunks& out) {
    uint64_t at = 12, dataSize = 0;
    for (int n = 0; n < mostChunks && at + 8 <= fileSize; ++n) {
        unsigned char head[8];
        in.seekg(static_cast<std::streamoff>(at));
        if (!in.read(reinterpret_cast<char*>(head), 8)) return;
        const std::string id(reinterpret_cast<char*>(head), 4);
        uint64_t size = little(head + 4, 4);
        if (sixtyFour && id == "data" && size == 0xFFFFFFFFu) size = dataSize;
        if (at + 8 + size > fileSize) size = fileSize - at - 8;  // a cut file keeps what it has
        if (id == "ds64" || id == "fmt " || id == "bext" || id == "iXML") {
            if (size > largestStamp) return;
            std::string body(size, '\0');
            if (!in.read(body.data(), static_cast<std::streamsize>(size))) return;
            const auto* b = reinterpret_cast<const unsigned char*>(body.data());
            if (id == "ds64" && size >= 16) dataSize = little(b + 8, 8);
            if (id == "fmt " && size >= 8) out.sampleRate = static_cast<uint32_t>(little(b + 4, 4));
            if (id == "bext") out.bext = std::move(body);
            if (id == "iXML") out.ixml = std::move(body);
        }
        at += 8 + size + (size & 1);
    }
}

// Sony Wave64: 16-byte GUID ids whose first four bytes are the name, 64-bit
// sizes counting the 24-byte header, bodies padded to 8 bytes.
void walkW64(std::ifstream& in, uint64_t fileSize, Chunks& out) {
    uint64_t at = 40;
    for (int n = 0; n < mostChunks && at + 24 <= fileSize; ++n) {
        unsigned char head[24];
        in.seekg(static_cast<std::streamoff>(at));
        if (!in.read(reinterpret_cast<char*>(head), 24)) return;
        const std::string id(reinterpret_cast<char*>(head), 4);
        uint64_t size = little(head + 16, 8);
        if (size < 24) return;
        size -= 24;
        if (at + 24 + size > fileSize) size = fileSize - at - 24;
        if (id == "fmt " || id == "bext") {
            if (size > largestStamp) return;
            std::string body(size, '\0');
            if (!in.read(body.data(), static_cast<std::streamsize>(size))) return;
            const auto* b = reinterpret_cast<const unsigned char*>(body.data());
            if (id == "fmt " && size >= 8) out.sampleRate = static_cast<uint32_t>(little(b + 4, 4));
            if (id == "bext") out.bext = std::move(body);
        }
        at += 24 + size;
        at += (8 - at % 8) % 8;
    }
}

// Digits at `text[at..]`, exactly `count` of them; -1 otherwise.
int digits(const std::string& text, size_t at, int count) {
    int v = 0;
    for (int k = 0; k < count; ++k) {
        if (at + static_cast<size_t>(k) >= text.size()) return -1;
        char c = text[at + static_cast<size_t>(k)];
        if (c < '0' || c > '9') return -1;
        v = v * 10 + (c - '0');
    }
    return v;
}

// Days from 1970-01-01 to a civil date (proleptic Gregorian).
long daysFromCivil(int y, int m, int d) {
    y -= m <= 2;
    const long era = (y >= 0 ? y : y - 399) / 400;
    const long yoe = y - era * 400;
    const long doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const long doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

// The text between <tag> and </tag>, from `from` on; empty when absent.
std::string element(const std::string& xml, const std::string& tag, size_t from = 0, size_t* end = nullptr) {
    const size_t a = xml.find("<" + tag + ">", from);
    if (a == std::string::npos) return {};
    const size_t b = xml.find("</" + tag + ">", a);
    if (b == std::string::npos) return {};
    if (end) *end = b;
    const size_t begin = a + tag.size() + 2;
    return xml.substr(begin, std::min<size_t>(b - begin, 256));
}

std::optional<uint64_t> unsignedNumber(const std::string& text) {
    if (text.empty() || text.size() > 20) return std::nullopt;
    uint64_t v = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return std::nullopt;
        if (v > (UINT64_MAX - 9) / 10) return std::nullopt;
        v = v * 10 + static_cast<uint64_t>(c - '0');
    }
    return v;
}

// A count of samples since midnight at `rate`, believed within one day.
std::optional<double> timeOfDay(uint64_t samples, double rate) {
    if (!(rate >= 1000 && rate <= 768000)) return std::nullopt;
    const double seconds = static_cast<double>(samples) / rate;
    if (!(seconds < 86400.0)) return std::nullopt;
    return seconds;
}

}  // namespace

WaveStamps readWave(const std::filesystem::path& file) {
    WaveStamps stamps;
    std::ifstream in(file, std::ios::binary);
    if (!in) return stamps;
    in.seekg(0, std::ios::end);
    const auto end = in.tellg();
    if (end < 40) return stamps;
    const uint64_t fileSize = static_cast<uint64_t>(end);
    in.seekg(0);
    std::array<char, 16> head{};
    if (!in.read(head.data(), 16)) return stamps;
    const std::string magic(head.data(), 4), form(head.data() + 8, 4);
    Chunks chunks;
    if ((magic == "RIFF" || magic == "RF64" || magic == "BW64") && form == "WAVE")
        walkRiff(in, fileSize, magic != "RIFF", chunks);
    else if (magic == "riff" && std::memcmp(head.data() + 4, "\x2E\x91\xCF\x11", 4) == 0)
        walkW64(in, fileSize, chunks);
    else
        return stamps;

    // bext: date "yyyy-mm-dd" and time "hh:mm:ss" (any separators), then
    // the first sample's count from midnight.
    std::optional<double> day, ofDay;
    double resolution = 1;
    const std::string& b = chunks.bext;
    if (b.size() >= 346) {
        const int y = digits(b, 320, 4), mo = digits(b, 325, 2), d = digits(b, 328, 2);
        if (y >= 1970 && y <= 2200 && mo >= 1 && mo <= 12 && d >= 1 && d <= 31)
            day = static_cast<double>(daysFromCivil(y, mo, d)) * 86400.0;
        const int h = digits(b, 330, 2), mi = digits(b, 333, 2), s = digits(b, 336, 2);
        if (h >= 0 && h < 24 && mi >= 0 && mi < 60 && s >= 0 && s < 60) ofDay = h * 3600.0 + mi * 60.0 + s;
        const auto* p = reinterpret_cast<const unsigned char*>(b.data());
        if (auto t = timeOfDay(little(p + 338, 4) | (little(p + 342, 4) << 32), chunks.sampleRate)) {
            ofDay = t;
            resolution = 1.0 / chunks.sampleRate;
        }
    }
    // iXML: the same count, family and track names.
    const std::string& x = chunks.ixml;
    if (!x.empty()) {
        stamps.family = element(x, "FAMILY_UID");
        size_t from = x.find("<TRACK_LIST>");
        for (size_t k = 0; from != std::string::npos && k < 64; ++k) {
            size_t trackEnd = 0;
            std::string track = element(x, "TRACK", from, &trackEnd);
            if (track.empty()) break;
            stamps.tracks.push_back(element(track, "NAME"));
            from = trackEnd;
        }
        auto hi = unsignedNumber(element(x, "TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_HI"));
        auto lo = unsignedNumber(element(x, "TIMESTAMP_SAMPLES_SINCE_MIDNIGHT_LO"));
        auto rate = unsignedNumber(element(x, "TIMESTAMP_SAMPLE_RATE"));
        if (resolution == 1 && hi && lo && rate && *hi < (1u << 20) && *lo <= 0xFFFFFFFFu)
            if (auto t = timeOfDay((*hi << 32) | *lo, static_cast<double>(*rate))) {
                ofDay = t;
                resolution = 1.0 / static_cast<double>(*rate);
            }
    }
    if (ofDay) stamps.clock = DeviceClock{DeviceClock::Kind::samples, *ofDay + day.value_or(0), day.has_value(), resolution};
    return stamps;
}

std::optional<DeviceClock> fromTimecode(const std::string& text, double frameRate) {
    if (text.size() < 11 || !(frameRate > 0 && frameRate <= 240)) return std::nullopt;
    const int h = digits(text, 0, 2), m = digits(text, 3, 2), s = digits(text, 6, 2), f = digits(text, 9, 2);
    const int nominal = static_cast<int>(std::lround(frameRate));
    if (h < 0 || h > 23 || m < 0 || m > 59 || s < 0 || s > 59 || f < 0 || f >= nominal) return std::nullopt;
    long frames = (h * 3600L + m * 60L + s) * nominal + f;
    // Drop frame leaves out two frame numbers a minute (four at 60), but
    // not in every tenth minute.
    if (text[8] == ';' || text[8] == '.') {
        const long drop = nominal / 30 * 2;
        const long minutes = h * 60L + m;
        frames -= drop * (minutes - minutes / 10);
    }
    return DeviceClock{DeviceClock::Kind::timecode, static_cast<double>(frames) / frameRate, false, 1.0 / frameRate};
}

}  // namespace DeviceStamps

}  // namespace qv
