# Sourced by scripts that run a setup. Expects the checkout as working directory.
# shellcheck shell=bash

# Runs a command as a user other than root who cannot write to a shared installation: a run as root,
# or one over /var/corvane, would change the machine. What it may write to is the directory $1.
as_ordinary_user() {
    local directory=$1
    shift
    if [ "$(id -u)" -ne 0 ] && [ ! -w /var/corvane ]; then
        "$@"
    elif unshare --user --map-root-user --mount true 2> /dev/null; then
        as_mapped_user "$@"
    elif [ "$(id -u)" -eq 0 ] && as_nobody test -x "$directory"; then
        chown --recursive 65534:65534 "$directory"
        as_nobody "$@"
    else
        echo "This must run as an ordinary user, and user namespaces are not to be had here." >&2
        echo "Run it as a user other than root who may not write to /var/corvane." >&2
        exit 1
    fi
}

# An ordinary uid that stands for the caller's own: other accounts may not reach the checkout.
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
