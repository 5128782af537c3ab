#!/usr/bin/env bash
# pack.sh BUILD-FOLDER OUTPUT-FOLDER: brings what is shipped up to date in a build folder and packs it, as a Debian
# package and one with its debug symbols. Prints their paths. What is in the output folder already is removed.
set -euo pipefail

build=$(realpath "$1")
rm -rf "$2"
mkdir -p "$2"
output=$(realpath "$2")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# run COMMAND...: tells what it said only when it fails.
run() {
    "$@" >"$scratch/words" 2>&1 || {
        cat "$scratch/words" >&2
        exit 1
    }
}

run cmake --build "$build" --target shipped
cd "$scratch"
run cpack --config "$build/CPackConfig.cmake" -B "$output"
rm -rf "$output/_CPack_Packages"

# CPack's package of debug symbols names absolute files of this machine in its checksums, lacks the link to the
# documents that every package needs, and has an ending of its own that Debian's tools do not take.
mend_debug_package() {
    local ddeb=$1 tree=$scratch/debug
    dpkg-deb --raw-extract "$ddeb" "$tree"
    mkdir -p "$tree/usr/share/doc"
    ln -s velbootstrapservice "$tree/usr/share/doc/velbootstrapservice-dbgsym"
    find "$tree/usr" -type f -exec chmod 644 {} +
    (cd "$tree" && find usr -type f -exec md5sum {} + >DEBIAN/md5sums)
    sed -i '/^Package-Type:/d' "$tree/DEBIAN/control"
    dpkg-deb --root-owner-group --build "$tree" "${ddeb%.ddeb}.deb" >/dev/null
    rm "$ddeb"
}

for ddeb in "$output"/*.ddeb; do
    mend_debug_package "$ddeb"
done
find "$output" -name '*.deb' | sort
