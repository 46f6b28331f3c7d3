#!/usr/bin/env bash
# Installs every Debian package Quorvel needs to build, test and run.
# Safe to run again: apt-get skips what is already there.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config git ccache
  libavformat-dev libavcodec-dev libavutil-dev libswresample-dev libswscale-dev libavfilter-dev
  ffmpeg
  libfftw3-dev libfftw3-bin
  libopencv-core-dev libopencv-imgproc-dev
  libfreetype-dev fonts-dejavu-core
  fonts-inter fonts-b612 fonts-material-design-icons-iconfont
  x11-utils
  nlohmann-json3-dev libpugixml-dev libexpat1-dev
  libgtest-dev googletest
  clang-14 libfuzzer-14-dev libclang-rt-14-dev
  qt6-base-dev qt6-multimedia-dev
  desktop-file-utils xvfb xauth imagemagick
  libzimg-dev libebur128-dev
  melt appstream dpkg-dev
  libcli11-dev lintian man-db bash-completion
  locales
)

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ "${#missing[@]}" -gt 0 ]; then
  echo "Installation de : ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The tests run once under a French locale to prove numbers in files ignore it.
if ! locale -a 2>/dev/null | grep -qi '^fr_FR\.utf-\?8$'; then
  $SUDO sed -i 's/^# *fr_FR.UTF-8 UTF-8/fr_FR.UTF-8 UTF-8/' /etc/locale.gen
  grep -q '^fr_FR.UTF-8 UTF-8' /etc/locale.gen || echo 'fr_FR.UTF-8 UTF-8' | $SUDO tee -a /etc/locale.gen >/dev/null
  $SUDO locale-gen >/dev/null
fi

# Measured FFT plans for the sizes the synchronisation uses (2^16 to 2^24
# points), made once per machine with FFTW's own tool; every run then reads
# them. Without them the transforms still work, about half as fast.
# `--patient` plans the large inverse transforms (one per pair of files)
# again, far longer (some twenty minutes), for up to 1.6 times faster ones.
patient=0
for arg in "$@"; do
  case "$arg" in
    --patient) patient=1 ;;
    *) echo "usage : setup.sh [--patient]" >&2; exit 1 ;;
  esac
done
cache_home="${XDG_CACHE_HOME:-}"
case "$cache_home" in /*) ;; *) cache_home="$HOME/.cache" ;; esac
wisdom="$cache_home/quorvel/fftw-wisdom"
if [ ! -s "$wisdom" ] || [ "$patient" = 1 ]; then
  mkdir -p "$(dirname "$wisdom")"
  measured=()
  patiently=()
  for k in $(seq 16 24); do
    measured+=("rif$((1 << k))")
    if [ "$patient" = 1 ] && [ "$k" -ge 20 ]; then patiently+=("rib$((1 << k))"); else measured+=("rib$((1 << k))"); fi
  done
  if [ "$patient" = 1 ]; then
    echo "Mesure patiente des transformées de Fourier de cette machine (vingt minutes environ)…"
  else
    echo "Mesure des transformées de Fourier de cette machine (une seule fois, environ deux minutes)…"
  fi
  if fftwf-wisdom -n -m -o "$wisdom.tmp" "${measured[@]}"; then
    mv "$wisdom.tmp" "$wisdom"
  else
    rm -f "$wisdom.tmp"
    echo "Mesure impossible : les transformées seront estimées, plus lentes." >&2
  fi
  if [ "${#patiently[@]}" -gt 0 ] && [ -s "$wisdom" ]; then
    if fftwf-wisdom -n -w "$wisdom" -o "$wisdom.tmp" "${patiently[@]}"; then
      mv "$wisdom.tmp" "$wisdom"
    else
      rm -f "$wisdom.tmp"
    fi
  fi
fi
