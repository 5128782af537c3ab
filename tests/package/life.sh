#!/usr/bin/env bash
# life.sh SOURCES PACKAGES: the package's whole life in a throw-away copy of this machine: installed, readied, started
# and stopped by the unit's own command lines, asked as in the documents, removed while it runs, installed again,
# purged.
# shellcheck source=tests/package/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

in_copy_of_machine life_inside.sh "$@"
