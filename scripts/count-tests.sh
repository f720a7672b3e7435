#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Counts the tests in a file that "ctest --output-junit" wrote: "1508 passed, 105 skipped: no sample data (90), no PCL
# (15)". Skips are counted by the text before the first colon of their reason. Fails if a test is skipped without a
# reason.
# Usage: scripts/count-tests.sh FILE
set -euo pipefail

LC_ALL=C awk '
    /^[[:space:]]*<testcase / { skipped = 0; reason = ""; status = $0; sub(/.* status="/, "", status); sub(/".*/, "", status) }
    /^[[:space:]]*<skipped / { skipped = 1 }
    skipped && reason == "" && /: Skipped$/ { if (getline > 0) { reason = $0; sub(/:.*/, "", reason) } }
    /^[[:space:]]*<\/testcase>/ {
        if (status == "run")
            ++passed
        else if (!skipped)
            ++failed
        else {
            ++skips
            if (reason == "" || reason ~ /^\[/) {
                print "skipped without a reason: " name > "/dev/stderr"
                mute = 1
                reason = "no reason given"
            }
            ++reasons[reason]
        }
    }
    /^[[:space:]]*<testcase / { name = $0; sub(/.* classname="/, "", name); sub(/" time=.*/, "", name) }
    END {
        printf "%d passed", passed
        if (failed)
            printf ", %d failed", failed
        if (skips) {
            printf ", %d skipped:", skips
            # The most frequent reason first, equally frequent ones by name.
            while (length(reasons) > 0) {
                best = ""
                for (reason in reasons)
                    if (best == "" || reasons[reason] > reasons[best] || (reasons[reason] == reasons[best] && reason < best))
                        best = reason
                printf "%s %s (%d)", separator, best, reasons[best]
                separator = ","
                delete reasons[best]
            }
        }
        print ""
        exit mute
    }' "$1"
