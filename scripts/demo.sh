#!/usr/bin/env bash
# demo.sh: shows the service at work on a real servlet container. Installs what is missing, builds, makes an
# installation with a Tomcat below the build folder and takes it through its life: start, ask, Tomcat killed,
# Tomcat frozen, stop. Each step says what it is about to do and fails the script when that does not come true.
# May be run from anywhere, any number of times; what an aborted run has left behind is ended first.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

build=$root/build/release
stage=$build/demo
service_pid_file=$stage/logs/velbootstrap_service.pid
service_log=$stage/logs/velbootstrapservice.log

# --- telling ---

step() { printf '\n%s\n' "$*"; }
note() { printf '    %3d s  %s\n' "$SECONDS" "$*"; }

show_logs() {
    local log
    for log in "$service_log" "$stage"/tomcat/logs/*; do
        [[ -f $log ]] || continue
        printf '\nEnd of %s:\n' "$log"
        tail -n 25 "$log"
    done
}

failed() {
    note "FAILED: $*"
    show_logs
    exit 1
}

# --- processes, always by id ---

# The ids of all processes that work in this installation's bin/, as the service and its children do.
our_processes() {
    local path target
    while read -r path target; do
        [[ $target == "$stage/bin" ]] || continue
        path=${path#/proc/}
        echo "${path%/cwd}"
    done < <(find /proc -maxdepth 2 -path '/proc/[0-9]*/cwd' -printf '%p %l\n' 2>/dev/null)
}

# Those of them whose program is Java.
our_jvms() {
    local pid
    for pid in $(our_processes); do
        [[ $(readlink "/proc/$pid/exe") == */java ]] && echo "$pid"
    done
    true
}

# The supervisor goes with its children, however often one is replaced meanwhile.
end_our_processes() {
    local pid
    for pid in $(our_processes); do
        kill -KILL "$pid" 2>/dev/null || true
    done
    [[ -z $(our_processes) ]]
}

# A process that has ended but was not collected yet (a zombie) is not alive.
is_alive() { [[ -n $1 ]] && readlink "/proc/$1/exe" >/dev/null; }
pid_in() { cat "$1" 2>/dev/null || true; }

clean_up() {
    wait_until 10 end_our_processes || echo "Could not end: $(our_processes)" >&2
    rm -f "$service_pid_file"
}

# --- conditions ---

child_was_replaced() {
    local pid
    pid=$(our_jvms)
    [[ $pid =~ ^[0-9]+$ && $pid != "$1" ]]
}

is_gone() { ! is_alive "$1"; }

log_length() { wc -l <"$service_log"; }
logged_since() { tail -n +"$(($1 + 1))" "$service_log" | grep -qF "$2"; }

nothing_is_left() {
    [[ -z $(our_processes) && ! -e $service_pid_file ]]
}

# --- the life of the service ---

# expect_exit CODE ARGUMENT...: runs the service's command line, in bin/ as always.
expect_exit() {
    local expected=$1 code=0
    shift
    note "\$ ./velbootstrapservice $*"
    (cd "$stage/bin" && exec ./velbootstrapservice "$@" 9>&-) || code=$?
    [[ $code == "$expected" ]] || failed "exit code $code, expected $expected"
    note "exit code $code"
}

# What a browser would get that believes the installation's authority.
show_page() {
    local answer
    answer=$(curl --silent --show-error --noproxy '*' --max-time 10 --cacert "$stage/configuration/ca.pem" \
        "https://localhost:$port/dispatch/") || failed "no page"
    note "\$ curl --cacert ../configuration/ca.pem https://localhost:$port/dispatch/"
    answer=$(sed -n 's|^ *<p>\(Process .*\)</p>$|\1|p' <<<"$answer")
    [[ $answer == "Process $child,"* ]] || failed "the page tells of another process: $answer"
    note "the page says: $answer"
}

show_start() {
    step "1. Start the service; the command returns when Tomcat's application is ready."
    expect_exit 0 -start -testReadyTries=60 -testReadyInterval=1
    service=$(pid_in "$service_pid_file")
    child=$(our_jvms)
    is_alive "$service" || failed "no service process"
    is_alive "$child" || failed "no Tomcat process"
    note "the service is process $service, Tomcat is process $child"
    show_page
}

show_question() {
    step "2. Ask whether it runs."
    expect_exit 0 -isrunning
}

# The replacement of $child becomes $child, once the supervisor has seen it answer.
await_replacement() {
    local before=$1
    wait_until 30 child_was_replaced "$child" || failed "no replacement came"
    child=$(our_jvms)
    note "replaced by process $child"
    wait_until 60 logged_since "$before" "process tomcat pinged successfully." || failed "it was not pinged"
    note "the replacement answers its pings"
    show_page
}

show_killed_child() {
    local before
    step "3. Kill Tomcat; the service notices within a poll interval and starts another."
    before=$(log_length)
    kill -KILL "$child"
    wait_until 5 is_gone "$child" || failed "it survived"
    note "killed process $child"
    await_replacement "$before"
}

show_frozen_child() {
    local before
    step "4. Freeze Tomcat; it is pinged in vain, told to stop, killed, and replaced."
    before=$(log_length)
    kill -STOP "$child"
    note "froze process $child"
    wait_until 40 logged_since "$before" "process tomcat hit ping failure limit" ||
        failed "the failed ping was not noticed"
    note "pinged without an answer"
    wait_until 40 logged_since "$before" "stopAction->execute() return status" || failed "no stop was tried"
    note "told to stop, which it cannot hear"
    wait_until 40 is_gone "$child" || failed "it was not killed"
    note "killed by the service: process $child is gone"
    await_replacement "$(log_length)"
}

show_stop() {
    step "5. Stop the service; the command returns when it has gone."
    expect_exit 0 -stop -testDeadTries=60 -testDeadInterval=1
    is_gone "$service" || failed "the service is still there"
    note "process $service is gone"
}

show_question_after_stop() {
    step "6. Ask again."
    expect_exit 1 -isrunning
}

show_nothing_left() {
    step "7. Nothing is left behind."
    wait_until 10 nothing_is_left || failed "left behind: processes $(our_processes), $(ls "$stage/logs")"
    note "no process, no PID file"
}

# --- before it ---

build_programs() {
    local packages
    read -r -a packages <<<"$(build_packages release | tr '\n' ' ')"
    install_missing "${packages[@]}" libgtest-dev openssl curl tomcat10-common default-jre-headless
    (cd "$root" && cmake --preset release >/dev/null &&
        cmake --build --preset release --target velbootstrapservice SEK_Crypto_Interface)
}

port_is_taken() { (exec 3<>"/dev/tcp/localhost/$1") 2>/dev/null; }

# Two in a row, for serving and for stopping.
free_ports() {
    local first=9300
    while port_is_taken "$first" || port_is_taken "$((first + 1))"; do
        first=$((first + 2))
    done
    echo "$first"
}

# The sample as it is, but for its patience, which would make a long show, and for a log that tells of every ping.
make_installation() {
    rm -rf "$stage"
    port=$(free_ports)
    "$root/programs/velbootstrap-tomcat" --programs "$build/bin" --port "$port" "$stage" >/dev/null
    sed -i 's/pollIntervalsec="10"/pollIntervalsec="2"/' "$stage/bin/bootstrap_linuxi38632.xml"
    sed -i 's/>30</>2</' "$stage/configuration/startup.xml"
    sed -i '/<run>/,/<\/run>/s/level="INFO"/level="DEBUG"/' "$stage/bin/zorlogconfig.xml"
}

build_programs
# Two runs at once would take each other's processes for leftovers.
exec 9>"$build/demo.lock"
flock -n 9 || fail "another run is under way"
clean_up
make_installation
trap clean_up EXIT
SECONDS=0

show_start
show_question
show_killed_child
show_frozen_child
show_stop
show_question_after_stop
show_nothing_left
step "All of it came true in $SECONDS seconds. The logs are in $stage/logs."
