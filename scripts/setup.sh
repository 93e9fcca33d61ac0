#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Installs the Debian packages that building, running and testing Velomar need.
# Idempotent: when everything is present it only checks and returns.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkgconf git clang clang-format
  libclang-rt-14-dev
  qt6-base-dev
  libavformat-dev libavcodec-dev libavutil-dev libswscale-dev ffmpeg
  libpugixml-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  binutils
  slurmctld slurmd slurm-client munge
  xvfb xauth fonts-dejavu-core
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
  echo "setup: missing packages: ${missing[*]}" >&2
  echo "setup: run this script as root to install them" >&2
  exit 1
fi

export DEBIAN_FRONTEND=noninteractive
echo "setup: installing ${missing[*]}"
apt-get update -q
apt-get install -y -q --no-install-recommends "${missing[@]}"
