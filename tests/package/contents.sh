#!/usr/bin/env bash
# contents.sh SOURCES PACKAGES: what the package holds, to whom it belongs, which of it is the administrator's, and what
# the package asks for.
# shellcheck source=tests/package/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

package=$(echo "$packages"/velbootstrapservice_*.deb)
tree=$scratch/tree
unpack velbootstrapservice "$tree"

expect_link() { expect_equal "/$1" "$2" "$(readlink "$tree/$1" || true)"; }
expect_same() { expect "/$1" cmp "$tree/$1" "$sources/$2"; }

# Every file of a source folder, of which there must be some, under the same name.
expect_all_of() {
    local file count=0
    for file in "$sources/$2"/*; do
        [[ -f $file ]] || continue
        expect_same "$1/${file##*/}" "$2/${file##*/}"
        count=$((count + 1))
    done
    expect "files in $2" test "$count" -gt 0
}

check_places() {
    # Outside of an instance's bin/ it does nothing and says nothing: nobody is to find it there.
    expect_equal "the service in the search path" "" \
        "$(find "$tree"/usr/bin "$tree"/usr/sbin -name velbootstrapservice 2>/dev/null)"
    expect_link usr/bin/velbootstrapctl ../lib/velbootstrapservice/velbootstrapctl
    expect_link usr/bin/velbootstrap-tomcat ../share/velbootstrapservice/tomcat/velbootstrap-tomcat
    expect_link var/lib/velbootstrapservice/configuration /etc/velbootstrapservice
    expect_link var/lib/velbootstrapservice/logs ../../log/velbootstrapservice
    expect_link var/lib/velbootstrapservice/tomcat/conf /etc/velbootstrapservice/tomcat
    expect_link var/lib/velbootstrapservice/tomcat/logs ../../../log/velbootstrapservice/tomcat
    expect_link var/lib/velbootstrapservice/bin/velbootstrapservice /usr/lib/velbootstrapservice/velbootstrapservice
    expect_link var/lib/velbootstrapservice/bin/keep-output /usr/share/velbootstrapservice/tomcat/bin/keep-output
    expect_link var/lib/velbootstrapservice/bin/bootstrap_linuxi38632.xml \
        /etc/velbootstrapservice/bootstrap_linuxi38632.xml
    expect_link var/lib/velbootstrapservice/bin/zorlogconfig.xml /etc/velbootstrapservice/zorlogconfig.xml
    expect "bin/ is a folder" test ! -L "$tree/var/lib/velbootstrapservice/bin"
}

# Installed under another name than in the source tree, or in a tree of its own.
check_files() {
    local document unit units
    units=$(units_place)
    for document in bootstrap_linuxi38632.xml zorlogconfig.xml; do
        expect_same "etc/velbootstrapservice/$document" "sample/tomcat/bin/$document"
    done
    expect_all_of etc/velbootstrapservice sample/tomcat/configuration
    expect_all_of etc/velbootstrapservice/tomcat sample/tomcat/tomcat/conf
    expect_all_of usr/share/velbootstrapservice/tomcat/bin sample/tomcat/bin
    expect_all_of usr/share/velbootstrapservice/tomcat/configuration sample/tomcat/configuration
    expect_all_of usr/share/velbootstrapservice/tomcat/tomcat/conf sample/tomcat/tomcat/conf
    expect_all_of usr/share/velbootstrapservice/tomcat/tomcat/webapps/dispatch sample/tomcat/tomcat/webapps/dispatch
    # The other sample needs a dispatcher that comes with the sources only.
    expect_not "a sample that cannot run" test -e "$tree/usr/share/velbootstrapservice/samples"
    expect_all_of usr/share/velbootstrapservice/schemas schemas
    expect_all_of usr/share/velbootstrapservice/kubernetes packaging/kubernetes
    expect_all_of usr/share/velbootstrapservice/prometheus packaging/prometheus
    expect_same "$units/velbootstrapservice.service" packaging/systemd/velbootstrapservice.service
    expect_same "$units/velbootstrapservice-foreground.service" \
        packaging/systemd/velbootstrapservice-foreground.service
    for unit in velbootstrapservice-certificates.{service,timer} velbootstrapservice-metrics.{service,timer}; do
        expect_same "$units/$unit" "packaging/systemd/$unit"
    done
    expect_same "$units/velbootstrapservice-certificates.service.d/sandbox.conf" packaging/systemd/sandbox.conf
    expect_same "$units/velbootstrapservice-metrics.service.d/sandbox.conf" packaging/systemd/sandbox.conf
    expect_same "$units/velbootstrapservice.service.d/sandbox.conf" packaging/systemd/sandbox.conf
    expect_same "$units/velbootstrapservice-foreground.service.d/sandbox.conf" packaging/systemd/sandbox.conf
    expect_same usr/lib/velbootstrapservice/velbootstrap-unit packaging/systemd/velbootstrap-unit
    expect_same usr/lib/tmpfiles.d/velbootstrapservice.conf packaging/systemd/tmpfiles.conf
    expect_same usr/lib/sysusers.d/velbootstrapservice.conf packaging/systemd/sysusers.conf
    expect_same etc/logrotate.d/velbootstrapservice packaging/logrotate
    expect_same usr/share/bash-completion/completions/velbootstrapservice packaging/completion.bash
    expect_same usr/share/bash-completion/completions/velbootstrapctl packaging/completion-velbootstrapctl.bash
    expect_same usr/share/zsh/vendor-completions/_velbootstrapctl packaging/completion-velbootstrapctl.zsh
    expect_same usr/share/fish/vendor_completions.d/velbootstrapctl.fish packaging/completion-velbootstrapctl.fish
    expect_same usr/share/doc/velbootstrapservice/copyright debian/copyright
}

check_pages() {
    local page name
    for page in "$sources"/docs/*.md; do
        expect_same "usr/share/doc/velbootstrapservice/${page##*/}" "docs/${page##*/}"
    done
    expect_same usr/share/doc/velbootstrapservice/README.Debian debian/README.Debian
    for page in "$sources"/packaging/man/*.[1-8]; do
        name=${page##*/}
        expect "the page $name" cmp "$page" <(zcat "$tree/usr/share/man/man${name##*.}/$name.gz")
    done
}

# Everything is root's and can be changed by nobody else; only programs and scripts can be run.
check_rights() {
    local listing=$scratch/listing
    dpkg-deb --contents "$package" >"$listing"
    expect_equal "files that are not root's" "" "$(awk '$2 != "root/root" { print $6 }' "$listing")"
    expect_equal "files others can write" "" "$(awk '/^[^l]....w/ || /^[^l].......w/ { print $6 }' "$listing")"
    expect_equal "programs" "./usr/lib/velbootstrapservice/velbootstrap-unit
./usr/lib/velbootstrapservice/velbootstrapctl
./usr/lib/velbootstrapservice/velbootstrapservice
./usr/share/velbootstrapservice/tomcat/bin/keep-output
./usr/share/velbootstrapservice/tomcat/make-certificates
./usr/share/velbootstrapservice/tomcat/velbootstrap-tomcat" "$(awk '/^-..x/ { print $6 }' "$listing" | sort)"
}

# dpkg works on the names of what it has unpacked, at every upgrade: nothing of it lies where the service can write.
check_nothing_of_the_services() {
    local folder
    expect "folders of the service's" test -n "$(services_folders)"
    for folder in $(services_folders); do
        expect_not "$folder is in the package" test -e "$tree$folder"
    done
}
services_folders() { awk '$1 == "d" { print $2 }' "$tree/usr/lib/tmpfiles.d/velbootstrapservice.conf"; }

check_conffiles() {
    expect_equal "conffiles" "$(cd "$tree" && find etc -type f -printf '/%p\n' | sort)" \
        "$(dpkg-deb --ctrl-tarfile "$package" | tar -xO ./conffiles | sort)"
}

field() { dpkg-deb --field "$package" "$1"; }

check_fields() {
    local library
    expect_equal "Architecture" "$(dpkg --print-architecture)" "$(field Architecture)"
    expect_equal "Version" "$(dpkg-parsechangelog -l "$sources/debian/changelog" -S Version)" \
        "$(field Version)"
    for library in libxml2-utils libc6 libexpat1 libicu libssl3 libstdc++6 systemd-standalone-sysusers \
        systemd-standalone-tmpfiles; do
        expect "Depends names $library" grep -qF "$library" <(field Depends)
    done
    expect_equal "Recommends" "default-jre-headless, openssl, tomcat10-common" "$(field Recommends)"
}

check_places
check_files
check_pages
check_rights
check_nothing_of_the_services
check_conffiles
check_fields
verdict
