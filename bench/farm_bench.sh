#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Wall time of tracking and rendering SHOTS generated shots on the one-node
# Slurm cluster of scripts/slurm_local.sh (velomar-cli batch), against the
# same work run by one velomar-cli after another on this machine; the jobs'
# own times from their logs, the scheduler's delay from submission to start,
# and a byte comparison of the two renders.
#   bench/farm_bench.sh [SHOTS [FRAMES [WxH [CHUNK [DIR]]]]]
# Defaults: 4 shots of 100 frames of 1920x1080, chunks of 25, DIR /tmp/velomar-farm-bench.
set -euo pipefail
cd "$(dirname "$0")/.."
shots=${1:-4}
frames=${2:-100}
size=${3:-1920x1080}
chunk=${4:-25}
work=${5:-/tmp/velomar-farm-bench}
cli=$(pwd)/build/release/src/cli/velomar-cli
[ -x "$cli" ] || { echo "build first: bash scripts/build.sh release velomar-cli" >&2; exit 1; }

rm -rf "$work"
mkdir -p "$work"
key=$((frames / 2))
# The still overlay: an orange outline of the plate on the key frame (the
# generated shot's plate, 440,220 400x280 at 1280x720, scaled), transparent
# elsewhere, as a 32-bit TGA.
python3 - "$size" "$work/overlay.tga" <<'EOF'
import struct, sys
w, h = map(int, sys.argv[1].split("x"))
left, top = 440 * w // 1280, 220 * h // 720
right, bottom = left + 400 * w // 1280, top + 280 * h // 720
rows = []
for y in range(h - 1, -1, -1):  # bottom-up
    inside = top <= y < bottom
    edge_row = y < top + 6 or y >= bottom - 6
    row = bytearray(4 * w)
    if inside:
        for x in range(left, right):
            if edge_row or x < left + 6 or x >= right - 6:
                row[4 * x:4 * x + 4] = b"\x00\x8c\xff\xff"
    rows.append(bytes(row))
with open(sys.argv[2], "wb") as f:
    f.write(struct.pack("<BBBHHBHHHHBB", 0, 0, 2, 0, 0, 0, 0, 0, w, h, 32, 8))
    f.write(b"".join(rows))
EOF
echo "== making $shots shots of $frames frames, $size"
for i in $(seq "$shots"); do
  "$cli" demo-shot --size "$size" --frames "$frames" "$work/shot$i" >/dev/null
  mask=$(printf "%s/shot%d/mask_%04d.bmp" "$work" "$i" "$key")
  "$cli" new "$work/shot$i/shot_0000.tga" -o "$work/s$i.vlp" >/dev/null
  "$cli" segment add "$work/s$i.vlp" --key "$key" --mask "$mask" --span "0:$frames" >/dev/null
  "$cli" overlay import "$work/s$i.vlp" "$work/overlay.tga" --still >/dev/null
  # Beside the original: a project finds its footage relative to itself.
  cp "$work/s$i.vlp" "$work/s${i}_alone.vlp"
done

echo "== one velomar-cli after another"
start=$(date +%s.%N)
for i in $(seq "$shots"); do
  "$cli" track "$work/s${i}_alone.vlp" --all 2>/dev/null | tail -n 1
  "$cli" render "$work/s${i}_alone.vlp" -o "$work/alone/s$i" 2>/dev/null | tail -n 1
done
alone=$(echo "$(date +%s.%N) - $start" | bc)

echo "== the one-node cluster"
bash scripts/slurm_local.sh start "$work/cluster"
export SLURM_CONF=$work/cluster/slurm.conf
trap 'bash scripts/slurm_local.sh stop "$work/cluster"' EXIT
# The scheduler's own delay: an empty job from sbatch to its end.
start=$(date +%s.%N)
id=$(sbatch --parsable --mem=10M --output=/dev/null --wrap true)
while squeue -h -j "$id" 2>/dev/null | grep -q .; do sleep 0.05; done
empty=$(echo "$(date +%s.%N) - $start" | bc)

projects=()
for i in $(seq "$shots"); do projects+=("$work/s$i.vlp"); done
start=$(date +%s.%N)
"$cli" batch submit "${projects[@]}" --jobs "$work/jobs" --output "$work/farm" \
  --chunk "$chunk" --cpus 1 --mem 900M --time 60 | tail -n 1
while ! "$cli" batch status --jobs "$work/jobs" | tail -n 1 | grep -q " 0 running, 0 waiting"; do
  sleep 0.5
done
farm=$(echo "$(date +%s.%N) - $start" | bc)
"$cli" batch status --jobs "$work/jobs" | tail -n 1

echo "== jobs (from their logs and the controller)"
grep -h "new frames in" "$work"/jobs/logs/*.track-*.log | sed 's/^/track: /'
grep -h "frames into" "$work"/jobs/logs/*.render-*.log | sed 's/^/render: /' | head -n 8
delays=$(scontrol -o show job | sed -n 's/.*SubmitTime=\([^ ]*\).*EligibleTime=\([^ ]*\).*StartTime=\([^ ]*\).*/\1 \2 \3/p' |
  while read -r submit eligible begin; do
    echo $(($(date -d "$begin" +%s) - $(date -d "$eligible" +%s)))
  done | sort -n | uniq -c | tr '\n' ';')
echo "seconds from eligible to start (count seconds): $delays"

same=yes
for i in $(seq "$shots"); do
  diff -rq "$work/alone/s$i" "$work/farm/s$i" >/dev/null || same=no
done
printf "wall: one after another %.1f s, cluster %.1f s, ratio %.2f; empty job %.2f s; same bytes: %s\n" \
  "$alone" "$farm" "$(echo "$alone / $farm" | bc -l)" "$empty" "$same"
