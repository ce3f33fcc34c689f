#!/usr/bin/env bash
# Checks the C and C++ sources against .clang-format with clang-format 14 (Debian package
# clang-format-14) and lists every file that would change; exit status 1 when any would.
# Usage: bash scripts/lib/format_check.sh [path...]   (default: the whole tree)
# To apply the format instead: the same file list through clang-format-14 -i.
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$repo"

formatter=$(command -v clang-format-14 || command -v clang-format || true)
if [ -z "$formatter" ]; then
  echo "format_check: clang-format-14 not found (apt-get install clang-format-14)" >&2
  exit 2
fi
if ! "$formatter" --version | grep -q 'version 14\.'; then
  echo "format_check: $formatter is not version 14; results may differ" >&2
fi

paths=("$@")
[ ${#paths[@]} -eq 0 ] && paths=(src include tests bench fuzz tools examples integrations)
mapfile -t files < <(git ls-files -- "${paths[@]}" | grep -E '\.(c|cc|cpp|h|hpp)$' || true)

bad=0
for f in "${files[@]}"; do
  if ! "$formatter" --style=file --dry-run -Werror "$f" > /dev/null 2>&1; then
    echo "needs formatting: $f"
    bad=1
  fi
done
[ $bad -eq 0 ] && echo "format_check: ${#files[@]} files formatted"
exit $bad
