#!/usr/bin/env bash
# The real pindle under headless mutter, whose portal offers no global shortcuts: pindle starts
# anyway with the start-up warning giving the toggle command, and that command gives a focused
# launcher that Escape closes, with the focus back to the window the user came from. mutter
# offers no way to list windows: the editor's own focus log is the witness.
source "$(dirname "$0")/harness.sh"
source "$(dirname "$0")/wayland_harness.sh"

wl_start_mutter
pindle_webloc Docs https://docs.example.com/
wl_window editor
focused=$(wl_focus_count editor)
e2e_spawn pindle "$PINDLE_BIN"
PINDLE_PID=$E2E_PID

e2e_check "the start-up warning takes the focus" e2e_wait_for 15 wl_has_lost_focus editor
# The alert's text is not readable from outside on Wayland; pindle also writes it to its log.
e2e_check "the warning gives the toggle command with the binary's full path" \
    e2e_wait_for 5 grep -qF -- "$PINDLE_BIN --toggle launcher" "$E2E_TMP/pindle.err"
wl_keys key Return
e2e_check "Return dismisses the warning, focus back to the editor" \
    e2e_wait_for 5 wl_focused_since editor "$focused"
e2e_check "pindle keeps running" kill -0 "$PINDLE_PID"

focused=$(wl_focus_count editor)
e2e_check "pindle --toggle launcher ends with status 0" "$PINDLE_BIN" --toggle launcher
e2e_check "and the launcher takes the focus" e2e_wait_for 5 wl_has_lost_focus editor
wl_keys type docs key Return
e2e_check "the launcher has the keys: Return opens the shortcut" \
    e2e_wait_for 5 pindle_opened https://docs.example.com/
e2e_wait_for 5 wl_focused_since editor "$focused" || e2e_fail "the editor did not get the focus back"

focused=$(wl_focus_count editor)
"$PINDLE_BIN" --toggle launcher
e2e_check "the toggle command shows the launcher again" e2e_wait_for 5 wl_has_lost_focus editor
wl_keys key Escape
e2e_check "Escape closes it, focus back to the editor" e2e_wait_for 5 wl_focused_since editor "$focused"
wl_keys type after-escape key Return
e2e_check "typing goes to the editor again" e2e_wait_for 5 wl_typed editor after-escape

pindle_stop TERM "$PINDLE_PID"
e2e_finish
