// Single pictures in and out of files: one decoded video frame, one PNG.
//
// Pixels are 8-bit RGBA, rows from the top, no padding between rows. The
// frame is the stream's coded picture converted to RGB; a display rotation
// stored in the file is not applied. Any thread; nothing is shared.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "base/Result.h"

namespace qv::media {

struct RgbaFrame {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> pixels;  // width × height × 4
};

// The frame shown at `seconds` on the file's own time line: the last frame
// that starts at or before it (the first frame for earlier times, the last
// one past the end). Fails when the file has no video stream or nothing in
// it decodes.
Result<RgbaFrame> decodeVideoFrame(const std::filesystem::path& file, double seconds);

// Encodes the frame as PNG and replaces `file` atomically.
Status writePng(const std::filesystem::path& file, const RgbaFrame& frame);

}  // namespace qv::media
