#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# The end-to-end speed comparison with the open trackers: installs OpenCV
# from Debian (a benchmark reference only; the program, the main set-up and
# CI never need it), builds the release preset with the peer benchmark,
# writes a 1080p PNG shot with its true motion, then times in one run:
#   velomar-cli track --sequence ... (start-up and decoding included)
#   OpenCV chained findTransformECC (affine, 3-level pyramid)
#   OpenCV pyramidal KLT + estimateAffine2D
# all on the same frames, and prints each one's wall time, frames per
# second, corner error against the truth and the ratios to ours.
#   scripts/bench.sh [FRAMES]      (default 60)
set -euo pipefail
cd "$(dirname "$0")/.."
frames=${1:-60}

if ! dpkg-query -W -f='${Status}' libopencv-dev 2>/dev/null | grep -q 'install ok installed'; then
  if [ "$(id -u)" -ne 0 ]; then
    echo "bench: libopencv-dev is missing; run this script as root to install it" >&2
    exit 1
  fi
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -q
  apt-get install -y -q --no-install-recommends libopencv-dev
fi

jobs=${VELOMAR_JOBS:-2}
# Configuring again finds an OpenCV installed since the last time.
cmake --preset release >/dev/null
cmake --build build/release -j "$jobs" --target velomar-cli velomar_write_shot velomar_peer_bench

shot=${VELOMAR_BENCH_DIR:-/tmp/velomar-bench-shot}
if [ ! -f "$shot/truth.txt" ] || [ "$(wc -l <"$shot/truth.txt")" -ne "$frames" ]; then
  rm -rf "$shot"
  build/release/bench/velomar_write_shot "$shot" 1920 1080 "$frames" PNG
fi
key=$((frames / 2))
mask=$(printf '%s/mask_%04d.bmp' "$shot" "$key")
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

# Wall time and processor time (user + system, every thread) of the whole
# command: on a busy machine the second says more than the first.
/usr/bin/time -f "%e %U %S" -o "$out/time" \
  build/release/src/cli/velomar-cli track --sequence "$shot/shot_0000.png" --key "$key" \
  --mask "$mask" --span "0:$frames" --transforms "$out/velomar.txt" >/dev/null 2>&1
read -r wall user system <"$out/time"
cpu=$(echo "$user + $system" | bc -l)

build/release/bench/velomar_peer_bench "$shot" "$key" "$frames" "$out/velomar.txt" "$wall" "$cpu"
