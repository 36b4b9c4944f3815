#!/usr/bin/env bash
# Installs the Debian packages the build needs (only those missing), then configures and builds
# into build/. Sourced by demo.sh and test.sh; safe to run again.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

source scripts/packages.sh

# qt6-base-dev builds the wizard window; the offscreen platform its tests run on, without a
# display, and a font come with it. help2man makes the manual pages; dpkg-dev, file, man-db and
# lintian build, open and check the Debian package (scripts/package.sh and the packaging tests).
install_missing g++ cmake make pkg-config libgtest-dev libgmock-dev libbenchmark-dev \
  libzip-dev libc-ares-dev libcli11-dev zip python3 dnsmasq-base qt6-base-dev \
  "${fuzz_packages[@]}" help2man dpkg-dev file man-db lintian

jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$jobs"
