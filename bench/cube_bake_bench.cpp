// Baking the 33-point cube of a strong grade, as every XML export with LUTs
// and every preview of a look does: milliseconds per cube, against the same
// 35 937 colours passed one by one through the grade's maths in this run.
// Usage: cube_bake_bench [cubes, default 20].
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "looks/GradeMath.h"

using namespace qv;

namespace {

const ColorGrade kStrong{.temperature = 40, .tint = -15, .exposure = 0.2, .contrast = 40, .highlights = -20,
                         .shadows = 20, .saturation = 130, .fadedFilm = 15, .vibrance = 20,
                         .highlightTint = {50, 0.6, 0}, .wheelShadows = {220, 0.5, 0}, .wheelMidtones = {30, 0.4, 5}};

template <typename F>
double msEach(int runs, F&& f) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < runs; ++i) f();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count() / runs;
}

}  // namespace

int main(int argc, char** argv) {
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 20;
    const int n = GradeMath::kCubeSize;
    volatile double sink = 0;
    const double reference = msEach(runs, [&] {
        double sum = 0;
        for (int i = 0; i < n * n * n; ++i)
            sum += GradeMath::apply(i % n / double(n - 1), i / n % n / double(n - 1), i / (n * n) / double(n - 1), kStrong).g;
        sink = sink + sum;
    });
    const double bake = msEach(runs, [&] { sink = sink + GradeMath::cubeData(kStrong, n)[4]; });
    double load[1] = {0};
    getloadavg(load, 1);
    std::printf("cube de %d points, %d cuissons, charge du système %.2f\n", n, runs, load[0]);
    std::printf("référence (les couleurs une à une) %8.2f ms\n", reference);
    std::printf("cuisson du cube                    %8.2f ms  (x%.2f de la référence)\n", bake, bake / reference);
    return 0;
}
