// A picture of the frame chain: four floats per pixel, red, green, blue and
// alpha, with the colour premultiplied by alpha. Values keep the encoding of
// the incoming frame (gamma-encoded sRGB, normally 0..1), and every filter of
// the chain works on those values. Row 0 is the top of the picture; the
// chain's geometry, which measures y upward from the bottom edge, converts
// with `yUp`. An Image is a plain value: copying copies the pixels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace qv {

struct Rgba {
    float r = 0, g = 0, b = 0, a = 0;
    bool operator==(const Rgba&) const = default;
};

class Image {
public:
    Image() = default;
    // Transparent black.
    Image(int width, int height);
    // Pixels left as they are in memory; for outputs that are written whole.
    static Image uninitialized(int width, int height);
    // Every pixel `colour`, given with straight alpha.
    static Image filled(int width, int height, Rgba colour);

    // From 8-bit RGBA with straight alpha, `stride` bytes from row to row.
    static Image fromRgba8(const uint8_t* pixels, int width, int height, int stride);
    // The same into this picture, whose pixels are reused when the size
    // matches: a stream of frames fills one buffer instead of fresh pages.
    void assignRgba8(const uint8_t* pixels, int width, int height, int stride);
    // Back to 8-bit straight alpha, rounded and clamped, rows packed.
    std::vector<uint8_t> toRgba8() const;

    Image(const Image& other);
    Image& operator=(const Image& other);
    Image(Image&&) noexcept = default;
    Image& operator=(Image&&) noexcept = default;

    int width() const { return width_; }
    int height() const { return height_; }
    bool empty() const { return width_ <= 0 || height_ <= 0; }
    // Number of floats: width × height × 4.
    size_t size() const { return static_cast<size_t>(width_) * height_ * 4; }

    float* data() { return pixels_.get(); }
    const float* data() const { return pixels_.get(); }
    float* row(int y) { return pixels_.get() + static_cast<size_t>(y) * width_ * 4; }
    const float* row(int y) const { return pixels_.get() + static_cast<size_t>(y) * width_ * 4; }
    Rgba pixel(int x, int y) const;

    // The y of a row's centre measured upward from the bottom edge.
    double yUp(int row) const { return height_ - row - 0.5; }

    // Same size and the same floats, bit for bit.
    bool operator==(const Image& other) const;

private:
    Image(int width, int height, std::unique_ptr<float[]> pixels);

    int width_ = 0;
    int height_ = 0;
    std::unique_ptr<float[]> pixels_;
};

}  // namespace qv
