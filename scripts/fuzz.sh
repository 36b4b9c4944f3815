#!/usr/bin/env bash
# Builds the fuzz targets (tests/fuzz/) with clang, libFuzzer and the address and
# undefined-behaviour sanitizers into build-fuzz/, then runs each for SECONDS seconds (default
# 20) from its seeds in tests/fuzz/corpus/<target>/.
#
#   scripts/fuzz.sh              # CI: 20 s per target
#   scripts/fuzz.sh 3600         # a longer search: an hour per target
#   scripts/fuzz.sh 600 Tables   # one target only (Config, LogLines, Tables or Archive)
#
# New inputs go to build-fuzz/corpus/<target>/, never into the repository. A crash, a leak, a
# hang (25 s on one input), running out of memory (2 GB) or any sanitizer report stops the
# target, leaves its input as build-fuzz/artifacts/fuzz_<target>-crash-* (leak-*, timeout-*,
# oom-*) with the report in build-fuzz/fuzz_<target>.log, and ends the script with a failure.
# To replay an input: build-fuzz/bin/fuzz_<target> <file>. Once the fault is fixed, add the
# input to tests/fuzz/corpus/<target>/ so that every later run replays it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
seconds=${1:-20}
only=${2:-}

source scripts/packages.sh
install_missing "${fuzz_packages[@]}"

jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++-14 \
  -DTY_BUILD_FUZZERS=ON -DTY_BUILD_TESTS=OFF -DTY_BUILD_BENCHMARKS=OFF -DTY_BUILD_WINDOW=OFF \
  ${CMAKE_CXX_COMPILER_LAUNCHER:+-DCMAKE_CXX_COMPILER_LAUNCHER=$CMAKE_CXX_COMPILER_LAUNCHER} >/dev/null
targets=(Config LogLines Tables Archive)
[ -n "$only" ] && targets=("$only")
cmake --build build-fuzz -j"$jobs" --target "${targets[@]/#/fuzz_}"

mkdir -p build-fuzz/artifacts
status=0
for t in "${targets[@]}"; do
  mkdir -p "build-fuzz/corpus/$t"
  echo "fuzz_$t: ${seconds} s"
  if ! ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
       "build-fuzz/bin/fuzz_$t" -max_total_time="$seconds" -timeout=25 -rss_limit_mb=2048 \
       -max_len=65536 -print_final_stats=1 -artifact_prefix="build-fuzz/artifacts/fuzz_$t-" \
       "build-fuzz/corpus/$t" "tests/fuzz/corpus/$t" 2>"build-fuzz/fuzz_$t.log"; then
    echo "fuzz_$t found a fault; see build-fuzz/fuzz_$t.log and build-fuzz/artifacts/"
    tail -n 40 "build-fuzz/fuzz_$t.log"
    status=1
  else
    grep -E "^stat::number_of_executed_units|^Done" "build-fuzz/fuzz_$t.log" || true
  fi
done
exit $status
