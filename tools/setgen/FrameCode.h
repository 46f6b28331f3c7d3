// The frame code burnt into every camera picture of a generated set: a strip
// along the top edge of 32 cells, each white for a 1 and black for a 0, large
// enough to survive H.264 compression and a rescale. Cells 0 and 1 are a
// white and a black marker; then 4 bits of camera number, 5 of clip number
// and 21 of frame index within the file, least significant bit first.
//
// Header only, so the generator that draws the code and the tests that read
// it back from decoded frames share one layout.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace qv::setgen::framecode {

constexpr int cells = 32;
constexpr int cameraBits = 4, clipBits = 5, frameBits = 21;
constexpr int cameraCell = 2, clipCell = cameraCell + cameraBits, frameCell = clipCell + clipBits;

// Height of the strip for a picture `height` high.
inline int stripHeight(int height) { return height / 12 > 4 ? height / 12 : 4; }

struct Code {
    int camera = 0;
    int clip = 0;
    long frame = 0;
    bool operator==(const Code&) const = default;
};

// The ffmpeg `geq` luma expression of the strip drawn `cells` pixels wide
// (then scaled up), for the file of `camera` and `clip`; N is the frame index.
inline std::string geqExpression(int camera, int clip) {
    auto bit = [](const std::string& value, int first) {
        return "mod(floor(" + value + "/pow(2,X-" + std::to_string(first) + ")),2)";
    };
    return "255*if(eq(X,0),1,if(eq(X,1),0,if(lt(X," + std::to_string(clipCell) + ")," +
           bit(std::to_string(camera), cameraCell) + ",if(lt(X," + std::to_string(frameCell) + ")," +
           bit(std::to_string(clip), clipCell) + "," + bit("N", frameCell) + "))))";
}

// Reads the code of a decoded picture (8-bit RGBA rows, `stride` bytes
// apart) whose top-left `width` × `height` area shows the camera picture at
// its size. Nothing when the markers are not where they belong.
inline std::optional<Code> read(const uint8_t* rgba, int width, int height, int stride) {
    const int strip = stripHeight(height);
    auto cell = [&](int k) {
        // The middle half of the cell, away from the blur of its edges.
        const double w = static_cast<double>(width) / cells;
        const int x0 = static_cast<int>(w * k + w * 0.3), x1 = static_cast<int>(w * k + w * 0.7);
        const int y0 = strip / 4, y1 = strip * 3 / 4;
        long sum = 0, n = 0;
        for (int y = y0; y <= y1; ++y)
            for (int x = x0; x <= x1; ++x, ++n) sum += rgba[static_cast<size_t>(y) * stride + x * 4 + 1];
        return n ? sum / n : 0;
    };
    if (cell(0) < 160 || cell(1) > 96) return std::nullopt;
    auto value = [&](int first, int count) {
        long v = 0;
        for (int b = 0; b < count; ++b)
            if (cell(first + b) >= 128) v |= 1L << b;
        return v;
    };
    return Code{static_cast<int>(value(cameraCell, cameraBits)), static_cast<int>(value(clipCell, clipBits)),
                value(frameCell, frameBits)};
}

}  // namespace qv::setgen::framecode
