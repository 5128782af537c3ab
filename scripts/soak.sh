#!/usr/bin/env bash
# soak.sh [MINUTES [OPTION...]]: lets the service live for half an hour, or so many minutes, among ten children to which
# everything happens that may, and holds what it keeps and tells against what is really there. Installs what is missing
# and builds first. The last lines are a table of figures and whether all of them were within their limits; so is the
# exit code. The table is also written into soak.md in the folder VBS_TABLES_DIR, when that is set. Options are those of
# tests/soak/soak.py: --seed N lets the same things happen again, or others.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

minutes=${1:-30}
shift $(($# > 0 ? 1 : 0))
[[ $minutes =~ ^[0-9]+(\.[0-9]+)?$ ]] || fail "usage: soak.sh [MINUTES [OPTION...]]"
build=$root/build/release

read -r -a packages <<<"$(build_packages release | tr '\n' ' ')"
install_missing "${packages[@]}" libgtest-dev openssl logrotate python3
cd "$root"
cmake --preset release >/dev/null
cmake --build --preset release --target velbootstrapservice sampledispatcher SEK_Crypto_Interface
# Two runs at once would take each other's installation away.
exec 9>"$build/soak.lock"
flock -n 9 || fail "another run is under way"
table=()
if [[ -n ${VBS_TABLES_DIR-} ]]; then
    table=(--table "$VBS_TABLES_DIR/soak.md")
fi
exec /usr/bin/python3 -B "$root/tests/soak/soak.py" --minutes "$minutes" --programs "$build/bin" \
    --folder "$build/soak" "${table[@]}" "$@"
