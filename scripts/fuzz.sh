#!/usr/bin/env bash
# fuzz.sh [--keep] [SECONDS [TARGET...]]: builds the coverage-guided fuzzers and lets each target, or those named, run for
# so long (300 s), two at a time. Prints a table and, where VBS_TABLES_DIR names a folder, writes it to fuzz.md there.
# Fails when a target finds something: the input stays in build/fuzz/finds/TARGET/, beside it a text with the command
# that replays it and what the run said. What a run has learnt stays in build/fuzz/corpus/TARGET/ for the next one;
# --keep adds to tests/fuzz/corpus/TARGET/ what of it reaches code that nothing there reaches.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

keep=
if [[ ${1-} == --keep ]]; then
    keep=yes
    shift
fi
seconds=${1:-300}
shift $(($# > 0 ? 1 : 0))
[[ $seconds =~ ^[1-9][0-9]*$ ]] || fail "usage: fuzz.sh [--keep] [SECONDS [TARGET...]]"

cd "$root"
sources=(tests/fuzz/*_fuzz.cpp)
all=("${sources[@]#tests/fuzz/}")
all=("${all[@]%_fuzz.cpp}")
targets=("${@:-${all[@]}}")
for target in "${targets[@]}"; do
    [[ -f tests/fuzz/${target}_fuzz.cpp ]] || fail "no target $target; there are: ${all[*]}"
done

read -r -a packages <<<"$(build_packages fuzz | tr '\n' ' ')"
install_missing "${packages[@]}" libgtest-dev
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target "${targets[@]/%/_fuzzer}" >/dev/null

# An input may take so long and so much; all are short.
limits=(-timeout=25 -rss_limit_mb=2048 -malloc_limit_mb=512 -max_len=4096)
log_of() { echo "build/fuzz/logs/$1.log"; }

# Documents are XML, whatever else they are.
dictionary_of() {
    case $1 in
        document | bootstrap | startup | zorlogconfig | session) cat tests/fuzz/dictionaries/xml.dict ;;
    esac
    cat "tests/fuzz/dictionaries/$1.dict" 2>/dev/null || true
}

# fuzzer TARGET FUZZER-OPTION...: with a folder for temporary files that goes with it, in memory where that is possible.
fuzzer() {
    local target=$1 temporary status=0
    shift
    temporary=$(mktemp -d -p /dev/shm 2>/dev/null || mktemp -d)
    TMPDIR=$temporary "build/fuzz/bin/${target}_fuzzer" "${limits[@]}" "$@" || status=$?
    rm -rf "$temporary"
    return "$status"
}

# Beside each find: how it is replayed, and what the run said of it.
describe_finds() {
    local find
    for find in "build/fuzz/finds/$1/"{crash,leak,timeout,oom}-*; do
        [[ -f $find && $find != *.txt && ! -f $find.txt ]] || continue
        {
            echo "build/fuzz/bin/${1}_fuzzer $find"
            echo
            tail -n 60 "$(log_of "$1")"
        } >"$find.txt"
    done
}

run() {
    local target=$1
    mkdir -p "build/fuzz/"{corpus,finds}/"$target" build/fuzz/logs
    dictionary_of "$target" >"build/fuzz/logs/$target.dict"
    local dictionary=()
    # The engine refuses an empty one. Finds go to a full path: a target may be in a folder of its own when it finds something.
    [[ ! -s build/fuzz/logs/$target.dict ]] || dictionary=("-dict=build/fuzz/logs/$target.dict")
    if fuzzer "$target" "${dictionary[@]}" "-max_total_time=$seconds" -print_final_stats=1 \
        -close_fd_mask=1 "-artifact_prefix=$root/build/fuzz/finds/$target/" \
        "build/fuzz/corpus/$target" "tests/fuzz/corpus/$target" >"$(log_of "$target")" 2>&1; then
        echo "$target: nothing found"
    else
        describe_finds "$target"
        echo "$target: FOUND something, see $(log_of "$target") and build/fuzz/finds/$target"
        echo "$target" >>build/fuzz/finds/failed
    fi
}

# The last number behind a word of the log.
number() { sed -nE "s/.*$1 *([0-9]+).*/\\1/p" "$(log_of "$2")" | tail -n 1; }

row() {
    local target=$1 ran finds
    ran=$(number 'runs in' "$target")
    finds=$(grep -cx "$target" build/fuzz/finds/failed) || true
    printf '| %s | %s | %s | %s | %s | %s | %s |\n' "$target" "${ran:-cut short}" \
        "$(number number_of_executed_units: "$target")" "$(number average_exec_per_sec: "$target")" \
        "$(number cov: "$target")" "$(number corp: "$target")" "$finds"
}

table() {
    echo "| target | seconds | executions | executions/s | edges | inputs kept | finds |"
    echo "|---|---|---|---|---|---|---|"
    for target in "${targets[@]}"; do
        row "$target"
    done
}

mkdir -p build/fuzz/finds
: >build/fuzz/finds/failed
for target in "${targets[@]}"; do
    while (($(jobs -rp | wc -l) >= 2)); do
        wait -n
    done
    run "$target" &
done
wait

if [[ -n $keep ]]; then
    for target in "${targets[@]}"; do
        fuzzer "$target" -merge=1 "tests/fuzz/corpus/$target" "build/fuzz/corpus/$target" 2>/dev/null ||
            fail "cannot merge the corpus of $target"
    done
fi

table | tee ${VBS_TABLES_DIR:+"$VBS_TABLES_DIR/fuzz.md"}
[[ ! -s build/fuzz/finds/failed ]] || fail "found something: $(tr '\n' ' ' <build/fuzz/finds/failed)"
