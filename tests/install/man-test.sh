#!/usr/bin/env bash
# The manual pages made by the build open without a warning at 80 columns and have the sections
# a reader looks for (the command-line pages are made from --help: this catches a change to
# --help that help2man no longer reads as intended, such as a renamed "Exit status:" heading).
#
#   man-test.sh PAGE.1 [PAGE.1 ...]
set -uo pipefail
status=0
for page in "$@"; do
  name=$(basename "$page")
  warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l "$page" 2>&1 >/dev/null)
  if [ $? -ne 0 ] || [ -n "$warnings" ]; then
    echo "FAILED: man --warnings -l $name: $warnings"
    status=1
  fi
  text=$(LC_ALL=C.UTF-8 MANWIDTH=80 man -l "$page" 2>/dev/null)
  for section in NAME SYNOPSIS DESCRIPTION OPTIONS FILES "EXIT STATUS" "SEE ALSO"; do
    grep -q "^$section\$" <<<"$text" || { echo "FAILED: $name has no $section section"; status=1; }
  done
  case $name in
    tydbcreate-cli.1)
      for word in TALLYO_REGISTRY SOURCE_DATE_EPOCH TZ TMPDIR --show-config --yes --version; do
        grep -q -- "$word" <<<"$text" || { echo "FAILED: $name never names $word"; status=1; }
      done
      grep -q "^EXAMPLES\$" <<<"$text" || { echo "FAILED: $name has no EXAMPLES"; status=1; }
      # Every exit status listed by --help is under EXIT STATUS.
      statuses=$(sed -n '/^EXIT STATUS$/,/^[A-Z]/p' <<<"$text" | grep -cE '^ {7}[0-9]+ ')
      [ "$statuses" -ge 10 ] || { echo "FAILED: $name lists $statuses exit statuses"; status=1; }
      ;;
  esac
  [ $status -ne 0 ] || echo "$name: opens without warnings"
done
exit $status
