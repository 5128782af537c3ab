# shellcheck shell=bash
# What the tests of this folder share. Sourced with the test's arguments: the source tree, the folder with the
# packages. A test tells everything that is wrong and fails in verdict(); one that cannot go on fails at once.
set -euo pipefail
# Tools speak the language that is looked for here, sort by bytes, and a text's length is that of a file.
export LC_ALL=C

sources=$1
packages=$2
# shellcheck source=scripts/lib.sh
source "$sources/scripts/lib.sh"
failures=0
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

wrong() {
    printf 'WRONG: %s\n' "$*" >&2
    failures=$((failures + 1))
}

# expect_equal WHAT EXPECTED ACTUAL
expect_equal() {
    [[ $2 == "$3" ]] || wrong "$1 is '$3', expected '$2'"
}

# expect WHAT COMMAND...: the command must succeed.
expect() {
    local what=$1 words
    shift
    words=$("$@" 2>&1) || wrong "$what; $*: $words"
}

# expect_not WHAT COMMAND...: the command must fail.
expect_not() {
    local what=$1
    shift
    if "$@" >/dev/null 2>&1; then
        wrong "$what; succeeded: $*"
    fi
}

verdict() {
    if ((failures > 0)); then
        echo "$failures wrong" >&2
        exit 1
    fi
    echo "all as expected"
}

# The package, unpacked in a folder of its own.
unpack() {
    mkdir -p "$2"
    dpkg-deb --extract "$(echo "$packages/$1"_*.deb)" "$2"
}

# Where the units are in a package of this Debian, below the root: where those of the manager are.
units_place() { dpkg --listfiles systemd | sed -n 's|^/\(.*/system\)/basic\.target$|\1|p'; }

# in_copy_of_machine SCRIPT ARGUMENT...: runs a script of this folder, which makes a copy of this machine (copy.sh), with
# processes and a network of its own. Everything is gone with the test, whatever happens.
in_copy_of_machine() {
    local inside
    inside=$(dirname "${BASH_SOURCE[0]}")/$1
    if ((EUID != 0)); then
        sudo -n true 2>/dev/null || fail "a copy of the machine needs root: run the tests as root, or with a sudo" \
            "that asks for no password"
        sudo -n "$0" "${@:2}"
        exit
    fi
    unshare --mount --pid --net --ipc --fork true || fail "this machine gives no namespaces"
    # It goes with this script, even when nobody is left to clean up.
    setpriv --pdeathsig KILL unshare --mount --pid --net --ipc --fork --kill-child \
        "$inside" "$sources" "$packages" "$scratch"
}
