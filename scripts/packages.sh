# Sourced by bootstrap.sh and fuzz.sh, not run: the one place that installs the Debian packages
# a script needs, and the packages of the fuzz build.

# clang and its fuzzer and sanitizer runtimes: the fuzz targets (scripts/fuzz.sh).
fuzz_packages=(clang-14 libclang-rt-14-dev)

# install_missing PACKAGE...: installs with apt those of the packages that are not installed
# (through sudo when not root), and does nothing when every one is.
install_missing() {
  local missing=() p sudo=""
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  echo "Installing missing packages: ${missing[*]}"
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
}
