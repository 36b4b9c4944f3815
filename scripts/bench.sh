#!/usr/bin/env bash
# The commands behind the README's performance figures: builds the benchmarks, generates the
# million-line test log once (238 MB, in /tmp), then runs each benchmark. With --large it also
# takes the figures at 10 and 40 million lines (the logs are made once in /tmp: 2.4 and 9.5 GB,
# and each run needs as much again for its copy of the log and its tables). Not part of the tests:
# speed is measured here, never in a test.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
bash scripts/bootstrap.sh
[ -s /tmp/w3c-1m.log ] ||
python3 tools/gen-w3c-log.py --lines 1000000 --seed 1 > /tmp/w3c-1m.log
build/bin/scanbench --log /tmp/w3c-1m.log --check
if [ "${1:-}" = --large ]; then
tools/scan-figures.sh build/bin 10000000 1
tools/scan-figures.sh build/bin 40000000 1
fi
build/bin/dbbench --records 1000000
build/bin/inputbench --file /tmp/w3c-1m.log --repeat 7
