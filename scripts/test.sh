#!/usr/bin/env bash
# The one test command: installs the Debian packages the build needs (when missing), then builds and
# runs the whole suite three ways, each in its own build directory:
#   format   the C and C++ sources against .clang-format (scripts/lib/format_check.sh)
#   native   Release build with the benchmarks (built, not run)          build/ci-native
#   asan     AddressSanitizer + UndefinedBehaviorSanitizer, halting on the first report
#                                                                         build/ci-asan
#   tsan     ThreadSanitizer build of the interface tests; runs the concurrency test
#                                                                         build/ci-tsan
#   aarch64  cross build, test programs run under qemu-aarch64            build/ci-aarch64
#   fuzz     clang build of the libFuzzer targets (address + undefined-behaviour sanitizers),
#            each run for a bounded time over a copy of its seed corpus     build/ci-fuzz
#   pipewire the PipeWire plug-in in a private, headless PipeWire daemon (scripts/lib/pipewire_e2e.sh)
#   gstreamer the GStreamer element in gst-launch pipelines (scripts/lib/gstreamer_e2e.sh)
# The native configuration also builds the command-line tool with its tests, installs everything
# into a temporary prefix and builds and runs examples/ against the installed package (through
# find_package, through pkg-config and through the flat header path of earlier releases).
# Usage: bash scripts/test.sh [format] [native] [asan] [tsan] [aarch64] [fuzz] [pipewire] [gstreamer]
#        (no argument: all, in order)
# FUZZ_SECONDS sets the time per fuzz target (default 30).
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$repo"
source scripts/lib/ci.sh

configs=("$@")
if [ ${#configs[@]} -eq 0 ]; then
  configs=(format native asan tsan aarch64 fuzz)
  [ -f scripts/lib/pipewire_e2e.sh ] && configs+=(pipewire)
  [ -f scripts/lib/gstreamer_e2e.sh ] && configs+=(gstreamer)
fi
for c in "${configs[@]}"; do
  case $c in
    format | native | asan | tsan | aarch64 | fuzz | pipewire | gstreamer) ;;
    *) die "unknown configuration '$c' (expected format, native, asan, tsan, aarch64, fuzz, pipewire or gstreamer)" ;;
  esac
done

packages=(cmake ninja-build g++ libgtest-dev libbenchmark-dev)
[ -f tools/CMakeLists.txt ] && packages+=(libsndfile1-dev libsamplerate0-dev pkg-config python3-numpy
  python3-matplotlib python3-soundfile)
# The plug-ins' unit tests run in the native build, so their frameworks come first.
[ -d integrations/pipewire ] && packages+=(pkg-config libspa-0.2-dev libpipewire-0.3-dev pipewire pipewire-bin)
[ -d integrations/gstreamer ] && packages+=(pkg-config libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev
  gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good)
for c in "${configs[@]}"; do
  if [ "$c" = aarch64 ]; then
    packages+=(g++-aarch64-linux-gnu binutils-aarch64-linux-gnu googletest qemu-user)
  fi
  if [ "$c" = format ]; then
    packages+=(clang-format-14)
  fi
  if [ "$c" = fuzz ]; then
    packages+=(clang libclang-rt-14-dev)
  fi
done
install_packages "${packages[@]}"

generator=(-G Ninja)
command -v ninja > /dev/null || generator=(-G "Unix Makefiles")
tools_flag=()
[ -f tools/CMakeLists.txt ] && tools_flag=(-DSONVEL_BUILD_TOOLS=ON)

run_format() {
  local t0=$SECONDS
  echo
  echo "== [format] clang-format check"
  bash scripts/lib/format_check.sh || fail format check $t0
  summary+=("$(printf '%-8s passed  %s' format "$(elapsed $((SECONDS - t0)))")")
}

run_native() {
  build_and_test native build/ci-native "${generator[@]}" -DCMAKE_BUILD_TYPE=Release \
    -DSONVEL_BUILD_BENCH=ON -DSONVEL_INSTALL_SPA_SYSTEM=OFF "${tools_flag[@]}"
  check_installed build/ci-native
}

# Installs the build into a temporary prefix and checks the package from outside. Every public
# header is in include/sonvel_aec/ and, as a forwarding header, at the flat path of earlier
# releases, and compiles on its own through both. The examples (minimal.c includes
# <sonvel_aec/sonvel_aec.h>, version_check.c the bare names) are built and run through a separate
# CMake project using find_package(SonvelAec) and through a plain compiler call with pkg-config;
# version_check.c once more with only the prefix's include/ directory, as a build made for the
# flat layout does.
check_installed() {
  local build=$1 t0=$SECONDS prefix h name path example pc_dir libdir
  prefix=$(mktemp -d)
  echo
  echo "== [install] into $prefix"
  cmake --install "$build" --prefix "$prefix" > /dev/null || fail install "install" $t0
  for h in include/*.h; do
    name=$(basename "$h")
    cmp -s "$h" "$prefix/include/sonvel_aec/$name" || fail install "header sonvel_aec/$name" $t0
    for path in "sonvel_aec/$name" "$name"; do
      echo "#include <$path>" |
        "${CC:-cc}" -std=c11 -Wall -Wextra -Werror -fsyntax-only -I"$prefix/include" -x c - ||
        fail install "header <$path> alone" $t0
    done
  done
  cmake -S examples -B "$prefix/examples-build" "${generator[@]}" -DCMAKE_PREFIX_PATH="$prefix" ||
    fail install "example configure" $t0
  cmake --build "$prefix/examples-build" || fail install "example build" $t0
  pc_dir=$(dirname "$(find "$prefix" -name sonvel_aec.pc | head -n 1)")
  libdir=$(dirname "$pc_dir")
  for example in minimal version_check; do
    "$prefix/examples-build/$example" || fail install "example run ($example, find_package)" $t0
    # shellcheck disable=SC2046
    "${CC:-cc}" -std=c11 -Wall -Wextra -Werror "examples/$example.c" \
      -o "$prefix/$example-pkg-config" $(PKG_CONFIG_PATH="$pc_dir" pkg-config --cflags --libs sonvel_aec) -lm ||
      fail install "example build ($example, pkg-config)" $t0
    LD_LIBRARY_PATH="$libdir" "$prefix/$example-pkg-config" ||
      fail install "example run ($example, pkg-config)" $t0
  done
  "${CC:-cc}" -std=c11 -Wall -Wextra -Werror examples/version_check.c \
    -o "$prefix/version_check-flat" -I"$prefix/include" -L"$libdir" -lsonvel_aec ||
    fail install "example build (flat path)" $t0
  LD_LIBRARY_PATH="$libdir" "$prefix/version_check-flat" ||
    fail install "example run (flat path)" $t0
  if [ -x "$prefix/bin/sonvel-aec" ]; then
    "$prefix/bin/sonvel-aec" version || fail install "installed tool" $t0
  fi
  rm -rf "$prefix"
  summary+=("$(printf '%-8s passed  %s' install "$(elapsed $((SECONDS - t0)))")")
}

run_asan() {
  ASAN_OPTIONS=halt_on_error=1:detect_leaks=1 \
  UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
    build_and_test asan build/ci-asan "${generator[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DSONVEL_SANITIZE=ON "${tools_flag[@]}"
}

# Only the interface test program is built; only its concurrency test runs (the others are
# single-threaded and already covered by the asan configuration).
run_tsan() {
  local t0=$SECONDS dir=build/ci-tsan
  echo
  echo "== [tsan] configure ($dir)"
  cmake -S . -B "$dir" "${generator[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSONVEL_TSAN=ON ||
    fail tsan configure $t0
  echo "== [tsan] build"
  cmake --build "$dir" --target test_interface || fail tsan build $t0
  echo "== [tsan] test"
  TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
    "$dir/tests/test_interface" --gtest_filter='Concurrency.*' || fail tsan test $t0
  summary+=("$(printf '%-8s passed  %s' tsan "$(elapsed $((SECONDS - t0)))")")
}

run_aarch64() {
  build_and_test aarch64 build/ci-aarch64 "${generator[@]}" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE="$repo/cmake/toolchain-aarch64.cmake"
}

# Builds the fuzz targets with clang and runs each for FUZZ_SECONDS over a temporary copy of its
# seed corpus (the committed corpus stays as it is); any crash, sanitizer report or failed check
# stops the run. Standard error of the targets is closed: the host wrapper reports every refused
# call there, and the fuzzer's own and the sanitizers' reports still come through.
run_fuzz() {
  local t0=$SECONDS dir=build/ci-fuzz seconds=${FUZZ_SECONDS:-30} target work
  echo
  echo "== [fuzz] configure ($dir)"
  CC=clang CXX=clang++ cmake -S . -B "$dir" "${generator[@]}" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DSONVEL_BUILD_FUZZ=ON -DSONVEL_BUILD_TESTS=OFF || fail fuzz configure $t0
  echo "== [fuzz] build"
  cmake --build "$dir" --target fuzz || fail fuzz build $t0
  for target in params apply host spectral stream; do
    echo "== [fuzz] fuzz_$target for ${seconds}s"
    work=$(mktemp -d)
    mkdir "$work/corpus"
    cp fuzz/corpus/$target/* "$work/corpus"/
    if ! "$dir/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=10 -close_fd_mask=2 \
      -print_final_stats=1 -artifact_prefix="$work/" "$work/corpus" > "$work/log" 2>&1; then
      tail -n 40 "$work/log"
      echo "the failing input is in $work"
      fail fuzz "fuzz_$target" $t0
    fi
    grep -E '^(#[0-9]+[[:space:]]+DONE|stat::number_of_executed_units)' "$work/log" || true
    rm -rf "$work"
  done
  summary+=("$(printf '%-8s passed  %s' fuzz "$(elapsed $((SECONDS - t0)))")")
}

# The end-to-end runs of the plug-ins use the native build (built first when it is missing).
run_e2e() {
  local name=$1 what=$2 t0=$SECONDS
  [ -d build/ci-native ] || run_native
  echo
  echo "== [$name] $what"
  bash "scripts/lib/${name}_e2e.sh" build/ci-native || fail "$name" test $t0
  summary+=("$(printf '%-8s passed  %s' "$name" "$(elapsed $((SECONDS - t0)))")")
}

run_pipewire() { run_e2e pipewire "end to end in a private daemon"; }
run_gstreamer() { run_e2e gstreamer "end to end with gst-launch"; }

start=$SECONDS
for c in "${configs[@]}"; do
  "run_$c"
done
print_summary
echo "all configurations passed in $(elapsed $((SECONDS - start)))"
