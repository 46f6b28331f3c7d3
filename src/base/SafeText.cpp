#include "base/SafeText.h"

#include <optional>

#include "base/Text.h"

namespace qv {

namespace {

// One UTF-8 sequence at `at`: its code point and length, or nothing for an
// ill-formed one (overlong, surrogate, beyond U+10FFFF, cut short).
std::optional<std::pair<char32_t, size_t>> decodeAt(std::string_view s, size_t at) {
    auto byte = [&](size_t i) { return static_cast<unsigned char>(s[i]); };
    unsigned char b = byte(at);
    if (b < 0x80) return std::pair<char32_t, size_t>{b, 1};
    size_t length = b >= 0xF0 ? 4 : b >= 0xE0 ? 3 : b >= 0xC0 ? 2 : 0;
    if (length == 0 || b > 0xF4 || at + length > s.size()) return std::nullopt;
    char32_t cp = b & (0x7F >> length);
    for (size_t k = 1; k < length; ++k) {
        unsigned char c = byte(at + k);
        if ((c & 0xC0) != 0x80) return std::nullopt;
        cp = (cp << 6) | (c & 0x3F);
    }
    static const char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < smallest[length] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return std::nullopt;
    return std::pair<char32_t, size_t>{cp, length};
}

bool isControl(char32_t c) { return c < 0x20 || (c >= 0x7F && c <= 0x9F); }

}  // namespace

std::string terminalSafe(std::string_view s) {
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size();) {
        auto cp = decodeAt(s, i);
        if (!cp) {
            out += cformat("\\x%02x", static_cast<unsigned char>(s[i]));
            ++i;
            continue;
        }
        char32_t c = cp->first;
        if (c == '\n') out += "\\n";
        else if (c == '\t') out += "\\t";
        else if (c == '\r') out += "\\r";
        else if (c < 0x80 && isControl(c)) out += cformat("\\x%02x", static_cast<unsigned>(c));
        else if (isControl(c)) out += cformat("\\u%04x", static_cast<unsigned>(c));
        else out.append(s.substr(i, cp->second));
        i += cp->second;
    }
    return out;
}

std::string xmlSafe(std::string_view s) {
    static const std::string replacement = "\xEF\xBF\xBD";
    std::string out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size();) {
        auto cp = decodeAt(s, i);
        if (!cp) {
            out += replacement;
            ++i;
            continue;
        }
        char32_t c = cp->first;
        if (isControl(c) || c == 0xFFFE || c == 0xFFFF) out += replacement;
        else out.append(s.substr(i, cp->second));
        i += cp->second;
    }
    return out;
}

}  // namespace qv
