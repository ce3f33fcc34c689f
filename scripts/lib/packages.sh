# Package installation shared by scripts/test.sh and scripts/demo.sh. The caller defines die.

# Installs the given Debian packages when any of them is missing: apt-get update once, then
# apt-get install without recommended packages. Needs root, or sudo. Sets packages_installed to
# the number of packages it installed.
ensure_packages() {
  packages_installed=0
  if ! command -v dpkg-query > /dev/null; then
    echo "== no dpkg: assuming $* are installed"
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
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update ||
    die "apt-get update failed"
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "${missing[@]}" ||
    die "apt-get install failed"
  packages_installed=${#missing[@]}
}
