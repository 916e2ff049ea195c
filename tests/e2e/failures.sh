#!/usr/bin/env bash
# Failures of the X11 backend that must be clear rather than crashes: no display, a window
# manager without EWMH, and the X server going away under a running client.
source "$(dirname "$0")/probe.sh"

# one_line_naming_display STATUS_FILE ERR_FILE: exit status 1 and one line that names DISPLAY.
one_line_naming_display() {
    [ "$(cat "$1")" = 1 ] && [ "$(wc -l <"$2")" = 1 ] && grep -q DISPLAY "$2"
}

env -u DISPLAY "$PINDLE_PROBE" </dev/null >/dev/null 2>"$E2E_TMP/unset.err"
echo $? >"$E2E_TMP/unset.status"
e2e_check "DISPLAY unset: one line naming DISPLAY, status 1" \
    one_line_naming_display "$E2E_TMP/unset.status" "$E2E_TMP/unset.err"
DISPLAY=:54321 "$PINDLE_PROBE" </dev/null >/dev/null 2>"$E2E_TMP/absent.err"
echo $? >"$E2E_TMP/absent.status"
e2e_check "DISPLAY naming no server: one line naming DISPLAY, status 1" \
    one_line_naming_display "$E2E_TMP/absent.status" "$E2E_TMP/absent.err"

# A bare X server: no window manager, only an active-window property one left behind.
e2e_start --no-wm
e2e_xterm editor
editor=$E2E_WINDOW
probe_start main
probe_ask main "set-active $editor" '^set$'
probe_ask main frontmost '^frontmost '
e2e_check "without an EWMH window manager nothing is frontmost" probe_said '^frontmost none$'
probe_ask main capture '^captured$'
probe_ask main restore '^restored$'
probe_ask main "register Alt+U U" '^(registered|failed) U$'
e2e_check "hot keys work without a window manager" probe_said '^registered U$'
xdotool key alt+u
e2e_check "and fire" probe_wait main '^fired U$' 1

# The X server goes away: the client ends with status 1 and its sanitizers find nothing.
kill -KILL "$E2E_XVFB_PID"
wait "$PROBE_PID_main"
status=$?
e2e_check "losing the X connection ends the client with status 1" test "$status" = 1
e2e_check "cleanly" bash -c '! grep -Eq "Sanitizer|runtime error|Segmentation" "$0"' \
    "$E2E_TMP/main.err"

e2e_finish
