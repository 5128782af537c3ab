#!/usr/bin/env bash
# package.sh [PRESET]: builds the Debian package, and a second one with its debug symbols, from the preset "release"
# unless another is named. Installs what is missing for that; the last lines are the packages' paths.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

preset=${1:-release}
read -r -a packages <<<"$(build_packages "$preset" | tr '\n' ' ')"
install_missing "${packages[@]}" libgtest-dev dpkg-dev file

cd "$root"
cmake --preset "$preset"
packaging/pack.sh "build/$preset" "build/$preset/package"
