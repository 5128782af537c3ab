#!/usr/bin/env bash
# stage.sh [--build FOLDER] [--port PORT] FOLDER: puts a complete installation into FOLDER: the programs from the
# build folder (build/release unless named), the sample configuration, and certificates of a throw-away authority
# that are good for 30 days. What is there already is replaced, log files stay.
set -euo pipefail
# shellcheck source=scripts/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

usage() {
    echo "usage: stage.sh [--build FOLDER] [--port PORT] FOLDER" >&2
    exit 2
}

build=$root/build/release
port=9300
while (($# > 1)); do
    case $1 in
        --build) build=$2 ;;
        --port) port=$2 ;;
        *) usage ;;
    esac
    shift 2
done
[[ $# == 1 && $1 != -* && $port =~ ^[0-9]+$ ]] || usage
stage=$1

copy_programs() {
    local file
    for file in velbootstrapservice sampledispatcher libSEK_Crypto_Interface.so; do
        [[ -f $build/bin/$file ]] ||
            fail "$build/bin/$file is not there: build first, cmake --preset release && cmake --build --preset release"
        install -m 755 "$build/bin/$file" "$stage/bin/$file"
    done
}

copy_configuration() {
    local sample=$root/sample/install
    mkdir -p "$stage/logs" "$stage/temp"
    install -m 644 "$sample"/bin/*.xml "$stage/bin/"
    install -m 755 "$sample/bin/housekeeping" "$stage/bin/"
    install -m 644 "$sample"/configuration/* "$stage/configuration/"
    sed -i "s|localhost:9300|localhost:$port|" "$stage/configuration/startup.xml"
}

install_missing openssl
mkdir -p "$stage/bin" "$stage/configuration"
stage=$(realpath "$stage")
copy_programs
copy_configuration
"$root/programs/make-certificates" --days 30 "$stage/configuration"
echo "Staged in $stage, dispatcher on port $port."
