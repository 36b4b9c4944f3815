#!/usr/bin/env bash
# Builds the Debian package: installs what is missing and builds (bootstrap.sh), then runs cpack
# in build/, which leaves build/tydbcreate_<version>_<arch>.deb.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
bash scripts/bootstrap.sh
cd build
cpack -G DEB
