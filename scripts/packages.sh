# Debian packages that the project needs, and their installation. Sourced by the other scripts.
# shellcheck shell=bash

build_packages=(cmake g++ ninja-build qt6-base-dev)
# What downloads are tested against; tinyproxy-bin is the program without a service.
server_packages=(curl nginx openssl tinyproxy-bin)
test_packages=(abigail-tools clang clang-format clang-tidy git libclang-rt-14-dev libgtest-dev libxml2-utils
    python3-minimal shellcheck systemd-container "${server_packages[@]}")
bench_packages=(libgmp-dev libssl-dev python3-minimal "${server_packages[@]}")
export build_packages test_packages bench_packages

is_installed() {
    [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2> /dev/null)" = installed ]
}

# Where systemd runs, it would start a freshly installed nginx: the tests start one of their own, and
# this machine is not to serve pages. Elsewhere Debian starts no service.
keep_nginx_stopped() {
    [ -d /run/systemd/system ] || return 0
    echo "Masking nginx.service; \"systemctl unmask nginx\" lets it run."
    "$@" systemctl mask nginx.service
}

# Installs those of the named packages that are missing, or ends the script saying which they are.
install_packages() {
    local package missing=() as_root=()
    if ! command -v dpkg-query apt-get > /dev/null; then
        echo "This is not a Debian system: see that what these packages bring is there: $*" >&2
        return 0
    fi
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    [ "${#missing[@]}" -eq 0 ] && return 0
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo > /dev/null; then
            echo "Debian packages are missing, and sudo is not there to install them." >&2
            echo "Have root run: apt-get install ${missing[*]}" >&2
            exit 1
        fi
        as_root=(sudo)
    fi
    echo "Installing Debian packages: ${missing[*]}"
    [[ " ${missing[*]} " != *" nginx "* ]] || keep_nginx_stopped "${as_root[@]}"
    "${as_root[@]}" apt-get update
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install --yes --no-install-recommends "${missing[@]}"
}
