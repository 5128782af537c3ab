#!/usr/bin/env bash
# demo.sh: shows the service at work. Installs what is missing, builds, puts an installation below the build
# folder and takes it through its life: start, ask, a child killed, a child frozen, stop. Each step says what it
# is about to do and fails the script when that does not come true. May be run from anywhere, any number of
# times; what an aborted run has left behind is ended first.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

build=$root/build/release
stage=$build/demo
service_pid_file=$stage/logs/velbootstrap_service.pid
child_pid_file=$stage/logs/dispatcher.pid
service_log=$stage/logs/velbootstrapservice.log
child_log=$stage/logs/dispatcher.log

# --- telling ---

step() { printf '\n%s\n' "$*"; }
note() { printf '    %3d s  %s\n' "$SECONDS" "$*"; }

show_logs() {
    local log
    for log in "$service_log" "$child_log"; do
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

# The ids of all processes that run a program of this installation.
our_processes() {
    local path target
    while read -r path target; do
        [[ $target == "$stage/bin/"* ]] || continue
        path=${path#/proc/}
        echo "${path%/exe}"
    done < <(find /proc -maxdepth 2 -path '/proc/[0-9]*/exe' -printf '%p %l\n' 2>/dev/null)
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
    rm -f "$service_pid_file" "$child_pid_file"
}

# --- waiting ---

# wait_until SECONDS CONDITION...: true as soon as the condition holds, false when the time is over.
wait_until() {
    local deadline=$((SECONDS + $1))
    shift
    until "$@"; do
        ((SECONDS < deadline)) || return 1
        sleep 0.1
    done
}

# --- conditions ---

child_was_replaced() {
    local pid
    pid=$(pid_in "$child_pid_file")
    [[ $pid != "$1" ]] && is_alive "$pid"
}

is_gone() { ! is_alive "$1"; }

# A client that has closed has been answered: the supervisor has counted this child as answering.
child_was_pinged() { grep -q " $1 .*: closed\$" "$child_log"; }

logged_since() { tail -n +"$(($1 + 1))" "$service_log" | grep -qF "$2"; }

nothing_is_left() {
    [[ -z $(our_processes) && ! -e $service_pid_file && ! -e $child_pid_file ]]
}

# --- the life of the service ---

# expect_exit CODE ARGUMENT...: runs the service's command line, in bin/ as always.
expect_exit() {
    local expected=$1 code=0
    shift
    note "\$ velbootstrapservice $*"
    (cd "$stage/bin" && exec ./velbootstrapservice "$@" 9>&-) || code=$?
    [[ $code == "$expected" ]] || failed "exit code $code, expected $expected"
    note "exit code $code"
}

show_start() {
    step "1. Start the service; the command returns when the dispatcher, which warms up for 5 s, is ready."
    # The dollar signs are part of the option's name.
    # shellcheck disable=SC2016
    expect_exit 0 -start -testReadyTries=60 -testReadyInterval=1 '$$warmUp=slow'
    service=$(pid_in "$service_pid_file")
    child=$(pid_in "$child_pid_file")
    is_alive "$service" || failed "no service process"
    is_alive "$child" || failed "no dispatcher process"
    note "service is process $service, dispatcher is process $child"
}

show_question() {
    step "2. Ask whether it runs."
    expect_exit 0 -isrunning
}

# The replacement of $child becomes $child, once it has been pinged.
await_replacement() {
    wait_until "$1" child_was_replaced "$child" || failed "no replacement came"
    child=$(pid_in "$child_pid_file")
    note "replaced by process $child"
    wait_until 30 child_was_pinged "$child" || failed "the replacement was not pinged"
    note "the replacement answers its pings"
}

show_killed_child() {
    step "3. Kill the dispatcher; the service notices within a poll interval and starts another."
    kill -KILL "$child"
    wait_until 5 is_gone "$child" || failed "it survived"
    note "killed process $child"
    await_replacement 30
}

show_frozen_child() {
    local before
    step "4. Freeze the dispatcher; it is pinged in vain, told to stop, killed, and replaced."
    before=$(wc -l <"$service_log")
    kill -STOP "$child"
    note "froze process $child"
    wait_until 40 logged_since "$before" "process dispatcher hit ping failure limit" ||
        failed "the failed ping was not noticed"
    note "pinged without an answer"
    wait_until 40 logged_since "$before" "stopAction->execute() return status" || failed "no stop was tried"
    note "told to stop, which it cannot hear"
    wait_until 40 is_gone "$child" || failed "it was not killed"
    note "killed by the service: process $child is gone"
    await_replacement 30
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
    install_missing "${packages[@]}" libgtest-dev openssl
    (cd "$root" && cmake --preset release >/dev/null &&
        cmake --build --preset release --target velbootstrapservice sampledispatcher SEK_Crypto_Interface)
}

port_is_taken() { (exec 3<>"/dev/tcp/localhost/$1") 2>/dev/null; }

free_port() {
    local port=9300
    while port_is_taken "$port"; do
        port=$((port + 1))
    done
    echo "$port"
}

stage_installation() {
    rm -rf "$stage"
    "$root/scripts/stage.sh" --build "$build" --port "$(free_port)" "$stage"
}

build_programs
# Two runs at once would take each other's processes for leftovers.
exec 9>"$build/demo.lock"
flock -n 9 || fail "another run is under way"
clean_up
stage_installation
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
