// WaveFiles: PCM sound files written the way field recorders write them,
// byte by byte, with what no encoder of ours can add: a Broadcast WAV
// `bext` chunk (origination date and time, the first sample's count since
// midnight), an iXML chunk (take, family and track names, the same time
// stamp), RIFF, RF64 (64-bit sizes, `ds64`) or Sony Wave64 containers, and
// polyphonic files whose channels have no layout (WAVE_FORMAT_EXTENSIBLE
// with a channel mask of 0).
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/Result.h"

namespace qv::setgen {

enum class WaveContainer { riff, rf64, w64 };

// What a recorder stamps on a file.
struct WaveStamp {
    std::string date;            // "yyyy-mm-dd"
    std::string time;            // "hh:mm:ss"
    uint64_t timeReference = 0;  // first sample, counted from midnight at the file's rate
    std::string description;     // free text of the bext chunk
    std::string originator;      // the device
};

// An iXML document beside the stamp: take name, the family that ties the
// files of one take together, and the name of each track of the file.
struct WaveXml {
    std::string project;
    std::string take;
    std::string family;
    std::vector<std::string> tracks;
};

struct WaveFile {
    int channels = 1;
    int rate = 48000;
    int bits = 16;  // 16 or 24
    WaveContainer container = WaveContainer::riff;
    bool noLayout = false;  // extensible format, channel mask 0: channels of no particular place
    std::optional<WaveStamp> bext;
    std::optional<WaveXml> ixml;
    // Raw bytes instead of the stamp's chunk, for damaged files.
    std::optional<std::string> rawBext;
};

// `interleaved` holds frames of `format.channels` floats in [-1, 1].
Status writeWave(const std::filesystem::path& file, const std::vector<float>& interleaved, const WaveFile& format);

// The iXML text of `xml` with the stamp's time, as recorders write it.
std::string ixmlText(const WaveXml& xml, const WaveStamp& stamp, int rate);

// The bext chunk's body (without its header) for `stamp`.
std::string bextBody(const WaveStamp& stamp);

}  // namespace qv::setgen
