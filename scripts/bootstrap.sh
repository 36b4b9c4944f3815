#!/usr/bin/env bash
# Installs the Debian packages the build needs (only those missing), then configures and builds
# into build/. Sourced by demo.sh and test.sh; safe to run again.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# qt6-base-dev builds the wizard window; the offscreen platform its tests run on, without a
# display, and a font come with it. help2man makes the manual pages; dpkg-dev, file, man-db and
# lintian build, open and check the Debian package (scripts/package.sh and the packaging tests).
packages=(g++ cmake make pkg-config libgtest-dev libgmock-dev libbenchmark-dev
          libzip-dev libc-ares-dev libcli11-dev zip python3 dnsmasq-base qt6-base-dev
          clang-14 libclang-rt-14-dev  # the fuzz targets (scripts/fuzz.sh)
          help2man dpkg-dev file man-db lintian)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing missing packages: ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$jobs"
