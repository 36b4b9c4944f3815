#!/usr/bin/env bash
# The Debian package, end to end without installing anything on this machine: builds it from
# this build folder, unpacks it into a scratch root with dpkg -x, and runs what it installed.
#
#   package-test.sh BUILD_DIR VERSION
#
# Checks: the control fields (name, version, section, computed dependencies, the registry file
# as a configuration file); the files installed and those left out (benchmarks, built tables);
# the installed tydbcreate-cli --version; a scan of a copy of the installed example folder,
# with the installed sample registry file, whose every table passes the installed
# dbfinspect --check; the installed manual pages open without warnings; and lintian, when
# installed, finds no error. Runs as root or as a user, with or without a terminal.
set -euo pipefail
build=$1
version=$2
scratch=$(mktemp -d "${TMPDIR:-/tmp}/tydbcreate-package.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# 1. Build the package (scripts/package.sh runs the same cpack in build/).
if ! (cd "$scratch" && cpack --config "$build/CPackConfig.cmake" -B "$scratch/out") \
    >"$scratch/cpack.log" 2>&1; then
  cat "$scratch/cpack.log"
  fail "cpack could not build the package"
fi
debs=("$scratch"/out/tydbcreate_"$version"_*.deb)
[ -f "${debs[0]}" ] || fail "no tydbcreate_${version}_*.deb among: $(ls "$scratch/out")"
deb=${debs[0]}
echo "built $(basename "$deb")"

# 2. The control fields.
field() { dpkg-deb --field "$deb" "$1"; }
[ "$(field Package)" = tydbcreate ] || fail "Package is '$(field Package)'"
[ "$(field Version)" = "$version" ] || fail "Version is '$(field Version)', not $version"
[ "$(field Section)" = utils ] || fail "Section is '$(field Section)'"
depends=$(field Depends)
for lib in libc6 libstdc++6 libzip4; do
  grep -q "\b$lib\b" <<<"$depends" || fail "Depends lacks $lib: $depends"
done
conffiles=$(dpkg-deb --ctrl-tarfile "$deb" | tar -xO ./conffiles)
[ "$conffiles" = /etc/tallyo/registry.ini ] || fail "conffiles holds '$conffiles'"

# 3. The files: what must be there, and what must not.
root=$scratch/root
dpkg -x "$deb" "$root"
doc=$root/usr/share/doc/tydbcreate
for f in usr/bin/tydbcreate-cli usr/bin/dbfinspect \
         usr/share/man/man1/tydbcreate-cli.1.gz usr/share/man/man1/dbfinspect.1.gz \
         usr/share/doc/tydbcreate/copyright usr/share/doc/tydbcreate/changelog.gz \
         usr/share/doc/tydbcreate/examples/demo/TALLYO.INI \
         usr/share/doc/tydbcreate/examples/demo/Data/Countries.txt etc/tallyo/registry.ini; do
  [ -f "$root/$f" ] || fail "the package lacks /$f"
done
for f in dbbench scanbench inputbench; do
  [ ! -e "$root/usr/bin/$f" ] || fail "the benchmark $f is installed"
done
if [ -e "$root/usr/bin/tydbcreate" ]; then
  for f in usr/share/man/man1/tydbcreate.1.gz usr/share/applications/tydbcreate.desktop \
           usr/share/icons/hicolor/scalable/apps/tydbcreate.svg; do
    [ -f "$root/$f" ] || fail "the window is installed without /$f"
  done
fi
built=$(find "$doc/examples" -iname '*.dbf' -o -iname '*.mdx' -o -name errors.log -o -name Temp)
[ -z "$built" ] || fail "the example folder carries what a scan writes: $built"

# 4. The installed programs run.
out=$("$root/usr/bin/tydbcreate-cli" --version)
[ "$out" = "tydbcreate-cli $version" ] || fail "tydbcreate-cli --version printed '$out'"

# 5. A scan of a copy of the installed example, with the installed registry file: every value
# in it is commented out, so the data folder is the copy's Data/.
cp -r "$doc/examples/demo" "$scratch/demo"
status=0
TALLYO_REGISTRY=$root/etc/tallyo/registry.ini TMPDIR=$scratch \
  "$root/usr/bin/tydbcreate-cli" --yes --quiet "$scratch/demo" </dev/null || status=$?
[ "$status" -eq 0 ] || fail "the scan of the installed example ended with status $status"
tables=("$scratch"/demo/Data/*.DBF)
[ "${#tables[@]}" -eq 7 ] || fail "the scan wrote ${#tables[@]} tables, not 7: ${tables[*]}"
for t in "${tables[@]}"; do
  "$root/usr/bin/dbfinspect" --check "$t" | tail -n 1 | grep -qx OK ||
    fail "dbfinspect --check $t: $("$root/usr/bin/dbfinspect" --check "$t")"
done
echo "scanned the installed example: ${#tables[@]} tables, each passes dbfinspect --check"

# 6. The installed manual pages open without a warning.
for page in "$root"/usr/share/man/man1/*.1.gz; do
  warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l "$page" 2>&1 >/dev/null) ||
    fail "man -l $(basename "$page") failed: $warnings"
  [ -z "$warnings" ] || fail "man -l $(basename "$page") warns: $warnings"
done

# 7. lintian, the Debian package checker, finds no error (warnings are listed).
if command -v lintian >/dev/null; then
  report=$(lintian --fail-on error "$deb" 2>&1) ||
    fail "lintian reports errors: $report"
  [ -z "$report" ] || echo "lintian: $report"
else
  echo "lintian is not installed: the package was not checked by it"
fi
echo "package checks passed"
