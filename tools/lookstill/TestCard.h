// A generated test card for looking at the frame filter: colour bars, a grey
// ramp, skin and sky patches, fine lines, and small bright lights on a dark
// field (they show a lens blur's discs). `shift` moves the moving parts
// right, in pixels, so successive frames make motion for the shutter trail.
#pragma once

#include "looks/Image.h"

namespace qv {

Image testCard(int width, int height, double shift = 0);

}  // namespace qv
