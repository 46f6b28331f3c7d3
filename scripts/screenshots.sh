#!/usr/bin/env bash
# Screenshots of the interface over generated sets, on a virtual X server,
# as PNG files in out/screenshots/. Builds what it needs first.
#
#   bash scripts/screenshots.sh
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
out=$root/out/screenshots
sets=$out/sets
mkdir -p "$out" "$sets"

export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$(dirname "$root")}
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build --target quorvel-setgen quorvel-uipreview

# Everything the program stores stays inside the screenshot folder.
export QUORVEL_PROJECTS_DIR=$out/projects
export XDG_CONFIG_HOME=$out/config XDG_STATE_HOME=$out/state
export LC_ALL=${SCREENSHOT_LOCALE:-fr_FR.UTF-8}

make_set() {  # preset seed name
  [ -f "$sets/$3/truth.json" ] || build/tools/quorvel-setgen --preset "$1" --seed "$2" "$sets/$3" >/dev/null
}
make_set eight 7 eight
make_set demo 7 demo

width=1600 height=1000
display=:${SCREENSHOT_DISPLAY:-87}
Xvfb "$display" -screen 0 ${width}x${height}x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
trap 'kill $xvfb 2>/dev/null || true' EXIT
export DISPLAY=$display QT_QPA_PLATFORM=xcb
for _ in $(seq 50); do xdpyinfo -display "$display" >/dev/null 2>&1 && break; sleep 0.1; done

# shot <file name> <program and arguments...>: runs the program until it
# says "prêt", photographs the whole screen, then ends it.
shot() {
  local name=$1
  shift
  local log=$out/.$name.log
  "$@" >"$log" 2>&1 &
  local pid=$!
  for _ in $(seq 600); do
    grep -q "prêt" "$log" 2>/dev/null && break
    kill -0 $pid 2>/dev/null || { cat "$log" >&2; echo "échec : $name" >&2; return 1; }
    sleep 0.1
  done
  import -window root "$out/$name.png"
  kill $pid 2>/dev/null || true
  wait $pid 2>/dev/null || true
  rm -f "$log"
  echo "$out/$name.png"
}

preview=build/tools/quorvel-uipreview
size=--taille
shot workspace-8-cameras-zoom $preview "$sets/eight" $size ${width}x${height} --zoom-plan --temps 20
shot vertical-9-16-crop $preview "$sets/eight" $size ${width}x${height} --format 9:16 --temps 55 --cadrage 0.6,0
shot timeline-drop-range $preview "$sets/demo" $size ${width}x${height} --drop 0

# The side panels over the application model, on the demo set. Each shot
# starts from a fresh project and settings (the synchronisation stays
# cached), so no shot inherits the grade, crop or export target of another.
cmake --build build --target quorvel-panelpreview >/dev/null
panels=build/tools/quorvel-panelpreview
panel_shot() {  # name, then arguments
  local name=$1
  shift
  rm -f "$QUORVEL_PROJECTS_DIR"/projet-*.json "$XDG_CONFIG_HOME/quorvel/settings.json"
  shot "$name" $panels "$sets/demo" $size ${width}x${height} "$@"
}
for panel in son effets drops auto recadrage export parametres; do
  panel_shot panel-$panel --panneau $panel
done
panel_shot panel-etalonnage-forte-cam-2 --panneau etalo --camera 2 --etalo-fort
panel_shot panel-recadrage-9-16 --panneau recadrage --format 9:16 --camera 2 --cadrage 0.5
panel_shot panel-export-video-en-cours --panneau export --export-en-cours 0.42
