# Sourced by scripts that run a setup. Expects the checkout as working directory.
# shellcheck shell=bash

# Runs a command as a user other than root who cannot write to a shared installation: a run as root,
# or one over /var/corvane, would change the machine. Root is mapped to an ordinary uid, since other
# accounts may not reach the checkout.
as_ordinary_user() {
    if [ "$(id -u)" -ne 0 ] && [ ! -w /var/corvane ]; then
        "$@"
        return
    fi
    if ! unshare --user --map-root-user --mount true; then
        echo "This must run as an ordinary user, and user namespaces are not to be had here." >&2
        echo "Run it as a user other than root who may not write to /var/corvane." >&2
        exit 1
    fi
    mkdir -p build/empty
    # shellcheck disable=SC2016 # expanded inside the namespace
    unshare --user --map-root-user --mount -- bash -c '
        if [ -d /var/corvane ]; then
            mount --bind "$1" /var/corvane && mount -o remount,bind,ro /var/corvane || exit
        fi
        shift
        exec unshare --user --map-user=1000 --map-group=1000 -- "$@"' bash "$PWD/build/empty" "$@"
}
