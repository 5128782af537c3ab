#!/usr/bin/env bash
# prefix.sh SOURCES PACKAGES PROGRAM COMPANION LIBRARY: installed below a folder of an ordinary user's, everything stays within it,
# names nothing outside of it, and works.
# shellcheck source=tests/package/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

program=$3
companion=$4
library=$5
prefix=$scratch/own
build=$scratch/build

# Configured anew, with the programs that are there already.
install_there() {
    mkdir -p "$build/bin"
    cp "$program" "$companion" "$library" "$build/bin/"
    expect "configuring" cmake -S "$sources" -B "$build" -DCMAKE_INSTALL_PREFIX="$prefix" \
        -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVBS_TESTS=OFF
    expect "installing" cmake --install "$build"
}

# What an ordinary installation would have written to is somewhere else: nothing of it may be touched.
check_places() {
    local place
    for place in lib/velbootstrapservice/velbootstrapservice etc/velbootstrapservice/startup.xml \
        etc/logrotate.d/velbootstrapservice lib/systemd/system/velbootstrapservice.service \
        lib/tmpfiles.d/velbootstrapservice.conf var/lib/velbootstrapservice/bin/zorlogconfig.xml; do
        expect "$place is installed" test -s "$prefix/$place"
    done
    expect_equal "what names places of another installation" "" \
        "$(grep -rIlE "(^|[^a-z])/(usr/(lib|share)|etc|var/lib|var/log)/velbootstrapservice" "$prefix" || true)"
    expect_equal "links to nowhere" "" \
        "$(find "$prefix" -xtype l ! -path "*/var/lib/velbootstrapservice/logs" ! -path "*/tomcat/logs")"
    expect "the manifest names nothing outside" test -z \
        "$(grep -v "^$prefix/" "$build/install_manifest.txt")"
}

# An installation for a user, by the command as it was installed.
check_use() {
    local code=0
    expect "making an installation" "$prefix/bin/velbootstrap-tomcat" "$scratch/instance"
    (cd "$scratch/instance/bin" && ./velbootstrapservice -isrunning) || code=$?
    expect_equal "exit code of -isrunning" 1 "$code"
    expect "it has logged" test -e "$scratch/instance/logs/zordefault.log"
}

install_there
check_places
check_use
verdict
