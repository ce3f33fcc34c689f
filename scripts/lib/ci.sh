# Helpers of scripts/test.sh: package installation, one build-and-test run, the summary.

summary=()

die() {
  echo "test.sh: $*" >&2
  exit 1
}

elapsed() {
  printf '%dm%02ds' $(($1 / 60)) $(($1 % 60))
}

# Installs the given Debian packages when any of them is missing: apt-get update once, then
# apt-get install without recommended packages. Needs root, or sudo.
ensure_packages() {
  if ! command -v dpkg-query > /dev/null; then
    echo "== no dpkg: assuming the build tools are installed"
    return
  fi
  local missing=() p
  for p in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2> /dev/null | grep -q 'ok installed'; then
      missing+=("$p")
    fi
  done
  if [ ${#missing[@]} -eq 0 ]; then
    echo "== packages: all present"
    return
  fi
  local sudo=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo > /dev/null ||
      die "missing packages: ${missing[*]} (run as root, or install them first)"
    sudo=(sudo)
  fi
  echo "== installing: ${missing[*]}"
  local t0=$SECONDS
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update ||
    die "apt-get update failed"
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "${missing[@]}" ||
    die "apt-get install failed"
  summary+=("$(printf '%-8s %d installed  %s' packages ${#missing[@]} "$(elapsed $((SECONDS - t0)))")")
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
