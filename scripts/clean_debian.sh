#!/usr/bin/env bash
# clean_debian.sh [FOLDER]: proves that the package works on a clean Debian of this machine's release. Puts a
# minimal one into a folder (a throw-away one unless named; a named one is kept), boots it as a container, installs the
# package with apt, and takes it through the two commands to a supervised Tomcat, the commands that the documents print
# for an installed package, the kill, the stop, another boot, and the purge. Needs root, Debian's archive, and some
# minutes. The packages must have been built: scripts/package.sh.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

((EUID == 0)) || fail "needs root"
package=$(find "$root/build/package" -name 'velbootstrapservice_*.deb' 2>/dev/null)
[[ -n $package ]] || fail "no package: run scripts/package.sh first"
install_missing debootstrap systemd-container

container=
scratch=
if (($# > 0)); then
    system=$1
else
    scratch=$(mktemp -d)
    system=$scratch/debian
fi

# --- the container ---

shut_down() {
    if [[ -n $container ]]; then
        kill -TERM "$container" 2>/dev/null || true
        wait "$container" || true
        container=
    fi
}

clean_up() {
    shut_down
    [[ -z $scratch ]] || rm -rf "$scratch"
    rm -f "$words"
}

make_system() {
    [[ ! -e $system/etc/debian_version ]] || return 0
    local release
    release=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)
    echo "Making a minimal Debian, $release"
    debootstrap --variant=minbase --include=systemd,systemd-sysv,dbus "$release" "$system" >"$words" 2>&1 ||
        fail "debootstrap failed: $(tail -n 5 "$words")"
}

# With the machine's network and without the container's manager running, as when an image is made. What is not
# installed for the package's sake is what the documents' commands need besides.
install_package() {
    local tools="curl procps bash-completion libxml2-utils logrotate man-db"
    cp "$package" "$system/root/"
    systemd-nspawn --quiet --register=no --keep-unit --pipe --resolv-conf=copy-host --directory="$system" \
        /bin/sh -c "cd /root && apt-get update -qq && apt-get install -y -qq ./${package##*/} $tools </dev/null" \
        >"$words" 2>&1 ||
        fail "apt failed: $(tail -n 20 "$words")"
}

# The container's first process, which systemd-nspawn has started.
manager() { pgrep --parent "$container" || true; }

inside() { nsenter --target "$(manager)" --all env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@"; }

# What lies in the service's folders is looked at and changed as its user, who could have put a link there.
as_service() { inside runuser -u velbootstrap -- "$@"; }

is_up() {
    local state
    state=$(inside systemctl is-system-running 2>/dev/null) || true
    [[ $state == running || $state == degraded ]]
}

# With a network of its own, so that its ports are nobody else's.
boot() {
    systemd-nspawn --quiet --register=no --keep-unit --private-network --console=pipe --boot \
        --directory="$system" </dev/null >"$words" 2>&1 &
    container=$!
    wait_until 60 is_up || fail "the container does not come up: $(tail -n 20 "$words")"
}

# --- what is proved ---

show() {
    printf '%3d s  # %s\n' "$SECONDS" "$*"
    inside "$@" || stop_here "it ended with $?"
}

# As show, for a command that talks a lot.
show_quietly() {
    printf '%3d s  # %s\n' "$SECONDS" "$*"
    inside "$@" >"$words" 2>&1 || stop_here "it ended with $?: $(tail -n 20 "$words")"
}

stop_here() {
    inside systemctl --no-pager status velbootstrapservice velbootstrapservice-foreground || true
    inside journalctl --no-pager -n 40 || true
    as_service tail -n 40 /var/log/velbootstrapservice/velbootstrapservice.log || true
    fail "$*"
}

claim() { printf '%3d s  %s\n' "$SECONDS" "$*"; }

ask() { inside curl -sS --cacert /etc/velbootstrapservice/ca.pem https://localhost:9300/dispatch/; }
answers() { ask >/dev/null 2>&1; }
tomcat() { inside pgrep --uid velbootstrap --full org.apache.catalina || true; }
was_replaced() { [[ -n $(tomcat) && $(tomcat) != "$1" ]] && answers; }
# "-start" has returned, too.
was_restarted() { was_replaced "$1" && [[ $(state_of velbootstrapservice) == active ]]; }
state_of() { inside systemctl is-active "$1" || true; }
expect_state() { [[ $(state_of "$2") == "$1" ]] || stop_here "$2 is $(state_of "$2"), not $1"; }
nothing_runs() { [[ -z $(inside pgrep --uid velbootstrap) ]]; }

prove_two_commands() {
    [[ -z $(inside systemctl --quiet is-enabled velbootstrapservice && echo enabled) ]] || stop_here "it is enabled"
    show velbootstrap-tomcat --system
    show systemctl start velbootstrapservice
    show curl -sS --cacert /etc/velbootstrapservice/ca.pem https://localhost:9300/dispatch/
    expect_state active velbootstrapservice
}

# The lines of a page that match, as they are printed, in the instance's bin/.
show_printed() {
    local line lines
    mapfile -t lines < <(grep -E "$2" "$root/$1")
    ((${#lines[@]} > 0)) || stop_here "$1 does not print $2"
    for line in "${lines[@]}"; do
        show env --chdir=/var/lib/velbootstrapservice/bin sh -c "$line"
    done
}

# What "man" shows has the page's name in its first line; what bash completes with is found by the command's name.
prove_documents() {
    local page
    show_printed docs/packaging.md "^runuser .* -isrunning'\$"
    show_printed docs/packaging.md '^logrotate '
    show_printed docs/configuration.md '^xmllint .* /usr/share/'
    for page in velbootstrapservice velbootstrap.xml velbootstrap-tomcat; do
        show sh -c "man $page | head -n 1 | grep -i '^$page('"
    done
    # shellcheck disable=SC2016
    show bash -c '. /usr/share/bash-completion/bash_completion; _completion_loader velbootstrapservice || (($? == 124))
        complete -p velbootstrapservice'
}

prove_supervision() {
    local before
    before=$(tomcat)
    inside kill -KILL "$before"
    claim "killed Tomcat, process $before"
    wait_until 60 was_replaced "$before" || stop_here "it was not replaced"
    claim "replaced by process $(tomcat), which answers"
}

# await_restart BEFORE WORDS: systemd has started the unit again, with another Tomcat than BEFORE.
await_restart() {
    wait_until 90 was_restarted "$1" || stop_here "the unit was not restarted"
    claim "$2: Tomcat is process $(tomcat) now"
}

# The manager ends what the killed daemon has left, before it starts another.
prove_killed_daemon() {
    local before
    before=$(tomcat)
    inside kill -KILL "$(as_service cat /var/log/velbootstrapservice/velbootstrap_service.pid)"
    claim "killed the daemon"
    await_restart "$before" "restarted by systemd"
}

prove_upgrade() {
    local before
    before=$(tomcat)
    show_quietly apt-get install -y -qq --reinstall "/root/${package##*/}"
    await_restart "$before" "installed anew"
}

prove_stop() {
    show systemctl stop velbootstrapservice
    expect_state inactive velbootstrapservice
    nothing_runs || stop_here "something is left: $(inside ps -u velbootstrap)"
    claim "no process is left"
}

# The PID file that was left behind names a process that there is in every boot.
prove_boot() {
    show systemctl enable velbootstrapservice
    as_service sh -c 'echo 1 >/var/log/velbootstrapservice/velbootstrap_service.pid'
    shut_down
    boot
    expect_state active velbootstrapservice
    answers || stop_here "no answer after the boot"
    claim "started by the next boot: Tomcat is process $(tomcat)"
    show systemctl disable --now velbootstrapservice
    nothing_runs || stop_here "something is left: $(inside ps -u velbootstrap)"
}

prove_foreground() {
    show systemctl start velbootstrapservice-foreground
    wait_until 60 answers || stop_here "no answer"
    expect_state active velbootstrapservice-foreground
    show systemctl stop velbootstrapservice-foreground
    expect_state inactive velbootstrapservice-foreground
    nothing_runs || stop_here "something is left"
    claim "the foreground unit serves and stops"
}

# The status of a unit that has failed is told with an exit code of its own.
status_says() {
    inside systemctl --no-pager status velbootstrapservice >"$words" 2>&1 || true
    grep -E -- "$1" "$words"
}

# A service that was started by hand stays what it is; the unit says which it is and touches nothing of it.
prove_twin() {
    local id pid_file=/var/log/velbootstrapservice/velbootstrap_service.pid
    as_service sh -c 'cd /var/lib/velbootstrapservice/bin && ./velbootstrapservice -start -testReadyTries=60 -testReadyInterval=1' ||
        stop_here "no start by hand"
    id=$(as_service cat "$pid_file")
    if inside systemctl start velbootstrapservice 2>/dev/null; then
        stop_here "the unit starts beside a service that was started by hand"
    fi
    inside systemctl stop velbootstrapservice
    status_says "runs as process $id: stop it first\$" || stop_here "the unit does not say why"
    [[ $(as_service cat "$pid_file") == "$id" ]] || stop_here "the PID file has changed"
    answers || stop_here "no answer any more"
    as_service sh -c 'cd /var/lib/velbootstrapservice/bin && ./velbootstrapservice -stop -testDeadTries=60 -testDeadInterval=1' ||
        stop_here "no stop by hand"
    nothing_runs || stop_here "something is left"
    claim "the unit leaves a service alone that was started by hand"
}

# From the one unit to the other: the first has stopped before the second begins.
prove_change() {
    show systemctl start velbootstrapservice
    show systemctl start velbootstrapservice-foreground
    expect_state inactive velbootstrapservice
    wait_until 60 answers || stop_here "no answer"
    [[ $(inside pgrep --uid velbootstrap --exact velbootstrapser | wc -l) == 1 ]] || stop_here "not one service"
    show systemctl start velbootstrapservice
    expect_state inactive velbootstrapservice-foreground
    expect_state active velbootstrapservice
    answers || stop_here "no answer"
    show systemctl stop velbootstrapservice
    nothing_runs || stop_here "something is left"
    claim "the units take over from each other"
}

# The reason is where an administrator looks, and a repaired service starts at once, however often it has failed.
prove_reasons() {
    local document=/etc/velbootstrapservice/bootstrap_linuxi38632.xml count
    inside sed -i 's|<stop type=|<stop tpye=|' "$document"
    for count in 1 2 3 4 5 6 7; do
        inside systemctl start velbootstrapservice 2>/dev/null && stop_here "a misspelt document counts as a good one"
        inside systemctl stop velbootstrapservice
    done
    status_says 'bootstrap_linuxi38632.xml:[0-9]+: .*tpye' || stop_here "the line is not told"
    inside sed -i 's|<stop tpye=|<stop type=|' "$document"
    show systemctl start velbootstrapservice
    answers || stop_here "no answer"
    show systemctl stop velbootstrapservice
    claim "$count failed starts told their reason, and the next one worked"
}

expect_no_start() {
    if inside systemctl start velbootstrapservice 2>/dev/null; then
        stop_here "the start counts as one with $*"
    fi
    nothing_runs || stop_here "something is left of the failed start with $*"
    # No further try.
    inside systemctl stop velbootstrapservice
    claim "no start with $*, and nothing is left of it"
}

# A faulty startup configuration ends "-start" with 0: systemd must not believe that a daemon is there.
prove_failures() {
    local settings=/etc/velbootstrapservice status=/var/lib/velbootstrapservice/temp/dispatcher.status
    local drop_in=/run/systemd/system/velbootstrapservice.service.d
    inside sed -i 's|<ZOR>|<ZOR|' "$settings/startup.xml"
    expect_no_start "a faulty startup configuration"
    inside sed -i 's|<ZOR$|<ZOR>|' "$settings/startup.xml"

    as_service sh -c "echo fatal >$status"
    expect_no_start "an application that says it is broken"

    # The unit's own line with fewer checks, so that this is over soon.
    as_service sh -c "echo 'not ready' >$status"
    inside sh -c "mkdir -p $drop_in; { echo '[Service]'; echo ExecStart=;
        sed -n 's/^\(ExecStart=.*-testReadyTries=\)[0-9]*/\12/p' /lib/systemd/system/velbootstrapservice.service
        } >$drop_in/soon.conf; systemctl daemon-reload"
    expect_no_start "an application that does not get ready in time"
    as_service rm "$status"
    inside sh -c "rm $drop_in/soon.conf; systemctl daemon-reload"
}

# While it runs, and enabled. What "man" has kept is its own.
prove_purge() {
    local left
    show systemctl enable --now velbootstrapservice
    show_quietly apt-get purge -y -qq velbootstrapservice
    left=$(inside find / -xdev -name '*velbootstrap*' ! -path '/root/*' ! -path '/var/lib/dpkg/*' \
        ! -path '/var/cache/man/*')
    [[ -z $left ]] || stop_here "something is left: $left"
    claim "purged: nothing is left"
}

words=$(mktemp)
trap clean_up EXIT
make_system
echo "Installing $package"
install_package
boot
SECONDS=0
prove_two_commands
prove_documents
prove_supervision
prove_killed_daemon
prove_upgrade
prove_stop
prove_boot
prove_foreground
prove_change
prove_twin
prove_reasons
prove_failures
prove_purge
echo "All of it came true in $SECONDS seconds."
