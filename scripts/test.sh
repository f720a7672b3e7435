#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Sets the machine up, builds, and runs every test: the release build, the sanitizer build, the suite once more under a
# locale with decimal commas, and a project that uses the installed package. Ends at the first stage that fails.
set -euo pipefail

quick=0
case ${1:-} in
'') ;;
--quick) quick=1 ;;
*)
    echo "Usage: scripts/test.sh [--quick]"
    echo "  --quick  the release build and its tests only"
    [[ $1 == -h || $1 == --help ]] && exit 0
    exit 2
    ;;
esac >&2

cd "$(dirname "${BASH_SOURCE[0]}")/.."
jobs=$(nproc)

summary=()
stage=''
stage_start=0

finish_stage() {
    [[ -z $stage ]] || summary+=("$(printf '%-8s %5d s  %s' "$1" $((SECONDS - stage_start)) "$stage")")
    stage=''
}

begin_stage() {
    finish_stage passed
    stage=$1
    stage_start=$SECONDS
    printf '\n==== %s\n' "$stage"
}

at_exit() {
    local status=$?
    finish_stage "$( ((status == 0)) && echo passed || echo FAILED)"
    printf '\n==== Summary (%d s)\n' "$SECONDS"
    printf '%s\n' "${summary[@]}"
}
trap at_exit EXIT

build() {
    cmake --preset "$1"
    cmake --build --preset "$1" -j "$jobs"
}

# A test that draws on data or a program that is absent is skipped, but a suite without tests is a fault.
# What follows the preset is put before ctest.
run_ctest() {
    "${@:2}" ctest --test-dir "build/$1" -j "$jobs" --output-on-failure --no-tests=error
}

begin_stage "setup: what the build and the tests need"
scripts/setup.sh

begin_stage "release: build, warnings are errors"
build ci-release

begin_stage "release: tests"
run_ctest ci-release
((quick)) && exit 0

begin_stage "locale: the tests of the release build under decimal commas"
run_ctest ci-release scripts/comma-locale.sh build/ci-release/locale

begin_stage "consumer: a project that uses the installed package"
tests/consumer/run.sh build/ci-release

begin_stage "sanitizers: build with ASan and UBSan"
build ci-sanitize

begin_stage "sanitizers: tests"
# An allocation beyond what the sanitizer can give ends the test: no input may make the program ask for that much.
export ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1:check_initialization_order=1:allocator_may_return_null=0
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
run_ctest ci-sanitize
