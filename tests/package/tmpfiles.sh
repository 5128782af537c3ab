#!/usr/bin/env bash
# tmpfiles.sh SOURCES PACKAGES: the folders and logs are made, and stay as they are once they are there; at boot a PID
# file that was left behind goes and nothing else does; at any other time it stays.
# shellcheck source=tests/package/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

tree=$scratch/tree
logs=$tree/var/log/velbootstrapservice

# A system whose service user is whoever runs this test, who may give files to nobody else.
make_system() {
    unpack velbootstrapservice "$tree"
    echo "velbootstrap:x:$(id -u):$(id -g)::/:/bin/false" >"$tree/etc/passwd"
    printf 'velbootstrap:x:%s:\nadm:x:%s:\n' "$(id -g)" "$(id -g)" >"$tree/etc/group"
}

run_tmpfiles() { systemd-tmpfiles "--root=$tree" "$@" velbootstrapservice.conf; }

check_installing() {
    expect "a run at installation" run_tmpfiles --create
    check_folders
    for file in velbootstrapservice.log zordefault.log; do
        expect_equal "mode of $file" 640 "$(stat -c %a "$logs/$file")"
    done
}

# What a service leaves behind, and what an administrator has chosen; the rest of /var has been cleared.
use_system() {
    echo 4711 >"$logs/velbootstrap_service.pid"
    echo 4712 >"$logs/zor_cnfgtest_4712"
    echo line >"$logs/velbootstrapservice.log"
    chmod 600 "$logs/velbootstrapservice.log"
    rm -r "$logs/tomcat" "$logs/zordefault.log" "$tree/var/lib/velbootstrapservice/tomcat/work" \
        "$tree/var/lib/velbootstrapservice/temp"
}

check_at_any_time() {
    expect "a run while the system is up" run_tmpfiles --create --remove
    expect_equal "the PID file while the system is up" 4711 "$(cat "$logs/velbootstrap_service.pid")"
    expect_equal "the other PID file" 4712 "$(cat "$logs/zor_cnfgtest_4712")"
}

check_at_boot() {
    expect "a run at boot" run_tmpfiles --create --remove --boot
    expect_not "the PID file is left" test -e "$logs/velbootstrap_service.pid"
    expect_not "the other PID file is left" test -e "$logs/zor_cnfgtest_4712"
    expect_equal "the log" line "$(cat "$logs/velbootstrapservice.log")"
    expect_equal "mode of the log" 600 "$(stat -c %a "$logs/velbootstrapservice.log")"
    expect_equal "mode of the other log" 640 "$(stat -c %a "$logs/zordefault.log")"
}

check_folders() {
    local folder
    for folder in log/velbootstrapservice log/velbootstrapservice/tomcat; do
        expect_equal "mode of $folder" 2750 "$(stat -c %a "$tree/var/$folder")"
    done
    for folder in temp tomcat/work tomcat/temp; do
        expect_equal "mode of $folder" 750 "$(stat -c %a "$tree/var/lib/velbootstrapservice/$folder")"
    done
}

make_system
check_installing
use_system
check_at_any_time
check_at_boot
check_folders
verdict
