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
    expect_equal "enabled units" velbootstrapservice-certificates.timer \
        "$(find "$changes/etc/systemd" -type l -printf '%f\n' 2>/dev/null)"
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

# Takes streams as the journal does, and keeps what comes.
start_journal() {
    as_service rm -f "$logs/tomcat.out"
    mkdir -p "$copy/run/systemd/journal"
    # The program is perl's.
    # shellcheck disable=SC2016
    in_copy perl -MIO::Socket::UNIX -e '
        my $journal = IO::Socket::UNIX->new(Local => "/run/systemd/journal/stdout", Listen => 9) or die;
        chmod 0666, "/run/systemd/journal/stdout";
        $SIG{CHLD} = "IGNORE";
        while (my $stream = $journal->accept) {
            next if fork;
            open my $file, ">>", "/tmp/journal" or die;
            while (sysread $stream, my $words, 4096) { syswrite $file, $words }
            exit;
        }' &
    journal=$!
    wait_until 20 test -S "$copy/run/systemd/journal/stdout" || fail "no journal"
}

end_journal() {
    kill "$journal"
    rm "$copy/run/systemd/journal/stdout"
}

journal_says() { grep -q "$1" "$copy/tmp/journal"; }

# Led there by systemd-cat, as the name that the document gives; it is the daemon's own child all the same.
check_printed_words() {
    local jvm
    jvm=$(in_copy pgrep -u velbootstrap -x java)
    expect_equal "the JVM's parent" "$(cat "$copy$logs/velbootstrap_service.pid")" \
        "$(in_copy ps -o ppid= -p "$jvm" | tr -d ' ')"
    as_service kill -QUIT "$jvm"
    wait_until 20 journal_says 'Full thread dump' || wrong "the JVM's words are not in the journal"
    expect "the name in the journal" journal_says '^tomcat$'
    expect_not "a file besides" test -e "$copy$logs/tomcat.out"
}

check_use() {
    local answer
    start_journal
    run_line ExecStart
    check_printed_words
    expect_running 0 "after the start"
    expect_equal "what the PID file names" /usr/lib/velbootstrapservice/velbootstrapservice \
        "$(in_copy readlink "/proc/$(cat "$copy$logs/velbootstrap_service.pid")/exe")"
    answer=$(ask /etc/velbootstrapservice/ca.pem https://localhost:9300/dispatch/) || true
    expect_equal "the answer to curl" 200 "$answer"
    expect "the companion knows the instance in any folder" in_copy velbootstrapctl status
    expect "the companion finds no fault in the settings" in_copy velbootstrapctl check
    expect "turning the log over" in_copy logrotate --force /etc/logrotate.d/velbootstrapservice
    check_printed docs/packaging.md "^runuser .* -isrunning'\$"
    check_printed docs/configuration.md '^xmllint .* /usr/share/'
    expect_equal "the old log" "640 velbootstrap:adm" "$(owner_of "$logs/velbootstrapservice.log.1")"
    expect_running 0 "after the log was turned over"
    run_line ExecStop
    end_journal
    expect_running 1 "after the stop"
    expect "renewing tells how to restart" grep -qxF "  systemctl restart velbootstrapservice" \
        <(in_copy velbootstrap-tomcat --system --renew)
    expect_equal "processes after the stop" "" "$(service_processes)"
}

# unit_command WORD...: what the units run, as they run it; its words go into "words".
unit_command() {
    local who=as_service
    [[ $1 != guard ]] || who=in_copy
    words=$("$who" /bin/sh -c "cd $(setting WorkingDirectory) && exec /usr/lib/velbootstrapservice/velbootstrap-unit $*" 2>&1)
}

# expect_refused WHAT WORDS COMMAND: the unit's command fails and says so.
expect_refused() {
    if unit_command "$3"; then
        wrong "$1: not refused"
    fi
    expect "$1 is told: $words" grep -qE -- "$2" <<<"$words"
}

# Whoever reads a process's arguments waits for that process; one that lets the reader wait is none the less told of.
check_held_reader() {
    local code=0
    mkdir "$copy/tmp/slow"
    printf '#!/bin/sh\nexec sleep 600\n' >"$copy/tmp/slow/tr"
    chmod 755 "$copy/tmp/slow" "$copy/tmp/slow/tr"
    words=$(timeout 60 chroot "$copy" env -i PATH=/tmp/slow:/usr/sbin:/usr/bin:/sbin:/bin \
        /usr/lib/velbootstrapservice/velbootstrap-unit guard 2>&1) || code=$?
    expect_equal "the guard's exit code when a reader waits" 1 "$code"
    expect "the process is told: $words" grep -qF "runs as process $1: stop it first" <<<"$words"
    expect_equal "readers that still wait" "" "$(in_copy pgrep -f "sleep 600" || true)"
}

# What would hold up a start, or make it one that serves nobody, is refused before it.
check_guards() {
    local settings=$copy/etc/velbootstrapservice pid
    expect_refused "a start before an instance was made" 'sek.cnf names .*ca.pem .*velbootstrap-tomcat --system' check
    in_copy velbootstrap-tomcat --system >/dev/null || fail "the system instance could not be readied"
    expect "the documents are accepted" unit_command check
    expect "nothing runs yet" unit_command guard

    sed -i 's|<stop type=|<stop tpye=|' "$settings/bootstrap_linuxi38632.xml"
    expect_refused "a misspelt attribute" 'bootstrap_linuxi38632.xml:[0-9]+: .*tpye' check
    sed -i 's|<stop tpye=|<stop type=|' "$settings/bootstrap_linuxi38632.xml"
    sed -i 's|>60<|>sixty<|' "$settings/startup.xml"
    expect_refused "a number in letters" 'startup.xml:[0-9]+: .*sixty' check
    sed -i 's|>sixty<|>60<|' "$settings/startup.xml"

    sed -i 's|<ZOR>|<ZOR|' "$settings/startup.xml"
    expect_refused "a start that cannot work" 'FATAL .*Error occured processing configuration' "start -testReadyTries=1"
    sed -i 's|<ZOR$|<ZOR>|' "$settings/startup.xml"

    unit_command certificates || wrong "certificates cannot be looked at"
    expect_equal "what is told of certificates" "" "$words"
    in_copy velbootstrap-tomcat --system --renew --days 20 >/dev/null || fail "no renewal"
    unit_command certificates
    expect "a certificate that ends soon: $words" grep -qE \
        '^<4>/etc/velbootstrapservice/dispatcher.pem: the certificate of CN = localhost is good until .* only$' \
        <<<"$words"
    in_copy velbootstrap-tomcat --system --renew >/dev/null || fail "no renewal"

    # Started by hand, in bin/.
    as_service /bin/sh -c "cd $instance/bin && ./velbootstrapservice -start -testReadyTries=60 -testReadyInterval=1" ||
        fail "no start by hand"
    pid=$(cat "$copy$logs/velbootstrap_service.pid")
    expect_refused "a service that was started by hand" \
        "^a service that was started by hand runs as process $pid: stop it first\$" guard
    check_held_reader "$pid"
    expect_equal "the PID file" "$pid" "$(cat "$copy$logs/velbootstrap_service.pid")"
    expect_running 0 "after the refusal"
    # The name that systemd used to take away: the service is found without it.
    rm "$copy$logs/velbootstrap_service.pid"
    expect_refused "a service without its PID file" "runs as process $pid:" guard
    expect "removing, with a service that nothing names" run_dpkg --remove velbootstrapservice
    expect_equal "processes after removing" "" "$(service_processes)"
    install_package
}

# Upgraded while it runs, started by hand: nobody stops it. Removed after that: stopped first; settings and logs stay.
check_removal() {
    local settings=$copy/etc/velbootstrapservice/startup.xml
    sed -i 's|>60<|>55<|' "$settings"
    run_line ExecStart
    words=$(run_dpkg --install /tmp/package.deb 2>&1) || wrong "no upgrade: $words"
    expect_not "an upgrade tells what has been done long ago" grep -qF "next, as root" <<<"$words"
    expect_running 0 "after installing a second time"
    expect_equal "what the JVM prints without a journal" "640 velbootstrap:adm" "$(owner_of "$logs/tomcat.out")"
    expect "removing" run_dpkg --remove velbootstrapservice
    expect_equal "processes after removing" "" "$(service_processes)"
    expect_not "the program is there" test -e "$copy/usr/lib/velbootstrapservice/velbootstrapservice"
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
words=$(run_dpkg --install /tmp/package.deb 2>&1) || fail "no installation: $words"
expect "installing tells what is next" grep -qF "next, as root: velbootstrap-tomcat --system" <<<"$words"
check_installed
check_guards
check_use
check_removal
check_purge
verdict
