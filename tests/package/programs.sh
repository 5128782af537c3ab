#!/usr/bin/env bash
# programs.sh SOURCES PACKAGES PROGRAM COMPANION LIBRARY: the programs in the package are those that were built and tested,
# hardened and without their symbols, and the package of debug symbols fits them.
# shellcheck source=tests/package/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

program=$3
companion=$4
library=$5
tree=$scratch/tree
debug=$scratch/debug
unpack velbootstrapservice "$tree"
unpack velbootstrapservice-dbgsym "$debug"

# A file of symbols lacks what it shares with its program, of which readelf complains.
build_id() { readelf --notes "$1" 2>/dev/null | sed -n 's/.*Build ID: //p'; }
dynamic() { readelf --wide --dynamic "$1"; }
# The bytes of a section as they are in the file.
section() { objcopy --output-target=binary --only-section="$1" "$2" /dev/stdout; }
in_text() { grep -qE -- "$2" <<<"$1"; }

check_same_as_built() {
    local installed=$1 built=$2 part
    expect_equal "build id of $installed" "$(build_id "$built")" "$(build_id "$installed")"
    for part in .text .rodata .data; do
        expect "$part of $installed" cmp <(section "$part" "$built") <(section "$part" "$installed")
    done
}

check_hardened() {
    local installed=$1 built=$2
    expect "hardened: $installed" "$sources/scripts/hardening.sh" "$installed"
    expect_not "a folder of the building machine is named in $installed" grep -qF "$sources/" "$installed"
    if [[ $(uname -m) == x86_64 ]]; then
        expect "marked branch targets: $installed" in_text \
            "$(objdump --disassemble="$3" --no-show-raw-insn "$built")" endbr64
    fi
}

# RUNPATH and not RPATH: LD_LIBRARY_PATH must win.
check_run_path() {
    # The loader, not the shell, knows what it stands for.
    # shellcheck disable=SC2016
    expect_equal "RUNPATH" '[$ORIGIN]' "$(dynamic "$1" | sed -n 's/.*(RUNPATH).*\(\[.*\]\)/\1/p')"
    expect_equal "RPATH" "" "$(dynamic "$1" | grep '(RPATH)' || true)"
}

check_symbols() {
    local installed=$1 id symbols
    id=$(build_id "$installed")
    symbols=$debug/usr/lib/debug/.build-id/${id:0:2}/${id:2}.debug
    expect_not "symbols left in $installed" in_text "$(readelf --wide --sections "$installed")" '\.symtab|\.debug_info'
    expect_equal "build id of the symbols" "$id" "$(build_id "$symbols")"
    expect "symbols of $installed" in_text "$(readelf --wide --sections "$symbols" 2>/dev/null)" '\.debug_info'
}

for built in "$program" "$companion" "$library"; do
    file=${built##*/}
    installed=$tree/usr/lib/velbootstrapservice/$file
    # A function that is ours: the libraries that are linked in are built as Debian builds them.
    function=main
    if [[ $file == lib* ]]; then
        function=SEK_Connect_Url
    fi
    check_same_as_built "$installed" "$built"
    check_hardened "$installed" "$built" "$function"
    check_symbols "$installed"
done
for file in velbootstrapservice velbootstrapctl; do
    check_run_path "$tree/usr/lib/velbootstrapservice/$file"
done
expect "the checksums of the symbols" env -C "$debug" md5sum --check --quiet \
    <(dpkg-deb --ctrl-tarfile "$(echo "$packages"/velbootstrapservice-dbgsym_*.deb)" | tar -xO ./md5sums)
verdict
