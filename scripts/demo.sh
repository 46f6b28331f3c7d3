#!/usr/bin/env bash
# Sets everything up, builds, makes the built-in demo set (a generated club
# set: 4 cameras, 2 recorders) and opens the program on it, which reads and
# synchronises it. Where no display exists, runs the whole command-line road
# instead: listing, synchronisation, drops, automatic edit, synchronised XML,
# then a hand-given montage in 9:16. Extra arguments go to the program
# (for example --demo or --demo-auto).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh
mkdir -p out
if [ ! -f out/demo-set/truth.json ]; then
  rm -rf out/demo-set
  ./build/tools/quorvel-setgen --preset demo --seed 7 out/demo-set
fi
if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ] && [ -z "${QUORVEL_DEMO_CLI:-}" ]; then
  exec ./build/src/quorvel --open out/demo-set "$@"
fi
echo "Pas d'écran : la chaîne complète en ligne de commande."
./build/src/quorvel --cli out/demo-set out/demo-sync.xml --drops --auto
echo
./build/src/quorvel --cli out/demo-set out/demo-montage.xml \
  --montage "20:1,40:2,60:3,80:4,100:1,120:2" --range 10-150 --effets --son-camera --format 9:16 \
  | tail -n 2
