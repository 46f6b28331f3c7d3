// DropClips: the short clips of a set's drops, one finished video per drop,
// from `pre` seconds before the drop to `post` seconds after, held inside
// the set. Each clip shows the user's cuts where its range has some, else
// the automatic editor's edit of that range alone, drawn with the project's
// seed, so the same project always gives the same clips. Pure: it prepares
// the render jobs, the export session runs them.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "edit/AutoEditor.h"
#include "edit/Cut.h"
#include "music/DropDetector.h"
#include "render/VideoRender.h"

namespace qv::DropClips {

struct Request {
    // The whole set as a finished video would be made of it: sources,
    // sound, effects, format, crops and looks; its `segments`, `range` and
    // `planEffects` are replaced per clip.
    VideoRender::Job base;
    std::vector<Cut> cuts;            // the user's edit, in time order
    std::vector<Drop> drops;
    std::set<int> only;               // ids of the drops wanted; empty: all
    double pre = 15, post = 30;       // seconds kept before and after a drop
    std::vector<double> onsets;
    AutoSettings autoSettings;        // its seed draws the automatic edits
    std::set<int> allowed;            // camera numbers the editor may use
    std::map<int, double> weights;    // percent by camera number
    std::function<ResolvedEffect(const Segment&)> effectFor;  // empty: none
    // Where each camera's picture is weak or unusable (by camera number);
    // empty: every picture counts as good.
    analysis::CameraPictures pictures;
    std::string setName;
    std::string extension = "mp4";
};

struct Clip {
    int number = 0;         // the drop's place in the set's list, from 1
    double dropTime = 0;
    TimeRange range;
    bool automatic = false; // the automatic editor drew its plans
    std::string fileName;   // "{set} - drop {n} ({m:ss}).{ext}"
    VideoRender::Job job;
};

// [drop − pre, drop + post] held inside [0, duration].
TimeRange rangeOf(double drop, double pre, double post, double duration);

std::string fileName(const std::string& setName, int number, double dropTime, const std::string& extension);

// "Clips des drops : {current} / {total} · {percent} %", the percentage
// of the whole job.
std::string progressLine(int current, int total, double fraction);

// One clip per wanted drop, in time order.
std::vector<Clip> plan(const Request& request);

}  // namespace qv::DropClips
