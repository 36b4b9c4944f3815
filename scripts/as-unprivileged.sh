#!/usr/bin/env bash
# Runs the tests that need folder and file permissions to bind. They skip themselves when run by
# root, for whom a read-only folder is writable; so when the suite runs as root (as in CI), this
# runs them again as the unprivileged user "nobody" and fails if any of them fails or skips.
#
#   as-unprivileged.sh BINARY FILTER [BINARY FILTER ...]
set -u
if [ "$(id -u)" -ne 0 ]; then
  echo "not root: the permission tests ran unskipped in their own programs"
  exit 0
fi
if ! command -v setpriv >/dev/null; then
  echo "setpriv is missing: cannot drop to an unprivileged user"
  exit 1
fi
status=0
while [ $# -ge 2 ]; do
  out=$(setpriv --reuid=65534 --regid=65534 --clear-groups "$1" --gtest_filter="$2" 2>&1)
  rc=$?
  echo "$out" | grep -E '^\[ *(OK|FAILED|SKIPPED|PASSED) *\]'
  if [ $rc -ne 0 ] || echo "$out" | grep -q -e '^\[  SKIPPED \]' -e '^\[==========\] Running 0 tests'; then
    echo "$1 --gtest_filter=$2: failed, skipped or found no test"
    status=1
  fi
  shift 2
done
exit $status
