// DeviceClock: what recorders and cameras write about when a recording
// began, by their own clock, and how its files belong together. Recorders
// stamp Broadcast WAV files (`bext`: date, time and the first sample counted
// from midnight) and add iXML (take, family, track names, the same count);
// cameras write SMPTE timecode (a QuickTime `tmcd` track, a `timecode` tag).
//
// A device's clock may be off the wall by hours: only differences between
// files of one device mean anything, and the synchronisation learns each
// clock from files the sound placed. The readers here never fail: anything
// missing or out of bounds is simply not told.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace qv {

struct DeviceClock {
    enum class Kind { samples, timecode };
    Kind kind = Kind::samples;
    // The recording's first sample: seconds since midnight, plus the days
    // since 1970 when the device wrote a date.
    double seconds = 0;
    bool dated = false;
    double resolution = 0;  // seconds: one sample, or one frame of timecode

    // `later` minus this clock, in seconds; undated clocks count across
    // midnight (the nearest way round).
    double until(const DeviceClock& later) const;
    // Same kind of clock, so their differences mean something.
    bool comparable(const DeviceClock& other) const { return kind == other.kind && dated == other.dated; }
    bool operator==(const DeviceClock&) const = default;
};

// What a sound file's chunks tell (RIFF, RF64, BW64 or Wave64).
struct WaveStamps {
    std::optional<DeviceClock> clock;
    std::string family;               // iXML FAMILY_UID: the files of one take share it
    std::vector<std::string> tracks;  // iXML track names, in channel order
};

namespace DeviceStamps {

// Reads the `bext` and `iXML` chunks of a wave file; nothing for other
// files, damaged chunks or values no device writes.
WaveStamps readWave(const std::filesystem::path& file);

// A "hh:mm:ss:ff" (or ";" before the frames, for drop frame) timecode at
// `frameRate` frames a second; nothing when it does not parse.
std::optional<DeviceClock> fromTimecode(const std::string& text, double frameRate);

}  // namespace DeviceStamps

}  // namespace qv
