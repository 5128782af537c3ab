# shellcheck shell=bash
# What the scripts of this folder share; sourced, not run.

root=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")
export root

fail() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# wait_until SECONDS CONDITION...: true as soon as the condition holds, false when the time is over.
wait_until() {
    local deadline=$((SECONDS + $1))
    shift
    until "$@"; do
        ((SECONDS < deadline)) || return 1
        sleep 0.1
    done
}

is_installed() {
    [[ $(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

# The command that gives a single call the rights to install; nothing for root.
elevation() {
    if ((EUID == 0)); then
        return
    fi
    # With a terminal sudo may ask for the password, without one it must not need to.
    if command -v sudo >/dev/null && { [[ -t 0 ]] || sudo -n true 2>/dev/null; }; then
        echo sudo
        return
    fi
    return 1
}

# install_missing PACKAGE...: installs the Debian packages that are not there yet. Where that is not possible it
# says what is missing and ends the script.
install_missing() {
    local package sudo_word
    local missing=()
    if ! command -v dpkg-query >/dev/null; then
        echo "Not a Debian system: taking for granted what these packages contain: $*"
        return
    fi
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    if ((${#missing[@]} == 0)); then
        return
    fi
    echo "Installing: ${missing[*]}"
    sudo_word=$(elevation) ||
        fail "missing packages; as root, run: apt-get install --no-install-recommends ${missing[*]}"
    $sudo_word apt-get update -qq || fail "apt-get update failed"
    $sudo_word env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" ||
        fail "could not install: ${missing[*]}"
}

# What the compiler of a preset and the libraries need.
build_packages() {
    echo g++ cmake ninja-build libxerces-c-dev libicu-dev libssl-dev libexpat1-dev libcli11-dev nlohmann-json3-dev zlib1g-dev
    case $1 in
        clang) echo clang ;;
        fuzz) echo clang libclang-rt-dev ;;
        bench) echo libbenchmark-dev ;;
    esac
}
