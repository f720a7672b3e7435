# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# For other scripts to source: functions that run the steps of a build.

# logged LOG COMMAND...: appends the command's output to a file, and shows the last lines if it fails.
logged() {
    local log=$1
    shift
    if ! "$@" >>"$log" 2>&1; then
        tail -n 40 "$log" >&2
        echo "failed: $* (all of its output: $log)" >&2
        return 1
    fi
}

# shown LOG COMMAND...: the same, except that on a terminal the command shows its own progress.
shown() {
    if [[ -t 1 ]]; then
        "${@:2}"
    else
        logged "$@"
    fi
}
