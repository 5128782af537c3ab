#!/usr/bin/env bash
# reproducible.sh [FOLDER]: makes the packages twice, in folders of different names and lengths, in different time
# zones, languages and umasks, and compares: they must be the same, byte for byte. FOLDER (build/reproducible unless
# named) is emptied first and keeps both.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

folder=${1:-$root/build/reproducible}
rm -rf "$folder"
mkdir -p "$folder"

(umask 022 && TZ=UTC LC_ALL=C "$root/scripts/package.sh" "$folder/once") >/dev/null
(umask 077 && TZ=Pacific/Auckland LC_ALL=C.UTF-8 "$root/scripts/package.sh" "$folder/a second time elsewhere") >/dev/null

compared=0
for file in "$folder"/once/*.deb "$folder"/once/*.tar.xz "$folder"/once/*.dsc; do
    cmp "$file" "$folder/a second time elsewhere/${file##*/}" || fail "${file##*/} is another one the second time"
    sha256sum "$file"
    compared=$((compared + 1))
done
echo "$compared files, the same both times"
