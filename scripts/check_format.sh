#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Fails when a C++ file of the repository differs from what clang-format
# (the repository's .clang-format) makes of it; prints the places.
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format --dry-run -Werror
