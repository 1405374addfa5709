# Sourced by scripts that run a setup. Expects the checkout as working directory.
# shellcheck shell=bash

# Sets `runner` to the function that runs a command as a regular user who cannot write to
# /var/corvane: a setup as root, or one that can write there, would change the machine.
choose_runner() {
    if [ "$(id -u)" -ne 0 ] && [ ! -w /var/corvane ]; then
        runner=as_this_user
    elif unshare --user --map-root-user --mount true 2> /dev/null; then
        runner=as_mapped_user
    elif [ "$(id -u)" -eq 0 ] && ! as_nobody test -w /var/corvane; then
        runner=as_nobody
    else
        echo "This script must run as a regular user, and user namespaces are not available." >&2
        echo "Run it as a regular user who cannot write to /var/corvane." >&2
        exit 1
    fi
}

# Copies the product from build directory $1 and prints the path of the copy: build/private-copy, or a
# new directory below /tmp if another account runs the setup, which may be unable to reach the checkout.
copy_product() {
    local copy=$PWD/build/private-copy
    if [ "$runner" = as_nobody ]; then
        copy=$(mktemp --directory /tmp/private-copy_XXXXXX)
    fi
    mkdir -p "$copy"
    cp -a "$1/product/." "$copy"
    [ "$runner" != as_nobody ] || chown --recursive 65534:65534 "$copy"
    echo "$copy"
}

as_this_user() {
    "$@"
}

# Maps the caller's uid to a regular one, because other accounts may be unable to reach the checkout.
as_mapped_user() {
    mkdir -p build/empty
    # shellcheck disable=SC2016 # expanded inside the namespace
    unshare --user --map-root-user --mount -- bash -c '
        if [ -d /var/corvane ]; then
            mount --bind "$1" /var/corvane && mount -o remount,bind,ro /var/corvane || exit
        fi
        shift
        exec unshare --user --map-user=1000 --map-group=1000 -- "$@"' bash "$PWD/build/empty" "$@"
}

as_nobody() {
    setpriv --reuid=65534 --regid=65534 --clear-groups -- "$@"
}
