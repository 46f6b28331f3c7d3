// AudioSettings: how the sound of the edit is made, stored as a nested
// object of the project (keys are the field names). Reading is per key: a
// missing or unreadable key keeps its default, an unknown mode reads as
// `table`; only a value that is not an object at all is refused.
#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "base/Json.h"
#include "base/Result.h"

namespace qv {

struct AudioSettings {
    // The raw text is both the stored form and the label the panel shows.
    enum class Mode { table, camera, all };
    static constexpr std::array<Mode, 3> allModes{Mode::table, Mode::camera, Mode::all};

    Mode mode = Mode::table;
    double rushFade = 1.0;  // seconds of fade at the ends of a rush
    bool cutFade = true;    // fade at cuts when the sound follows the camera
    double masterDb = 0;

    // What the sound panel and the timeline's level handles offer; values
    // read from files are held inside.
    static constexpr Range rushFadeRange{0, 3};
    static constexpr Range masterDbRange{-20, 6};
    static constexpr Range trackLevelRange{-30, 6};  // level of one source, dB

    bool operator==(const AudioSettings&) const = default;

    // Refuses only a value that is not a JSON object.
    static Result<AudioSettings> fromJson(const json::Json& j);
};

const char* rawValue(AudioSettings::Mode m);  // "Son de table", ...
std::optional<AudioSettings::Mode> audioModeFromRaw(std::string_view raw);

// nlohmann hooks; reading a non-object gives the defaults.
void to_json(json::Json& j, const AudioSettings& a);
void from_json(const json::Json& j, AudioSettings& a);

}  // namespace qv
