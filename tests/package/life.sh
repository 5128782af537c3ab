#!/usr/bin/env bash
# life.sh SOURCES PACKAGES: the package's whole life in a throw-away copy of this machine: installed, readied, started
# and stopped by the unit's own command lines, asked as in the documents, removed while it runs, installed again,
# purged. The copy has processes and a network of its own and is gone with this script, whatever happens.
# shellcheck source=tests/package/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

if ((EUID != 0)); then
    sudo -n true 2>/dev/null || fail "a copy of the machine needs root: run the tests as root, or with a sudo" \
        "that asks for no password"
    sudo -n "${BASH_SOURCE[0]}" "$@"
    exit
fi
unshare --mount --pid --net --ipc --fork true || fail "this machine gives no namespaces"
inside=("$(dirname "${BASH_SOURCE[0]}")/life_inside.sh" "$sources" "$packages" "$scratch")
# It goes with this script, even when nobody is left to clean up.
setpriv --pdeathsig KILL unshare --mount --pid --net --ipc --fork --kill-child "${inside[@]}"
