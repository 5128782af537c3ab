# shellcheck shell=bash
# A throw-away copy of this machine, for tests that in_copy_of_machine runs. Sourced after lib.sh, with the folder for
# the copy in "place".

copy=${place:?}/root
changes=$place/changes
instance=/var/lib/velbootstrapservice
logs=/var/log/velbootstrapservice
export instance logs

in_copy() { chroot "$copy" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive "$@"; }
as_service() { in_copy runuser -u velbootstrap -- "$@"; }
as_nobody() { in_copy runuser -u nobody -- "$@"; }

# owner_of PATH: mode, owner, group.
owner_of() { in_copy stat -c '%a %U:%G' "$1"; }

# Other packages' triggers, such as the index of all manual pages, take long and tell nothing.
run_dpkg() { in_copy dpkg --no-triggers "$@"; }
install_package() { expect "installing" run_dpkg --install /tmp/package.deb; }

# A file system over the machine's own that keeps every change in memory; without the package.
make_copy() {
    mount -t tmpfs -o mode=755 copy "$place"
    mkdir "$copy" "$changes" "$place/work"
    mount -t overlay -o "lowerdir=/,upperdir=$changes,workdir=$place/work" copy "$copy" ||
        fail "this machine mounts no overlay"
    mount -t proc proc "$copy/proc"
    mount --rbind /dev "$copy/dev"
    mount -t tmpfs -o mode=755 run "$copy/run"
    mount -t tmpfs -o mode=1777 tmp "$copy/tmp"
    ip link set lo up
    cp "${packages:?}"/velbootstrapservice_*.deb "$copy/tmp/package.deb"
    if in_copy dpkg-query --status velbootstrapservice >/dev/null 2>&1; then
        run_dpkg --purge velbootstrapservice
    fi
}
