#!/usr/bin/env bash
# units.sh SOURCES PACKAGES: the manager takes the units as they are, both are confined, and their times fit the
# settings that come with the package.
# shellcheck source=tests/package/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

tree=$scratch/tree
unpack velbootstrapservice "$tree"
units=$tree/$(units_place)

setting() { sed -n "s/^$1=//p" "$units/$2.service"; }
expect_setting() { expect_equal "$1 of $3" "$2" "$(setting "$1" "$3")"; }

verify() {
    systemd-analyze "--root=$tree" --man=no verify \
        velbootstrapservice.service velbootstrapservice-foreground.service
}

# The package's files among the manager's own targets, as on an installed system.
make_system() {
    cp -r /lib/systemd/system/*.target "$units/"
    mkdir -p "$tree/bin"
    cp /bin/sh "$tree/bin/sh"
}

check_accepted() {
    local words
    words=$(verify 2>&1) || wrong "the units are refused"
    expect_equal "what the manager says" "" "$words"
    # It would have told: the program is what both units name.
    rm "$tree/var/lib/velbootstrapservice/bin/velbootstrapservice"
    expect_not "a unit without its program is accepted" verify
}

check_kinds() {
    local unit
    expect_setting Type forking velbootstrapservice
    # Not the service's own, which systemd would remove when a service that was started by hand runs.
    expect_setting PIDFile /run/velbootstrapservice/main.pid velbootstrapservice
    # Root's own folder, whose files the service cannot exchange.
    expect_setting RuntimeDirectory "" velbootstrapservice
    expect_setting ExecStartPost "+/usr/lib/velbootstrapservice/velbootstrap-unit announce" velbootstrapservice
    expect_setting Type simple velbootstrapservice-foreground
    expect_setting After "network.target velbootstrapservice.service" velbootstrapservice-foreground
    expect_setting Conflicts velbootstrapservice-foreground.service velbootstrapservice
    expect_setting Conflicts velbootstrapservice.service velbootstrapservice-foreground
    expect_setting Restart on-failure velbootstrapservice
    expect_setting Restart always velbootstrapservice-foreground
    for unit in velbootstrapservice velbootstrapservice-foreground; do
        expect_equal "ExecStartPre of $unit" "+/usr/lib/velbootstrapservice/velbootstrap-unit guard
/usr/lib/velbootstrapservice/velbootstrap-unit check" "$(setting ExecStartPre "$unit")"
        # A repaired service can be started at once.
        expect_setting StartLimitIntervalSec 0 "$unit"
        expect_setting User velbootstrap "$unit"
        expect_setting KillMode mixed "$unit"
        # A child that the kernel ends is the service's to replace.
        expect_setting OOMPolicy continue "$unit"
        # What it writes is for itself and for those who read the logs.
        expect_setting UMask 0027 "$unit"
        expect_setting WorkingDirectory /var/lib/velbootstrapservice/bin "$unit"
    done
}

# Ten is a unit without any protection.
check_sandbox() {
    local unit
    for unit in velbootstrapservice velbootstrapservice-foreground; do
        expect "the sandbox of $unit" \
            systemd-analyze "--root=$tree" security --offline=true --threshold=20 "$unit.service"
    done
}

# The number behind the option of that name in a unit's command line.
number_of() { sed -n "s/.*-$1=\([0-9]*\).*/\1/p" <<<"$2"; }
attribute() { sed -n "s/.*$1=\"\([0-9]*\)\".*/\1/p" "$tree/etc/velbootstrapservice/bootstrap_linuxi38632.xml"; }
parameter() {
    sed -n "/name=\"$1\"/,/vrx:value/s/.*<vrx:value[^>]*>\([0-9]*\)<.*/\1/p" "$tree/etc/velbootstrapservice/startup.xml"
}

# The same computation as in the unit's first lines, from the documents themselves.
check_times() {
    local start stop ping ready_seconds dead_seconds stop_seconds
    start=$(setting ExecStart velbootstrapservice)
    stop=$(setting ExecStop velbootstrapservice)
    ping=$((2 + 10 + 12 + $(attribute sockIOTimeoutSec)))
    ready_seconds=$(($(number_of testReadyTries "$start") * ($(number_of testReadyInterval "$start") + ping)))
    dead_seconds=$(($(number_of testDeadTries "$stop") * $(number_of testDeadInterval "$stop")))
    stop_seconds=$((ping + 2 + 10 + $(parameter dispatcherStopWaitTime) + 1 + 6))
    expect "-stop waits $dead_seconds s, stopping takes $stop_seconds s" test "$dead_seconds" -gt "$stop_seconds"
    expect "TimeoutStopSec covers -stop" test "$(setting TimeoutStopSec velbootstrapservice)" -gt "$dead_seconds"
    expect "TimeoutStartSec covers -start and a stop after it" \
        test "$(setting TimeoutStartSec velbootstrapservice)" -gt $((ready_seconds + dead_seconds))
    expect_equal "what removing the package waits" "$(setting TimeoutStopSec velbootstrapservice)" \
        "$(sed -n 's/^wait_seconds=//p' "$sources/debian/velbootstrapservice.prerm")"
    expect_setting TimeoutStopSec "$(setting TimeoutStopSec velbootstrapservice)" velbootstrapservice-foreground
}

make_system
check_kinds
check_sandbox
check_times
check_accepted
verdict
