// Any text as the values of --montage and --range (one line each): the cuts
// and the range are finite, the range lies in the set, the plans follow
// each other in time. The whole text, one word a line, is also read as a
// command line: it ends in one mode, never in an exception.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "entry/Cli.h"
#include "entry/CommandLine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    size_t split = text.find('\n');
    std::string montage = text.substr(0, split);
    std::string range = split == std::string::npos ? std::string() : text.substr(split + 1);
    std::vector<std::string> warnings;
    auto cuts = qv::CLI::parseCuts(montage, &warnings);
    for (const auto& c : cuts)
        if (!std::isfinite(c.time)) std::abort();
    const double duration = 600;
    auto r = qv::CLI::parseRange(range, duration, &warnings);
    if (!std::isfinite(r.start) || !std::isfinite(r.end) || r.start > r.end || r.end > duration) std::abort();
    // Plans follow each other in time; only one that starts past the set's
    // end may end before it starts.
    for (const auto& s : qv::Segment::build(cuts, duration))
        if (!(s.start <= s.end) && s.start < duration) std::abort();

    std::vector<std::string> words;
    for (size_t from = 0; from <= text.size();) {
        size_t to = std::min(text.find('\n', from), text.size());
        words.push_back(text.substr(from, to - from));
        from = to + 1;
    }
    const qv::CommandLine line = qv::CommandLine::read(words);
    if (line.paths.size() > 2) std::abort();
    return 0;
}
