#!/usr/bin/env bash
# Instructions per 10 ms frame of the whole Sonvel_AEC_Apply at 8000 and 16000 Hz, counted by
# callgrind on bench/count/apply_frames.cpp (far end through an echo path, then double talk).
# With --fft: instructions per transform of the FFT service instead (bench/count/fft_transforms.cpp,
# real block forward and conjugate-symmetric spectrum inverse at 128 and 256 points), with a digest
# of the outputs.
# Usage: bash bench/count_instructions.sh [--fft] [build-dir]   (default build/bench, Release)
set -euo pipefail
cd "$(dirname "$0")/.."
fft=0
if [ "${1:-}" = "--fft" ]; then
    fft=1
    shift
fi
dir=${1:-build/bench}
frames=300
if [ ! -f "$dir/CMakeCache.txt" ]; then
    cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DSONVEL_BUILD_BENCH=ON >/dev/null
fi
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
if [ "$fft" = 1 ]; then
    cmake --build "$dir" -j2 --target sonvel_fft_transforms >/dev/null
    repeats=200
    for order in 7 8; do
        for way in fwd inv; do
            fn=Sonvel_FFTFwd_CToC_SC32_Sfs
            [ "$way" = inv ] && fn=Sonvel_FFTInv_CToC_SC32_Sfs
            valgrind --tool=callgrind --toggle-collect="$fn" --callgrind-out-file="$tmp/cg" \
                "$dir/bench/sonvel_fft_transforms" "$order" "$way" "$repeats" >"$tmp/out" 2>"$tmp/log"
            ir=$(sed -n 's/^summary: \([0-9]*\).*/\1/p' "$tmp/cg")
            echo "$((1 << order)) points $way: $((ir / repeats)) instructions per transform (output $(cat "$tmp/out"))"
        done
    done
    exit 0
fi
cmake --build "$dir" -j2 --target sonvel_apply_frames >/dev/null
for rate in 8000 16000; do
    valgrind --tool=callgrind --toggle-collect='Sonvel_AEC_Apply' --callgrind-out-file="$tmp/cg.$rate" \
        "$dir/bench/sonvel_apply_frames" "$rate" "$frames" >"$tmp/out.$rate" 2>"$tmp/log.$rate"
    ir=$(sed -n 's/^summary: \([0-9]*\).*/\1/p' "$tmp/cg.$rate")
    echo "$rate Hz: $((ir / frames)) instructions per 10 ms frame ($((ir * 4 / 5 / frames)) per 8 ms block; $(cat "$tmp/out.$rate"))"
done
