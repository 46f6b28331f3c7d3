#!/usr/bin/env bash
# The workspace over a small generated set where a phone filmed in HLG
# (10-bit HEVC, BT.2020, held upright) and a PQ camera stand beside SDR
# cameras: what the monitors show of HDR footage.
#   bash scripts/hdr-screenshot.sh [out.png]
set -euo pipefail
cd "$(dirname "$0")/.."
png=$(realpath -m "${1:-out/screenshots/hdr-workspace.png}")
set_dir=out/sets/hdr-3
mkdir -p "$(dirname "$png")" out/sets
[ -f "$set_dir/truth.json" ] || build/tools/quorvel-setgen --preset hdr --seed 3 "$set_dir" >/dev/null
projects=$(mktemp -d)
trap 'rm -rf "$projects"' EXIT
QUORVEL_PROJECTS_DIR=$projects LC_ALL=fr_FR.UTF-8 bash scripts/screenshot.sh "$set_dir" "$png" --scene-temps 8  # every camera films at 8 s
