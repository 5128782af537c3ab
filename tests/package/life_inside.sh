#!/usr/bin/env bash
# life_inside.sh SOURCES PACKAGES FOLDER: what life.sh does, in namespaces of its own. FOLDER is for the copy.
place=$3
# shellcheck source=tests/package/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# shellcheck source=tests/package/copy.sh
source "$(dirname "${BASH_SOURCE[0]}")/copy.sh"

# The unit's settings are those that were installed.
setting() { sed -n "s/^$1=//p" "$copy/lib/systemd/system/velbootstrapservice.service"; }

# Runs the unit's command line of that name as the unit says. Without its success nothing more can be seen.
run_line() {
    local code=0
    as_service /bin/sh -c "umask $(setting UMask); cd $(setting WorkingDirectory) && $(setting "$1")" || code=$?
    ((code == 0)) && return
    wrong "$1 ended with $code"
    tail -n 30 "$changes$logs/velbootstrapservice.log" >&2
    verdict
}

expect_running() {
    local code=0
    as_service /bin/sh -c "cd $instance/bin && ./velbootstrapservice -isrunning" || code=$?
    expect_equal "exit code of -isrunning $2" "$1" "$code"
}

service_processes() { in_copy pgrep -u "$service_id" | tr '\n' ' '; }

# --- its life ---

check_installed() {
    local folder file
    service_id=$(in_copy id -u velbootstrap)
    expect_equal "the user's shell" /usr/sbin/nologin "$(in_copy getent passwd velbootstrap | cut -d: -f7)"
    expect "a system user" test "$service_id" -lt 1000
    for folder in temp tomcat/work tomcat/temp; do
        expect_equal "$folder" "750 velbootstrap:velbootstrap" "$(owner_of "$instance/$folder")"
    done
    for folder in "$logs" "$logs/tomcat"; do
        expect_equal "$folder" "2750 velbootstrap:adm" "$(owner_of "$folder")"
    done
    # What the service must not change about itself.
    for folder in "$instance" "$instance/bin" "$instance/tomcat/webapps" /etc/velbootstrapservice; do
        expect_equal "$folder" "755 root:root" "$(owner_of "$folder")"
    done
    expect_equal "processes after installing" "" "$(service_processes)"
    expect_equal "enabled units" "" "$(find "$changes/etc/systemd" -type l 2>/dev/null)"
    expect "the manager accepts the units" in_copy systemd-analyze --man=no verify \
        velbootstrapservice.service velbootstrapservice-foreground.service
    expect_not "it runs before the start" in_copy /bin/sh -c "cd $instance/bin && ./velbootstrapservice -isrunning"
    expect_running 1 "before the start"
    # Root has asked first, and took nothing from the service.
    for file in velbootstrapservice.log zordefault.log; do
        expect_equal "$file" "640 velbootstrap:adm" "$(owner_of "$logs/$file")"
    done
}

ask() { as_nobody curl -sS --max-time 20 -o /dev/null -w '%{http_code}' --cacert "$@"; }

# check_printed PAGE PATTERN: the commands of a page that match work as they are printed, in bin/.
check_printed() {
    local command commands
    mapfile -t commands < <(grep -E "$2" "$sources/$1")
    expect "$1 prints $2" test "${#commands[@]}" -gt 0
    for command in "${commands[@]}"; do
        expect "a command of $1" in_copy /bin/sh -c "cd $instance/bin && $command"
    done
}

check_use() {
    local answer
    in_copy velbootstrap-tomcat --system >/dev/null || fail "the system instance could not be readied"
    run_line ExecStart
    expect_running 0 "after the start"
    expect_equal "what the PID file names" /usr/lib/velbootstrapservice/velbootstrapservice \
        "$(in_copy readlink "/proc/$(cat "$copy$logs/velbootstrap_service.pid")/exe")"
    expect "the unit names that PID file" in_copy test "$(setting PIDFile)" -ef "$logs/velbootstrap_service.pid"
    answer=$(ask /etc/velbootstrapservice/ca.pem https://localhost:9300/dispatch/) || true
    expect_equal "the answer to curl" 200 "$answer"
    expect "turning the log over" in_copy logrotate --force /etc/logrotate.d/velbootstrapservice
    check_printed docs/packaging.md "^runuser .* -isrunning'\$"
    check_printed docs/configuration.md '^xmllint .* /usr/share/'
    expect_equal "the old log" "640 velbootstrap:adm" "$(owner_of "$logs/velbootstrapservice.log.1")"
    expect_running 0 "after the log was turned over"
    run_line ExecStop
    expect_running 1 "after the stop"
    expect "renewing tells how to restart" grep -qxF "  systemctl restart velbootstrapservice" \
        <(in_copy velbootstrap-tomcat --system --renew)
    expect_equal "processes after the stop" "" "$(service_processes)"
}

# Upgraded while it runs, started by hand: nobody stops it. Removed after that: stopped first; settings and logs stay.
check_removal() {
    local settings=$copy/etc/velbootstrapservice/startup.xml
    sed -i 's|>60<|>55<|' "$settings"
    run_line ExecStart
    install_package
    expect_running 0 "after installing a second time"
    expect "removing" run_dpkg --remove velbootstrapservice
    expect_equal "processes after removing" "" "$(service_processes)"
    expect_not "the program is there" test -e "$copy/usr/sbin/velbootstrapservice"
    expect "the settings stay" test -f "$settings"
    expect "the logs stay" test -f "$copy$logs/velbootstrapservice.log"
    install_package
    expect "a changed setting survives" grep -q '>55<' "$settings"
    expect "the certificates survive" test -f "$copy/etc/velbootstrapservice/dispatcher.key"
}

# What dpkg notes, and what belongs to other packages' triggers, is not the package's.
check_purge() {
    expect "purging" run_dpkg --purge velbootstrapservice
    expect_equal "the user" "" "$(in_copy getent passwd velbootstrap || true)"
    expect_equal "the group" "" "$(in_copy getent group velbootstrap || true)"
    expect_equal "what is left" "" "$(find "$changes" -name '*velbootstrap*' ! -path '*/var/lib/dpkg/*')"
    expect_equal "files of nobody's" "" "$(find "$changes" -uid "$service_id")"
}

make_copy
install_package
check_installed
check_use
check_removal
check_purge
verdict
