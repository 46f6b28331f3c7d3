#!/usr/bin/env bash
# Sets everything up, builds, makes the built-in demo set and runs the whole
# command-line road on it: listing, synchronisation, drops, XML.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh
mkdir -p out
if [ ! -f out/demo-set/truth.json ]; then
  ./build/tools/quorvel-setgen --preset demo --seed 7 out/demo-set
fi
./build/src/quorvel --cli out/demo-set out/demo.xml --drops "$@"
