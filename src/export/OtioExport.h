// OtioExport: a timeline as OpenTimelineIO JSON (`.otio`): a Timeline whose
// Stack holds one Track per video and sound track of
// PremiereExport::Timeline, each a row of Clips and Gaps in frames of the
// sequence's rate, with the same rounding as the xmeml writer. Files are
// ExternalReferences by the xmeml writer's file URL, so no name is lost;
// drops are Markers on the Stack. Muted sound is a disabled clip.
//
// A pure function of its arguments; any thread. Numbers are written
// independently of the process locale.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "export/MltExport.h"
#include "export/PremiereExport.h"

namespace qv::OtioExport {

std::string write(const std::string& title, const std::vector<MediaSource>& sources,
                  const PremiereExport::Timeline& timeline, const std::set<Uuid>& muted,
                  const std::vector<TimelineMarker>& markers);

}  // namespace qv::OtioExport
