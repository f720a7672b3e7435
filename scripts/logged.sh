# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# For scripts to source: how they run a build.

# logged LOG COMMAND...: on a terminal the command shows its own progress. Elsewhere its output goes to the end of a file,
# the last lines of which are shown where the command fails.
logged() {
    local log=$1
    shift
    if [[ -t 1 ]]; then
        "$@"
    elif ! "$@" >>"$log" 2>&1; then
        tail -n 40 "$log" >&2
        echo "failed: $* (all of its output: $log)" >&2
        return 1
    fi
}
