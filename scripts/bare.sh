#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Proves that the two commands of the README set up a fresh machine: makes a minimal Debian 12 in a
# temporary folder, clones the commit at hand into it and runs `make demo` and `make test` there.
# Needs root. Uncommitted changes do not take part.
#
# The mounts live in a namespace of their own, so they end with the run however that ends, and
# before the folder is removed. BARE_KEEP=1 keeps the folder; logs stay in build/bare in any case.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

release=bookworm
mirror="${BARE_MIRROR:-http://deb.debian.org/debian}"
logs="$PWD/build/bare"

fail() {
    echo "bare: $*" >&2
    exit 1
}

# Runs in the private namespace: mounts what programs expect of a machine and runs one command.
if [ "${1:-}" = --inside ]; then
    root="$2"
    mount -t proc proc "$root/proc"
    mount -t sysfs -o ro sysfs "$root/sys"
    mount -t tmpfs tmpfs "$root/dev"
    for node in null zero full random urandom tty; do
        touch "$root/dev/$node"
        mount --bind "/dev/$node" "$root/dev/$node"
    done
    ln -s /proc/self/fd "$root/dev/fd"
    mkdir "$root/dev/shm" "$root/dev/pts"
    mount -t tmpfs tmpfs "$root/dev/shm"
    mount -t devpts -o newinstance,ptmxmode=0666 devpts "$root/dev/pts"
    ln -s pts/ptmx "$root/dev/ptmx"
    # Of the surroundings only what leads to the package registries.
    network=()
    for name in http_proxy https_proxy no_proxy HTTP_PROXY HTTPS_PROXY NO_PROXY PIP_INDEX_URL; do
        [ -z "${!name:-}" ] || network+=("$name=${!name}")
    done
    exec chroot "$root" /usr/bin/env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 \
        JOBS="${JOBS:-$(nproc)}" PIP_CERT=/etc/ssl/certs/ca-certificates.crt "${network[@]}" \
        /bin/bash -c "cd /root/tessaline && $3"
fi

[ "$(id -u)" -eq 0 ] || fail "making a system and its mounts needs root"
command -v debootstrap >/dev/null || {
    echo "bare: installing debootstrap"
    { apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -qq -y debootstrap; } \
        >/dev/null || fail "debootstrap is missing and could not be installed"
}

root=$(mktemp -d "${TMPDIR:-/tmp}/tessaline-bare.XXXXXX")
remove() {
    if grep -q " $root/" /proc/self/mounts; then
        echo "bare: something is still mounted below $root, so it stays" >&2
    elif [ -z "${BARE_KEEP:-}" ]; then
        rm -rf --one-file-system "$root"
    else
        echo "bare: kept $root"
    fi
}
trap remove EXIT
mkdir -p "$logs"

commit=$(git rev-parse HEAD)
echo "bare: making a minimal Debian ($release) for commit ${commit:0:12}"
debootstrap --variant=minbase --include=git,make,ca-certificates "$release" "$root" "$mirror" \
    >"$logs/debootstrap.txt" 2>&1 || fail "debootstrap failed; see $logs/debootstrap.txt"
cp /etc/resolv.conf "$root/etc/resolv.conf"
cp /etc/hosts "$root/etc/hosts"
cp /etc/ssl/certs/ca-certificates.crt "$root/etc/ssl/certs/ca-certificates.crt"
git clone --quiet --no-local . "$root/root/tessaline"
git -C "$root/root/tessaline" checkout --quiet --detach "$commit"

for target in demo test; do
    echo "bare: make $target"
    start=$SECONDS
    unshare --mount --propagation private --pid --fork --kill-child \
        "$BASH" scripts/bare.sh --inside "$root" "make $target" >"$logs/$target.txt" 2>&1 </dev/null || {
        tail -n 40 "$logs/$target.txt" >&2
        fail "make $target failed after $((SECONDS - start)) s; see $logs/$target.txt"
    }
    echo "bare: make $target worked in $((SECONDS - start)) s"
done
grep -E '^(C\+\+|Python): ' "$logs/test.txt"
