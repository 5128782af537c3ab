#!/usr/bin/env bash
# nightly.sh [--short] [--part PART]... [FOLDER]: everything that takes longer than a change can wait for, some two hours
# on two cores: all tests, the tables that the suites print, a million steps of the supervisor beside its model, every use
# of every call refused, all fuzzers, half an hour of soak meanwhile, the sanitizers, coverage, and what the programs
# are built with. What each has found stays in FOLDER (build/nightly unless named), for trust.sh. Goes on when a part
# fails, and fails at the end. With --short fuzzers, soak and model run for moments only, to try this script out; with
# --part only the parts named run, and what the others have left stays.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

all=(tests tables model faults fuzz soak asan tsan coverage hardening)
model_steps=1000000
fuzz_seconds=300
soak_minutes=30
use_short() {
    model_steps=20000
    fuzz_seconds=5
    soak_minutes=1
    short=yes
}

short=
inner=
parts=()
while [[ ${1-} == --* ]]; do
    case $1 in
        --short) use_short ;;
        --part) parts+=("${2-}"); shift ;;
        --inner) inner=$2; shift ;;
        *) fail "no such option: $1" ;;
    esac
    shift
done
folder=${1:-$root/build/nightly}
for part in "${parts[@]}"; do
    [[ " ${all[*]} " == *" $part "* ]] || fail "no part \"$part\"; there are: ${all[*]}"
done
bin=$root/build/release/bin
cd "$root"

# --- the parts ---

built() {
    local preset=$1
    shift
    cmake --preset "$preset"
    cmake --build --preset "$preset" --target "$@"
}

# What ctest has counted, a row for each label.
counted() {
    local name=$1 status=0
    shift
    "$@" >"$folder/$name.log" 2>&1 || status=$?
    sed -n 's/^\([a-z_]*\) *= *\([0-9.]*\) sec\*proc (\([0-9]*\) tests\{0,1\})$/| \1 | \3 | \2 s |/p' "$folder/$name.log" \
        >"$folder/$name.rows"
    sed -n 's/^\([0-9]*% tests passed.*\)$/\1/p' "$folder/$name.log" >"$folder/$name.verdict"
    return "$status"
}

tests() { counted tests scripts/test.sh release; }

# As one process each, so that the rows are in their order.
tables() {
    local name
    built release transport_limits_test transport_policy_test
    rm -f "$folder"/{limits,policy}.md
    for name in limits policy; do
        VBS_TABLES_DIR=$folder "$bin/transport_${name}_test" --gtest_brief=1 || return
    done
}

model() {
    built release model_tests
    local status=0
    VBS_MODEL_STEPS=$model_steps "$bin/model_tests" --gtest_brief=1 | tee "$folder/model.txt" || status=$?
    # The last line of that kind is the fresh seed's.
    sed -n 's/^[0-9]* runs from seed .* compared$/At the last whole run: &./p' "$folder/model.txt" | tail -n 1 >"$folder/model.md"
    return "$status"
}

# A few uses of each are refused in every test run; here it is all of them.
faults() {
    local name status=0
    built release faults_tests memory_faults_tests transport_faults_test
    rm -f "$folder/faults.md"
    [[ -n $short ]] || export VBS_FAULTS=all
    for name in faults_tests memory_faults_tests transport_faults_test; do
        VBS_TABLES_DIR=$folder "$bin/$name" --gtest_brief=1 || status=$?
    done
    return "$status"
}

fuzz() { VBS_TABLES_DIR=$folder scripts/fuzz.sh "$fuzz_seconds"; }

soak() { VBS_TABLES_DIR=$folder scripts/soak.sh "$soak_minutes"; }

# Classes, library and executable; packing and booting is no different under a sanitizer.
sanitized() {
    counted "$1" scripts/test.sh "$1" --label-regex '^(unit|transport|policy|model|moments|faults|system|fuzz)$'
}
asan() { sanitized asan; }
tsan() { sanitized tsan; }

coverage() { VBS_TABLES_DIR=$folder scripts/coverage.sh; }

hardening() {
    built release velbootstrapservice SEK_Crypto_Interface
    scripts/hardening.sh | tee "$folder/hardening.md"
}

if [[ -n $inner ]]; then
    "$inner"
    exit
fi

# --- telling ---

commit() { git describe --always --dirty --exclude='*' 2>/dev/null || echo "no commit"; }

# Nothing of it names the machine.
describe_run() {
    local system
    system=$(. /etc/os-release && echo "$PRETTY_NAME")
    if [[ -r /etc/debian_version ]]; then system+=" ($(cat /etc/debian_version))"; fi
    echo "$(LC_ALL=C date -u '+%e %B %Y' | sed 's/^ //'), commit $(commit), on $system, $(uname -m), Linux $(uname -r | grep -oE '^[0-9]+\.[0-9]+')," \
        "$(nproc) cores; $(g++ --version | head -n 1), $(clang++ --version 2>/dev/null | head -n 1 || echo "no clang"), $(openssl version | cut -d' ' -f1,2)."
    if [[ -n $short ]]; then echo "**A short run, to try the script out.**"; fi
}

run_part() {
    local part=$1 begin=$SECONDS outcome=passed
    # In a shell of its own, so that "set -e" holds within the part.
    bash "$root/scripts/nightly.sh" ${short:+--short} --inner "$part" "$folder" >"$folder/part-$part.log" 2>&1 || outcome=FAILED
    printf '%s  %-10s %-7s %5d s\n' "$(date +%H:%M)" "$part" "$outcome" $((SECONDS - begin))
    echo "| $part | $outcome | $((SECONDS - begin)) s | $(commit) |" >"$folder/part-$part.row"
}

((${#parts[@]} > 0)) || { rm -rf "$folder"; parts=("${all[@]}"); }
mkdir -p "$folder"
folder=$(realpath "$folder")
[[ -s $folder/run.md && ${#parts[@]} -lt ${#all[@]} ]] || describe_run >"$folder/run.md"
for part in "${parts[@]}"; do
    if [[ $part == fuzz && " ${parts[*]} " == *" soak "* ]]; then
        # The soak measures slopes, not speed: the fuzzers beside it make it harder.
        run_part soak &
        run_part fuzz
        wait
    elif [[ $part != soak || " ${parts[*]} " != *" fuzz "* ]]; then
        run_part "$part"
    fi
done
failed=()
: >"$folder/parts.rows"
for part in "${all[@]}"; do
    row=$folder/part-$part.row
    [[ -f $row ]] || continue
    cat "$row" >>"$folder/parts.rows"
    if grep -q 'FAILED' "$row"; then failed+=("$part"); fi
done
((${#failed[@]} == 0)) || fail "failed: ${failed[*]}; see part-….log in $folder"
echo "All parts have passed; what they have found is in $folder."
