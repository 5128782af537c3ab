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
        [[ -f $build/bin/$file ]] || fail "$build/bin/$file is not there: build first"
        install -m 755 "$build/bin/$file" "$stage/bin/$file"
    done
}

copy_configuration() {
    local sample=$root/sample/install
    mkdir -p "$stage/logs" "$stage/temp"
    install -m 644 "$sample"/bin/*.xml "$stage/bin/"
    install -m 644 "$sample"/configuration/* "$stage/configuration/"
    sed -i "s|localhost:9300|localhost:$port|" "$stage/configuration/startup.xml"
}

# The settings of both certificates, so that those of the machine play no part.
certificate_settings() {
    cat <<'SETTINGS'
[req]
prompt = no
distinguished_name = name
[name]
CN = localhost
[authority]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign
subjectKeyIdentifier = hash
[server]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature
extendedKeyUsage = serverAuth
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
subjectAltName = DNS:localhost, IP:127.0.0.1, IP:::1
SETTINGS
}

# The authority's key signs one certificate and is forgotten.
make_certificates() {
    local target=$stage/configuration
    scratch=$(mktemp -d)
    trap 'rm -rf "$scratch"' EXIT
    certificate_settings >"$scratch/settings"
    local new_key=(-newkey ec -pkeyopt "ec_paramgen_curve:P-256" -nodes -config "$scratch/settings")
    {
        openssl req -x509 "${new_key[@]}" -extensions authority -days 30 \
            -subj "/CN=throw-away authority of a sample" -keyout "$scratch/ca.key" -out "$target/ca.pem" &&
            openssl req "${new_key[@]}" -keyout "$target/dispatcher.key" -out "$scratch/request" &&
            openssl x509 -req -in "$scratch/request" -CA "$target/ca.pem" -CAkey "$scratch/ca.key" \
                -set_serial 1 -days 30 -extfile "$scratch/settings" -extensions server \
                -out "$target/dispatcher.pem"
    } >"$scratch/words" 2>&1 || fail "openssl could not make the certificates: $(cat "$scratch/words")"
    chmod 600 "$target/dispatcher.key"
}

install_missing openssl
mkdir -p "$stage/bin" "$stage/configuration"
stage=$(cd "$stage" && pwd -P)
copy_programs
copy_configuration
make_certificates
echo "Staged in $stage, dispatcher on port $port."
