#!/usr/bin/env bash
# hostile_inside.sh SOURCES PACKAGES FOLDER: what hostile.sh does, in namespaces of its own. FOLDER is for the copy.
place=$3
# shellcheck source=tests/package/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"
# shellcheck source=tests/package/copy.sh
source "$(dirname "${BASH_SOURCE[0]}")/copy.sh"

program=/usr/lib/velbootstrapservice/velbootstrapservice
pid_file=$logs/velbootstrap_service.pid
# Root's own, which nobody else may change or even read.
treasure=/srv/treasure
# A service of root's, which is not the package's instance.
other=/srv/other
bystander=
# Its mode and owner at the beginning.
folder_of_roots=

# --- what must not change ---

make_treasure() {
    mkdir -p "$copy$treasure/folder"
    echo secret >"$copy$treasure/folder/file"
    echo secret >"$copy$treasure/shadow"
    chmod 640 "$copy$treasure/shadow"
    chmod 700 "$copy$treasure" "$copy$treasure/folder"
}

state_of_treasure() {
    find "$copy$treasure" -printf '%P %M %U:%G %s %T@\n' | sort
    find "$copy$treasure" -type f -exec cat {} +
    in_copy stat -c '%n %a %U:%G' /etc/shadow /etc/passwd
}

# expect_untouched WHEN
expect_untouched() {
    expect_equal "root's own $1" "$before" "$(state_of_treasure)"
    expect_equal "the service of root's $1" "$program" \
        "$(in_copy readlink "/proc/$bystander/exe" | sed 's/ (deleted)$//')"
}

# bounded SECONDS COMMAND...: ends what hangs.
bounded() { timeout --kill-after=2 "$@"; }

# in_time WHAT COMMAND...: in the copy; it succeeds, and does not hang.
in_time() {
    local what=$1
    shift
    expect "$what" bounded 90 chroot "$copy" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@"
    expect_untouched "after $what"
}

# It runs the package's program, so that only its user tells it from the package's instance.
start_bystander() {
    mkdir -p "$copy$other"/{bin,configuration,logs,temp}
    cp "$sources"/sample/tomcat/configuration/{startup.xml,zorEnvironmentVars.ini} "$copy$other/configuration/"
    cp "$sources/sample/tomcat/bin/zorlogconfig.xml" "$copy$other/bin/"
    cat >"$copy$other/bin/bootstrap_linuxi38632.xml" <<'DOCUMENT'
<bootstrap>
  <process name="sleeper">
    <start><spawn><path>/bin/sleep</path><param>600</param></spawn></start>
    <stop type="signal"><signal signal="9"/></stop>
  </process>
  <daemonSpawn><path>/bin/true</path></daemonSpawn>
</bootstrap>
DOCUMENT
    in_copy env --chdir="$other/bin" JAVA_HOME=/nowhere "$program" -d >/dev/null 2>&1 &
    wait_until 60 test -s "$copy$other/logs/velbootstrap_service.pid" || fail "the other service does not start"
    bystander=$(<"$copy$other/logs/velbootstrap_service.pid")
}

# --- what the service's user does ---

# Whatever it owns becomes a link to what is root's.
plant_links() {
    as_service rm -rf "$logs/tomcat"
    as_service ln -s "$treasure/folder" "$logs/tomcat"
    as_service ln -sf "$treasure/shadow" "$logs/velbootstrapservice.log"
    as_service ln -sf "$treasure/shadow" "$logs/zordefault.log"
    as_service ln -sf "$treasure/shadow" "$instance/temp/zor.prefs"
    as_service ln -sfn "$treasure/folder" "$instance/temp/link"
    as_service ln -sfn "$treasure" "$instance/tomcat/work"/link
}

plant_pipes() {
    as_service rm -f "$logs/velbootstrapservice.log" "$logs/zordefault.log" "$instance/temp/zor.prefs"
    as_service mkfifo "$logs/velbootstrapservice.log" "$logs/zordefault.log" "$instance/temp/zor.prefs"
}

clear_logs() { as_service sh -c "rm -rf $logs/* $instance/temp/*"; }

# What root has once put into the service's folder takes the place of one of the service's.
plant_folder_of_roots() {
    mkdir -m 700 "$copy$logs/kept"
    echo secret >"$copy$logs/kept/file"
    as_service rm -rf "$logs/tomcat"
    as_service mv "$logs/kept" "$logs/tomcat"
    folder_of_roots=$(owner_of "$logs/tomcat")
}

# plant_pid_file KIND
plant_pid_file() {
    as_service rm -f "$pid_file"
    case $1 in
        pipe) as_service mkfifo "$pid_file" ;;
        link) as_service ln -s "$other/logs/velbootstrap_service.pid" "$pid_file" ;;
        first) as_service sh -c "echo 1 >$pid_file" ;;
        foreign) as_service sh -c "echo $bystander >$pid_file" ;;
        endless) as_service truncate --size=1T "$pid_file" ;;
        socket) as_service perl -MIO::Socket::UNIX -e "IO::Socket::UNIX->new(Local => '$pid_file') or die" ;;
        folder) as_service mkdir "$pid_file" ;;
    esac
    expect "a PID file: $1" in_copy test -e "$pid_file"
}

# All that the service's user could put something else in the place of.
scratch=$instance/tomcat/work
names="$pid_file $logs/zor_cnfgtest_1 $logs/velbootstrapservice.log $logs/zordefault.log $logs/tomcat $logs/tomcat.out
    $instance/temp/zor.prefs $instance/temp/zordaemonwait $scratch/made $instance/tomcat/temp/made"
kinds="links pipes sockets devices endless huge folders foreign"

# plant KIND: as all of them. A device only root can make; what is foreign is root's.
plant() {
    local name
    for name in $names; do
        as_service rm -rf "$name"
        case $1 in
            links) as_service ln -s "$treasure/folder" "$name" ;;
            pipes) as_service mkfifo "$name" ;;
            sockets) as_service perl -MIO::Socket::UNIX -e "IO::Socket::UNIX->new(Local => '$name') or die" ;;
            devices) in_copy mknod --mode=666 "$name" c 1 5 ;;
            endless) as_service ln -s /dev/zero "$name" ;;
            huge) as_service truncate --size=1T "$name" ;;
            folders) as_service mkdir "$name" && as_service touch "$name/file" ;;
            foreign) in_copy install --mode=600 /dev/null "$name" ;;
        esac
        expect "planted: $1" in_copy test -e "$name" -o -L "$name"
    done
}

# Nothing but what the service's user could have taken away itself. Devices, which it can only move, are root's to
# remove.
unplant() { as_service sh -c "rm -rf $logs/* $instance/temp/* $scratch/* $instance/tomcat/temp/*"; }

# --- what root does ---

# The service's user owns nothing that it could exchange for a link, but what is in its own folders.
check_parents() {
    local folder
    for folder in "$logs" "$instance/temp" "$instance/tomcat/work" "$instance/tomcat/temp"; do
        expect_not "the service exchanges $folder" as_service mv "$folder" "$folder.away"
    done
}

check_upgrade() {
    plant_links
    in_time "an upgrade among links" dpkg --no-triggers --install /tmp/package.deb
    clear_logs
    plant_pipes
    in_time "an upgrade among pipes" dpkg --no-triggers --install /tmp/package.deb
    clear_logs
    plant_folder_of_roots
    in_time "an upgrade with a folder of root's" dpkg --no-triggers --install /tmp/package.deb
    expect_equal "the folder of root's" "$folder_of_roots" "$(owner_of "$logs/tomcat")"
}

run_tmpfiles() { bounded 60 chroot "$copy" systemd-tmpfiles --create --remove --boot velbootstrapservice.conf; }

# It complains of what it finds, and leaves it as it is.
check_boot() {
    run_tmpfiles || true
    expect_equal "the folder of root's after a boot" "$folder_of_roots" "$(owner_of "$logs/tomcat")"
    in_copy rm -r "$logs/tomcat"
    plant_links
    as_service ln -s "$treasure/shadow" "$pid_file"
    as_service ln -s "$treasure/folder" "$logs/zor_cnfgtest_1"
    expect_not "a link is a folder" run_tmpfiles
    expect_untouched "after a boot among links"
    expect_not "the PID file is left" in_copy test -L "$pid_file"
    clear_logs
    expect "a boot" run_tmpfiles
    expect_equal "the folder after that" "2750 velbootstrap:adm" "$(owner_of "$logs/tomcat")"
}

check_rotation() {
    plant_links
    bounded 60 chroot "$copy" logrotate --force /etc/logrotate.d/velbootstrapservice || (($? == 1)) ||
        wrong "turning over a link ended with $?"
    expect_untouched "after turning over a link"
    clear_logs
    plant_pipes
    bounded 60 chroot "$copy" logrotate --force /etc/logrotate.d/velbootstrapservice || (($? == 1)) ||
        wrong "turning over a pipe ended with $?"
    clear_logs
}

check_readying() {
    local note=$instance/temp/zor.prefs
    plant_pipes
    in_time "readying with a pipe for a note" velbootstrap-tomcat --system
    expect_equal "the note in a pipe's place" "640 velbootstrap:velbootstrap" "$(owner_of "$note")"
    plant_links
    in_time "readying with a link for a note" velbootstrap-tomcat --system --renew
    expect_equal "the note in a link's place" "regular file" "$(in_copy stat -c %F "$note")"
    expect "the note tells the vendor" in_copy grep -q '^java_vendor=Sun' "$note"
    as_service rm "$note"
    as_service mkdir "$note"
    expect_not "a folder is a note" bounded 60 chroot "$copy" velbootstrap-tomcat --system
    expect_equal "what a failed note leaves" "" "$(find "$copy$instance/temp" -name '.zor*')"
    clear_logs
}

check_removal() {
    local kind
    for kind in pipe link first foreign endless socket folder; do
        plant_pid_file "$kind"
        in_time "removing with a PID file: $kind" /var/lib/dpkg/info/velbootstrapservice.prerm remove
        as_service rm -rf "$pid_file"
    done
}

# refusable WHAT COMMAND...: in the copy; it may complain, and does not hang.
refusable() {
    local what=$1 code=0
    shift
    bounded 90 chroot "$copy" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@" >/dev/null 2>&1 || code=$?
    expect_not "$what takes too long" test "$code" -ge 124
    expect_untouched "after $what"
}

# Every command of root's among each kind of thing, from the removal, after which the folders stay, to the purge.
check_kinds() {
    local kind
    for kind in $kinds; do
        plant "$kind"
        in_time "removing among $kind" dpkg --no-triggers --remove velbootstrapservice
        in_time "installing among $kind" dpkg --no-triggers --install /tmp/package.deb
        in_time "an upgrade among $kind" dpkg --no-triggers --install /tmp/package.deb
        plant "$kind"
        refusable "readying among $kind" velbootstrap-tomcat --system --renew
        plant "$kind"
        in_time "the units' guard among $kind" /usr/lib/velbootstrapservice/velbootstrap-unit guard
        refusable "turning over $kind" logrotate --force /etc/logrotate.d/velbootstrapservice
        refusable "a boot among $kind" systemd-tmpfiles --create --remove --boot velbootstrapservice.conf
        plant "$kind"
        in_time "purging among $kind" dpkg --no-triggers --purge velbootstrapservice
        expect_equal "what is left of $kind" "" "$(in_copy sh -c "ls -d $instance $logs 2>/dev/null")"
        install_package
    done
}

# What the units run as the service's user is that user's to hold up, but not for ever: systemd ends it.
check_limits_of_units() {
    local unit
    for unit in velbootstrapservice velbootstrapservice-certificates; do
        expect "$unit has a time limit" in_copy grep -q '^TimeoutStartSec=[0-9]' "/lib/systemd/system/$unit.service"
    done
}

# An administrator's choice outlives upgrades and boots.
check_override() {
    expect "choosing a mode" in_copy dpkg-statoverride --update --add velbootstrap adm 2755 "$logs"
    in_time "an upgrade after a choice" dpkg --no-triggers --install /tmp/package.deb
    expect "a boot after a choice" run_tmpfiles
    expect_equal "the chosen mode" "2755 velbootstrap:adm" "$(owner_of "$logs")"
    in_copy dpkg-statoverride --remove "$logs"
}

# Root makes nothing where the folder's owner could exchange it meanwhile.
check_foreign_folders() {
    local script
    mkdir "$copy/srv/nobodys"
    in_copy chown nobody /srv/nobodys
    for script in velbootstrap-tomcat /usr/share/velbootstrapservice/tomcat/make-certificates; do
        expect_not "root uses $script in a folder of nobody's" in_copy "$script" /srv/nobodys
        expect "nobody uses $script in its own" as_nobody "$script" /srv/nobodys
        in_copy find /srv/nobodys -mindepth 1 -delete
    done
    as_nobody velbootstrap-tomcat /srv/nobodys >/dev/null
    mkdir "$copy/srv/roots"
    as_nobody sh -c "rm -r /srv/nobodys/configuration && ln -s /srv/roots /srv/nobodys/configuration"
    expect_not "root renews through a link of nobody's" in_copy velbootstrap-tomcat --renew /srv/nobodys
    expect_equal "what root has made behind it" "" "$(find "$copy/srv/roots" -mindepth 1)"
    in_copy find /srv/nobodys -mindepth 1 -delete
    expect_not "root makes an installation below one" in_copy velbootstrap-tomcat /srv/nobodys/below
    expect_equal "what root has made there" "" "$(find "$copy/srv/nobodys" -mindepth 1)"
    mkdir -m 777 "$copy/srv/everybodys"
    expect_not "root makes one where all can rename" in_copy velbootstrap-tomcat /srv/everybodys/below
    chmod 1777 "$copy/srv/everybodys"
    expect "root makes one where all can make files" in_copy velbootstrap-tomcat /srv/everybodys/below
}

check_purge() {
    plant_links
    plant_pid_file pipe
    in_time "removing among links" dpkg --no-triggers --remove velbootstrapservice
    in_time "purging among links" dpkg --no-triggers --purge velbootstrapservice
    expect_equal "what is left" "" "$(in_copy sh -c "ls -d $instance $logs /etc/velbootstrapservice 2>/dev/null")"
}

make_copy
install_package
make_treasure
before=$(state_of_treasure)
start_bystander
check_parents
check_upgrade
check_boot
check_rotation
check_readying
check_removal
check_override
check_foreign_folders
check_purge
install_package
check_limits_of_units
check_kinds
verdict
