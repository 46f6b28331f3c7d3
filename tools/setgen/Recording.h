// How a generated camera writes its picture: the 8-bit H.264 BT.709 of most
// cameras, or the 10-bit HEVC of phones, in HLG or PQ (HDR10) over BT.2020,
// SDR over the BT.2020 primaries, and two hard cases: 10 bits with no colour tags at all, and a transfer
// that no camera uses (logarithmic, H.273 code 9). A display rotation is
// written as phones write it, in the container's matrix.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "base/Result.h"

namespace qv::setgen {

class Ffmpeg;
struct Picture;

enum class Recording { sdr, hlg, pq, wideSdr, untagged10, unknownTransfer };

// "sdr", "hlg", "pq", "bt2020-sdr", "untagged-10bit", "unknown-transfer":
// the truth's words.
const char* recordingName(Recording r);

// The end of the filter graph that takes the drawn 8-bit BT.709 picture to
// the recording's pixels, lying as the file stores it, without the output
// label.
std::string recordingFilter(const Picture& picture);

// The video encoder's arguments for a 10-bit recording (HEVC with its tags
// and, for PQ, its mastering display and light levels).
std::vector<std::string> tenBitCodecArgs(const Picture& picture);

// Writes `degrees` of display rotation into `file` (remuxed, nothing re-encoded).
Status writeRotation(const Ffmpeg& ffmpeg, const std::filesystem::path& file, const std::string& target, int degrees);

}  // namespace qv::setgen
