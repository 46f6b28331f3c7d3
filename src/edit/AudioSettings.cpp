#include "edit/AudioSettings.h"

namespace qv {

const char* rawValue(AudioSettings::Mode m) {
    switch (m) {
    case AudioSettings::Mode::table: return "Son de table";
    case AudioSettings::Mode::camera: return "Suit la caméra";
    case AudioSettings::Mode::all: return "Table + toutes les caméras";
    }
    return "Son de table";
}

std::optional<AudioSettings::Mode> audioModeFromRaw(std::string_view raw) {
    for (AudioSettings::Mode m : AudioSettings::allModes)
        if (raw == rawValue(m)) return m;
    return std::nullopt;
}

Result<AudioSettings> AudioSettings::fromJson(const json::Json& j) {
    if (!j.is_object()) return Error{"Réglages du son illisibles."};
    const AudioSettings d;
    AudioSettings a;
    a.mode = audioModeFromRaw(json::string(j, "mode", "")).value_or(d.mode);
    a.rushFade = json::number(j, "rushFade", d.rushFade, rushFadeRange);
    a.cutFade = json::boolean(j, "cutFade", d.cutFade);
    a.masterDb = json::number(j, "masterDb", d.masterDb, masterDbRange);
    return a;
}

void to_json(json::Json& j, const AudioSettings& a) {
    j = json::Json::object();
    j["mode"] = rawValue(a.mode);
    j["rushFade"] = a.rushFade;
    j["cutFade"] = a.cutFade;
    j["masterDb"] = a.masterDb;
}

void from_json(const json::Json& j, AudioSettings& a) {
    auto read = AudioSettings::fromJson(j);
    a = read ? *read : AudioSettings{};
}

}  // namespace qv
