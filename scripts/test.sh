#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Set-up, the format check, build and every test: the release build (warnings
# are errors) with its suites and fuzz replays, the same suites under
# AddressSanitizer + UndefinedBehaviorSanitizer, then the threaded suites
# under ThreadSanitizer (only what they need is built).
#   scripts/test.sh            format, release, asan, tsan
#   scripts/test.sh release    one preset only (release, debug, asan, tsan)
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
jobs=${VELOMAR_JOBS:-$(nproc)}
presets=("$@")
if [ ${#presets[@]} -eq 0 ]; then
  echo "== format"
  bash scripts/check_format.sh
  presets=(release asan tsan)
fi

# The suites with threads of their own: the worker and the message queue,
# the frame cache and the prefetcher, decoding side by side, the profile
# builder and the optic flow helper, the frame loop's two directions, the
# preview's compositing worker, the link's transport and socket server,
# the render's writer thread.
tsan_targets=(base_tests imaging_tests tracking_tests exchange_tests app_tests)
tsan_tests='(^|/)(WorkThread|Cache|PrefetchQueue|Prefetcher|LibraryIo|LibraryReader|BuildProfiles|RawProfiles|OpticFlow|FrameLoop[A-Za-z]*|Processor|MessageQueue|Merger|VLView|LinkServer|LinkBadPeer|LinkSleeper|AsyncWriter)\.'

for preset in "${presets[@]}"; do
  echo "== $preset: build"
  if [ "$preset" = tsan ]; then
    bash scripts/build.sh tsan "${tsan_targets[@]}"
    echo "== $preset: test"
    ctest --preset tsan -j "$jobs" --timeout 600 -R "$tsan_tests"
    continue
  fi
  bash scripts/build.sh "$preset"
  echo "== $preset: test"
  ctest --preset "$preset" -j "$jobs" --timeout 600
done
