// One line of text rasterised with FreeType into an 8-bit coverage image.
//
// A TextRaster owns its FreeType library and face and is not shared between
// threads: make one where it is needed (opening a face costs about a
// millisecond, and callers cache what they render). The size is the em
// height in pixels and may be fractional. FreeType stays inside the .cpp.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>
#include <vector>

#include "base/Result.h"

namespace qv {

// Coverage of a line of text: 0 outside the glyphs, 255 inside. Row 0 is the
// top. `height` spans the face's ascender to its descender, so lines of the
// same size share a height whatever their letters.
struct TextCoverage {
    int width = 0;
    int height = 0;
    int baseline = 0;  // rows from the top row to the baseline
    std::vector<uint8_t> pixels;  // width × height

    bool empty() const { return width <= 0 || height <= 0; }
};

class TextRaster {
public:
    // The bold monospaced face the picture stamps use.
    static constexpr const char* kStampFont = "/usr/share/fonts/truetype/dejavu/DejaVuSansMono-Bold.ttf";

    // Fails with a French message when the file is missing or not a font.
    static Result<TextRaster> open(const std::filesystem::path& font = kStampFont);

    TextRaster(TextRaster&&) noexcept;
    TextRaster& operator=(TextRaster&&) noexcept;
    ~TextRaster();

    // UTF-8 text on one line, no kerning, characters the face lacks drawn as
    // its missing-glyph box. Invalid bytes are skipped. Empty coverage for an
    // empty string or a size below one pixel.
    TextCoverage render(std::string_view utf8, double pixelSize);

private:
    struct Face;
    explicit TextRaster(std::unique_ptr<Face> face);
    std::unique_ptr<Face> face_;
};

}  // namespace qv
