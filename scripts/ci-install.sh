#!/usr/bin/env bash
# CI only, on a disposable machine and as root: follows the README's "Install" and "Use it on
# your own logs" for real. It installs the package with apt, opens the manual page, scans a copy
# of the installed example, then sets up /srv/tallyo as the README says, with the demo folder
# standing in for a configuration copied from a Windows installation, and rebuilds its database.
# Each README command appears here word for word (tests/install/readme-test.sh checks that).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
if [ "$(id -u)" -ne 0 ]; then
  echo "not root: the package is not installed on this machine"
  exit 0
fi
command -v sudo >/dev/null || sudo() { "$@"; }
export DEBIAN_FRONTEND=noninteractive MANPAGER=cat HOME=${HOME:-/root}
# apt asks no question here (a user answers its "Do you want to continue?").
apt_config=$(mktemp)
# The machine is left as it was found: the package purged (its registry file with it), the
# folders this script made removed. Later runs on the same machine then start from the defaults.
cleanup() {
  rm -f "$apt_config"
  if dpkg-query -W -f='${Status}' tydbcreate 2>/dev/null | grep -q 'ok installed'; then
    apt-get purge -y -qq tydbcreate >/dev/null 2>&1 || true
  fi
  rm -rf /srv/tallyo ~/tallyo-demo
}
trap cleanup EXIT
echo 'APT::Get::Assume-Yes "true";' >"$apt_config"
export APT_CONFIG=$apt_config
fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# Install
bash scripts/package.sh
sudo apt install ./build/tydbcreate_*.deb
{
man tydbcreate-cli
} >/dev/null
rm -rf ~/tallyo-demo
cp -r /usr/share/doc/tydbcreate/examples/demo ~/tallyo-demo
tydbcreate-cli --yes ~/tallyo-demo
[ -f ~/tallyo-demo/Data/VISITS.DBF ] || fail "the scan of the example wrote no VISITS.DBF"

# Use it on your own logs: the application folder and the data folder as copied from Windows,
# then the registry file names the data folder.
rm -rf /srv/tallyo
mkdir -p /srv/tallyo
cp -r /usr/share/doc/tydbcreate/examples/demo/. /srv/tallyo/
mv /srv/tallyo/Data /srv/tallyo/data
sed -i 's|^;DDFPath=/srv/tallyo/data/|DDFPath=/srv/tallyo/data/|' /etc/tallyo/registry.ini
tydbcreate-cli --show-config /srv/tallyo
tydbcreate-cli --show-config /srv/tallyo | grep -q '"dataFolder": *"/srv/tallyo/data/"' ||
  fail "--show-config does not show the data folder of the registry file"
tydbcreate-cli --yes /srv/tallyo
for t in /srv/tallyo/data/*.DBF; do
  dbfinspect --check "$t" | tail -n 1 | grep -qx OK || fail "dbfinspect --check $t"
done
echo "installed, and the README's commands ran"
