#!/usr/bin/env bash
# elsewhere.sh RELEASE ARCH FOLDER [COMMAND...]: builds and passes all tests on another Debian, for example on
# "bookworm i386" or "trixie arm64". It is put into FOLDER from where this machine has its packages (half a gigabyte,
# with what the tests need two), where it stays for the next run. What is committed here is brought there up to date,
# and the command is run in it, "scripts/test.sh release" unless named. Programs of a processor that this one does not
# understand are translated, for the time of the run. Needs root.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

usage() { fail "usage: elsewhere.sh RELEASE ARCH FOLDER [COMMAND...]"; }

[[ $# -ge 3 && $3 != -* ]] || usage
release=$1
architecture=$2
folder=$3
shift 3
(($# > 0)) || set -- scripts/test.sh release
((EUID == 0)) || fail "needs root, to make and enter another system"

# --- programs of another processor ---

formats=/proc/sys/fs/binfmt_misc
translator=
mounted=

# What the kernel is told to start programs of that kind with; nothing for those that this processor runs itself.
translated_processor() {
    case $(dpkg --print-architecture):$architecture in
        "$architecture:$architecture" | amd64:i386 | arm64:armhf) ;;
        *:amd64) echo x86_64 ;;
        *:i386) echo i386 ;;
        *:arm64) echo aarch64 ;;
        *:armhf) echo arm ;;
        *) fail "no translator known for $architecture" ;;
    esac
}

register_translator() {
    local processor description
    processor=$(translated_processor)
    [[ -n $processor ]] || return 0
    install_missing qemu-user-static
    if [[ ! -e $formats/register ]]; then
        mount -t binfmt_misc binfmt_misc "$formats" ||
            fail "this kernel starts no programs of other processors (binfmt_misc)"
        mounted=$formats
    fi
    [[ ! -e $formats/qemu-$processor ]] || return 0
    description=$(sed -n '/^:/{p;q}' "/usr/lib/binfmt.d/qemu-$processor.conf")
    # With F the kernel keeps the translator open: the other system need not contain it.
    [[ $description == *:*F* ]] || description+=F
    printf '%s\n' "$description" >"$formats/register" || fail "the kernel refused: $description"
    translator=$formats/qemu-$processor
}

unregister_translator() {
    [[ -z $translator || ! -e $translator ]] || echo -1 >"$translator"
    [[ -z $mounted ]] || umount "$mounted"
}

# --- the other system ---

# The archive of this machine's packages that has the given label, as apt knows it.
archive() {
    # shellcheck disable=SC2016
    apt-get indextargets --format '$(REPO_URI)' 'Identifier: Packages' 'Origin: Debian' "Label: $1" | sort -u |
        head -n 1
}

# Tells the packages there from which archives to come. One whose lists do not fit together at the moment, as while a
# mirror is being renewed, would stop every installation: without the security updates there are still all packages.
choose_archives() {
    local main=$1 security=$2
    printf 'deb %s %s main\n' "$main" "$release" ${security:+"$security" "$release-security"} \
        >"$folder/etc/apt/sources.list"
    [[ -z $security ]] || run_in_system apt-get update -qq || {
        echo "Going without $security: its lists could not be read" >&2
        choose_archives "$main" ""
    }
}

make_system() {
    local main security
    install_missing debootstrap
    [[ -n $(archive Debian) ]] || apt-get update -qq
    main=$(archive Debian)
    security=$(archive Debian-Security)
    [[ -n $main ]] || fail "apt knows no archive of Debian's packages"
    mkdir -p "$folder/src"
    debootstrap --arch="$architecture" --variant=minbase "$release" "$folder" "$main"
    # To the archive the same way as from here: proxies, and what is thought of its dates.
    apt-config dump --format '%f "%v";%n' Acquire::http Acquire::https Acquire::Check-Valid-Until Acquire::Check-Date \
        >"$folder/etc/apt/apt.conf.d/50as-outside"
    # Nothing that is installed there starts a service; the tests start what they need.
    printf '#!/bin/sh\nexit 101\n' >"$folder/usr/sbin/policy-rc.d"
    chmod 755 "$folder/usr/sbin/policy-rc.d"
    choose_archives "$main" "$security"
    printf '%s %s\n' "$release" "$architecture" >"$folder/made-for-tests"
}

# Files that are the same stay as they are, so that only what has changed is built again.
put_sources() {
    local fresh
    install_missing rsync
    fresh=$(mktemp -d)
    git -C "$root" archive HEAD | tar -x -C "$fresh"
    rsync --archive --no-times --checksum --delete --exclude=/build "$fresh/" "$folder/src/"
    rm -rf "$fresh"
}

# What programs there believe the processor to be.
personality() {
    case $architecture in
        i386 | armhf) echo linux32 ;;
        *) echo linux64 ;;
    esac
}

# The mounts are seen by nobody else and end with the run.
run_in_system() {
    # shellcheck disable=SC2016
    unshare --mount bash -c '
        set -e
        personality=$1
        shift
        # A root of its own, not a mere folder, so that the tests in it may make namespaces.
        mount --rbind "$0" "$0"
        cd "$0"
        mount -t proc proc "$0/proc"
        mount --rbind /dev "$0/dev"
        mount -t sysfs sysfs "$0/sys"
        exec chroot "$0" setarch "$personality" env -C /src LC_ALL=C.UTF-8 "$@"
    ' "$folder" "$(personality)" "$@"
}

trap unregister_translator EXIT
register_translator
folder=$(realpath -m "$folder")
[[ -e $folder/made-for-tests ]] || make_system
[[ $(<"$folder/made-for-tests") == "$release $architecture" ]] || fail "$folder is another system"
put_sources
run_in_system "$@"
