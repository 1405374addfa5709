# The Debian packages that the project needs, and how they are installed. Sourced by other scripts.
# shellcheck shell=bash

build_packages=(cmake g++ libarchive-dev libtomlplusplus-dev ninja-build nlohmann-json3-dev
    qt6-base-dev)
packaging_packages=(dpkg-dev file)
# Servers for the tests of downloads. tinyproxy-bin is the program without a service.
server_packages=(curl nginx openssl tinyproxy-bin)
# For the tests of setups on a cluster.
cluster_packages=(iproute2 munge slurm-client slurm-wlm-torque slurmctld slurmd)
# llvm brings the symbolizer, whose function names the leak suppressions match.
test_packages=(clang clang-format clang-tidy cppcheck gdb git libarchive-tools libclang-rt-dev libgmp-dev
    libgtest-dev libnss-extrausers libxml2-utils lld llvm make mandoc mtree-netbsd pkg-config python3-jsonschema
    python3-minimal shellcheck strace
    systemd-container valgrind "${packaging_packages[@]}" "${cluster_packages[@]}" "${server_packages[@]}")
bench_packages=(libgmp-dev libssl-dev mtree-netbsd python3-minimal "${server_packages[@]}")
export build_packages packaging_packages test_packages bench_packages

is_installed() {
    [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2> /dev/null)" = installed ]
}

# The packages with a service, which has the name of the package.
packages_with_service=(munge nginx slurmctld slurmd)

# Masks the services of the given packages. Where systemd runs, it would start them, but the tests
# start their own servers. "as_root" is the command that runs another one as root.
keep_services_stopped() {
    local service services=()
    [ -d /run/systemd/system ] || return 0
    for service in "${packages_with_service[@]}"; do
        [[ " $* " != *" $service "* ]] || services+=("$service.service")
    done
    [ "${#services[@]}" -gt 0 ] || return 0
    echo "Masking ${services[*]}. To allow them, run \"systemctl unmask\"."
    "${as_root[@]}" systemctl mask "${services[@]}"
}

# Installs the missing ones of the given packages, or names them and exits.
install_packages() {
    local package missing=() as_root=()
    if ! command -v dpkg-query apt-get > /dev/null; then
        echo "This is not a Debian system. Make sure that these packages or their like are installed: $*" >&2
        return 0
    fi
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    [ "${#missing[@]}" -eq 0 ] && return 0
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo > /dev/null; then
            echo "Debian packages are missing, and sudo is not available to install them." >&2
            echo "As root, run: apt-get install ${missing[*]}" >&2
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

# Exits if the present directory, the working copy, is below /tmp.
refuse_working_copy_in_tmp() {
    [[ $(pwd -P)/ == /tmp/* ]] || return 0
    echo "The working copy is below /tmp, which tests hide. Move it to another directory." >&2
    exit 1
}
