#!/usr/bin/env bash
# The main job: makes a demo shot and shows what Velomar sees of it.
#   scripts/demo.sh [DIR]     (default: ./demo)
set -euo pipefail
cd "$(dirname "$0")/.."
dir=${1:-demo}
bash scripts/setup.sh
bash scripts/build.sh release velomar-cli
cli=build/release/src/cli/velomar-cli
"$cli" demo-shot "$dir"
echo "== the sequence"
"$cli" sequence "$dir/shot_0030.tga"
echo "== its first frame"
"$cli" info "$dir/shot_0000.tga"
echo "== a frame converted to PNG"
"$cli" convert "$dir/shot_0030.tga" "$dir/frame_0030.png"
"$cli" info "$dir/frame_0030.png"
