#!/usr/bin/env bash
# clean_debian.sh [--release RELEASE] [--package FILE] [--before FILE] [FOLDER]: proves that the package works on a clean
# Debian of this machine's release, or of the one named. Puts a minimal one into a folder (a throw-away one unless named; a
# named one is kept), boots it as a container, installs the package with apt (that of build/package, which
# scripts/package.sh makes, unless one is named), and takes it through the two commands to a supervised Tomcat, the
# commands that the documents print for an installed package, mistakes of all kinds, the kill, the stop, another boot,
# and the purge; with --before it begins with an older package, and upgrades. What came true is listed in the end. Needs
# root, Debian's archive, and some minutes. On this machine it installs debootstrap and systemd-container, where they are
# missing, and enables and starts nothing.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

release=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)
package=$(find "$root/build/package" -name 'velbootstrapservice_*.deb' 2>/dev/null)
older=
while [[ ${1-} == --* ]]; do
    case $1 in
        --release) release=$2 ;;
        --package) package=$(realpath "$2") ;;
        --before) older=$(realpath "$2") ;;
        *) fail "unknown option $1" ;;
    esac
    shift 2
done
((EUID == 0)) || fail "needs root"
[[ -n $package ]] || fail "no package: run scripts/package.sh first"

# On a machine that has it for this script only, systemd-container's own target would be started at every boot.
install_on_this_machine() {
    local had=no
    ! is_installed systemd-container || had=yes
    install_missing debootstrap systemd-container
    [[ $had == no ]] || return 0
    deb-systemd-helper disable machines.target
    [[ ! -d /run/systemd/system ]] || systemctl stop machines.target
    echo "systemd-container's machines.target stays disabled on this machine"
}
install_on_this_machine

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
    if [[ -e $system/etc/debian_version ]]; then
        grep -qx "VERSION_CODENAME=$release" "$system/etc/os-release" || fail "$system is not $release"
        return 0
    fi
    echo "Making a minimal Debian, $release"
    debootstrap --variant=minbase --include=systemd,systemd-sysv,dbus "$release" "$system" >"$words" 2>&1 ||
        fail "debootstrap failed: $(tail -n 5 "$words")"
    # What was built with security updates may need them.
    sed -i 's|^\(deb .*/debian\)/* \([a-z]*\) main.*|&\n\1-security \2-security main|' "$system/etc/apt/sources.list"
}

# With the machine's network and without the container's manager running, as when an image is made. What is not
# installed for the package's sake is what the documents' commands need besides. What a run that failed has left goes first.
install_package() {
    local tools="curl procps bash-completion logrotate man-db" first=${older:-$package}
    cp "$package" ${older:+"$older"} "$system/root/"
    systemd-nspawn --quiet --register=no --keep-unit --pipe --resolv-conf=copy-host --directory="$system" \
        /bin/sh -c "cd /root && apt-get update -qq && dpkg --purge velbootstrapservice && apt-get install -y -qq ./${first##*/} libxml2-utils $tools </dev/null" \
        >"$words" 2>&1 ||
        fail "apt failed: $(tail -n 20 "$words")"
    [[ -n $older ]] || grep -q 'next, as root: velbootstrap-tomcat --system' "$words" || fail "nothing tells what is next"
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

claim() {
    printf '%3d s  %s\n' "$SECONDS" "$*"
    true_claims+=("$*")
}
true_claims=()

ask() { inside curl -sS --cacert /etc/velbootstrapservice/ca.pem https://localhost:9300/dispatch/; }
answers() { ask >/dev/null 2>&1; }
tomcat() { inside pgrep --uid velbootstrap --full org.apache.catalina || true; }
was_replaced() { [[ -n $(tomcat) && $(tomcat) != "$1" ]] && answers; }
# "-start" has returned, too.
was_restarted() { was_replaced "$1" && [[ $(state_of velbootstrapservice) == active ]]; }
state_of() { inside systemctl is-active "$1" || true; }
expect_state() { [[ $(state_of "$2") == "$1" ]] || stop_here "$2 is $(state_of "$2"), not $1"; }
nothing_runs() { [[ -z $(inside pgrep --uid velbootstrap) ]]; }

# An older package serves, and the administrator has changed a setting and an application of their own.
prove_upgrade_from_older() {
    local settings=/etc/velbootstrapservice certificate before
    show velbootstrap-tomcat --system
    inside sed -i 's|>60<|>55<|' "$settings/startup.xml"
    show systemctl start velbootstrapservice
    answers || stop_here "no answer from the older package"
    as_service sh -c 'cd /var/lib/velbootstrapservice/tomcat/work && echo kept >kept'
    certificate=$(inside sha256sum "$settings/ca.pem" "$settings/dispatcher.pem" "$settings/dispatcher.key")
    before=$(tomcat)
    show_quietly env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "/root/${package##*/}"
    await_restart "$before" "upgraded from ${older##*/}"
    inside grep -q '>55<' "$settings/startup.xml" || stop_here "the changed setting is lost"
    [[ $(inside sha256sum "$settings/ca.pem" "$settings/dispatcher.pem" "$settings/dispatcher.key") == "$certificate" ]] ||
        stop_here "the certificates have changed"
    [[ $(inside stat -c '%a %U:%G' "$settings/dispatcher.key") == "640 root:velbootstrap" ]] || stop_here "the key's mode"
    [[ $(as_service sh -c 'cd /var/lib/velbootstrapservice/tomcat/work && cat kept') == kept ]] || stop_here "the state is lost"
    as_service grep -q 'pinged all children' /var/log/velbootstrapservice/velbootstrapservice.log || stop_here "the log is lost"
    show systemctl stop velbootstrapservice
    nothing_runs || stop_here "something is left: $(inside ps -u velbootstrap)"
    claim "an upgrade keeps configuration, certificates, state and log, and the service runs on"
    inside sed -i 's|>55<|>60<|' "$settings/startup.xml"
    show_quietly apt-get purge -y -qq velbootstrapservice
    show_quietly apt-get install -y -qq "/root/${package##*/}"
    grep -q 'next, as root: velbootstrap-tomcat --system' "$words" || stop_here "nothing tells what is next"
}

# Refused at once, where silence for minutes was.
prove_too_early() {
    local begin=$SECONDS
    if inside systemctl start velbootstrapservice 2>/dev/null; then
        stop_here "the unit starts before there is anything to serve"
    fi
    ((SECONDS - begin < 30)) || stop_here "it took $((SECONDS - begin)) s to refuse"
    wait_until 20 unit_says 'ca.pem .*velbootstrap-tomcat --system' || stop_here "the unit does not say what to do"
    inside systemctl stop velbootstrapservice
    claim "a start before an instance was made is refused at once, and tells the command"
}

prove_two_commands() {
    [[ -z $(inside systemctl --quiet is-enabled velbootstrapservice && echo enabled) ]] || stop_here "it is enabled"
    show velbootstrap-tomcat --system
    show systemctl start velbootstrapservice
    show curl -sS --cacert /etc/velbootstrapservice/ca.pem https://localhost:9300/dispatch/
    expect_state active velbootstrapservice
    claim "two commands after apt-get install a supervised Tomcat answers"
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

# Where nothing is said of an instance, the system's own is meant.
prove_companion() {
    show velbootstrapctl status
    show velbootstrapctl check
    claim "velbootstrapctl tells in any folder how the service is"
}

# What "man" shows has the page's name in its first line; what bash completes with is found by the command's name.
prove_documents() {
    local page
    show_printed docs/packaging.md "^runuser .* -isrunning'\$"
    show_printed docs/packaging.md '^logrotate '
    show_printed docs/configuration.md '^xmllint .* /usr/share/'
    for page in "$root"/packaging/man/*.[1-8]; do
        page=${page##*/}
        show sh -c "man ${page##*.} ${page%.*} | head -n 1 | grep -i '^${page%.*}('"
    done
    for page in README.Debian operation.md configuration.md transport.md packaging.md; do
        inside test -s "/usr/share/doc/velbootstrapservice/$page" || stop_here "no $page"
    done
    if inside sh -c 'command -v velbootstrapservice'; then
        stop_here "the service is in the search path, where it does nothing"
    fi
    claim "the commands that the guides print work; pages and guides are there, the service is not in the search path"
    # shellcheck disable=SC2016
    show bash -c '. /usr/share/bash-completion/bash_completion; _completion_loader velbootstrapservice || (($? == 124))
        complete -p velbootstrapservice'
}

# By the name that the document gives, and with the unit's own lines.
prove_printed_words() {
    local document=/etc/velbootstrapservice/bootstrap_linuxi38632.xml jvm
    jvm=$(tomcat)
    [[ $(inside ps -o ppid= -p "$jvm" | tr -d ' ') == "$(as_service cat /var/log/velbootstrapservice/velbootstrap_service.pid)" ]] ||
        stop_here "the JVM is not the daemon's own child"
    inside kill -QUIT "$jvm"
    wait_until 20 journal_has 'Full thread dump' -t tomcat || stop_here "no thread dump in the journal"
    show systemctl stop velbootstrapservice
    inside sed -i 's|<param>-Djava.awt.headless=true</param>|<param>-Xnonsense</param>|' "$document"
    as_service sh -c 'cd /var/lib/velbootstrapservice/bin && ./velbootstrapservice -start -testReadyTries=2 -testReadyInterval=1' &&
        stop_here "a start with a JVM that refuses its options"
    wait_until 20 journal_has 'Unrecognized option: -Xnonsense' -t tomcat || stop_here "the JVM's words are not in the journal"
    as_service sh -c 'cd /var/lib/velbootstrapservice/bin && ./velbootstrapservice -stop -testDeadTries=60 -testDeadInterval=1' ||
        stop_here "no stop by hand"
    inside journalctl --no-pager -o cat -t tomcat | grep Unrecognized | sort -u
    inside sed -i 's|<param>-Xnonsense</param>|<param>-Djava.awt.headless=true</param>|' "$document"
    show systemctl start velbootstrapservice
    claim "what the JVM prints is in the journal: a thread dump, and why it refuses an option"
}

journal_has() {
    local what=$1
    shift
    inside journalctl --no-pager "$@" | grep -- "$what" >/dev/null
}

# As the JVM sees it: what is another user's is not there; it raises its limit of open files, and knows what it may take.
prove_sandbox() {
    local jvm limits
    jvm=$(tomcat)
    if inside nsenter --target "$jvm" --mount -- setpriv --reuid=velbootstrap --regid=velbootstrap --clear-groups \
        test -e /proc/1; then
        stop_here "other users' processes can be seen"
    fi
    limits=$(inside grep '^Max open files' "/proc/$jvm/limits")
    [[ $(awk '{ print $4 }' <<<"$limits") -gt 1024 ]] || stop_here "the JVM could not raise its limit: $limits"
    [[ $(inside sed -n 's/^Seccomp:[[:space:]]*//p' "/proc/$jvm/status") == 2 ]] || stop_here "no filter of system calls"
    claim "the sandbox hides other users' processes, and the JVM lives in it"
}

# What comes with the package as an example is what velbootstrap-tomcat makes an installation of, for any user.
prove_users_installation() {
    # A run that failed may have left one.
    inside sh -c 'userdel --remove somebody 2>/dev/null; useradd --create-home somebody'
    show runuser -u somebody -- velbootstrap-tomcat --port=9500 --name=gate.example /home/somebody/own
    as_somebody './velbootstrapservice -start -testReadyTries=60 -testReadyInterval=1' || stop_here "no start"
    inside curl -sS -o /dev/null --cacert /home/somebody/own/configuration/ca.pem --resolve gate.example:9500:127.0.0.1 \
        https://gate.example:9500/dispatch/ || stop_here "no answer"
    as_somebody './velbootstrapservice -isrunning' || stop_here "it does not run"
    as_somebody './velbootstrapservice -stop -testDeadTries=60 -testDeadInterval=1' || stop_here "no stop"
    inside userdel --remove somebody 2>/dev/null
    claim "an ordinary user has a Tomcat of their own, on another port and for another host name"
}
as_somebody() { inside runuser -u somebody -- sh -c "cd /home/somebody/own/bin && $1"; }

prove_certificates() {
    show velbootstrap-tomcat --system --renew --days 20
    show systemctl restart velbootstrapservice
    answers || stop_here "no answer with new certificates"
    show systemctl start velbootstrapservice-certificates
    wait_until 20 journal_has 'dispatcher.pem: the certificate of CN = localhost is good until' \
        -u velbootstrapservice-certificates -p warning || stop_here "nobody warns of the certificate's end"
    [[ $(inside systemctl is-enabled velbootstrapservice-certificates.timer) == enabled ]] || stop_here "no timer"
    show velbootstrap-tomcat --system --renew
    show systemctl restart velbootstrapservice
    claim "a certificate that ends within 30 days is told as a warning, and a new one is used"
}

# What was started by hand, without systemd's knowledge, does not outlive the package; settings and certificates do.
prove_removal() {
    as_service sh -c 'cd /var/lib/velbootstrapservice/bin && ./velbootstrapservice -start -testReadyTries=60 -testReadyInterval=1' ||
        stop_here "no start by hand"
    show_quietly apt-get remove -y -qq velbootstrapservice
    nothing_runs || stop_here "something is left: $(inside ps -u velbootstrap)"
    show_quietly apt-get install -y -qq "/root/${package##*/}"
    show systemctl start velbootstrapservice
    answers || stop_here "no answer"
    show systemctl stop velbootstrapservice
    claim "a removal stops what was started by hand, and after another installation the instance is there"
}

prove_supervision() {
    local before
    before=$(tomcat)
    inside kill -KILL "$before"
    wait_until 60 was_replaced "$before" || stop_here "it was not replaced"
    claim "Tomcat, killed as process $before, was replaced by process $(tomcat), which answers"
}

# await_restart BEFORE WORDS: systemd has started the unit again, with another Tomcat than BEFORE.
await_restart() {
    wait_until 90 was_restarted "$1" || stop_here "the unit was not restarted"
    claim "$2: Tomcat is process $(tomcat) now"
}

# start_line CHANGE: the unit's own command with a change by sed, until start_line_as_before.
drop_in=/run/systemd/system/velbootstrapservice.service.d
start_line() {
    inside sh -c "mkdir -p $drop_in; { echo '[Service]'; echo ExecStart=;
        sed -n '/^ExecStart=/{$1;p}' /lib/systemd/system/velbootstrapservice.service
        } >$drop_in/changed.conf; systemctl daemon-reload"
}
start_line_as_before() { inside sh -c "rm $drop_in/changed.conf; systemctl daemon-reload"; }

# The manager ends what the killed daemon has left, before it starts another. It knows which process the daemon is, also
# beside another that has become the manager's own child.
prove_killed_daemon() {
    local before id pid_file=/var/log/velbootstrapservice/velbootstrap_service.pid
    start_line "s|=\(.*\)|=/bin/sh -c \"sleep 600 \& exec \1\"|"
    show systemctl restart velbootstrapservice
    inside pgrep --uid velbootstrap --exact sleep >/dev/null || stop_here "nothing runs beside the daemon"
    before=$(tomcat)
    id=$(as_service cat "$pid_file")
    [[ $(inside systemctl show -P MainPID velbootstrapservice) == "$id" ]] || stop_here "the manager takes another for the daemon"
    inside kill -KILL "$id"
    start_line_as_before
    await_restart "$before" "the daemon, killed, was restarted by systemd"
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
    claim "systemctl stop leaves no process"
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

# What the unit has told lately. Its status would not show it all: see docs/packaging.md.
unit_says() { inside journalctl --no-pager --lines=20 -o cat -u velbootstrapservice | grep -E -- "$1"; }

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
    wait_until 20 unit_says "runs as process $id: stop it first\$" || stop_here "the unit does not say why"
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
    wait_until 20 unit_says 'bootstrap_linuxi38632.xml:[0-9]+: .*tpye' || stop_here "the line is not told"
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
    inside sed -i 's|<ZOR>|<ZOR|' "$settings/startup.xml"
    expect_no_start "a faulty startup configuration"
    inside sed -i 's|<ZOR$|<ZOR>|' "$settings/startup.xml"

    as_service sh -c "echo fatal >$status"
    expect_no_start "an application that says it is broken"

    # The unit's own line with fewer checks, so that this is over soon.
    as_service sh -c "echo 'not ready' >$status"
    start_line 's/\(-testReadyTries=\)[0-9]*/\12/'
    expect_no_start "an application that does not get ready in time"
    as_service rm "$status"
    start_line_as_before
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
[[ -z $older ]] || prove_upgrade_from_older
prove_too_early
prove_two_commands
prove_companion
prove_documents
prove_sandbox
prove_printed_words
prove_users_installation
prove_certificates
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
prove_removal
prove_purge
printf 'On Debian %s with %s:\n' "$release" "${package##*/}"
printf -- '- %s\n' "${true_claims[@]}"
echo "All of it came true in $SECONDS seconds."
