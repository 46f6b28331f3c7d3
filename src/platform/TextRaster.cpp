#include "platform/TextRaster.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <algorithm>
#include <cmath>
#include <string>

namespace qv {

namespace {

struct LibraryCloser {
    void operator()(FT_Library l) const { FT_Done_FreeType(l); }
};
struct FaceCloser {
    void operator()(FT_Face f) const { FT_Done_Face(f); }
};
using LibraryPtr = std::unique_ptr<std::remove_pointer_t<FT_Library>, LibraryCloser>;
using FacePtr = std::unique_ptr<std::remove_pointer_t<FT_Face>, FaceCloser>;

// Code points of a UTF-8 string; malformed sequences are dropped.
std::u32string decodeUtf8(std::string_view s) {
    std::u32string out;
    size_t i = 0;
    while (i < s.size()) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        int extra = c < 0x80 ? 0 : (c >> 5) == 0x6 ? 1 : (c >> 4) == 0xE ? 2 : (c >> 3) == 0x1E ? 3 : -1;
        if (extra < 0 || (extra > 0 && i + static_cast<size_t>(extra) >= s.size())) {
            ++i;
            continue;
        }
        char32_t cp = extra == 0 ? c : c & (0x3F >> extra);
        bool good = true;
        for (int k = 1; k <= extra; ++k) {
            unsigned char cc = static_cast<unsigned char>(s[i + k]);
            if ((cc & 0xC0) != 0x80) {
                good = false;
                break;
            }
            cp = (cp << 6) | (cc & 0x3F);
        }
        if (good) out.push_back(cp);
        i += good ? extra + 1 : 1;
    }
    return out;
}

}  // namespace

// Member order is teardown order: the face goes before its library.
struct TextRaster::Face {
    LibraryPtr library;
    FacePtr face;
};

TextRaster::TextRaster(std::unique_ptr<Face> face) : face_(std::move(face)) {}
TextRaster::TextRaster(TextRaster&&) noexcept = default;
TextRaster& TextRaster::operator=(TextRaster&&) noexcept = default;
TextRaster::~TextRaster() = default;

Result<TextRaster> TextRaster::open(const std::filesystem::path& font) {
    auto f = std::make_unique<Face>();
    FT_Library lib = nullptr;
    if (FT_Init_FreeType(&lib) != 0) return Error{"Impossible de préparer le rendu du texte."};
    f->library.reset(lib);
    FT_Face face = nullptr;
    if (FT_New_Face(lib, font.c_str(), 0, &face) != 0)
        return Error{"Impossible de lire la police " + font.filename().string() + "."};
    f->face.reset(face);
    return TextRaster(std::move(f));
}

TextCoverage TextRaster::render(std::string_view utf8, double pixelSize) {
    TextCoverage out;
    std::u32string text = decodeUtf8(utf8);
    if (text.empty() || !(pixelSize >= 1) || !face_) return out;
    FT_Face face = face_->face.get();
    if (FT_Set_Char_Size(face, 0, static_cast<FT_F26Dot6>(std::lround(pixelSize * 64)), 72, 72) != 0) return out;

    const FT_Size_Metrics& m = face->size->metrics;
    int ascender = static_cast<int>((m.ascender + 63) >> 6);
    int descender = static_cast<int>(-((-m.descender + 63) >> 6));
    out.height = ascender - descender;
    out.baseline = ascender;

    // Two passes: one to measure the line, one to draw it.
    struct Placed {
        int left;  // pixels from the pen origin of the line
        FT_UInt glyph;
    };
    std::vector<Placed> placed;
    long pen = 0;  // 26.6
    int minX = 0, maxX = 0;
    for (char32_t cp : text) {
        FT_UInt glyph = FT_Get_Char_Index(face, cp);
        if (FT_Load_Glyph(face, glyph, FT_LOAD_DEFAULT) != 0) continue;
        int x = static_cast<int>(pen >> 6);
        int left = x + static_cast<int>(face->glyph->metrics.horiBearingX >> 6);
        int right = x + static_cast<int>((face->glyph->metrics.horiBearingX + face->glyph->metrics.width + 63) >> 6);
        placed.push_back({x, glyph});
        minX = std::min(minX, left);
        maxX = std::max({maxX, right, static_cast<int>((pen + face->glyph->advance.x + 63) >> 6)});
        pen += face->glyph->advance.x;
    }
    out.width = maxX - minX;
    if (out.empty()) return TextCoverage{};
    out.pixels.assign(static_cast<size_t>(out.width) * out.height, 0);

    for (const Placed& p : placed) {
        if (FT_Load_Glyph(face, p.glyph, FT_LOAD_RENDER) != 0) continue;
        const FT_Bitmap& bm = face->glyph->bitmap;
        if (bm.pixel_mode != FT_PIXEL_MODE_GRAY) continue;
        int x0 = p.left - minX + face->glyph->bitmap_left;
        int y0 = out.baseline - face->glyph->bitmap_top;
        for (unsigned r = 0; r < bm.rows; ++r) {
            int y = y0 + static_cast<int>(r);
            if (y < 0 || y >= out.height) continue;
            const unsigned char* src = bm.buffer + static_cast<long>(r) * bm.pitch;
            for (unsigned c = 0; c < bm.width; ++c) {
                int x = x0 + static_cast<int>(c);
                if (x < 0 || x >= out.width) continue;
                uint8_t& dst = out.pixels[static_cast<size_t>(y) * out.width + x];
                dst = std::max(dst, static_cast<uint8_t>(src[c]));
            }
        }
    }
    return out;
}

}  // namespace qv
