#!/usr/bin/env bash
# Quick start, part 1: builds the project and runs the main job on the bundled demo.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
bash scripts/bootstrap.sh
exec build/bin/tydbcreate-cli --show-config examples/demo
