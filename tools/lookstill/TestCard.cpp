#include "TestCard.h"

#include <algorithm>
#include <cmath>

#include "looks/ImageOps.h"
#include "platform/TextRaster.h"

namespace qv {

namespace {

void fillRect(Image& img, double x0, double y0, double x1, double y1, Rgba c) {
    const int ax = std::clamp(int(std::lround(x0)), 0, img.width()), bx = std::clamp(int(std::lround(x1)), 0, img.width());
    const int ay = std::clamp(int(std::lround(y0)), 0, img.height()), by = std::clamp(int(std::lround(y1)), 0, img.height());
    for (int y = ay; y < by; ++y)
        for (int x = ax; x < bx; ++x) {
            float* p = img.row(y) + x * 4;
            p[0] = c.r, p[1] = c.g, p[2] = c.b, p[3] = 1;
        }
}

// An antialiased disc, drawn over what is there.
void disc(Image& img, double cx, double cy, double r, Rgba c) {
    for (int y = std::max(0, int(cy - r - 2)); y < std::min(img.height(), int(cy + r + 2)); ++y)
        for (int x = std::max(0, int(cx - r - 2)); x < std::min(img.width(), int(cx + r + 2)); ++x) {
            const float cover = float(std::clamp(r + 0.5 - std::hypot(x + 0.5 - cx, y + 0.5 - cy), 0.0, 1.0));
            float* p = img.row(y) + x * 4;
            p[0] += (c.r - p[0]) * cover;
            p[1] += (c.g - p[1]) * cover;
            p[2] += (c.b - p[2]) * cover;
        }
}

}  // namespace

Image testCard(int width, int height, double shift) {
    Image img = Image::filled(width, height, {0.18f, 0.18f, 0.18f, 1});
    const double w = width, h = height, k = h / 1080;

    // Bars at 75 %: white, yellow, cyan, green, magenta, red, blue.
    const Rgba bars[] = {{0.75f, 0.75f, 0.75f, 1}, {0.75f, 0.75f, 0, 1}, {0, 0.75f, 0.75f, 1}, {0, 0.75f, 0, 1},
                         {0.75f, 0, 0.75f, 1},     {0.75f, 0, 0, 1},     {0, 0, 0.75f, 1}};
    for (int i = 0; i < 7; ++i) fillRect(img, w * i / 7, 0, w * (i + 1) / 7, h * 0.3, bars[i]);

    // A grey ramp from black to white.
    for (int y = int(h * 0.3); y < int(h * 0.38); ++y)
        for (int x = 0; x < width; ++x) std::fill_n(img.row(y) + x * 4, 3, float(x) / (width - 1));

    // Skin, foliage, sky and neutral patches.
    const Rgba patches[] = {{0.45f, 0.32f, 0.27f, 1}, {0.76f, 0.58f, 0.50f, 1}, {0.36f, 0.42f, 0.24f, 1},
                            {0.38f, 0.48f, 0.61f, 1}, {0.85f, 0.47f, 0.17f, 1}, {0.28f, 0.35f, 0.65f, 1},
                            {0.95f, 0.95f, 0.95f, 1}, {0.05f, 0.05f, 0.05f, 1}};
    for (int i = 0; i < 8; ++i) fillRect(img, w * i / 8 + 8 * k, h * 0.82, w * (i + 1) / 8 - 8 * k, h * 0.97, patches[i]);

    // Left: fine lines getting closer, for sharpening and blur.
    for (int x = int(w * 0.03); x < int(w * 0.33); ++x) {
        const double u = (x - w * 0.03) / (w * 0.3);
        const float v = std::sin(x * (0.05 + u * 1.2)) > 0 ? 0.9f : 0.1f;
        for (int y = int(h * 0.42); y < int(h * 0.78); ++y) std::fill_n(img.row(y) + x * 4, 3, v);
    }

    // Right: a night field with small lights, and a moving white ball.
    fillRect(img, w * 0.62, h * 0.42, w * 0.97, h * 0.78, {0.02f, 0.02f, 0.05f, 1});
    const Rgba lights[] = {{1, 0.9f, 0.6f, 1}, {0.6f, 0.8f, 1, 1}, {1, 0.4f, 0.5f, 1}, {1, 1, 1, 1}};
    for (int i = 0; i < 12; ++i)
        disc(img, w * (0.65 + 0.027 * i), h * (0.47 + 0.05 * (i % 3)), (3 + 3 * (i % 3)) * k, lights[i % 4]);
    const double ballX = w * 0.66 + std::fmod(shift, w * 0.28);
    disc(img, ballX, h * 0.7, 30 * k, {0.95f, 0.95f, 0.95f, 1});

    // Centre: a circle and the card's name.
    disc(img, w * 0.475, h * 0.6, h * 0.17, {0.7f, 0.3f, 0.25f, 1});
    disc(img, w * 0.475, h * 0.6, h * 0.15, {0.3f, 0.5f, 0.7f, 1});
    if (auto raster = TextRaster::open()) {
        const Image name = ImageOps::textImage(raster->render("MIRE QUORVEL", 40 * k), 0);
        ImageOps::compositeOver(img, name, int(w * 0.475 - name.width() / 2.0), int(h * 0.6 - name.height() / 2.0));
    }
    return img;
}

}  // namespace qv
