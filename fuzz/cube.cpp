// Any bytes as a .cube file: a table that reads can be sampled anywhere and
// written and read back with the same size.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "looks/CubeLUT.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    auto lut = qv::CubeLUT::parse(std::string_view(reinterpret_cast<const char*>(data), size));
    if (!lut) return 0;
    for (double v : {-1.0, 0.0, 0.37, 1.0, 2.0}) {
        qv::Rgb c = lut->sample(v, 1 - v, v * v);
        if (!std::isfinite(c.r) || !std::isfinite(c.g) || !std::isfinite(c.b)) std::abort();
    }
    auto again = qv::CubeLUT::parse(lut->text("fuzz"));
    if (!again || again->size != lut->size) std::abort();
    return 0;
}
