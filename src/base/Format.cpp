#include "base/Format.h"

#include <algorithm>
#include <cmath>

#include "base/Text.h"

namespace qv::Format {

namespace {
// Whole seconds for the forms that round; a NaN or negative time shows 0.
long long wholeSeconds(double t, double (*rounding)(double)) {
    if (!(t > 0)) return 0;
    return static_cast<long long>(rounding(t));
}
}  // namespace

std::string timecode(double t) {
    long long s = wholeSeconds(t, std::floor);
    if (s < 3600) return cformat("%lld:%02lld", s / 60, s % 60);
    return cformat("%lld:%02lld:%02lld", s / 3600, (s / 60) % 60, s % 60);
}

std::string duration(double t) {
    long long s = std::isfinite(t) ? std::llround(t) : 0;
    if (s < 60) return cformat("%lld s", s);
    if (s < 3600) return cformat("%lld min", s / 60);
    return cformat("%lld h %02lld", s / 3600, (s / 60) % 60);
}

std::string fileTime(double t) {
    long long s = wholeSeconds(t, std::round);
    if (s < 3600) return cformat("%lldm%02lld", s / 60, s % 60);
    return cformat("%lldh%02lldm%02lld", s / 3600, (s / 60) % 60, s % 60);
}

std::string countdown(double t) {
    long long s = wholeSeconds(t, std::ceil);
    return cformat("%lld:%02lld", s / 60, s % 60);
}

std::string percent(double fraction) {
    const double held = fraction > 0 ? std::min(fraction, 1.0) : 0.0;
    return cformat("%d %%", static_cast<int>(std::floor(held * 100 + 1e-9)));
}

}  // namespace qv::Format
