# Helpers of scripts/test.sh: package installation, one build-and-test run, the summary.

summary=()

die() {
  echo "test.sh: $*" >&2
  exit 1
}

elapsed() {
  printf '%dm%02ds' $(($1 / 60)) $(($1 % 60))
}

source "$(dirname "${BASH_SOURCE[0]}")/packages.sh"

# The packages, with their installation time in the summary when any were missing.
install_packages() {
  local t0=$SECONDS
  ensure_packages "$@"
  if [ "$packages_installed" -gt 0 ]; then
    summary+=("$(printf '%-8s %d installed  %s' packages "$packages_installed" "$(elapsed $((SECONDS - t0)))")")
  fi
}

# build_and_test NAME BUILD_DIR CMAKE_ARGS...: configure, build, run every test; stops the script
# with a message naming the configuration and the step that failed.
build_and_test() {
  local name=$1 dir=$2
  shift 2
  local t0=$SECONDS
  echo
  echo "== [$name] configure ($dir)"
  cmake -S . -B "$dir" "$@" || fail "$name" configure $t0
  echo "== [$name] build"
  cmake --build "$dir" || fail "$name" build $t0
  echo "== [$name] test"
  ctest --test-dir "$dir" --output-on-failure -j2 || fail "$name" test $t0
  summary+=("$(printf '%-8s passed  %s' "$name" "$(elapsed $((SECONDS - t0)))")")
}

fail() {
  summary+=("$(printf '%-8s FAILED at %s after %s' "$1" "$2" "$(elapsed $((SECONDS - $3)))")")
  print_summary
  die "configuration '$1' failed at the $2 step; see the output above"
}

print_summary() {
  echo
  echo "== summary"
  local line
  for line in "${summary[@]}"; do
    echo "   $line"
  done
}
