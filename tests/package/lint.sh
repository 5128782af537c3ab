#!/usr/bin/env bash
# lint.sh SOURCES PACKAGES: Debian's own checker of packages has nothing to object to.
# shellcheck source=tests/package/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# Static-Built-Using is a field of dpkg 1.21.3, younger than the checker of Debian 12.
expect "lintian" lintian --allow-root --pedantic --fail-on error,warning,pedantic --suppress-tags unknown-field \
    "$packages"/*.changes
verdict
