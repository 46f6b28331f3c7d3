#include "looks/CubeLUT.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "base/Text.h"

namespace qv {

namespace {

// Every line break a text editor may leave: LF, CR, CRLF, VT, FF, and the
// UTF-8 forms of NEL (U+0085), LS (U+2028) and PS (U+2029).
size_t lineBreakLength(std::string_view s, size_t i) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    if (c == '\n' || c == '\v' || c == '\f') return 1;
    if (c == '\r') return i + 1 < s.size() && s[i + 1] == '\n' ? 2 : 1;
    if (c == 0xC2 && i + 1 < s.size() && static_cast<unsigned char>(s[i + 1]) == 0x85) return 2;
    if (c == 0xE2 && i + 2 < s.size() && static_cast<unsigned char>(s[i + 1]) == 0x80) {
        unsigned char d = static_cast<unsigned char>(s[i + 2]);
        if (d == 0xA8 || d == 0xA9) return 3;
    }
    return 0;
}

bool isBlank(char c) { return c == ' ' || c == '\t'; }

std::string_view trimBlanks(std::string_view s) {
    while (!s.empty() && isBlank(s.front())) s.remove_prefix(1);
    while (!s.empty() && isBlank(s.back())) s.remove_suffix(1);
    return s;
}

// Up to four tokens are all any line needs; `count` still counts them all.
struct Tokens {
    std::string_view first[4];
    int count = 0;
};

Tokens tokenize(std::string_view line) {
    Tokens t;
    size_t i = 0;
    while (i < line.size()) {
        while (i < line.size() && isBlank(line[i])) ++i;
        if (i == line.size()) break;
        size_t start = i;
        while (i < line.size() && !isBlank(line[i])) ++i;
        if (t.count < 4) t.first[t.count] = line.substr(start, i - start);
        ++t.count;
    }
    return t;
}

// Case-insensitive prefix test against an upper-case keyword.
bool startsWithKeyword(std::string_view line, std::string_view keyword) {
    if (line.size() < keyword.size()) return false;
    for (size_t i = 0; i < keyword.size(); ++i) {
        char c = line[i];
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        if (c != keyword[i]) return false;
    }
    return true;
}

std::optional<float> readFloat(std::string_view s) {
    if (!s.empty() && s.front() == '+') s.remove_prefix(1);
    float v = 0;
    auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    if (r.ec != std::errc() || r.ptr != s.data() + s.size() || !std::isfinite(v)) return std::nullopt;
    return v;
}

std::vector<float> readDomain(const Tokens& t) {
    std::vector<float> d;
    for (int i = 1; i < 4; ++i)
        if (auto v = readFloat(t.first[i])) d.push_back(*v);
    return d;
}

}  // namespace

std::optional<CubeLUT> CubeLUT::parse(std::string_view text) {
    long long size = 0;
    std::vector<float> domainMin{0, 0, 0};
    std::vector<float> domainMax{1, 1, 1};
    std::vector<float> values;

    auto handleLine = [&](std::string_view line) {
        line = trimBlanks(line);
        if (line.empty() || line.front() == '#') return;
        Tokens t = tokenize(line);
        if (startsWithKeyword(line, "LUT_3D_SIZE") && t.count >= 2) {
            size = parseInteger(t.first[1]).value_or(0);
        } else if (startsWithKeyword(line, "DOMAIN_MIN") && t.count >= 4) {
            domainMin = readDomain(t);
        } else if (startsWithKeyword(line, "DOMAIN_MAX") && t.count >= 4) {
            domainMax = readDomain(t);
        } else if (t.count >= 3 && readFloat(t.first[0])) {
            for (int i = 0; i < 3; ++i)
                if (auto v = readFloat(t.first[i])) values.push_back(*v);
        }
    };

    size_t lineStart = 0;
    for (size_t i = 0; i < text.size();) {
        if (size_t n = lineBreakLength(text, i)) {
            handleLine(text.substr(lineStart, i - lineStart));
            i += n;
            lineStart = i;
        } else {
            ++i;
        }
    }
    handleLine(text.substr(lineStart));

    if (size < kMinSize || size > kMaxSize) return std::nullopt;
    if (values.size() != static_cast<size_t>(size * size * size * 3)) return std::nullopt;
    if (domainMin.size() != 3 || domainMax.size() != 3) return std::nullopt;

    bool unitDomain = domainMin == std::vector<float>{0, 0, 0} && domainMax == std::vector<float>{1, 1, 1};
    if (!unitDomain) {
        float scale[3];
        for (int c = 0; c < 3; ++c) scale[c] = std::max(domainMax[c] - domainMin[c], 0.000001f);
        for (size_t i = 0; i < values.size(); ++i) {
            size_t c = i % 3;
            values[i] = (values[i] - domainMin[c]) / scale[c];
        }
    }
    // No real look leaves the picture's range by that much; a crafted one
    // could otherwise drive every later step to infinities.
    for (float& v : values) v = static_cast<float>(kValueRange.hold(v, 0));
    return CubeLUT{static_cast<int>(size), std::move(values)};
}

std::string CubeLUT::text(std::string_view title) const {
    std::string out;
    out.reserve(values.size() / 3 * 27 + 128);
    // A line break in the title would end the TITLE line early.
    std::string cleanTitle(title);
    std::replace_if(cleanTitle.begin(), cleanTitle.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    out += "TITLE \"" + cleanTitle + "\"\n";
    out += "# Fait avec Quorvel (Quorvel Media)\n";
    out += "LUT_3D_SIZE " + std::to_string(size) + "\n";
    // to_chars in fixed notation is "%.6f" without the locale's decimal comma.
    char buf[64];
    for (size_t i = 0; i < values.size(); ++i) {
        auto r = std::to_chars(buf, buf + sizeof buf, static_cast<double>(values[i]), std::chars_format::fixed, 6);
        out.append(buf, r.ptr);
        out += (i % 3 == 2) ? '\n' : ' ';
    }
    return out;
}

Rgb CubeLUT::sample(double r, double g, double b) const {
    struct Axis {
        int i;
        double f;
    };
    const int last = size - 1;
    auto axis = [last](double c) {
        if (!(c > 0)) c = 0;  // also catches NaN
        if (c > 1) c = 1;
        double x = c * last;
        int i = std::min(static_cast<int>(x), last - 1);
        return Axis{i, x - i};
    };
    const Axis ar = axis(r), ag = axis(g), ab = axis(b);
    const size_t n = static_cast<size_t>(size);
    auto at = [&](int dr, int dg, int db, int ch) -> double {
        size_t idx = ((static_cast<size_t>(ab.i + db) * n + static_cast<size_t>(ag.i + dg)) * n +
                      static_cast<size_t>(ar.i + dr)) * 3 + static_cast<size_t>(ch);
        return values[idx];
    };
    auto lerp = [](double a, double b, double t) { return a + (b - a) * t; };
    double out[3];
    for (int ch = 0; ch < 3; ++ch) {
        double c00 = lerp(at(0, 0, 0, ch), at(1, 0, 0, ch), ar.f);
        double c10 = lerp(at(0, 1, 0, ch), at(1, 1, 0, ch), ar.f);
        double c01 = lerp(at(0, 0, 1, ch), at(1, 0, 1, ch), ar.f);
        double c11 = lerp(at(0, 1, 1, ch), at(1, 1, 1, ch), ar.f);
        double c0 = lerp(c00, c10, ag.f);
        double c1 = lerp(c01, c11, ag.f);
        out[ch] = lerp(c0, c1, ab.f);
    }
    return {out[0], out[1], out[2]};
}

CubeLUT CubeLUT::identity(int size) {
    CubeLUT lut;
    lut.size = size;
    lut.values.reserve(static_cast<size_t>(size) * size * size * 3);
    const float last = static_cast<float>(size - 1);
    for (int b = 0; b < size; ++b)
        for (int g = 0; g < size; ++g)
            for (int r = 0; r < size; ++r) {
                lut.values.push_back(r / last);
                lut.values.push_back(g / last);
                lut.values.push_back(b / last);
            }
    return lut;
}

}  // namespace qv
