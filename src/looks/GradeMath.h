// The colour maths of a grade: one gamma-encoded sRGB triple in, the graded
// triple out, and the same maths baked into a 3D table.
//
// The pass, in order: white balance and exposure in linear light, a
// per-channel tone curve (contrast, highlights, shadows, whites, blacks),
// saturation, the grade's LUT mixed by `lutIntensity`, faded film, vibrance,
// creative saturation, split tints and colour wheels, then a clamp to 0..1.
// Every step whose parameter is neutral is skipped, so the neutral grade
// returns its input. Image-filter fields (sharpen, vignette, texture, grain)
// are ignored here.
//
// Stateless and pure apart from loading the grade's LUT through the look
// library (which has its own lock); may run on any thread. The per-pixel
// maths is meant for baking, never per frame: a 33-point cube takes about a
// millisecond because the per-channel part is computed once per grid
// coordinate and the per-grade constants once per bake.
#pragma once

#include <vector>

#include "looks/ColorGrade.h"
#include "looks/CubeLUT.h"

namespace qv::GradeMath {

// The size of every cube the program bakes: frame filter, LUT beside an
// XML export, "Exporter en .cube".
inline constexpr int kCubeSize = 33;

// Grades one colour. `lut` is the grade's LUT already loaded by the caller,
// or null for none; `grade.lut` itself is not looked at.
Rgb apply(double r, double g, double b, const ColorGrade& grade, const CubeLUT* lut = nullptr);

// The grade as raw data for a colour-cube filter: size³ entries of red,
// green, blue, alpha (= 1), blue the outer loop and red the inner one, each
// input coordinate index / (size - 1). The grade's LUT is loaded from the
// look library first; a name that does not load is ignored. `size` is
// clamped to 2..128.
std::vector<float> cubeData(const ColorGrade& grade, int size);

// The same walk as a CubeLUT with three numbers per entry.
CubeLUT cubeLUT(const ColorGrade& grade, int size);

}  // namespace qv::GradeMath
