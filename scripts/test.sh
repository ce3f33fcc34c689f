#!/usr/bin/env bash
# The one test command: installs the Debian packages the build needs (when missing), then builds and
# runs the whole suite three ways, each in its own build directory:
#   native   Release build with the benchmarks (built, not run)          build/ci-native
#   asan     AddressSanitizer + UndefinedBehaviorSanitizer, halting on the first report
#                                                                         build/ci-asan
#   aarch64  cross build, test programs run under qemu-aarch64            build/ci-aarch64
# Usage: bash scripts/test.sh [native] [asan] [aarch64]   (no argument: all three, in this order)
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$repo"
source scripts/lib/ci.sh

configs=("$@")
if [ ${#configs[@]} -eq 0 ]; then
  configs=(native asan aarch64)
fi
for c in "${configs[@]}"; do
  case $c in
    native | asan | aarch64) ;;
    *) die "unknown configuration '$c' (expected native, asan or aarch64)" ;;
  esac
done

packages=(cmake ninja-build g++ libgtest-dev libbenchmark-dev)
for c in "${configs[@]}"; do
  if [ "$c" = aarch64 ]; then
    packages+=(g++-aarch64-linux-gnu binutils-aarch64-linux-gnu googletest qemu-user)
  fi
done
ensure_packages "${packages[@]}"

generator=(-G Ninja)
command -v ninja > /dev/null || generator=(-G "Unix Makefiles")
tools_flag=()
[ -f tools/CMakeLists.txt ] && tools_flag=(-DSONVEL_BUILD_TOOLS=ON)

run_native() {
  build_and_test native build/ci-native "${generator[@]}" -DCMAKE_BUILD_TYPE=Release \
    -DSONVEL_BUILD_BENCH=ON "${tools_flag[@]}"
}

run_asan() {
  ASAN_OPTIONS=halt_on_error=1:detect_leaks=1 \
  UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
    build_and_test asan build/ci-asan "${generator[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DSONVEL_SANITIZE=ON
}

run_aarch64() {
  build_and_test aarch64 build/ci-aarch64 "${generator[@]}" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE="$repo/cmake/toolchain-aarch64.cmake"
}

start=$SECONDS
for c in "${configs[@]}"; do
  "run_$c"
done
print_summary
echo "all configurations passed in $(elapsed $((SECONDS - start)))"
