#!/usr/bin/env bash
# Quick start, part 1: builds the project and rebuilds the bundled demo's database from its logs,
# printing the run's summary (the tables land in examples/demo/Data/).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
bash scripts/bootstrap.sh
exec build/bin/tydbcreate-cli --yes examples/demo
