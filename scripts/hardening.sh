#!/usr/bin/env bash
# hardening.sh [FILE...]: what the programs are built with, as a table; those of the release build unless named. Fails
# when one lacks something.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

(($# > 0)) || set -- "$root"/build/release/bin/{velbootstrapservice,libSEK_Crypto_Interface.so}

# row TEXT PART PATTERN FILE...: whether what readelf says of that part of each file has the pattern.
row() {
    local text=$1 part=$2 pattern=$3 file
    shift 3
    printf '| %s |' "$text"
    for file in "$@"; do
        if readelf --wide "--$part" "$file" | grep -E -- "$pattern" >/dev/null; then
            printf ' yes |'
        else
            printf ' **no** |'
            outcome=1
        fi
    done
    echo
}

outcome=0
printf '| |'
printf ' %s |' "${@##*/}"
printf '\n|---|'
printf -- '---|%.0s' "$@"
echo
row "position independent" file-header 'Type: +DYN' "$@"
row "relocations read-only" segments 'GNU_RELRO' "$@"
row "all symbols bound at the start" dynamic 'BIND_NOW|Flags:.*NOW' "$@"
row "no executable stack" segments 'GNU_STACK .* RW +0x' "$@"
row "stacks guarded" dyn-syms '__stack_chk_fail' "$@"
row "calls of the C library checked" dyn-syms '__[a-z]*_chk(@|$)' "$@"
exit "$outcome"
