#include "looks/Image.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace qv {

Image::Image(int width, int height, std::unique_ptr<float[]> pixels)
    : width_(std::max(width, 0)), height_(std::max(height, 0)), pixels_(std::move(pixels)) {}

Image::Image(int width, int height)
    : Image(width, height, std::make_unique<float[]>(static_cast<size_t>(std::max(width, 0)) * std::max(height, 0) * 4)) {}

Image Image::uninitialized(int width, int height) {
    size_t n = static_cast<size_t>(std::max(width, 0)) * std::max(height, 0) * 4;
    return Image(width, height, std::make_unique_for_overwrite<float[]>(n));
}

Image Image::filled(int width, int height, Rgba c) {
    Image img = uninitialized(width, height);
    float* p = img.data();
    for (size_t i = 0; i < img.size(); i += 4) {
        p[i] = c.r * c.a;
        p[i + 1] = c.g * c.a;
        p[i + 2] = c.b * c.a;
        p[i + 3] = c.a;
    }
    return img;
}

Image Image::fromRgba8(const uint8_t* pixels, int width, int height, int stride) {
    Image img;
    img.assignRgba8(pixels, width, height, stride);
    return img;
}

void Image::assignRgba8(const uint8_t* pixels, int width, int height, int stride) {
    if (width != width_ || height != height_ || !pixels_) *this = uninitialized(width, height);
    for (int y = 0; y < height_; ++y) {
        const uint8_t* s = pixels + static_cast<ptrdiff_t>(y) * stride;
        float* d = row(y);
        for (int x = 0; x < width_; ++x, s += 4, d += 4) {
            float a = s[3] / 255.0f;
            d[0] = s[0] / 255.0f * a;
            d[1] = s[1] / 255.0f * a;
            d[2] = s[2] / 255.0f * a;
            d[3] = a;
        }
    }
}

std::vector<uint8_t> Image::toRgba8() const {
    std::vector<uint8_t> out(size());
    auto quantise = [](float v) {
        return static_cast<uint8_t>(std::lround(std::clamp(v, 0.0f, 1.0f) * 255.0f));
    };
    const float* p = data();
    for (size_t i = 0; i < size(); i += 4) {
        float a = p[i + 3];
        float inv = a > 0 ? 1.0f / a : 0.0f;
        out[i] = quantise(p[i] * inv);
        out[i + 1] = quantise(p[i + 1] * inv);
        out[i + 2] = quantise(p[i + 2] * inv);
        out[i + 3] = quantise(a);
    }
    return out;
}

Image::Image(const Image& other) : Image(uninitialized(other.width_, other.height_)) {
    if (other.size()) std::memcpy(data(), other.data(), size() * sizeof(float));
}

Image& Image::operator=(const Image& other) {
    if (this != &other) *this = Image(other);
    return *this;
}

Rgba Image::pixel(int x, int y) const {
    const float* p = row(y) + static_cast<size_t>(x) * 4;
    return {p[0], p[1], p[2], p[3]};
}

bool Image::operator==(const Image& other) const {
    return width_ == other.width_ && height_ == other.height_ &&
           (size() == 0 || std::memcmp(data(), other.data(), size() * sizeof(float)) == 0);
}

}  // namespace qv
