#!/usr/bin/env bash
# figures.sh: measures what the service costs and prints it, for the release build. The system calls and allocations of
# a log line, a poll, a ping and a question ("-isrunning") are counted, by the tests that hold them to a bound, so
# that no other load changes them. Measured are the processor time of a question, what the idle daemon with one
# child maps and keeps for itself, how often it wakes, what the security library adds to an exchange written by hand,
# and the benchmarks. The numbers are for reading; nothing here passes or fails on them.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

build=$root/build/release
stage=$build/figures
questions=50
idle_seconds=20

read -r -a packages <<<"$(build_packages bench | tr '\n' ' ')"
install_missing "${packages[@]}" libgtest-dev openssl
cd "$root"
build_target() {
    local preset=$1 words
    shift
    words=$(cmake --preset "$preset" 2>&1 && cmake --build --preset "$preset" --target "$@" 2>&1) || fail "$words"
}

build_target release velbootstrapservice sampledispatcher SEK_Crypto_Interface cost_tests
build_target bench service_bench transport_bench

service() { (cd "$stage/bin" && exec ./velbootstrapservice "$@"); }
daemon_id() { cat "$stage/logs/velbootstrap_service.pid"; }
stop_service() { service -stop -testDeadTries=60 -testDeadInterval=1 || true; }

# Processor seconds of ended children, user and system together, from what the shell's "times" has written.
children_seconds() {
    tail -n 1 "$1" | awk '{ for (i = 1; i <= 2; i++) { split($i, t, /[ms]/); total += t[1] * 60 + t[2] } print total }'
}

average_ms() { awk -v a="$1" -v b="$2" -v n="$3" 'BEGIN { printf "%.1f", (b - a) * 1000 / n }'; }

# "times" counts the children of the shell that calls it, so this runs in no subshell.
ask_many_times() {
    local i
    times >"$stage/before"
    for ((i = 0; i < questions; i++)); do service -isrunning || true; done
    times >"$stage/after"
}

# The kernel's sum of what only this process has, in KiB.
private_kib() { awk '/^Private_/ { sum += $2 } END { print sum }' "/proc/$1/smaps_rollup"; }
proportional_kib() { awk '/^Pss:/ { print $2 }' "/proc/$1/smaps_rollup"; }
mapped_libraries() { awk '$6 ~ /\.so/ { print $6 }' "/proc/$1/maps" | sort -u | wc -l; }
wakeups() { awk '/^voluntary_ctxt_switches/ { sum += $2 } END { print sum }' "/proc/$1"/task/*/status; }

# A test that fails prints its figure all the same.
"$build/bin/cost_tests" 2>/dev/null | sed -n 's/^cost: /Counted, /p'

rm -rf "$stage"
"$root/scripts/stage.sh" --build "$build" --port 9390 "$stage" >/dev/null
# An ordinary poll interval: between two polls there is nothing to wake for.
sed -i 's/pollIntervalsec="2"/pollIntervalsec="30"/' "$stage/bin/bootstrap_linuxi38632.xml"
trap stop_service EXIT

ask_many_times
cost=$(average_ms "$(children_seconds "$stage/before")" "$(children_seconds "$stage/after")" "$questions")
echo "A question (-isrunning), processor time of the whole process: $cost ms, mean of $questions"
service -start -testReadyTries=60 -testReadyInterval=1
id=$(daemon_id)
# The first cycle, with its ping, is part of being idle: memory is read after it.
sleep 40
echo "The idle daemon with one child: $(private_kib "$id") KiB private, $(proportional_kib "$id") KiB proportional," \
    "$(mapped_libraries "$id") libraries mapped, $(find "/proc/$id/fd" -mindepth 1 | wc -l) descriptors," \
    "$(find "/proc/$id/task" -mindepth 1 -maxdepth 1 | wc -l) threads"
before=$(wakeups "$id")
sleep "$idle_seconds"
echo "Wake-ups in $idle_seconds s around no more than one poll (interval 30 s): $(($(wakeups "$id") - before))"
# The columns of the benchmark's table: a name such as compare/tls_name/manual_time first, counters as name=value, with
# a "k" behind thousands.
exchange_ratios() {
    "$root/build/bench/bin/transport_bench" --benchmark_color=false --benchmark_format=console --benchmark_min_time=2 \
        2>/dev/null | awk '
            function number(text) { return text ~ /k$/ ? text * 1000 : text + 0 }
            /^compare\// {
            split($1, name, "/"); for (i = 2; i <= NF; i++) if (split($i, c, "=") == 2) value[c[1]] = c[2]
            printf "An exchange, %s: library %.0f us, by hand %.0f us, ratio %.2f\n", name[2], \
                number(value["library_us"]), number(value["direct_us"]), number(value["ratio"]) }'
}
exchange_ratios
echo
"$root/build/bench/bin/service_bench" --benchmark_color=false 2>/dev/null
