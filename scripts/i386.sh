#!/usr/bin/env bash
# i386.sh FOLDER [CTEST-OPTION...]: builds and passes all tests as 32-bit x86. A Debian 12 of that kind is put into
# FOLDER (half a gigabyte, with what the tests need a gigabyte and a half), where it stays for the next run; what is
# committed here is built and tested in it. Needs root and a processor that runs 32-bit programs.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

[[ $# -ge 1 && $1 != -* ]] || fail "usage: i386.sh FOLDER [CTEST-OPTION...]"
((EUID == 0)) || fail "needs root, to make and enter another system"
folder=$1
shift

make_system() {
    install_missing debootstrap
    mkdir -p "$folder"
    debootstrap --arch=i386 --variant=minbase bookworm "$folder"
    # Nothing that is installed there starts a service; the tests start what they need.
    printf '#!/bin/sh\nexit 101\n' >"$folder/usr/sbin/policy-rc.d"
    chmod 755 "$folder/usr/sbin/policy-rc.d"
    touch "$folder/made-for-tests"
}

put_sources() {
    mkdir -p "$folder/src"
    find "$folder/src" -mindepth 1 -maxdepth 1 ! -name build -exec rm -rf {} +
    git -C "$root" archive HEAD | tar -x --touch -C "$folder/src"
}

[[ -e $folder/made-for-tests ]] || make_system
folder=$(realpath "$folder")
put_sources
# The mounts are seen by nobody else and end with the run.
# shellcheck disable=SC2016
exec unshare --mount bash -c '
    set -e
    # A root of its own, not a mere folder, so that the tests in it may make namespaces.
    mount --rbind "$0" "$0"
    cd "$0"
    mount -t proc proc "$0/proc"
    mount --rbind /dev "$0/dev"
    mount -t sysfs sysfs "$0/sys"
    exec chroot "$0" setarch i386 bash -c "cd /src && exec scripts/test.sh release \"\$@\"" test.sh "$@"
' "$folder" "$@"
