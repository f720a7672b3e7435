#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Installs everything that building and testing needs, on a bare Debian 12 or 13, as root or through sudo. What is
# already installed is left alone, so a second run changes nothing and is quick. On other systems it installs no
# package: it checks that everything is there, and lists what is missing.
set -euo pipefail
shopt -s inherit_errexit

usage() {
    cat <<'TEXT'
Usage: scripts/setup.sh [--build-only] [--fuzz] [--packages]
  --build-only  only what a build without tests needs (no GoogleTest, Chromium, clang-format, ...)
  --fuzz        also clang and its libFuzzer and sanitizer runtimes
  --packages    only packages of the system, nothing in this folder: what an administrator runs for somebody else
TEXT
}

with_tests=1
with_fuzz=0
with_npm_packages=1
options=()
for argument in "$@"; do
    case $argument in
    --build-only) with_tests=0 ;;
    --fuzz) with_fuzz=1 ;;
    --packages) with_npm_packages=0 ;;
    -h | --help) usage; exit 0 ;;
    *) echo "setup: unknown option $argument" >&2; usage >&2; exit 2 ;;
    esac
    [[ $argument == --packages ]] || options+=("$argument")
done

cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source-path=SCRIPTDIR
. scripts/apt-state.sh

build_packages=(g++ cmake ninja-build pkg-config libhdf5-dev zlib1g-dev libcli11-dev nlohmann-json3-dev libfmt-dev libtbb-dev
    libgdal-dev libpng-dev libproj-dev libseccomp-dev pybind11-dev python3-dev python3-numpy ca-certificates)
test_packages=(libgtest-dev libgmock-dev hdf5-tools gdal-bin geotiff-bin clang-format doxygen git locales
    chromium fonts-dejavu-core python3 python3-pytest python3-h5py python3-gdal python3-nbconvert python3-ipykernel
    python3-matplotlib jq)

say() { printf 'setup: %s\n' "$*"; }
fail() { printf 'setup: %s\n' "$*" >&2; exit 1; }

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

as_root() {
    # "su" keeps the user's path, and dpkg needs the folders of system programs on it.
    if ((EUID == 0)); then PATH=$PATH:/usr/sbin:/sbin "$@"; else sudo "$@"; fi
}

may_install=0
# If nothing can be installed, prints what to do and exits. Usage: need_root PACKAGE...
need_root() {
    ((may_install || EUID == 0)) && return
    if have sudo && sudo true; then
        may_install=1
        return
    fi
    local command
    command=$(printf '%q ' "$PWD/scripts/setup.sh" "${options[@]}")--packages
    {
        say "to be installed, as root: $*"
        say "An administrator can do that with one of"
        say "  su - -c ${command@Q}"
        say "  sudo $command"
        say "Then run this again as yourself."
    } >&2
    exit 1
}

# Runs a command with its output in a file, which is shown if the command fails.
quietly() {
    if ! "$@" >"$scratch/log" 2>&1 </dev/null; then
        cat "$scratch/log" >&2
        fail "failed: $*"
    fi
}

have() { command -v "$1" >/dev/null; }

installed() {
    case $(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null) in
    installed | triggers-pending | triggers-awaited) return 0 ;;
    *) return 1 ;;
    esac
}

apt_get() {
    as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get -y -o Acquire::Retries=3 -o DPkg::Lock::Timeout=300 "$@"
}

lists_are_fresh=0
refresh_lists() {
    ((lists_are_fresh)) && return
    say "refreshing the package lists"
    # A broken source of the machine may not matter here: if a package cannot be installed, that fails below.
    apt_get update >"$scratch/log" 2>&1 </dev/null ||
        { cat "$scratch/log" >&2; say "going on with the package lists as they are"; }
    lists_are_fresh=1
}

# Prints what a command of apt-get is about to download. Usage: announce NAMES APT_GET_ARGUMENT...
announce() {
    local names=$1 size
    shift
    # One line per file: 'address' name size checksum. If this fails, so does the command itself, with a message.
    size=$(apt-get -qq --print-uris "$@" 2>/dev/null |
        LC_ALL=C awk -F"' " '/^\047/ { split($2, part, " "); ++files; bytes += part[2] }
                    END { if (files) printf " (%d packages to download, %.1f MB)", files, bytes / 1e6 }') || size=''
    say "installing $names$size"
}

install_packages() {
    (($# == 0)) && return
    need_root "$@"
    refresh_lists
    announce "$*" -y install --no-install-recommends "$@"
    quietly apt_get install --no-install-recommends "$@"
}

# LASzip is packaged from Debian 13 on. Debian 12 gets Debian 13's package, which needs no newer libc or libstdc++ than
# Debian 12 has. apt fetches and verifies it with its own state.
install_laszip_of_next_release() {
    local codename=$1 next=$2 keyring=/usr/share/keyrings/debian-archive-keyring.gpg
    local architecture archive work="$scratch/apt" packages=(liblaszip8 liblaszip-api8 liblaszip-dev)
    architecture=$(dpkg --print-architecture)
    [[ -r $keyring ]] || install_packages debian-archive-keyring

    archive=$(debian_archive "$codename")
    [[ -n $archive ]] || fail "the apt sources of this machine name no main Debian archive to take LASzip from"

    make_apt_state "$work" "$archive" deb "$next"
    mkdir "$work/packages"
    if ((EUID == 0)); then
        # apt downloads as another user, who needs access.
        chmod 755 "$scratch"
        chown _apt "$work/packages" 2>/dev/null || true
    fi
    quietly apt-get -c "$work/apt.conf" update
    announce "LASzip (${packages[*]}) from Debian's release $next" \
        -c "$work/apt.conf" download "${packages[@]/%/:$architecture}"
    (cd "$work/packages" && quietly apt-get -c "$work/apt.conf" download "${packages[@]/%/:$architecture}")
    quietly as_root env DEBIAN_FRONTEND=noninteractive dpkg -i "$work"/packages/*.deb
}

install_on_debian() {
    local codename=$1 package policy wanted=("${build_packages[@]}") missing=()
    if ((with_tests)); then
        wanted+=("${test_packages[@]}")
    fi
    # Node.js may well be there from elsewhere; Debian's own would then stand in its way.
    have node || wanted+=(nodejs)
    have npm || wanted+=(npm)
    ((with_fuzz)) && wanted+=(clang)
    for package in "${wanted[@]}"; do
        installed "$package" || missing+=("$package")
    done

    local laszip=()
    installed liblaszip-dev || laszip=(liblaszip-dev)
    ((${#missing[@]} + ${#laszip[@]} == 0)) || need_root "${missing[@]}" "${laszip[@]}"
    if ((${#laszip[@]})); then
        refresh_lists
        # Not through a pipe: grep -q ends at the first match, and apt-cache may then die of SIGPIPE.
        policy=$(LC_ALL=C apt-cache policy liblaszip-dev)
        if [[ $policy =~ Candidate:\ [^\(] ]]; then
            missing+=("${laszip[@]}")
            laszip=()
        fi
    fi
    install_packages "${missing[@]}"
    if ((${#laszip[@]})); then
        [[ $codename == bookworm ]] || fail "this release of Debian has no package liblaszip-dev"
        install_laszip_of_next_release bookworm trixie
    fi
    if ((with_fuzz)); then
        package="libclang-rt-$(clang -dumpversion | cut -d. -f1)-dev"
        installed "$package" || install_packages "$package"
    fi
}

# Prints a line for everything that is missing, however it should have been installed.
find_missing() {
    local command header flags=() python=/usr/bin/python3
    local headers=(Python.h pybind11/pybind11.h CLI/CLI.hpp nlohmann/json.hpp fmt/format.h hdf5.h zlib.h gdal.h png.h proj.h seccomp.h laszip/laszip_api.h)
    local commands=(g++ cmake ninja pkg-config node npm python3) module modules=(numpy)
    if ((with_tests)); then
        headers+=(gtest/gtest.h gmock/gmock.h)
        commands+=(h5dump gdalinfo gdalsrsinfo listgeo clang-format doxygen git localedef chromium jq)
        modules+=(pytest h5py osgeo nbconvert ipykernel matplotlib)
    fi
    ((with_fuzz)) && commands+=(clang++)
    for command in "${commands[@]}"; do
        have "$command" || echo "the command $command"
    done
    # As CMake takes it.
    [[ -x $python ]] || python=python3
    for module in "${modules[@]}"; do
        "$python" -c "import $module" >"$scratch/log" 2>&1 || echo "the module $module of $python"
    done
    have g++ || return 0

    read -ra flags < <({
        pkg-config --cflags hdf5-serial 2>/dev/null || pkg-config --cflags hdf5 2>/dev/null
        pkg-config --cflags gdal 2>/dev/null
        "$python" -m pybind11 --includes 2>/dev/null ||
            "$python" -c 'import sysconfig; print("-I" + sysconfig.get_paths()["include"])' 2>/dev/null
    } | tr '\n' ' ') || true
    for header in "${headers[@]}"; do
        printf '#if !__has_include(<%s>)\nthe header <%s>\n#endif\n' "$header" "$header"
    done | g++ -std=c++20 "${flags[@]}" -E -P -x c++ - | sed '/^$/d'

    if ! g++ -x c++ - -o "$scratch/laszip" -llaszip >"$scratch/log" 2>&1 <<'TEXT' || ! "$scratch/laszip"
#include <laszip/laszip_api.h>
int main()
{
    laszip_U8 major = 0, minor = 0;
    laszip_U16 revision = 0;
    laszip_U32 build = 0;
    return laszip_get_version(&major, &minor, &revision, &build) == 0 && major >= 3 ? 0 : 1;
}
TEXT
    then
        echo "the LASzip library, version 3 or later (a program with <laszip/laszip_api.h> and -llaszip)"
    fi
    if have node && ! node -e 'process.exit(parseInt(process.versions.node) >= 18 ? 0 : 1)'; then
        echo "Node.js 18 or later ($(node --version) is there)"
    fi
    if ((with_tests)) && [[ ! -r ${I18NPATH:-/usr/share/i18n}/locales/de_DE ]]; then
        echo "the locale sources (de_DE)"
    fi
    if ((with_fuzz)) && have clang++ && ! clang++ -x c++ - -fsanitize=fuzzer,address,undefined \
        -o "$scratch/fuzz" >"$scratch/log" 2>&1 <<<'extern "C" int LLVMFuzzerTestOneInput(const char*, unsigned long) { return 0; }'; then
        echo "the libFuzzer runtime of clang++"
    fi
}

# Usage: install_npm_packages FOLDER [OPTION...]; options that leave packages out are noted in the stamp.
install_npm_packages() {
    local folder=$1 stamp=node_modules/.installed-package-lock.json
    shift
    local options=("$@")
    cd "$folder"
    # All packages are there: that is more than some of them.
    if ! cmp -s package-lock.json "$stamp" && ! cmp -s <(cat package-lock.json; echo "${options[@]}") "$stamp"; then
        say "installing the npm packages of $folder"
        quietly npm ci --ignore-scripts --no-audit --no-fund "${options[@]}"
        if ((${#options[@]})); then
            (cat package-lock.json; echo "${options[@]}") >"$stamp"
        else
            cp package-lock.json "$stamp"
        fi
    fi
    cd - >/dev/null
}

# shellcheck disable=SC1091
distribution=$(. /etc/os-release 2>/dev/null && echo "${ID:-}:${VERSION_ID:-}") || distribution=unknown
case $distribution in
debian:12) install_on_debian bookworm ;;
debian:13) install_on_debian trixie ;;
esac

not_found=$(find_missing)
if [[ -n $not_found ]]; then
    # shellcheck disable=SC2001 # one line each
    sed 's|^|setup: missing: |' <<<"$not_found" >&2
    case $distribution in
    debian:12 | debian:13) fail "the packages are installed, and yet the above was not found" ;;
    esac
    cat >&2 <<TEXT
setup: packages are installed on Debian 12 and 13 only; this is $distribution. Under Debian's names, these are needed:
setup:   ${build_packages[*]} liblaszip-dev nodejs npm
setup:   for tests: ${test_packages[*]}
setup:   for fuzzing: clang libclang-rt-dev
TEXT
    exit 1
fi
if ((with_npm_packages)); then
    if ((with_tests)); then
        install_npm_packages tests/js
        install_npm_packages view
    else
        install_npm_packages view --omit=dev
    fi
fi
say "everything is there"
