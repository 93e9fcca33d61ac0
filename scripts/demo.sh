#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# The main job: tracks a generated shot whose motion is known, from its middle
# frame in both directions, and prints the error against that motion and the
# speed. Leaves the frames, the project, the keyframes and the overlay
# rendered over the shot (DIR/render) in DIR.
#   scripts/demo.sh [DIR]     (default: ./demo)
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${1:-demo}
bash scripts/setup.sh
bash scripts/build.sh release velomar-cli
cli=build/release/src/cli/velomar-cli
"$cli" demo "$dir"
echo "== the project it left"
"$cli" info "$dir/demo.vlp"
