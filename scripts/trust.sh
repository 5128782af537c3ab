#!/usr/bin/env bash
# trust.sh [FOLDER]: writes docs/trust.md: the text of scripts/trust.md.in, with the tables that scripts/nightly.sh has left
# in FOLDER (build/nightly unless named) in the places of its marks. A mark is a line "@NAME.md@" or "@NAME.rows@".
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

folder=${1:-$root/build/nightly}
page=$(mktemp)
trap 'rm -f "$page"' EXIT

while IFS= read -r line; do
    if [[ $line =~ ^@([a-z]+\.[a-z]+)@$ ]]; then
        [[ -s $folder/${BASH_REMATCH[1]} ]] || fail "$folder has no ${BASH_REMATCH[1]}: run scripts/nightly.sh first"
        cat "$folder/${BASH_REMATCH[1]}"
    else
        printf '%s\n' "$line"
    fi
done <"$root/scripts/trust.md.in" >"$page"
cp "$page" "$root/docs/trust.md"
echo "wrote docs/trust.md"
