#!/usr/bin/env bash
# Set-up, build and every test: the release build with its suites and fuzz
# replays, then the same suites under AddressSanitizer + UndefinedBehaviorSanitizer.
#   scripts/test.sh            release, then asan
#   scripts/test.sh release    one preset only (release, debug, asan, tsan)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
presets=("$@")
[ ${#presets[@]} -eq 0 ] && presets=(release asan)
for preset in "${presets[@]}"; do
  echo "== $preset: build"
  bash scripts/build.sh "$preset"
  echo "== $preset: test"
  ctest --preset "$preset" -j "${VELOMAR_JOBS:-$(nproc)}" --timeout 600
done
