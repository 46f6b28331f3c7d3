#include "entry/SetTruth.h"

#include <fstream>

#include "base/Json.h"

namespace qv {

std::optional<SetTruth> SetTruth::read(const std::filesystem::path& set) {
    std::ifstream in(set / "truth.json", std::ios::binary);
    if (!in) return std::nullopt;
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    auto j = json::parse(text);
    if (!j || !j->is_object()) return std::nullopt;
    SetTruth truth;
    if (const auto* files = json::field(*j, "files"); files && files->is_array())
        for (const auto& f : *files)
            truth.files[json::string(f, "path", "")] = {json::number(f, "start", 0), json::boolean(f, "filtered", false),
                                                        json::string(f, "expect", ""), json::number(f, "drift", 0),
                                                        json::number(f, "duration", 0)};
    if (const auto* drops = json::field(*j, "drops"); drops && drops->is_array())
        for (const auto& d : *drops)
            if (d.is_number()) truth.drops.push_back(d.get<double>());
    return truth;
}

}  // namespace qv
