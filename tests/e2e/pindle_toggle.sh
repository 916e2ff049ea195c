#!/usr/bin/env bash
# The toggle command: `pindle --toggle launcher|creator` toggles the running Pindle's panel as its
# hot key would, with the focus, and returns at once; with no Pindle running it becomes one.
source "$(dirname "$0")/pindle_lib.sh"

pindle_setup
pindle_webloc Docs https://docs.example.com/
e2e_xterm editor -e sh -c "exec cat >'$E2E_TMP/editor.typed'"
editor=$E2E_WINDOW
e2e_wait_active "$editor" || e2e_fail "the editor did not become active"

# No Pindle yet: the command starts one, which shows its launcher.
e2e_spawn pindle "$PINDLE_BIN" --toggle launcher
PINDLE_PID=$E2E_PID
e2e_check "--toggle launcher with no Pindle running starts one showing its launcher" \
    e2e_wait_for 15 pindle_is_active
xdotool key Escape
e2e_check "Escape closes it, the editor focused" e2e_wait_active "$editor" 5

toggle() {
    timeout 10 "$PINDLE_BIN" --toggle "$1" >"$E2E_TMP/toggle.out" 2>&1
    local status=$?
    e2e_check "--toggle $1 exits 0 at once, silent (status $status)" \
        test "$status" -eq 0 -a ! -s "$E2E_TMP/toggle.out"
}

toggle launcher
e2e_check "the running Pindle shows its launcher, focused" e2e_wait_for 5 pindle_is_active
e2e_check "the command did not start another" \
    test "$(e2e_bus_name_owner org.pindle.Pindle)" = "$PINDLE_PID"
xdotool type --delay 40 "Doc"
xdotool key Return
e2e_check "typing goes to the launcher: Return opens the shortcut" \
    e2e_wait_for 5 pindle_opened https://docs.example.com/
e2e_wait_active "$editor" 5
toggle launcher
e2e_wait_for 5 pindle_is_active || e2e_fail "the launcher did not show again"
toggle launcher
e2e_check "toggled again, it hides" e2e_wait_for 5 pindle_has_no_panel
e2e_check "and the editor gets the focus back" e2e_wait_active "$editor" 5

# The creator needs a web address on the clipboard, as Alt+I does.
pindle_clipboard "ftp://files.example.com/"
toggle creator
# The launcher, asked for next, comes up after the creator's request has been answered: keys
# typed now reach the launcher, which opens the shortcut, unless the creator took them.
toggle launcher
e2e_wait_for 5 pindle_is_active || e2e_fail "the launcher did not show"
xdotool type --delay 40 "Doc"
xdotool key Return
opened_twice() { [ "$(grep -c docs.example.com "$PINDLE_OPENED")" -eq 2 ]; }
e2e_check "without a web address the creator does not open" e2e_wait_for 5 opened_twice
e2e_wait_active "$editor" 5 || e2e_fail "the editor did not get the focus back"

pindle_clipboard "https://example.com/new"
toggle creator
e2e_check "with a web address the creator opens, focused" e2e_wait_for 5 pindle_is_active
xdotool type --delay 40 "New Page"
xdotool key Return
e2e_check "and saves the name typed" e2e_wait_for 5 test -f "$PINDLE_FOLDER/New Page.webloc"
e2e_check "then gives the editor its focus back" e2e_wait_active "$editor" 5

pindle_stop TERM "$PINDLE_PID"
e2e_finish
