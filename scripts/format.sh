#!/usr/bin/env bash
# Checks that every C and C++ source in the tree is laid out as .clang-format
# says (clang-format 14, Debian's).  With --fix, rewrites the files that are not.
set -euo pipefail
cd "$(dirname "$0")/.."

fix=0
case ${1:-} in
  --fix) fix=1 ;;
  "") ;;
  *) echo "format: unknown option $1 (known: --fix)" >&2; exit 2 ;;
esac

format=$(command -v clang-format-14 || command -v clang-format || true)
if [[ -z $format ]]; then
  echo "format: clang-format is not installed (scripts/setup.sh installs it)" >&2
  exit 1
fi

# The tracked sources; outside a git checkout, every source below the layers.
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  mapfile -d '' files < <(git ls-files -z -- '*.c' '*.cpp' '*.h' ':!:tests/data/*')
else
  mapfile -d '' files < <(find . -path ./tests/data -prune -o -path './build*' -prune -o \
                          -type f \( -name '*.c' -o -name '*.cpp' -o -name '*.h' \) -print0)
fi
if ((fix)); then
  "$format" -i --style=file "${files[@]}"
  exit 0
fi
if ! report=$("$format" --dry-run --Werror --style=file "${files[@]}" 2>&1); then
  grep -E '^[^ ].*: (error|warning):' <<<"$report" | cut -d: -f1 | sort -u | sed 's/^/format: not formatted: /' >&2
  echo "format: run scripts/format.sh --fix" >&2
  exit 1
fi
