#!/usr/bin/env bash
# One Pindle per session: a second pindle says in one line that Pindle is already running, makes
# the first show its launcher and exits 0, with no window or warning of its own. Two started at
# the same moment end with exactly one running. SIGTERM and SIGHUP (the session going away) both
# end Pindle cleanly. With a display that no server answers it says so in one line and exits 1.
source "$(dirname "$0")/pindle_lib.sh"

DISPLAY=:54321 env -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM timeout 20 "$PINDLE_BIN" </dev/null \
    >/dev/null 2>"$E2E_TMP/no-display.err"
status=$?
e2e_check "with no X server on DISPLAY pindle exits 1 (was $status)" test "$status" -eq 1
e2e_check "saying why in one line naming DISPLAY" \
    test "$(wc -l <"$E2E_TMP/no-display.err")" -eq 1 -a "$(grep -c DISPLAY "$E2E_TMP/no-display.err")" -eq 1

pindle_setup
pindle_webloc Docs https://docs.example.com/
pindle_start
first=$PINDLE_PID

timeout 20 "$PINDLE_BIN" >"$E2E_TMP/second.out" 2>"$E2E_TMP/second.err" </dev/null
status=$?
e2e_check "the second pindle exits 0 (was $status)" test "$status" -eq 0
said=$(cat "$E2E_TMP/second.out" "$E2E_TMP/second.err")
e2e_check "it says so in one line: $said" \
    test "$(printf '%s\n' "$said" | wc -l)" -eq 1 -a -n "$said"
e2e_check "that line says Pindle is already running" grep -q "already running" "$E2E_TMP/second.out"
e2e_check "the first pindle shows its launcher, focused" e2e_wait_for 5 pindle_is_active
e2e_check "the launcher is the one window shown" test "$(pindle_visible_windows | wc -l)" -eq 1
e2e_check "it is the first pindle's" pindle_has_panel "$first"
pindle_screenshot second-instance-hands-over
xdotool key Escape
e2e_check "Escape closes it" e2e_wait_for 5 pindle_has_no_panel
e2e_check "and the editor gets the focus back" e2e_wait_active "$editor" 5
e2e_check "the first pindle still owns the session's name" \
    test "$(e2e_bus_name_owner org.pindle.Pindle)" = "$first"
pindle_stop TERM "$first"

# A race: both start before either has the name. The loser hands over and exits.
e2e_spawn racer1 "$PINDLE_BIN"
racer1=$E2E_PID
e2e_spawn racer2 "$PINDLE_BIN"
racer2=$E2E_PID
one_racer_left() { ! kill -0 "$racer1" 2>/dev/null || ! kill -0 "$racer2" 2>/dev/null; }
e2e_check "one of two pindles started together exits" e2e_wait_for 15 one_racer_left
if kill -0 "$racer1" 2>/dev/null; then winner=$racer1 loser=$racer2; else winner=$racer2 loser=$racer1; fi
wait "$loser"
status=$?
e2e_check "the one that exits ends with status 0 (was $status)" test "$status" -eq 0
e2e_check "the other owns the session's name" \
    test "$(e2e_bus_name_owner org.pindle.Pindle)" = "$winner"
e2e_check "and shows its launcher, focused" e2e_wait_for 10 pindle_is_active
e2e_check "a single launcher is shown" test "$(pindle_visible_windows | wc -l)" -eq 1
xdotool key Escape
e2e_check "Escape closes it" e2e_wait_for 5 pindle_has_no_panel
pindle_stop HUP "$winner"

# No session bus to ask: it runs as the only Pindle, and says so in one line.
DBUS_SESSION_BUS_ADDRESS="unix:path=$E2E_TMP/no-bus" e2e_spawn alone "$PINDLE_BIN"
PINDLE_PID=$E2E_PID
pindle_wait_ready "$editor"
e2e_check "without a session bus it still answers its keys, saying why in one line" \
    test "$(grep -c 'no session D-Bus' "$E2E_TMP/alone.err")" -eq 1
pindle_stop TERM "$PINDLE_PID"
e2e_finish
