#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Runs the velomar-cli examples of the README, in order, as written, in a
# fresh folder: the examples are what a new user types first, so each must
# work on a fresh checkout. Examples that need a second program running
# (lines ending in "&") or a placeholder ("[DIR]") are left out, and so is
# the farm, which needs a cluster.
#   scripts/readme_examples.sh [path/to/velomar-cli]
set -euo pipefail
cd "$(dirname "$0")/.."
cli=$(realpath "${1:-build/release/src/cli/velomar-cli}")
readme=$(realpath README.md)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
mkdir bin
ln -s "$cli" bin/velomar-cli
export PATH="$work/bin:$PATH"
# Example lines of the command-line sections, continuations joined, comments cut.
awk '/^## velomar-cli/,/^## On a farm/' "$readme" |
  awk '/^    velomar-cli/ || joined { line = joined line $0; joined = "" }
       /\\$/ { sub(/\\$/, "", line); joined = line; line = ""; next }
       line != "" { print line; line = "" }' |
  sed -e 's/^ *//' -e 's/  *#.*$//' |
  grep -v -e '&$' -e '\[' |
  while IFS= read -r example; do
    echo "+ $example"
    if ! bash -c "$example" >"$work/out.txt" 2>&1; then
      cat "$work/out.txt"
      echo "README example failed: $example" >&2
      exit 1
    fi
  done
echo "every README example ran"
