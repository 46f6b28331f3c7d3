#!/usr/bin/env bash
# Sets everything up, builds, and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh
cd build
ctest --output-on-failure -j "$(nproc)" "$@"
