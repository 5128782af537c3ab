#!/usr/bin/env bash
# check.sh [RULE...]: holds the sources against the rules that no test run notices. Installs what is missing, prints a
# line per rule with its time, and fails with what was found. Without names of rules it takes all but "tidy_tests",
# which is "tidy" for the tests and takes as long as all the others. The tools are those of Debian 12: formatting and
# findings differ between their versions, so other versions may have more to say.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

rules=(plain scripts format headers locks documents tables tidy sanitizers)
found=$root/build/check
jobs=$(nproc)

# --- what is looked at ---

# files FOLDER... [CONDITION...]: what is in the folders and below, as find knows it, but for git's and what is built.
files() {
    find "$@" -type f ! -path './.git*' ! -path './build*' -print0 | LC_ALL=C sort -z
}

sources() { files source platform transport simulation tools sample tests bench "$@"; }
headers_and_code=('(' -name '*.h' -o -name '*.cpp' ')')

# By the first line: some scripts are installed under names without an ending.
shell_scripts() {
    local file line
    while IFS= read -r -d '' file; do
        line=
        IFS= read -r line <"$file" || true
        [[ ! $line =~ ^#!.*[/\ ](ba|da)?sh($|\ )|^#\ shellcheck\ shell= ]] || printf '%s\0' "$file"
    done < <(files .)
}

# --- the rules ---

# A compiler of tomorrow warns of more: that must not stop the build of somebody who only wants the programs.
plain() {
    cmake -S . -B "$found/plain-build" -DCMAKE_CXX_COMPILER_LAUNCHER= >/dev/null
    if grep -o -m1 -- '-Werror[^ ]*' "$found/plain-build/compile_commands.json"; then
        echo "in a build without a preset, warnings are errors"
        return 1
    fi
}

scripts() { shell_scripts | xargs -0 -n 8 -P "$jobs" shellcheck -x; }

format() { sources "${headers_and_code[@]}" | xargs -0 -n 40 -P "$jobs" clang-format --dry-run -Werror; }

# Each header is enough for itself.
headers() {
    local folder
    local folders=()
    for folder in source platform transport simulation tools sample tests/support tests/transport; do
        folders+=("-I$folder")
    done
    # shellcheck disable=SC2016
    sources -name '*.h' | xargs -0 -P "$jobs" -I{} sh -c '
        header=$1
        shift
        echo "#include \"$header\"" |
            g++ -std=c++20 -fsyntax-only -Wall -Wextra -Werror "$@" -I"$(dirname "$header")" -I. -x c++ - ||
            { echo "$header does not compile by itself"; exit 1; }' sh {} "${folders[@]}"
}

# Which lock guards what, as clang understands the notes on it.
locks() {
    cmake --preset clang >/dev/null
    cmake --build --preset clang --target shipped sampledispatcher
}

# Heads of headers, oddities that name their tests, includes, links of documents.
documents() {
    cmake --preset clang >/dev/null
    cmake --build --preset clang --target manual_tests
    build/clang/bin/manual_tests --gtest_brief=1 --gtest_filter='RulesTest.*:LinksTest.*'
}

# The guide and the manual page say of elements and attributes what the schemas say.
tables() { scripts/tables.sh --check; }

tidied() {
    cmake --preset clang >/dev/null
    files "$@" -name '*.cpp' | xargs -0 -n 1 -P "$jobs" clang-tidy -p build/clang --quiet
}
tidy() { tidied source platform transport simulation tools sample; }
tidy_tests() { tidied tests; }

sanitizers() {
    cmake --preset asan >/dev/null
    cmake --build --preset asan --target unit_tests memory_tests work_tests model_tests \
        transport_unit_test transport_test transport_policy_test
    ctest --preset asan --label-regex '^(unit|model|transport|policy)$' --label-exclude slow
}

# --- telling ---

check() {
    local rule=$1 begin=$SECONDS outcome=ok
    # In a shell of its own, so that "set -e" holds within the rule.
    bash "$root/scripts/check.sh" --rule "$rule" >"$found/$rule.log" 2>&1 || outcome=FAILED
    printf '%-12s %-6s %4d s\n' "$rule" "$outcome" $((SECONDS - begin))
    [[ $outcome == ok ]] && return
    failed+=("$rule")
    grep -vE '^[0-9]+ warnings? generated|^Suppressed|^Use -header-filter' "$found/$rule.log" | tail -n 200 || true
}

cd "$root"
if [[ ${1-} == --rule ]]; then
    "$2"
    exit
fi
(($# == 0)) || rules=("$@")
for rule in "${rules[@]}"; do
    declare -F "$rule" >/dev/null || fail "no such rule: $rule"
done
read -r -a packages <<<"$(build_packages clang | tr '\n' ' ')"
install_missing "${packages[@]}" libgtest-dev openssl shellcheck clang-format clang-tidy xsltproc
mkdir -p "$found"
failed=()
for rule in "${rules[@]}"; do
    check "$rule"
done
((${#failed[@]} == 0)) || fail "found something: ${failed[*]}"
echo "All rules are kept."
