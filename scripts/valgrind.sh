#!/usr/bin/env bash
# valgrind.sh [GTEST-FILTER]: runs the security library's tests under valgrind's memory checker, in some ten
# minutes. Wrong accesses, use of uninitialised memory and lost memory make it fail. The filter, as in
# --gtest_filter, narrows the choice.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

read -r -a packages <<<"$(build_packages debug | tr '\n' ' ')"
install_missing "${packages[@]}" libgtest-dev openssl nginx-light curl valgrind libc6-dbg

cd "$root"
programs=(transport_unit_test transport_test transport_interop_test)
cmake --preset debug
cmake --build --preset debug --target "${programs[@]}"

# Nothing is suppressed. What OpenSSL keeps until the process ends is still reachable and no error: the library
# leaves OpenSSL's clean-up out, since a forked child that exits must not run it.
check() {
    echo "== $1"
    valgrind --quiet --leak-check=full --errors-for-leak-kinds=definite,indirect,possible \
        --error-exitcode=99 --num-callers=30 "build/debug/bin/$1" --gtest_brief=1 "--gtest_filter=$2"
}

failed=()
for program in "${programs[@]}"; do
    check "$program" "${1:-*}" || failed+=("$program")
done
((${#failed[@]} == 0)) || fail "valgrind or a test complains: ${failed[*]}"
echo "valgrind has nothing to say."
