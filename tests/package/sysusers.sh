#!/usr/bin/env bash
# sysusers.sh SOURCES PACKAGES: the user that the package asks for is made, once, and cannot log in.
# shellcheck source=tests/package/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

tree=$scratch/tree
unpack velbootstrapservice "$tree"

make_user() { systemd-sysusers "--root=$tree" velbootstrapservice.conf; }

expect "making the user" make_user
IFS=: read -r name _ id group _ home shell <"$tree/etc/passwd"
expect_equal "the name" velbootstrap "$name"
expect "the id of a system user" test "$id" -gt 0 -a "$id" -lt 1000
expect_equal "the home" /var/lib/velbootstrapservice "$home"
expect_equal "the shell" /usr/sbin/nologin "$shell"
expect_equal "the group" "velbootstrap:$group" "$(cut -d: -f1,3 "$tree/etc/group")"

before=$(cat "$tree/etc/passwd")
expect "making it again" make_user
expect_equal "the users after that" "$before" "$(cat "$tree/etc/passwd")"
verdict
