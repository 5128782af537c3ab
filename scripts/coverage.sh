#!/usr/bin/env bash
# coverage.sh [CTEST-OPTION...]: runs the tests on a build that counts and lists the lines of source/, platform/ and
# transport/ that none has reached, with what was reached of each file. The tests of the classes, of the security
# library and of the executable unless the options choose others, as in "coverage.sh -L unit". A process that is
# killed outright leaves no counts, so what only such a one runs is listed as well.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

(($# > 0)) || set -- --label-regex '^(unit|transport|policy|system)$'
build=$root/build/coverage

read -r -a packages <<<"$(build_packages coverage | tr '\n' ' ')"
install_missing "${packages[@]}" libgtest-dev openssl nginx-light curl gcovr

cd "$root"
cmake --preset coverage
cmake --build --preset coverage
find "$build" -name '*.gcda' -delete
# The counts of the executable are kept in files that exist from now on and that all may write: some tests run it as another
# user, and what cannot be counted is told on standard error.
(umask 0 && "$build/bin/velbootstrapservice" -h 2>/dev/null)
outcome=0
ctest --preset coverage "$@" || outcome=$?
gcovr --root . --filter source/ --filter platform/ --filter transport/ "$build" >"$build/coverage.txt"
cat "$build/coverage.txt"
exit "$outcome"
