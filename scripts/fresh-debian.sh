#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Tests the README's instructions on a fresh machine: in a minimal Debian of each given release, with only the last
# commit, it runs scripts/demo.sh and scripts/test.sh, installs what the demonstration built and builds the examples
# with it. Needs root, debootstrap, some GB under /var/tmp and some minutes; removes everything at the end.
set -euo pipefail

usage() {
    cat <<'TEXT'
Usage: scripts/fresh-debian.sh [--demo | --quick] RELEASE...
  RELEASE  bookworm (Debian 12) or trixie (Debian 13)
  --demo   no scripts/test.sh
  --quick  scripts/test.sh --quick
TEXT
}

tests=all
releases=()
for argument in "$@"; do
    case $argument in
    --demo) tests=none ;;
    --quick) tests=quick ;;
    bookworm | trixie) releases+=("$argument") ;;
    -h | --help) usage; exit 0 ;;
    *) echo "fresh-debian: unknown option or release $argument" >&2; usage >&2; exit 2 ;;
    esac
done
((${#releases[@]})) || { usage >&2; exit 2; }
((EUID == 0)) || { echo "fresh-debian: needs root" >&2; exit 1; }
command -v debootstrap >/dev/null || { echo "fresh-debian: needs debootstrap" >&2; exit 1; }

cd "$(dirname "${BASH_SOURCE[0]}")/.."
project=$PWD
root=$(mktemp -d /var/tmp/tidewatch-fresh.XXXXXX)
chmod 755 "$root"

at_exit() {
    local status=$?
    # Never delete through a mount.
    if mountpoint -q "$root/proc"; then
        umount "$root/proc" || exit 1
    fi
    rm -rf --one-file-system "$root"
    exit "$status"
}
trap at_exit EXIT
trap 'exit 1' INT TERM

step() { printf '\n######## %s: %s\n' "$release" "$*"; }
fail() { echo "fresh-debian: $release: $*" >&2; exit 1; }

# Certificate authorities that this machine's administrator added, without which a network that inspects connections
# cannot be used. Debian's ca-certificates takes them over when setup.sh installs it; npm is told of them.
authorities=()
for certificate in /usr/local/share/ca-certificates/*.crt; do
    [[ -e $certificate ]] && authorities=(NODE_EXTRA_CA_CERTS=/etc/ssl/certs/ca-certificates.crt)
done

# Runs a command line in the project's folder there, with a minimal environment.
there() {
    chroot "$root" env -i HOME=/root LANG=C.UTF-8 PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
        "${authorities[@]}" bash -euc "cd /opt/tidewatch && $1"
}

try_release() {
    step "a bare system"
    debootstrap --variant=minbase "$release" "$root" >"$root.log" 2>&1 || {
        tail -n 20 "$root.log" >&2
        fail "debootstrap failed"
    }
    rm "$root.log"
    if ((${#authorities[@]})); then
        mkdir -p "$root/usr/local/share/ca-certificates"
        cp -L /usr/local/share/ca-certificates/*.crt "$root/usr/local/share/ca-certificates/"
    fi
    git clone --quiet --no-local "$project" "$root/opt/tidewatch"
    mount -t proc proc "$root/proc"

    step "without root, setup.sh names the command for an administrator"
    local said
    if said=$(there 'setpriv --reuid=nobody --regid=nogroup --clear-groups scripts/setup.sh' 2>&1); then
        fail "setup.sh found everything on a bare system: $said"
    fi
    echo "$said"
    [[ $said == *"su - -c '/opt/tidewatch/scripts/setup.sh --packages'"* ]] || fail "it does not"

    step "scripts/demo.sh"
    there scripts/demo.sh

    step "what the demonstration built is installed, and the examples are built with it"
    there 'cmake --install build/demo --prefix /root/.local >/dev/null
        /root/.local/bin/tidewatch --version
        cd /root/.local/share/doc/Tidewatch/examples
        cmake -S . -B /root/examples -G Ninja -DCMAKE_PREFIX_PATH=/root/.local >/dev/null
        cmake --build /root/examples
        /root/examples/export-memory /root/out
        /root/examples/export-files /root/cloud.pcd /root/out/pier.laz'

    case $tests in
    all) step "scripts/test.sh" && there scripts/test.sh ;;
    quick) step "scripts/test.sh --quick" && there 'scripts/test.sh --quick' ;;
    esac
    umount "$root/proc"
    rm -rf --one-file-system "${root:?}"/*
}

for release in "${releases[@]}"; do
    try_release
done
echo "fresh-debian: everything works on ${releases[*]}"
