#!/usr/bin/env bash
# Instructions per 10 ms frame of the whole Sonvel_AEC_Apply at 8000 and 16000 Hz, counted by
# callgrind on bench/count/apply_frames.cpp (far end through an echo path, then double talk).
# Usage: bash bench/count_instructions.sh [build-dir]   (default build/bench, configured Release)
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${1:-build/bench}
frames=300
if [ ! -f "$dir/CMakeCache.txt" ]; then
    cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DSONVEL_BUILD_BENCH=ON >/dev/null
fi
cmake --build "$dir" -j2 --target sonvel_apply_frames >/dev/null
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
for rate in 8000 16000; do
    valgrind --tool=callgrind --toggle-collect='Sonvel_AEC_Apply' --callgrind-out-file="$tmp/cg.$rate" \
        "$dir/bench/sonvel_apply_frames" "$rate" "$frames" >"$tmp/out.$rate" 2>"$tmp/log.$rate"
    ir=$(sed -n 's/^summary: \([0-9]*\).*/\1/p' "$tmp/cg.$rate")
    echo "$rate Hz: $((ir / frames)) instructions per 10 ms frame ($((ir * 4 / 5 / frames)) per 8 ms block; $(cat "$tmp/out.$rate"))"
done
