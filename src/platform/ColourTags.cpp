#include "platform/ColourTags.h"

namespace qv::media {

namespace {

ColourRoad transferRoad(int transfer) {
    switch (transfer) {
        case 0:   // reserved: written by encoders that meant "nothing said"
        case 1:   // BT.709
        case 2:   // unspecified
        case 4:   // BT.470 M (gamma 2.2)
        case 5:   // BT.470 BG (gamma 2.8)
        case 6:   // BT.601
        case 7:   // SMPTE 240M
        case 13:  // sRGB
        case 14:  // BT.2020 10 bits: the BT.709 curve
        case 15:  // BT.2020 12 bits
            return ColourRoad::standard;
        case h273::pq:
        case h273::hlg:
            return ColourRoad::hdr;
        default:
            return ColourRoad::unknownTransfer;
    }
}

}  // namespace

ColourRoad colourRoad(const ColourTags& tags) {
    const ColourRoad road = transferRoad(tags.transfer);
    // The SD primaries and BT.709's are close enough to be read as they are.
    const bool wide = tags.primaries == h273::bt2020 || tags.primaries == h273::dciP3 ||
                      tags.primaries == h273::displayP3;
    return road == ColourRoad::standard && wide ? ColourRoad::wideGamut : road;
}

std::string describe(const ColourTags& tags) {
    std::string transfer;
    switch (tags.transfer) {
        case h273::hlg: transfer = "HLG"; break;
        case h273::pq: transfer = "PQ"; break;
        default:
            if (transferRoad(tags.transfer) == ColourRoad::unknownTransfer)
                transfer = "transfert inconnu (" + std::to_string(tags.transfer) + ")";
    }
    std::string primaries = tags.primaries == h273::bt2020      ? "BT.2020"
                            : tags.primaries == h273::bt709     ? "BT.709"
                            : tags.primaries == h273::displayP3 ? "P3"
                            : tags.primaries == h273::dciP3     ? "DCI-P3"
                            : tags.primaries == h273::unspecified || tags.primaries == 0
                                ? ""
                                : "primaires " + std::to_string(tags.primaries);
    std::string text = transfer;
    if (!primaries.empty()) text += (text.empty() ? "" : " ") + primaries;
    if (text.empty()) text = "non étiqueté";
    return text + " " + std::to_string(tags.bitDepth) + " bits";
}

}  // namespace qv::media
