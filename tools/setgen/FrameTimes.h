// The frame times of a generated variable-rate phone clip: frames 33, 40 or
// 50 ms apart, the spacing drawn from the frame's index by a formula that
// the generator's ffmpeg expression evaluates the same way, so the planned
// length and the file agree to the sample.
//
// Header only, shared by the presets (the clip's length) and the encoder
// (the expression).
#pragma once

#include <string>

namespace qv::setgen::frametimes {

// Seconds between frame `n` and the next.
inline double spacing(long long n) {
    const long long k = (n * n * 31 + n * 17 + 5) % 97;
    return k < 32 ? 0.033 : k < 65 ? 0.040 : 0.050;
}

// Frames of a clip at most `seconds` long, and its exact length.
inline long count(double seconds, double* length = nullptr) {
    double t = 0;
    long n = 0;
    while (t + spacing(n) <= seconds) t += spacing(n++);
    if (length) *length = t;
    return n;
}

// The ffmpeg filters that give each frame its time (the same sum, in the
// same order), at a time base fine enough to keep them.
inline std::string filters() {
    return "settb=1/90000,setpts='st(3,ld(1));st(2,mod(N*N*31+N*17+5,97));"
           "st(1,ld(1)+if(lt(ld(2),32),0.033,if(lt(ld(2),65),0.040,0.050)));ld(3)/TB'";
}

}  // namespace qv::setgen::frametimes
