#!/usr/bin/env bash
# Sets everything up, builds, and runs every test three ways: the plain
# build, the same suite under AddressSanitizer and UndefinedBehaviorSanitizer
# (build-asan/), and each fuzz target over its seed corpus (build-fuzz/,
# clang). All three run even when one fails; the exit status is non-zero
# when any did. Arguments go to the plain suite's ctest.
set -uo pipefail
cd "$(dirname "$0")/.."
export CCACHE_BASEDIR="$PWD"
# Objects are shared between checkouts: the build folder's name must not count.
export CCACHE_NOHASHDIR=1
jobs="$(nproc)"

bash scripts/setup.sh || exit 1
bash scripts/build.sh || exit 1

failed=()

# Any report of either sanitizer fails the test that showed it.
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
export LSAN_OPTIONS="suppressions=$PWD/tests/sanitizers/lsan.supp:print_suppressions=0"

echo "== Tests sous AddressSanitizer et UndefinedBehaviorSanitizer (build-asan)"
if cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUORVEL_SANITIZE=address,undefined \
        -DQUORVEL_UI=OFF -DQUORVEL_BENCH=OFF >/dev/null &&
    cmake --build build-asan -j "$jobs"; then
    (cd build-asan && ctest --output-on-failure -j "$jobs") || failed+=("sanitizers")
else
    failed+=("sanitizers (construction)")
fi

echo "== Cibles de fuzzing sur leurs graines (build-fuzz)"
if CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUORVEL_FUZZ=ON \
        -DQUORVEL_TESTS=OFF -DQUORVEL_UI=OFF -DQUORVEL_BENCH=OFF >/dev/null &&
    cmake --build build-fuzz -j "$jobs" --target fuzz_all; then
    (cd build-fuzz && ctest --output-on-failure -j "$jobs") || failed+=("fuzzing")
else
    failed+=("fuzzing (construction)")
fi

# The Debian package, installed as a user would, then checked by the
# installed program itself over the sets the self check's fixture made.
echo "== Paquet Debian (build)"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
if (cd build && cpack -G DEB >/dev/null) && deb="$(ls build/quorvel_*.deb | head -n 1)" &&
    dpkg-deb --info "$deb" | grep -E '^ (Package|Version|Depends):' &&
    $SUDO env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --reinstall "./$deb" >/dev/null &&
    appstreamcli validate --no-net /usr/share/metainfo/org.quorvel.Quorvel.metainfo.xml &&
    desktop-file-validate /usr/share/applications/org.quorvel.Quorvel.desktop; then
    sets="$(mktemp -d)"
    build/tools/quorvel-setgen --preset tiny --seed 11 "$sets/tiny" >/dev/null &&
        /usr/bin/quorvel --selftest "$sets" || failed+=("paquet (autotest du programme installé)")
    rm -rf "$sets"
else
    failed+=("paquet (construction ou installation)")
fi

# Debian's policy checker on the package: any error (E:) or warning (W:)
# fails the run, and so does lintian failing to run at all.
echo "== lintian (build)"
if deb="$(ls build/quorvel_*.deb 2>/dev/null | head -n 1)" && [ -n "$deb" ]; then
    report="$(lintian --tag-display-limit 0 --fail-on error,warning "$deb" 2>&1)"
    code=$?
    [ -n "$report" ] && echo "$report"
    if [ "$code" -ne 0 ] || grep -q '^[EW]: ' <<<"$report"; then failed+=("lintian"); fi
else
    failed+=("lintian (pas de paquet)")
fi

echo "== Tests (build)"
(cd build && ctest --output-on-failure -j "$jobs" "$@") || failed+=("tests")

if [ "${#failed[@]}" -gt 0 ]; then
    echo "ÉCHEC : ${failed[*]}"
    exit 1
fi
