#!/usr/bin/env bash
# Keeps the README's commands from going stale: every command in a ```sh block of README.md must
# be a line that CI or a test runs, word for word (in .ci/run, scripts/*.sh or
# tests/install/*.sh). A trailing "# comment" is not part of the command.
# With --docs, checks instead that README.md and docs/*.md name no folder of a particular
# machine (a build machine's checkout or home folder).
#
#   readme-test.sh SOURCE_DIR [--docs]
set -uo pipefail
src=$1
cd "$src" || exit 1

if [ "${2:-}" = --docs ]; then
  found=$(grep -nE '(^|[^A-Za-z0-9_.])/(work|home|root|Users)/' README.md docs/*.md)
  if [ -n "$found" ]; then
    echo "FAILED: machine paths in the documents:"
    echo "$found"
    exit 1
  fi
  echo "no machine paths in README.md and docs/*.md"
  exit 0
fi

trim() { sed -E 's/[[:space:]]+#[^"'"'"']*$//; s/^[[:space:]]+//; s/[[:space:]]+$//'; }
commands=$(awk '/^[[:space:]]*```sh[[:space:]]*$/ {on=1; next} /^[[:space:]]*```/ {on=0} on' README.md | trim | grep -v '^#' | grep -v '^$')
[ -n "$commands" ] || { echo "FAILED: README.md has no \`\`\`sh block"; exit 1; }
runners=$(cat .ci/run scripts/*.sh tests/install/*.sh | trim)
status=0
count=0
while IFS= read -r command; do
  count=$((count + 1))
  if ! grep -qxF -- "$command" <<<"$runners"; then
    echo "FAILED: no test or CI script runs this README command: $command"
    status=1
  fi
done <<<"$commands"
[ $status -ne 0 ] || echo "each of the README's $count commands is run by CI or a test"
exit $status
