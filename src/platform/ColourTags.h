// The colour description a video stream carries, and what the program makes
// of it. Numbers are the ITU-T H.273 code points that codecs and containers
// write (2 is "unspecified" for the three tables). Plain values, any thread.
#pragma once

#include <string>

namespace qv::media {

namespace h273 {
inline constexpr int unspecified = 2;
// Primaries.
inline constexpr int bt709 = 1, bt2020 = 9, dciP3 = 11, displayP3 = 12;
// Transfers.
inline constexpr int transferBt709 = 1, pq = 16, hlg = 18;
// Matrices.
inline constexpr int matrixBt709 = 1, matrixBt2020 = 9;
}  // namespace h273

struct ColourTags {
    int primaries = h273::unspecified;
    int transfer = h273::unspecified;
    int matrix = h273::unspecified;
    bool fullRange = false;  // limited ("TV") range unless the stream says full
    int bitDepth = 8;        // bits per sample of the decoded picture
    bool operator==(const ColourTags&) const = default;
};

// How a picture's colours are read.
enum class ColourRoad {
    standard,         // the BT.709 / BT.601 family or untagged: converted by its matrix alone
    hdr,              // HLG or PQ: tone-mapped to BT.709 SDR
    wideGamut,        // SDR over BT.2020 or P3 primaries: mapped into BT.709's, the rest clipped
    unknownTransfer,  // a transfer the program does not handle: read as standard
};

ColourRoad colourRoad(const ColourTags& tags);

// Short French description for logs and captions: "HLG BT.2020 10 bits",
// "PQ BT.2020 10 bits", "BT.709 8 bits", "non étiqueté 10 bits",
// "transfert inconnu (17) 10 bits".
std::string describe(const ColourTags& tags);

}  // namespace qv::media
