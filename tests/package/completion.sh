#!/usr/bin/env bash
# completion.sh SOURCES PACKAGES PROGRAM: what bash offers for a beginning of a command line.
# shellcheck source=tests/package/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

program=$3
tree=$scratch/tree
unpack velbootstrapservice "$tree"
# shellcheck disable=SC1091
source "$tree/usr/share/bash-completion/completions/velbootstrapservice"

# offered WORD...: the offers for the last word, sorted. The words are split as bash splits a line: "=" is a word.
offered() {
    COMP_WORDS=(velbootstrapservice "$@")
    COMP_CWORD=$#
    COMPREPLY=()
    _velbootstrapservice
    printf '%s\n' "${COMPREPLY[@]}" | sort | tr '\n' ' ' | sed 's/ $//'
}

expect_offered() {
    local expected=$1
    shift
    expect_equal "offered for '$*'" "$expected" "$(offered "$@")"
}

# Nothing that the program knows is missing: each option of its usage text is offered somewhere.
check_usage_text() {
    local option offers usage
    mkdir -p "$scratch/bin" "$scratch/logs"
    usage=$(cd "$scratch/bin" && "$program" -h 2>&1)
    expect "a usage text" test -n "$usage"
    offers=" $(offered "") $(offered -start "") $(offered -stop "") "
    for option in $(grep -oE '(^|[[:space:][])-[a-zA-Z_]+' <<<"$usage" | tr -d '[ \t' | sort -u); do
        [[ $offers == *" $option"[\ =]* ]] || wrong "$option is not offered"
    done
}

common="-config= -console -install_root= -java_home= -logconfig= -stdoutLog="

expect_equal "what completes the command" "complete -F _velbootstrapservice velbootstrapservice" \
    "$(complete -p velbootstrapservice)"
check_usage_text
expect_offered "-start -stdoutLog= -stop" -st
expect_offered "$common -testReadyInterval= -testReadyTries=" -start -
expect_offered "$common -testDeadInterval= -testDeadTries=" -stop ""
expect_offered "$common" -isrunning ""
expect_offered "$common" -d ""
expect_offered "" -h ""
expect_offered "DEBUG ERROR FATAL INFO WARN" -start -stdoutLog =
expect_offered "DEBUG" -start -stdoutLog = D
expect_offered "20" -start -testReadyTries =
expect_offered "6" -stop -testDeadInterval =

cd "$scratch"
mkdir folder
touch other.xml other.txt
expect_offered "other.xml" -isrunning -config = oth
expect_offered "folder" -isrunning -java_home = f
verdict
