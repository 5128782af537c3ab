#!/usr/bin/env bash
# package.sh [--built FOLDER] OUTPUT: makes the Debian package, one with its debug symbols, and the source package, in
# OUTPUT (build/package unless named), and prints their paths. Installs what is missing for that. What is in the output
# folder already is removed. With --built the packages hold what is built in that folder, which is brought up to date,
# and there is no source package.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

built=
if [[ ${1-} == --built ]]; then
    built=$(realpath "$2")
    shift 2
fi
output=${1:-$root/build/package}
version=$(sed -n '1s/.*(\(.*\)-[^-]*).*/\1/p' "$root/debian/changelog")
rm -rf "$output"
mkdir -p "$output"
output=$(realpath "$output")
tree=$output/velbootstrapservice-$version

# run COMMAND...: tells what it said only when it fails.
run() {
    "$@" >"$output/words" 2>&1 || {
        cat "$output/words" >&2
        exit 1
    }
}

# The files that belong to the sources, whether the checkout is git's or an unpacked archive.
source_files() {
    if [[ -e $root/.git ]]; then
        git -C "$root" ls-files -z
    else
        (cd "$root" && find . -path ./build -prune -o ! -type d -print0)
    fi
}

# The same from the same files: whose they are here, and when they came, is not part of it.
copy_sources() {
    local date
    date=@$(dpkg-parsechangelog -l "$root/debian/changelog" -S Timestamp)
    mkdir "$tree"
    source_files | LC_ALL=C sort -z | tar -C "$root" --null --no-recursion -T - -c | tar -x -C "$tree"
    chmod -R u=rwX,go=rX "$tree"
    tar -C "$output" --exclude="${tree##*/}/debian" --sort=name --mtime="$date" --owner=0 --group=0 --numeric-owner \
        -cJf "$output/velbootstrapservice_$version.orig.tar.xz" "${tree##*/}"
}

# As debian/control names them.
install_build_dependencies() {
    local sudo_word
    install_missing dpkg-dev
    dpkg-checkbuilddeps "$root/debian/control" 2>/dev/null && return
    sudo_word=$(elevation) || fail "packages to build with are missing; as root, run: apt-get build-dep $root"
    run $sudo_word apt-get update -qq
    run $sudo_word env DEBIAN_FRONTEND=noninteractive apt-get build-dep -y -qq --no-install-recommends "$root"
}

if [[ -n $built ]]; then
    # The recipe alone, on what is there when it is up to date.
    run cmake --build "$built" --target shipped
    mkdir "$tree"
    cp -r "$root/debian" "$root/CHANGELOG.md" "$tree/"
    cd "$tree"
    run env VBS_BUILD="$built" dpkg-buildpackage --build=binary --no-check-builddeps --no-pre-clean -us -uc
else
    install_build_dependencies
    copy_sources
    cd "$tree"
    run dpkg-buildpackage -us -uc
fi
cd "$output"
rm -rf "$tree" words
find "$output" -type f | sort
