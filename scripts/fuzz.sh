#!/usr/bin/env bash
# Builds the fuzz targets with clang and the address and undefined-behaviour sanitizers (into
# build-fuzz/), then runs each for SECONDS seconds (default 20) from its seed corpus in
# tests/fuzz/corpus/<target>/. New inputs go to build-fuzz/corpus/<target>/, never into the
# repository; a crash leaves its input as build-fuzz/crash-* and ends the script with a failure.
# Add each crash found to the seeds as a regression input once it is fixed.
#
#   scripts/fuzz.sh            # CI: 20 s per target
#   scripts/fuzz.sh 3600       # a longer search: an hour per target
#   scripts/fuzz.sh 600 Tables # one target only
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
seconds=${1:-20}
only=${2:-}
jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++-14 \
  -DTY_BUILD_FUZZERS=ON -DTY_BUILD_TESTS=OFF -DTY_BUILD_BENCHMARKS=OFF -DTY_BUILD_WINDOW=OFF \
  ${CMAKE_CXX_COMPILER_LAUNCHER:+-DCMAKE_CXX_COMPILER_LAUNCHER=$CMAKE_CXX_COMPILER_LAUNCHER} >/dev/null
targets=(Config LogLines Tables Archive)
[ -n "$only" ] && targets=("$only")
cmake --build build-fuzz -j"$jobs" --target "${targets[@]/#/fuzz_}"
status=0
for t in "${targets[@]}"; do
  mkdir -p "build-fuzz/corpus/$t"
  echo "fuzz_$t: ${seconds} s"
  if ! (cd build-fuzz && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
        "bin/fuzz_$t" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -print_final_stats=1 "corpus/$t" "../tests/fuzz/corpus/$t" 2>"fuzz_$t.log"); then
    echo "fuzz_$t found a failure; see build-fuzz/fuzz_$t.log and build-fuzz/crash-*"
    tail -40 "build-fuzz/fuzz_$t.log"
    status=1
  else
    grep -E "stat::number_of_executed_units|cov:" "build-fuzz/fuzz_$t.log" | tail -2
  fi
done
exit $status
