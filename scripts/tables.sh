#!/usr/bin/env bash
# tables.sh [--check]: writes the tables of elements and attributes in the configuration guide and in the manual pages
# of the three documents, each between its two marks, from the annotations of the schemas. With --check it changes
# nothing, shows what it would change, and fails when that is anything.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

mark='generated from schemas/([a-z]+)\.xsd, ([A-Za-z]+): '

# tables_of SCHEMA LINE...: the tables that a page of these lines has of that schema, each between blanks.
tables_of() {
    local line schema=$1
    local names=' '
    shift
    for line in "$@"; do
        [[ ! $line =~ ${mark}begin || ${BASH_REMATCH[1]} != "$schema" ]] || names+="${BASH_REMATCH[2]} "
    done
    printf '%s' "$names"
}

# with_tables PAGE FORMAT: the page with new tables.
with_tables() {
    local line schema table='' margin=''
    local lines=()
    [[ $2 == man ]] || margin=$'\n'
    mapfile -t lines <"$1"
    for line in "${lines[@]}"; do
        if [[ -n $table ]]; then
            [[ $line == *"$table: end"* ]] || continue
            table=''
        fi
        printf '%s\n' "$line"
        if [[ $line =~ ${mark}begin ]]; then
            schema=${BASH_REMATCH[1]} table=${BASH_REMATCH[2]}
            printf '%s' "$margin"
            xsltproc --nonet --stringparam table "$table" --stringparam format "$2" \
                --stringparam tables "$(tables_of "$schema" "${lines[@]}")" scripts/tables.xsl "schemas/$schema.xsd"
            printf '%s' "$margin"
        fi
    done
    [[ -z $table ]] || fail "$1: the table of $table has no end"
}

cd "$root"
case ${1-} in
    '') check=false ;;
    --check) check=true ;;
    *) fail "usage: scripts/tables.sh [--check]" ;;
esac
install_missing xsltproc
new=$(mktemp)
trap 'rm -f "$new"' EXIT
stale=()
for page in docs/configuration.md:markdown packaging/man/{velbootstrap.xml,startup.xml,zorlogconfig.xml}.5:man; do
    file=${page%:*}
    with_tables "$file" "${page##*:}" >"$new"
    if $check; then
        diff -u --label "$file" --label "$file, from the schemas" "$file" "$new" || stale+=("$file")
    elif ! cmp -s "$file" "$new"; then
        cat "$new" >"$file"
    fi
done
((${#stale[@]} == 0)) || fail "not what the schemas say, run scripts/tables.sh: ${stale[*]}"
