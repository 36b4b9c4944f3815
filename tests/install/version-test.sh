#!/usr/bin/env bash
# Every program answers --version with "<program> <version>", the project's version, and ends
# with status 0 (help2man reads that line into the manual pages, and the package carries the
# same version).
#
#   version-test.sh VERSION PROGRAM [PROGRAM ...]
set -uo pipefail
version=$1
shift
status=0
for program in "$@"; do
  name=$(basename "$program")
  out=$(QT_QPA_PLATFORM=offscreen "$program" --version </dev/null 2>&1)
  rc=$?
  if [ $rc -ne 0 ] || [ "$out" != "$name $version" ]; then
    echo "FAILED: $name --version: status $rc, printed '$out' (expected '$name $version')"
    status=1
  else
    echo "$out"
  fi
done
exit $status
