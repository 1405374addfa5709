# Debian packages that the project needs, and their installation. Sourced by the other scripts.
# shellcheck shell=bash

build_packages=(cmake g++ ninja-build qt6-base-dev)
packaging_packages=(dpkg-dev file)
# What downloads are tested against; tinyproxy-bin is the program without a service.
server_packages=(curl nginx openssl tinyproxy-bin)
# What setups on a cluster are tested with.
cluster_packages=(iproute2 munge slurm-client slurm-wlm-torque slurmctld slurmd)
# llvm names the functions by which leaks are told apart.
test_packages=(abigail-tools clang clang-format clang-tidy cppcheck git libclang-rt-14-dev libgmp-dev
    libgtest-dev libxml2-utils llvm make mandoc pkg-config python3-minimal shellcheck strace
    systemd-container valgrind "${packaging_packages[@]}" "${cluster_packages[@]}" "${server_packages[@]}")
bench_packages=(libgmp-dev libssl-dev python3-minimal "${server_packages[@]}")
export build_packages packaging_packages test_packages bench_packages

is_installed() {
    [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2> /dev/null)" = installed ]
}

# Those of the above that bring a service, which is named like the package.
packages_with_service=(munge nginx slurmctld slurmd)

# Where systemd runs, it would start the services of freshly installed packages: the tests start
# their own, and this machine is to serve nobody. Elsewhere Debian starts no service. Takes the names
# of packages; "as_root" holds the command that makes root.
keep_services_stopped() {
    local service services=()
    [ -d /run/systemd/system ] || return 0
    for service in "${packages_with_service[@]}"; do
        [[ " $* " != *" $service "* ]] || services+=("$service.service")
    done
    [ "${#services[@]}" -gt 0 ] || return 0
    echo "Masking ${services[*]}; \"systemctl unmask\" lets them run."
    "${as_root[@]}" systemctl mask "${services[@]}"
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
    keep_services_stopped "${missing[@]}"
    "${as_root[@]}" apt-get update
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install --yes --no-install-recommends "${missing[@]}"
}
