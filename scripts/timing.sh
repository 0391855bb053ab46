# SPDX-FileCopyrightText: 2026 The Tessel developers
# SPDX-License-Identifier: GPL-3.0-or-later
# shellcheck shell=bash

# Says where the time of a script went. Sourced, not run.

time_spent=
phase=
phase_begin=0

# timed NAME COMMAND... runs the command and notes how long it took. The command is not part of a
# condition: bash would go on after a failure inside a function that is.
timed() {
    phase=$1
    phase_begin=$SECONDS
    shift
    "$@"
    note_phase
}

note_phase() {
    time_spent+="$phase $((SECONDS - phase_begin)) s, "
    phase=
}

# Prints what was noted, on one line, with the phase that a failure has ended.
print_times() {
    [ -z "$phase" ] || note_phase
    printf 'Time: %sin all %s s\n' "$time_spent" "$SECONDS"
}
