// The outputs of a command-line run, judged before any work: an hour of
// decoding must not end on a path that cannot be written, and no output may
// land on the set's own files. The rule itself is OutputTarget's; here it
// meets the run's own care for documents given by mistake.
#pragma once

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "export/OutputTarget.h"

namespace qv::CLI {

struct Output {
    enum class Kind { xml, json, video, folder };
    std::string text;  // as typed, for the messages
    Kind kind = Kind::xml;
};

// 0 when every output may be written (a folder of outputs is made when
// missing); otherwise the first refusal printed on `out` as "Erreur
// d'écriture : …" and 1. A timeline file that exists and is not of its
// kind (a video given as the XML, say) is refused on `err`, as before.
int judgeOutputs(const std::vector<Output>& outputs, const OutputTarget::Protected& owned, std::ostream& out,
                 std::ostream& err);

}  // namespace qv::CLI
