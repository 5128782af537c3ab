#!/usr/bin/env bash
# coverage.sh [CTEST-OPTION...]: runs the tests on a build that counts and lists the lines of source/, platform/ and
# transport/ that none has reached, with what was reached of each file. The tests of the classes, of the security
# library and of the executable unless the options choose others, as in "coverage.sh -L unit". A process that is
# killed outright leaves no counts, so what only such a one runs is listed as well. Without options each line has to
# have its reason in tests/unreached.txt; the table of both is printed, and written to unreached.md in the folder that
# VBS_TABLES_DIR names, if it does.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

judged=
if (($# == 0)); then
    judged=yes
    set -- --label-regex '^(unit|transport|policy|model|moments|faults|system|fuzz)$'
fi
build=$root/build/coverage

read -r -a packages <<<"$(build_packages coverage | tr '\n' ' ')"
install_missing "${packages[@]}" libgtest-dev openssl nginx-light curl gcovr python3

cd "$root"
cmake --preset coverage
cmake --build --preset coverage
find "$build" -name '*.gcda' -delete
# The counts of the executable are kept in files that exist from now on and that all may write: some tests run it as another
# user, and what cannot be counted is told on standard error.
(umask 0 && "$build/bin/velbootstrapservice" -h 2>/dev/null)
outcome=0
ctest --preset coverage "$@" || outcome=$?
gcovr --root . --filter source/ --filter platform/ --filter transport/ --json "$build/coverage.json" "$build"
gcovr --root . --add-tracefile "$build/coverage.json" >"$build/coverage.txt"
cat "$build/coverage.txt"
if [[ -n $judged ]]; then
    /usr/bin/python3 -B scripts/unreached.py "$build/coverage.json" tests/unreached.txt >"$build/unreached.md" || outcome=$?
    tee ${VBS_TABLES_DIR:+"$VBS_TABLES_DIR/unreached.md"} <"$build/unreached.md"
fi
exit "$outcome"
