# shellcheck shell=bash
# What velbootstrap-tomcat and make-certificates share; sourced, not run.

fail() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# expect_safe_path PATH: ends the script when root is about to work in a folder in which another user could put a link
# in the place of what root has just made. PATH is absolute and without links; what of it is not there yet is root's to
# make. In a folder such as /tmp, where all may make files, nobody can rename those of others.
expect_safe_path() {
    local place=$1 owner group mode others
    ((EUID == 0)) || return 0
    while true; do
        if [[ -e $place || -L $place ]]; then
            read -r owner group mode < <(stat -c '%u %g %a' -- "$place")
            if ((owner != 0)); then
                fail "root does not work in $1: $place belongs to $(stat -c %U -- "$place")." \
                    "Give the command as that user."
            fi
            others=$((group == 0 ? 8#2 : 8#22))
            if (((8#$mode & others) && !(8#$mode & 8#1000))); then
                fail "root does not work in $1: others than root can change $place"
            fi
        fi
        [[ $place != / ]] || return 0
        place=$(dirname -- "$place")
    done
}
