#!/usr/bin/env bash
# Quick start, part 2: builds the project and runs every test.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
bash scripts/bootstrap.sh
cd build
ctest --output-on-failure -j"$(nproc 2>/dev/null || echo 2)"
