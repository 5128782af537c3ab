#!/usr/bin/env bash
# lint.sh SOURCES PACKAGES: Debian's own checker of packages has nothing to object to.
# shellcheck source=tests/package/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

expect "lintian" lintian --allow-root --fail-on error,warning "$packages"/*.deb
verdict
