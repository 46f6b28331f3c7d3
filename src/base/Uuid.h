// Uuid: a random (version 4) identifier. New ones come from the system's
// generator; they tell objects apart within a run and are never persisted
// as a source's identity (files use folder names).
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace qv {

class Uuid {
public:
    Uuid() = default;  // the nil identifier
    static Uuid make();
    static std::optional<Uuid> parse(std::string_view text);

    std::string text() const;       // "E621E1F8-C36C-495A-93FC-0C247A3E6E5F"
    std::string lowerText() const;  // the same in lower case
    bool isNil() const;

    auto operator<=>(const Uuid&) const = default;
    const std::array<uint8_t, 16>& bytes() const { return bytes_; }

private:
    std::array<uint8_t, 16> bytes_{};
};

}  // namespace qv

template <>
struct std::hash<qv::Uuid> {
    size_t operator()(const qv::Uuid& u) const noexcept {
        size_t h = 0;
        for (uint8_t b : u.bytes()) h = h * 131 + b;
        return h;
    }
};
