// FolderSync: places every file of a set on one time line by its sound.
//
//   decode   every file's sound becomes a 2 kHz signal (libav, then ffmpeg);
//            no usable sound -> unsynced
//   order    longest first; the reference (longest sound file, else longest
//            camera file) stands at 0
//   passes   strict, then souple; each repeats sweeps until one places
//            nothing. A file is correlated against every placed file of
//            other sources; candidates cluster within 0.1 s, one vote per
//            anchor, anchors that heard the stretch and disagree count
//            against it; a sibling's date settles a choice; an unclear
//            choice waits in the strict pass and is marked ambiguous in the
//            souple one
//   groups   files a device wrote at one moment (a take) are placed as
//            one; the pieces of a recording are chained end to start with
//            one drift; a device's sample clock places a file the sound
//            cannot, learnt from siblings the sound placed (Placer.h)
//   results  starts shifted so the earliest is 0, envelopes attached, the
//            stream and channels that carry each file's sound picked
//
// Blocking; run it off the interface thread. Decoding and correlation use
// several threads, but the result never depends on their timing.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "base/Result.h"
#include "platform/MediaProbe.h"
#include "sync/Correlator.h"
#include "sync/Media.h"
#include "sync/SyncResult.h"

namespace qv::FolderSync {

// fraction 0..1 and a French text; called on the caller's thread or, while
// decoding, on a worker (never two calls at once).
using Progress = std::function<void(double, const std::string&)>;
// A file's 2 kHz signal, and how loud each channel of each of its streams
// was when the loader can tell (left empty otherwise).
using Loader = std::function<Result<std::vector<float>>(const std::filesystem::path&, media::SoundLevels*)>;

// Where a run spent its time, for benchmarks and the log.
struct Stats {
    double decodeSeconds = 0;  // all files' sound, all threads at once
    double placeSeconds = 0;   // correlation and placement
    int correlations = 0;      // pairs correlated
    int spectra = 0;           // forward transforms, recomputations included
    long long budgetPeak = 0;  // the most the spectrum budget counted at once
};

struct Options {
    int threads = 0;  // 0: one per core
    bool trace = false;  // candidates of every try on standard error
    Loader primary;   // default: AudioLoader::loadWithLibav
    Loader fallback;  // default: AudioLoader::loadWithFFmpeg
    long long spectrumBudget = SpectrumCache::defaultBudget;
    Stats* stats = nullptr;  // filled when given
    // Raised from another thread when the result is no longer wanted (the
    // program closes): no further file is decoded nor pair correlated, and
    // the run returns at once with what it has, which is not a placement.
    const std::atomic<bool>* stop = nullptr;
};

// Options with the defaults, `trace` set when QUORVEL_DEBUG exists.
Options defaultOptions();

SyncResult run(const std::vector<MediaSource>& sources, const Progress& progress);
SyncResult run(const std::vector<MediaSource>& sources, const Progress& progress, const Options& options);

// One file with its decoded signal, ready to be placed.
struct Entry {
    int sourceIndex = 0;
    SourceKind kind = SourceKind::audio;
    MediaItem item;
    std::vector<float> signal;  // 2000 Hz
    media::SoundLevels levels;  // where its sound lies, when the loader told
};

// The decoding half of `run`: each file's 2 kHz signal in the items' order,
// empty when it has no usable sound; all cores at once, as many files at a
// time as `spectrumBudget` holds at the decoder's rate. `levels`, when
// given, receives what the loaders told of each file's channels.
std::vector<std::vector<float>> decodeAll(const std::vector<const MediaItem*>& items, const Options& options,
                                          const Progress& progress = nullptr,
                                          std::vector<media::SoundLevels>* levels = nullptr);

// The placing half of `run`, for signals already decoded. `unsynced` holds
// the files already set aside; they stay first in the result's list.
SyncResult place(std::vector<Entry> entries, std::vector<UnsyncedItem> unsynced, const Progress& progress,
                 const Options& options);

}  // namespace qv::FolderSync
