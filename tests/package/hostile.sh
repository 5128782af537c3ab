#!/usr/bin/env bash
# hostile.sh SOURCES PACKAGES: the service's user has put links, pipes and foreign numbers wherever it can write, and
# root installs, readies, boots, rotates, removes and purges: nothing of root's changes, nothing hangs, nobody else's
# process is ended.
# shellcheck source=tests/package/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

in_copy_of_machine hostile_inside.sh "$@"
