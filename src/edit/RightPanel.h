// RightPanel: which side panel is open, in the order of the panel bar.
// `automatic` and `exportPanel` stand for auto and export, C++ keywords.
#pragma once

namespace qv {

enum class RightPanel { none, sound, effects, drops, automatic, color, crop, exportPanel, settings };

}  // namespace qv
