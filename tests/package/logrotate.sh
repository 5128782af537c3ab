#!/usr/bin/env bash
# logrotate.sh SOURCES PACKAGES PROGRAM: the real logrotate with the package's settings, on the log of a service that is
# at work: the service notices nothing, no line is lost that was there before, and the emptied file has no hole.
# shellcheck source=tests/package/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

program=$3
tree=$scratch/tree
log=$tree/logs/velbootstrapservice.log
service=

end_service() {
    local children
    if [[ -n $service ]]; then
        # Frozen first: it starts a child anew that has gone.
        kill -STOP "$service"
        mapfile -t children < <(pgrep -P "$service")
        kill -KILL "$service" "${children[@]}" || true
    fi
    rm -rf "$scratch"
}

# A child that is ended at once, and log lines in every round, one a second.
make_tree() {
    mkdir -p "$tree"/{bin,configuration,logs,temp}
    cp "$sources"/sample/tomcat/configuration/{startup.xml,zorEnvironmentVars.ini} "$tree/configuration/"
    ln -s "$program" "$tree/bin/velbootstrapservice"
    sed 's/level="INFO"/level="DEBUG"/' "$sources/sample/tomcat/bin/zorlogconfig.xml" >"$tree/bin/zorlogconfig.xml"
    cat >"$tree/bin/bootstrap_linuxi38632.xml" <<'DOCUMENT'
<bootstrap>
  <processManager pollIntervalsec="1" checkForShutdownIntervalms="100"/>
  <process name="sleeper">
    <start><spawn><path>/bin/sleep</path><param>600</param></spawn></start>
    <stop type="signal"><signal signal="9"/></stop>
  </process>
  <daemonSpawn><path>/bin/true</path></daemonSpawn>
</bootstrap>
DOCUMENT
}

# The package's settings for this tree, by whoever runs the test.
make_settings() {
    local installed=$scratch/package user="su velbootstrap adm" settings
    local place=/var/log/velbootstrapservice/velbootstrapservice.log
    unpack velbootstrapservice "$installed"
    settings=$(<"$installed/etc/logrotate.d/velbootstrapservice")
    expect "the settings are about the service's log" grep -qxF "$place {" <<<"$settings"
    expect "the service's user does it" grep -qxF "    $user" <<<"$settings"
    settings=${settings/"$place"/"\"$log\""}
    printf '%s\n' "${settings/"$user"/"su $(id -un) $(id -gn)"}" >"$scratch/settings"
    chmod 644 "$scratch/settings"
}

rotate() { expect "rotating" /usr/sbin/logrotate --force --state "$scratch/state" "$scratch/settings"; }

# None while there is no file.
rounds() {
    local count
    count=$(grep -c 'end of timedWait' "$log" 2>/dev/null) || true
    echo "${count:-0}"
}

tells_of_rounds() { (($(rounds) >= $1)); }

# wait_for_rounds N: until the log tells of that many rounds.
wait_for_rounds() {
    wait_until 60 tells_of_rounds "$1" || fail "the service logs nothing: $(tail -n 5 "$log")"
}

start_service() {
    (cd "$tree/bin" && exec ./velbootstrapservice -d) &
    service=$!
    wait_for_rounds 2
}

check_first_turn() {
    local before
    before=$(cat "$log")
    rotate
    expect "what was logged before is kept" test "$(head -c "${#before}" "$log.1")" = "$before"
    wait_for_rounds 2
    expect_equal "bytes of nothing in the emptied file" 0 "$(tr -cd '\0' <"$log" | wc -c)"
    expect "the emptied file begins with a whole line" \
        grep -qE '^[A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9]{2} [0-9:]{8} [0-9]{4}  ' <(head -n 1 "$log")
}

# The one before is compressed only now: a line may still have been on its way into it.
check_second_turn() {
    local first
    first=$(cat "$log.1")
    rotate
    expect_equal "the compressed log" "$first" "$(zcat "$log.2.gz")"
    wait_for_rounds 1
}

check_service() {
    local code=0
    expect_equal "the id in the PID file" "$service" "$(cat "$tree/logs/velbootstrap_service.pid")"
    expect_equal "signals that arrived" 0 "$(cat "$log" "$log.1" | grep -c 'caught\.' || true)"
    kill -TERM "$service"
    wait "$service" || code=$?
    expect_equal "the exit code in the end" 0 "$code"
    service=
}

trap end_service EXIT
make_tree
make_settings
start_service
check_first_turn
check_second_turn
check_service
verdict
