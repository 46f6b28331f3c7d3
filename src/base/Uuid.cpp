#include "base/Uuid.h"

#include <cctype>
#include <mutex>
#include <random>

namespace qv {

Uuid Uuid::make() {
    static std::mutex lock;
    static std::mt19937_64 engine{std::random_device{}()};
    Uuid u;
    {
        std::lock_guard<std::mutex> guard(lock);
        uint64_t a = engine(), b = engine();
        for (int i = 0; i < 8; ++i) {
            u.bytes_[i] = static_cast<uint8_t>(a >> (8 * i));
            u.bytes_[8 + i] = static_cast<uint8_t>(b >> (8 * i));
        }
    }
    u.bytes_[6] = static_cast<uint8_t>((u.bytes_[6] & 0x0F) | 0x40);
    u.bytes_[8] = static_cast<uint8_t>((u.bytes_[8] & 0x3F) | 0x80);
    return u;
}

std::string Uuid::text() const {
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    out.reserve(36);
    for (int i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) out.push_back('-');
        out.push_back(hex[bytes_[i] >> 4]);
        out.push_back(hex[bytes_[i] & 0xF]);
    }
    return out;
}

std::string Uuid::lowerText() const {
    std::string t = text();
    for (char& c : t) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return t;
}

bool Uuid::isNil() const {
    for (uint8_t b : bytes_)
        if (b) return false;
    return true;
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36) return std::nullopt;
    Uuid u;
    int k = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-') return std::nullopt;
            continue;
        }
        int c = std::tolower(static_cast<unsigned char>(text[i]));
        int v = (c >= '0' && c <= '9') ? c - '0' : (c >= 'a' && c <= 'f') ? c - 'a' + 10 : -1;
        if (v < 0) return std::nullopt;
        u.bytes_[k / 2] = static_cast<uint8_t>(u.bytes_[k / 2] | (k % 2 == 0 ? v << 4 : v));
        ++k;
    }
    return u;
}

}  // namespace qv
