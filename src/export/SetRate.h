// The set's frame rate: the one rate at which every timeline file (xmeml,
// MLT, OpenTimelineIO) and the finished video are written. By default the
// standard rate that covers the most camera time, so one 29.97 phone among
// seven 25 fps cameras does not make a 29.97 set; the user may choose
// another, stored in the project. Pure functions, any thread.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "export/PremiereExport.h"
#include "sync/Media.h"
#include "sync/SyncResult.h"

namespace qv::PremiereExport {

// Camera time filmed at one standard rate.
struct RateShare {
    SequenceRate rate;
    double seconds = 0;
};

// The placed picture files of the set's cameras, each counted at the
// standard rate nearest its own, most camera time first; rates of equal
// time in the order of the table.
std::vector<RateShare> rateShares(const std::vector<MediaSource>& sources, const SyncResult& result);

// The standard rate covering the most camera time; 25 without any picture.
SequenceRate setRate(const std::vector<MediaSource>& sources, const SyncResult& result);

// The rate the user chose when there is one, else the set's; counted
// drop-frame only where the choice asks for it and the rate can be.
SequenceRate chosenRate(const std::vector<MediaSource>& sources, const SyncResult& result,
                        std::optional<SequenceRate> choice);

// For the user, in French: "25 i/s", "29,97 i/s", "23,976 i/s".
std::string rateLabel(SequenceRate rate);
// The form of the command line and the project file: "25", "29.97",
// "23.976", "59.94"...; the drop-frame choice is not part of it.
std::string rateText(SequenceRate rate);
// A rate of the table from that form (also "29,97", "30000/1001" or a
// rate within 0.01 of one of the table); nothing for any other text.
std::optional<SequenceRate> rateFromText(const std::string& text);

}  // namespace qv::PremiereExport
