#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Sets up the machine, builds, and runs every test: the release build by GCC, a project that uses the installed package, the
# suite again, built by clang, under sanitizers and a locale with decimal commas, briefly the fuzzers of our own code, and
# the threaded tests under ThreadSanitizer. Stops at the first stage that fails; the summary counts the tests and gives the
# reasons for skips.
set -euo pipefail

quick=0
setup_options=(--fuzz)
case ${1:-} in
'') ;;
--quick)
    quick=1
    setup_options=()
    ;;
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

none='^$'
# A test whose data or program is missing is skipped, but a suite without tests is an error.
# Usage: run_ctest PRESET TESTS WITHOUT [WRAPPER...], where TESTS and WITHOUT are regular expressions; the wrapper is put
# before ctest.
run_ctest() {
    local status=0 results=$PWD/build/$1/tests.xml counts
    "${@:4}" ctest --test-dir "build/$1" --tests-regex "$2" --exclude-regex "$3" -j "$jobs" --output-on-failure --no-tests=error \
        --output-junit "$results" || status=$?
    counts=$(scripts/count-tests.sh "$results") || status=1
    stage+=": $counts"
    return "$status"
}

begin_stage "setup: what the build and the tests need"
scripts/setup.sh "${setup_options[@]}"

begin_stage "release: build, warnings are errors"
build ci-release

begin_stage "release: tests"
run_ctest ci-release . "$none"
((quick)) && exit 0

begin_stage "consumer: a project that uses the installed package"
tests/consumer/run.sh build/ci-release

begin_stage "api: pages from the headers, warnings are errors"
scripts/api-pages.sh

begin_stage "sanitizers: build by clang with ASan and UBSan, warnings are errors"
build sanitize

# Of random exports by several threads, a sanitizer runs the first three only.
later_seeds='ConcurrentLasPoints.*/[3-9]$'

begin_stage "sanitizers: tests, under a locale with decimal commas"
# An allocation that exceeds the sanitizer's limit ends the test: no input may make the program request that much. The page
# in a browser is no C++, and what runs in threads has a sanitizer of its own.
run_ctest sanitize . "^ViewPage|^ConcurrentWorkers|$later_seeds" \
    scripts/comma-locale.sh build/sanitize/locale env UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1:check_initialization_order=1:allocator_may_return_null=0 \
    LSAN_OPTIONS="suppressions=$PWD/tests/sanitizers/leaks.txt:print_suppressions=0"

begin_stage "fuzzers: those of what runs in a host's process for 20 s"
scripts/fuzz.sh --in-process 20

begin_stage "threads: build of what runs in threads, with ThreadSanitizer"
build ci-threads

begin_stage "threads: tests"
run_ctest ci-threads Concurrent "$later_seeds" \
    env TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1:suppressions=$PWD/tests/threads/suppressions.txt"
