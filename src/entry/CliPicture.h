// The command line's part in the cameras' pictures: the files the scan left
// aside, the set's rate (`--rate 25|29.97|…`, drop-frame time codes as
// `29.97df` or `59.94df`), the files whose rate varies, and their
// constant-rate copies (`--cfr`), which the timeline files then point at.
#pragma once

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "export/PremiereExport.h"
#include "sync/MediaScanner.h"

namespace qv::CLI {

// "Fichier écarté : Cam 1/notes.txt (format non pris en charge)", one line each.
void reportSetAside(const std::vector<MediaScanner::SetAside>& files, std::ostream& err);

// The rate of `--rate`, "29.97", with "df" behind it for drop-frame time
// codes; nothing for a value that is no standard rate or asks drop-frame
// where the rate has none.
std::optional<PremiereExport::SequenceRate> rateOf(const std::string& value);

// Says the set's rate ("Cadence : 25 i/s (la plus fréquente)") on `out`
// and names each file whose rate varies on `err`; with `cfr` makes their
// constant-rate copies (progress to `progress`) and says where. The rate
// and the copies every timeline file is then written with.
PremiereExport::PictureChoices pictureChoices(std::optional<PremiereExport::SequenceRate> rate, bool cfr,
                                              const std::vector<MediaSource>& sources, const SyncResult& result,
                                              std::ostream& out, std::ostream& err,
                                              const std::function<void(double, const std::string&)>& progress);

}  // namespace qv::CLI
