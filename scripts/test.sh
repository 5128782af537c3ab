#!/usr/bin/env bash
# test.sh [PRESET [CTEST-OPTION...]]: installs what is missing, builds, and runs every test. The preset is
# "release" unless named; the last lines and the exit code are ctest's.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

preset=${1:-release}
shift $(($# > 0 ? 1 : 0))

read -r -a packages <<<"$(build_packages "$preset" | tr '\n' ' ')"
# Peers and a servlet container that the tests start on ports of their own, and tools that look at what is packed
# and written. Installing nginx or prometheus may also start the machine's own, which the tests neither need nor touch.
tools=(
    openssl nginx-light curl tomcat10-common default-jre-headless
    libxml2-utils man-db mandoc pkgconf python3-jsonschema python3-yaml
    adduser debhelper dpkg-dev file fish iproute2 lintian logrotate procps prometheus systemd zsh
)
# Debian's package does not suit a machine that has one of another origin.
command -v kubectl >/dev/null || tools+=(kubernetes-client)
install_missing "${packages[@]}" libgtest-dev "${tools[@]}"

cd "$root"
cmake --preset "$preset"
cmake --build --preset "$preset"
exec ctest --preset "$preset" "$@"
