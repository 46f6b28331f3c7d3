#include "base/Text.h"

#include <locale.h>

#include <cctype>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace qv {

namespace {

locale_t cLocale() {
    static locale_t loc = newlocale(LC_ALL_MASK, "C", nullptr);
    return loc;
}

// Switches this thread to the C locale for the scope's life.
class CLocaleScope {
public:
    CLocaleScope() : previous_(uselocale(cLocale())) {}
    ~CLocaleScope() { uselocale(previous_); }
    CLocaleScope(const CLocaleScope&) = delete;
    CLocaleScope& operator=(const CLocaleScope&) = delete;

private:
    locale_t previous_;
};

}  // namespace

std::string cformat(const char* fmt, ...) {
    CLocaleScope scope;
    va_list args;
    va_start(args, fmt);
    va_list copy;
    va_copy(copy, args);
    char small[256];
    int n = std::vsnprintf(small, sizeof small, fmt, args);
    va_end(args);
    std::string out;
    if (n < 0) {
        va_end(copy);
        return out;
    }
    if (static_cast<size_t>(n) < sizeof small) {
        out.assign(small, static_cast<size_t>(n));
    } else {
        out.resize(static_cast<size_t>(n) + 1);
        std::vsnprintf(out.data(), out.size(), fmt, copy);
        out.resize(static_cast<size_t>(n));
    }
    va_end(copy);
    return out;
}

std::string shortest(double v) {
    char buf[64];
    auto r = std::to_chars(buf, buf + sizeof buf, v);
    return std::string(buf, r.ptr);
}

std::string padRight(std::string_view s, int width) {
    int letters = 0;
    for (unsigned char c : s)
        if ((c & 0xC0) != 0x80) ++letters;
    std::string out(s);
    if (letters < width) out.append(static_cast<size_t>(width - letters), ' ');
    return out;
}

std::optional<double> parseDouble(std::string_view s) {
    if (s.empty()) return std::nullopt;
    if (s.front() == '+') s.remove_prefix(1);
    double v = 0;
    auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    if (r.ec != std::errc() || r.ptr != s.data() + s.size()) return std::nullopt;
    return v;
}

std::optional<long long> parseInteger(std::string_view s) {
    if (s.empty()) return std::nullopt;
    if (s.front() == '+') s.remove_prefix(1);
    long long v = 0;
    auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    if (r.ec != std::errc() || r.ptr != s.data() + s.size()) return std::nullopt;
    return v;
}

std::vector<std::string> split(std::string_view s, char sep) {
    std::vector<std::string> parts;
    size_t from = 0;
    while (true) {
        size_t at = s.find(sep, from);
        if (at == std::string_view::npos) {
            parts.emplace_back(s.substr(from));
            return parts;
        }
        parts.emplace_back(s.substr(from, at - from));
        from = at + 1;
    }
}

int naturalCompare(std::string_view a, std::string_view b) {
    size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        unsigned char ca = static_cast<unsigned char>(a[i]);
        unsigned char cb = static_cast<unsigned char>(b[j]);
        if (std::isdigit(ca) && std::isdigit(cb)) {
            size_t si = i, sj = j;
            while (si < a.size() && a[si] == '0') ++si;
            while (sj < b.size() && b[sj] == '0') ++sj;
            size_t ei = si, ej = sj;
            while (ei < a.size() && std::isdigit(static_cast<unsigned char>(a[ei]))) ++ei;
            while (ej < b.size() && std::isdigit(static_cast<unsigned char>(b[ej]))) ++ej;
            size_t la = ei - si, lb = ej - sj;
            if (la != lb) return la < lb ? -1 : 1;
            int c = a.substr(si, la).compare(b.substr(sj, lb));
            if (c != 0) return c < 0 ? -1 : 1;
            i = ei;
            j = ej;
            continue;
        }
        int la = std::tolower(ca), lb = std::tolower(cb);
        if (la != lb) return la < lb ? -1 : 1;
        ++i;
        ++j;
    }
    if (i < a.size()) return 1;
    if (j < b.size()) return -1;
    return a.compare(b) < 0 ? -1 : (a == b ? 0 : 1);
}

std::string toLower(std::string_view s) {
    std::string out(s);
    for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

uint64_t fnv1a(std::string_view bytes) {
    uint64_t h = 0xcbf29ce484222325ull;
    for (unsigned char b : bytes) {
        h ^= b;
        h *= 0x100000001b3ull;
    }
    return h;
}

}  // namespace qv
