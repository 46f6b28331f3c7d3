#include "effects/Reframe.h"

#include <algorithm>
#include <cmath>

namespace qv {

const char* rawValue(OutputFormat f) {
    switch (f) {
    case OutputFormat::landscape: return "16:9";
    case OutputFormat::portrait: return "9:16";
    case OutputFormat::fourFive: return "4:5";
    case OutputFormat::square: return "1:1";
    }
    return "16:9";
}

std::optional<OutputFormat> outputFormatFromRaw(std::string_view raw) {
    for (OutputFormat f : {OutputFormat::landscape, OutputFormat::portrait, OutputFormat::fourFive,
                           OutputFormat::square})
        if (raw == rawValue(f)) return f;
    return std::nullopt;
}

std::optional<PixelSize> fixedSize(OutputFormat f) {
    switch (f) {
    case OutputFormat::landscape: return std::nullopt;
    case OutputFormat::portrait: return PixelSize{1080, 1920};
    case OutputFormat::fourFive: return PixelSize{1080, 1350};
    case OutputFormat::square: return PixelSize{1080, 1080};
    }
    return std::nullopt;
}

bool CameraFrame::isNeutral() const {
    return std::abs(zoom - 1) < 0.001 && std::abs(x) < 0.001 && std::abs(y) < 0.001;
}

void to_json(json::Json& j, OutputFormat f) { j = rawValue(f); }

void from_json(const json::Json& j, OutputFormat& f) {
    f = j.is_string() ? outputFormatFromRaw(j.get_ref<const std::string&>()).value_or(OutputFormat::landscape)
                      : OutputFormat::landscape;
}

void to_json(json::Json& j, const CameraFrame& f) { j = {{"zoom", f.zoom}, {"x", f.x}, {"y", f.y}}; }

void from_json(const json::Json& j, CameraFrame& f) {
    const CameraFrame d;
    f.zoom = json::number(j, "zoom", d.zoom, CameraFrame::zoomRange);
    f.x = json::number(j, "x", d.x, CameraFrame::offsetRange);
    f.y = json::number(j, "y", d.y, CameraFrame::offsetRange);
}

namespace Reframe {

Placement place(PixelSize source, PixelSize output, const CameraFrame& frame) {
    double w = source.width, h = source.height, W = output.width, H = output.height;
    if (!(w > 0 && h > 0 && W > 0 && H > 0)) return {};

    Placement p;
    p.scale = std::max(W / w, H / h) * std::clamp(frame.zoom, 1.0, 4.0);
    double shownW = p.scale * w, shownH = p.scale * h;
    p.windowWidth = std::min(W / shownW, 1.0);
    p.windowHeight = std::min(H / shownH, 1.0);
    // Keeping the top (y = -1) moves the picture down so its top edge meets the output's.
    p.x = -std::clamp(frame.x, -1.0, 1.0) * std::max(shownW - W, 0.0) * 0.5 / W;
    p.y = -std::clamp(frame.y, -1.0, 1.0) * std::max(shownH - H, 0.0) * 0.5 / H;
    return p;
}

}  // namespace Reframe

}  // namespace qv
