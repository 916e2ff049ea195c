#!/usr/bin/env bash
# One Pindle per session, and the commands that reach it. `pindle --toggle launcher|creator`
# toggles the running Pindle's panel as its hot key would, with the focus, and returns at once;
# with no Pindle running it becomes one. A second pindle says in one line that Pindle is already
# running, makes the first show its launcher and exits 0; of two started together exactly one
# stays. Without a session bus it runs alone; without an X server it says so and exits 1.
# SIGTERM and SIGHUP (the session going away) end it cleanly.
source "$(dirname "$0")/harness.sh"

DISPLAY=:54321 timeout 20 "$PINDLE_BIN" </dev/null >/dev/null 2>"$E2E_TMP/no-display.err"
status=$?
e2e_check "with no X server on DISPLAY pindle exits 1 (was $status)" test "$status" -eq 1
e2e_check "saying why in one line naming DISPLAY" \
    test "$(wc -l <"$E2E_TMP/no-display.err")" -eq 1 -a "$(grep -c DISPLAY "$E2E_TMP/no-display.err")" -eq 1

x11_start
pindle_webloc Docs https://docs.example.com/
pindle_editor
e2e_spawn pindle "$PINDLE_BIN" --toggle launcher
PINDLE_PID=$E2E_PID
e2e_check "--toggle launcher with no Pindle running starts one showing its launcher" \
    e2e_wait_for 15 pindle_is_active
xdotool key Escape
e2e_check "Escape closes it, the editor focused" e2e_wait_for 5 pindle_is_back_to_editor

toggle() {
    timeout 10 "$PINDLE_BIN" --toggle "$1" >"$E2E_TMP/toggle.out" 2>&1
    local status=$?
    e2e_check "--toggle $1 exits 0 at once, silent (status $status)" \
        test "$status" -eq 0 -a ! -s "$E2E_TMP/toggle.out"
}

toggle launcher
e2e_check "the running Pindle shows its launcher, focused" e2e_wait_for 5 pindle_is_active
e2e_check "the command did not start another" test "$(e2e_bus_name_owner org.pindle.Pindle)" = "$PINDLE_PID"
toggle launcher
e2e_check "toggled again, it hides, focus back to the editor" e2e_wait_for 5 pindle_is_back_to_editor

# The creator needs a web address on the clipboard, as Alt+I does. The launcher, asked for next,
# comes up after the creator's request has been answered: keys typed now reach the launcher,
# which opens the shortcut, unless the creator took them.
pindle_clipboard ftp://files.example.com/
toggle creator
toggle launcher
e2e_wait_for 5 pindle_is_active || e2e_fail "the launcher did not show"
xdotool type --delay 40 Doc
xdotool key Return
e2e_check "without a web address the creator does not open" e2e_wait_for 5 pindle_opened https://docs.example.com/
e2e_wait_for 5 pindle_is_back_to_editor || e2e_fail "the editor did not get the focus back"
pindle_clipboard https://example.com/new
toggle creator
e2e_check "with a web address the creator opens, focused" e2e_wait_for 5 pindle_is_active
xdotool type --delay 40 New
xdotool key Return
e2e_check "and saves the name typed" e2e_wait_for 5 test -f "$PINDLE_FOLDER/New.webloc"
e2e_wait_for 5 pindle_is_back_to_editor || e2e_fail "the editor did not get the focus back"

timeout 20 "$PINDLE_BIN" >"$E2E_TMP/second.out" 2>"$E2E_TMP/second.err" </dev/null
status=$?
e2e_check "a second pindle exits 0 (was $status)" test "$status" -eq 0
said=$(cat "$E2E_TMP/second.out" "$E2E_TMP/second.err")
e2e_check "saying in one line that Pindle is already running: $said" \
    test "$(printf '%s\n' "$said" | wc -l)" -eq 1 -a "$(grep -c "already running" "$E2E_TMP/second.out")" -eq 1
e2e_check "the first pindle shows its launcher, focused" e2e_wait_for 5 pindle_is_active
e2e_check "the one window shown, the first pindle's" \
    test "$(pindle_windows | wc -l)" -eq 1 -a "$(pindle_windows "$PINDLE_PID" | wc -l)" -eq 1
xdotool key Escape
e2e_check "Escape closes it to the editor" e2e_wait_for 5 pindle_is_back_to_editor
e2e_check "the first pindle still owns the session's name" \
    test "$(e2e_bus_name_owner org.pindle.Pindle)" = "$PINDLE_PID"
pindle_stop TERM "$PINDLE_PID"

# Both start before either has the name: the loser hands over and exits.
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
e2e_check "the other owns the session's name" test "$(e2e_bus_name_owner org.pindle.Pindle)" = "$winner"
e2e_check "and shows its launcher, focused, the one window shown" \
    e2e_wait_for 10 eval 'pindle_is_active && [ "$(pindle_windows | wc -l)" -eq 1 ]'
xdotool key Escape
e2e_check "Escape closes it" e2e_wait_for 5 pindle_is_back_to_editor
pindle_stop HUP "$winner"

DBUS_SESSION_BUS_ADDRESS="unix:path=$E2E_TMP/no-bus" e2e_spawn pindle "$PINDLE_BIN"
PINDLE_PID=$E2E_PID
pindle_wait_ready
e2e_check "without a session bus it still answers its keys, saying why in one line" \
    test "$(grep -c 'no session D-Bus' "$E2E_TMP/pindle.err")" -eq 1
pindle_stop TERM "$PINDLE_PID"
e2e_finish
