// 10-bit and HDR recordings through the ffmpeg executable.
#include "Recording.h"

#include <algorithm>
#include <cmath>

#include "Encode.h"
#include "base/SystemError.h"
#include "base/Text.h"

namespace fs = std::filesystem;

namespace qv::setgen {

namespace {

// The drawn picture's white lands at these luminances (cd/m²): brighter
// than an SDR white, as a phone exposes a club, with room above for the
// highlights an HDR display would show.
constexpr int hlgWhite = 300, pqWhite = 400;

// HDR10 as phones write it: a P3 mastering display of 1000 cd/m² and the
// light levels of the content.
const char* const hdr10Params =
    "hdr10=1:master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1):"
    "max-cll=1000,400";

// The drawn picture to the recording's pixel format and transfer.
std::string pixelFilter(const Picture& picture) {
    auto toHdr = [](const char* transfer, int white) {
        return cformat("format=yuv420p,zscale=tin=709:pin=709:min=709:rin=tv:t=%s:p=2020:m=2020_ncl:r=tv:npl=%d,"
                       "format=yuv420p10le",
                       transfer, white);
    };
    switch (picture.recording) {
        case Recording::hlg: return toHdr("arib-std-b67", hlgWhite);
        case Recording::pq: return toHdr("smpte2084", pqWhite);
        case Recording::wideSdr:
            return "format=yuv420p,zscale=tin=709:pin=709:min=709:rin=tv:t=2020_10:p=2020:m=2020_ncl:r=tv,"
                   "format=yuv420p10le";
        case Recording::untagged10:
        case Recording::unknownTransfer: return "format=yuv420p10le";
        case Recording::sdr: break;
    }
    return "format=yuv420p";
}

}  // namespace

const char* recordingName(Recording r) {
    switch (r) {
        case Recording::sdr: return "sdr";
        case Recording::hlg: return "hlg";
        case Recording::pq: return "pq";
        case Recording::wideSdr: return "bt2020-sdr";
        case Recording::untagged10: return "untagged-10bit";
        case Recording::unknownTransfer: return "unknown-transfer";
    }
    return "sdr";
}

std::string recordingFilter(const Picture& picture) {
    // A phone held upright draws its picture standing and stores it lying,
    // turned a quarter clockwise: the display rotation stands it up again.
    const std::string turn = picture.rotation == 90 ? "transpose=clock," : picture.rotation == 270 ? "transpose=cclock," : "";
    return turn + pixelFilter(picture);
}

std::vector<std::string> tenBitCodecArgs(const Picture& picture) {
    // One thread and no pool: the same input always gives the same bytes.
    std::string params = "log-level=error:pools=none:frame-threads=1";
    std::vector<std::string> tags;
    auto tag = [&](const char* primaries, const char* transfer, const char* matrix) {
        params += cformat(":colorprim=%s:transfer=%s:colormatrix=%s", primaries, transfer, matrix);
        tags = {"-color_primaries", primaries, "-color_trc", transfer, "-colorspace", matrix};
    };
    switch (picture.recording) {
        case Recording::hlg: tag("bt2020", "arib-std-b67", "bt2020nc"); break;
        case Recording::pq:
            tag("bt2020", "smpte2084", "bt2020nc");
            params += std::string(":") + hdr10Params;
            break;
        case Recording::wideSdr: tag("bt2020", "bt2020-10", "bt2020nc"); break;
        case Recording::unknownTransfer: tag("bt709", "log100", "bt709"); break;
        case Recording::untagged10:
        case Recording::sdr: break;
    }
    // A phone's weight: its bit rate held by the buffer, a key frame every GOP.
    const Grain& g = picture.grain;
    if (g.on()) {
        const int kbps = std::max(100, g.bitrateKbps);
        const int gop = std::max(1, static_cast<int>(std::lround(g.gopSeconds * picture.fpsNum / picture.fpsDen)));
        params += cformat(":bitrate=%d:vbv-maxrate=%d:vbv-bufsize=%d:keyint=%d:min-keyint=%d:scenecut=0:bframes=%d",
                          kbps, kbps * 6 / 5, kbps, gop, gop, std::max(0, g.bFrames));
    }
    std::vector<std::string> args = {"-c:v", "libx265", "-preset", "ultrafast", "-pix_fmt", "yuv420p10le",
                                     "-x265-params", params, "-tag:v", "hvc1"};
    args.insert(args.end(), tags.begin(), tags.end());
    return args;
}

Status writeRotation(const Ffmpeg& ffmpeg, const fs::path& file, const std::string& target, int degrees) {
    // ffmpeg 5 turns this tag into the display matrix only when copying.
    const fs::path temp = file.parent_path() / (".rotation-" + file.filename().string());
    Status s = ffmpeg.run({"-i", file.string(), "-map", "0", "-c", "copy", "-metadata:s:v:0",
                           "rotate=" + std::to_string(degrees), "-f", file.extension() == ".mov" ? "mov" : "mp4",
                           temp.string()},
                          target);
    std::error_code ec;
    if (s) fs::rename(temp, file, ec);
    fs::remove(temp, ec);
    if (s && ec) return Error{"Impossible d'écrire " + target + " : " + systemMessage(ec)};
    return s;
}

}  // namespace qv::setgen
