#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Short libFuzzer runs of every fuzz target (clang, preset "fuzz").
#   scripts/fuzz.sh [seconds per target, default 60] [target...]
# Corpora start from the targets' generated seeds and grow in build/fuzz/corpus-<target>;
# crashes land in build/fuzz/artifacts/. Every crash input becomes a test.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift || true
bash scripts/setup.sh
bash scripts/build.sh release >/dev/null
bash scripts/build.sh fuzz
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for f in build/fuzz/fuzz/fuzz_*; do targets+=("$(basename "$f" | sed 's/^fuzz_//')"); done
fi
mkdir -p build/fuzz/artifacts
for t in "${targets[@]}"; do
  corpus=build/fuzz/corpus-$t
  mkdir -p "$corpus"
  build/release/fuzz/fuzz_$t --write-seeds "$corpus"
  echo "== fuzz_$t for ${seconds}s"
  build/fuzz/fuzz/fuzz_$t -max_total_time="$seconds" -rss_limit_mb=2048 -malloc_limit_mb=1024 \
    -artifact_prefix=build/fuzz/artifacts/"$t"- -print_final_stats=1 "$corpus"
done
