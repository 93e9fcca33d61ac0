#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Configures and builds one preset (default: release).
#   scripts/build.sh [preset] [target...]
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-release}
shift || true
jobs=${VELOMAR_JOBS:-$(nproc)}
if [ ! -f "build/$preset/build.ninja" ]; then
  cmake --preset "$preset" >/dev/null
fi
if [ $# -gt 0 ]; then
  cmake --build --preset "$preset" -j "$jobs" --target "$@"
else
  cmake --build --preset "$preset" -j "$jobs"
fi
