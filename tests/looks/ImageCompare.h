// Comparing pictures in the look tests: the largest difference of any
// channel of any pixel.
#pragma once

#include <algorithm>
#include <cmath>

#include "looks/Image.h"

namespace qv {

inline float maxDifference(const Image& a, const Image& b) {
    float m = 0;
    for (size_t i = 0; i < a.size(); ++i) m = std::max(m, std::abs(a.data()[i] - b.data()[i]));
    return m;
}

}  // namespace qv
