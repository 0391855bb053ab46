# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later
# shellcheck shell=bash

# Says where the time of a script went. Sourced, not run.

time_spent=

# timed NAME COMMAND... runs the command and notes how long it took.
timed() {
    local name=$1 begin=$SECONDS status=0
    shift
    "$@" || status=$?
    time_spent+="$name $((SECONDS - begin)) s, "
    return "$status"
}

# Prints what was noted, on one line.
print_times() {
    printf 'Time: %sin all %s s\n' "$time_spent" "$SECONDS"
}
