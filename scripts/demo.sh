#!/usr/bin/env bash
# The echo canceller at work, in one command: installs whatever is missing of the Debian packages
# it needs (apt-get, as root or through sudo), builds the library and the command-line tool
# (Release), runs the demonstration conversation through the canceller and draws the result.
#   bash scripts/demo.sh [--rate 8000|16000]
# Writes out/demo/: mic.wav, ref.wav, near.wav, out.wav, trace.csv and demo.png.
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$repo"

die() {
  echo "demo.sh: $*" >&2
  exit 1
}

rate=16000
while [ $# -gt 0 ]; do
  case $1 in
    --rate) rate=${2:-}; shift 2 || die "--rate needs a value" ;;
    --rate=*) rate=${1#--rate=}; shift ;;
    *) die "unknown argument '$1' (usage: bash scripts/demo.sh [--rate 8000|16000])" ;;
  esac
done
case $rate in 8000 | 16000) ;; *) die "--rate must be 8000 or 16000" ;; esac

packages=(cmake ninja-build g++ pkg-config libsndfile1-dev libsamplerate0-dev
  python3 python3-matplotlib python3-numpy python3-soundfile)

source scripts/lib/packages.sh
ensure_packages "${packages[@]}"

generator=(-G Ninja)
command -v ninja > /dev/null || generator=(-G "Unix Makefiles")
echo "== building the library and sonvel-aec (build/demo)"
cmake -S . -B build/demo "${generator[@]}" -DCMAKE_BUILD_TYPE=Release -DSONVEL_BUILD_TESTS=OFF \
  -DSONVEL_BUILD_TOOLS=ON > /dev/null || die "configuring failed"
cmake --build build/demo || die "building failed"

echo "== running the demonstration"
build/demo/tools/sonvel-aec demo --rate "$rate" --out out/demo || die "the demo failed"

# Debian's interpreter, where numpy, matplotlib and soundfile are installed (not a user's own
# python3).
python=python3
[ -x /usr/bin/python3 ] && python=/usr/bin/python3
echo
"$python" tools/plot_trace.py out/demo -o out/demo/demo.png \
  --title "sonvel-aec demo ($rate Hz): far end alone, near end alone, double talk, far end alone" ||
  die "drawing the plot failed"
echo "listen to out/demo/mic.wav (input) and out/demo/out.wav (output); picture: out/demo/demo.png"
