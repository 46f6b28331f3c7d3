#!/usr/bin/env bash
# Opens the program under a virtual X server on a set folder, waits for its
# synchronisation, saves a picture of the screen as PNG, then closes the
# window the way a window manager does (TERM) and checks a clean exit.
#   [SHOT_WAIT=s] bash scripts/screenshot.sh <set folder> <out.png> [more arguments for quorvel]
set -euo pipefail
cd "$(dirname "$0")/.."
set_dir=$(realpath "$1"); png=$(realpath -m "$2"); shift 2
exe=./build/src/quorvel
state=$(mktemp -d)
inner=$(mktemp)
cat > "$inner" <<'INNER'
set -euo pipefail
exe=$1; set_dir=$2; png=$3; state=$4; shift 4
XDG_STATE_HOME="$state" "$exe" --open "$set_dir" "$@" &
pid=$!
for _ in $(seq 1 600); do
  grep -q "Synchro :" "$state/Quorvel/journal.log" 2>/dev/null && break
  sleep 0.2
done
sleep ${SHOT_WAIT:-1.5}
import -window root "$png"
kill -TERM "$pid"
wait "$pid"
echo "quorvel s'est fermé avec le code $?"
INNER
xvfb-run -a -s "-screen 0 ${SCREEN:-1400x900}x24" bash "$inner" "$exe" "$set_dir" "$png" "$state" "$@"
cat "$state/Quorvel/journal.log"
rm -rf "$state" "$inner"
