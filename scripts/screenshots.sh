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
cmake --build build --target quorvel-setgen quorvel

# Everything the program stores stays inside the screenshot folder, fresh each time.
rm -rf "$out/projects" "$out/config" "$out/state"
export QUORVEL_PROJECTS_DIR=$out/projects
export XDG_CONFIG_HOME=$out/config XDG_STATE_HOME=$out/state
export LC_ALL=${SCREENSHOT_LOCALE:-fr_FR.UTF-8}
# Exports land in the screenshot folder, never in the real downloads.
mkdir -p "$XDG_CONFIG_HOME" "$out/exports"
printf 'XDG_DOWNLOAD_DIR="%s"\n' "$out/exports" >"$XDG_CONFIG_HOME/user-dirs.dirs"

club="$sets/Zanbar Club 14-11"      # eight cameras, two recorders
warehouse="$sets/Warehouse b2b"     # the demo set: four cameras
external="$sets/Boiler Room (disque externe)"
make_set() {  # preset seed folder
  [ -f "$3/truth.json" ] || build/tools/quorvel-setgen --preset "$1" --seed "$2" "$3" >/dev/null 2>&1
}
make_set eight 7 "$club"
make_set demo 7 "$warehouse"
make_set tiny 7 "$external"

width=1600 height=1000
display=:${SCREENSHOT_DISPLAY:-87}
Xvfb "$display" -screen 0 ${width}x${height}x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
trap 'kill $xvfb 2>/dev/null || true' EXIT
export DISPLAY=$display QT_QPA_PLATFORM=xcb
for _ in $(seq 50); do xdpyinfo -display "$display" >/dev/null 2>&1 && break; sleep 0.1; done

# run <png name or -> <arguments...>: runs the program ($program, else
# quorvel itself) until it says "prêt",
# photographs the whole screen unless the name is "-", then ends it the way
# a closed window does.
run() {
  local name=$1
  shift
  local log=$out/.run.log
  ${program:-build/src/quorvel} --scene-pret --scene-taille ${width}x${height} "$@" >"$log" 2>&1 &
  local pid=$!
  for _ in $(seq 1200); do
    grep -q "prêt" "$log" 2>/dev/null && break
    kill -0 $pid 2>/dev/null || { cat "$log" >&2; echo "échec : $name" >&2; return 1; }
    sleep 0.1
  done
  if [ "$name" != - ]; then
    import -window root "$out/$name.png"
    echo "$out/$name.png"
  fi
  kill -TERM $pid 2>/dev/null || true
  wait $pid 2>/dev/null || true
  rm -f "$log"
}
# taken <png name>: a picture the program took of its own window (--capture…).
taken() {
  [ -s "$out/$1.png" ] || { echo "échec : $1 (pas de capture)" >&2; return 1; }
  echo "$out/$1.png"
}

# The start screen while the first synchronisation of a set runs, taken by
# the program itself: the demo set is synchronised in a second or two.
rm -f "$out/projects/"*.sync.json "$out/start-screen-syncing.png" 2>/dev/null || true
run - --open "$warehouse" --scene-synchro --scene-capture "$out/start-screen-syncing.png"
taken start-screen-syncing
# Three projects, the last on a disk that has gone.
run - --open "$external"
run - --open "$warehouse" --scene-auto
run workspace-8-cameras-zoom --open "$club" --scene-auto --scene-zoom-plan --scene-temps 20 --scene-lecture
rm -rf "$external"
run project-list-three-cards
run vertical-9-16-crop --open "$club" --scene-format 9:16 --scene-cadrage 0.6,0 --scene-temps 55
run timeline-drop-range --open "$warehouse" --scene-auto --scene-drop 1

# The side panels, in the panel preview (the workspace over the application
# model, each camera's picture through the look renderer). Each shot starts
# from a fresh project and settings (the synchronisation stays cached), so
# no shot inherits the grade, crop or export target of another.
cmake --build build --target quorvel-panelpreview >/dev/null
panel_shot() {  # png name, then arguments
  local name=$1
  shift
  rm -f "$QUORVEL_PROJECTS_DIR"/projet-*.json "$XDG_CONFIG_HOME/quorvel/settings.json"
  program=build/tools/quorvel-panelpreview run "$name" "$warehouse" "$@"
}
for panel in son effets drops auto recadrage export parametres; do
  panel_shot panel-$panel --panneau $panel
done
panel_shot panel-etalonnage-forte-cam-2 --panneau etalo --camera 2 --etalo-fort
panel_shot panel-etalonnage-roues --panneau etalo --camera 2 --etalo-fort --roues
panel_shot panel-recadrage-9-16 --panneau recadrage --format 9:16 --camera 2 --cadrage 0.5
# A phone first among seven 25 fps cameras, its second clip at a variable
# rate: the export panel's rate and warning; then a camera's picture moved
# two frames, in its row and in the sound panel.
phones="$sets/Phone au premier rang"
make_set rates 1 "$phones"
warehouse=$phones panel_shot panel-export-cadence --panneau export
warehouse=$phones panel_shot camera-decalage-image --panneau son --camera 3 --decalage 2
# A real video export of the whole set, photographed by the tool as it
# passes 40 %, then cancelled.
rm -f "$out/panel-export-video-en-cours.png"
panel_shot - --panneau export --capture "$out/panel-export-video-en-cours.png" --capture-quand-export 0.4
taken panel-export-video-en-cours
# The clips of the drops, photographed part-way through the first clip, then cancelled.
rm -f "$out/panel-drops-clips-en-cours.png"
panel_shot - --panneau drops --capture "$out/panel-drops-clips-en-cours.png" --capture-quand-export 0.1
taken panel-drops-clips-en-cours
# A panel in the program's own window.
run panel-effets-fenetre --open "$warehouse" --scene-auto --demo-effets
