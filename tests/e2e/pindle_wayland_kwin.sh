#!/usr/bin/env bash
# The real pindle as a native Wayland client under KWin, with a native test window focused: hot
# keys through the desktop portal, the launcher on the output under the pointer, opening, Escape
# and copying with the focus back, the creator reading a wl-copy address once it has the focus
# and giving up on an owner that hangs, and the toggle command.
source "$(dirname "$0")/harness.sh"
source "$(dirname "$0")/wayland_harness.sh"

wl_start_kwin
pindle_webloc Docs https://docs.example.com/
pindle_webloc News https://news.example.com/

# pindle_output: the output (0 or 1, side by side) that holds the centre of pindle's window.
pindle_output() {
    local x width
    read -r x _ width _ < <(pindle_windows | head -n1) && echo $(((x + width / 2) / 1280))
}

wl_keys pointer 640,400
wl_window editor
editor=$WL_WINDOW_PID
# Left to choose its platform itself, as from a desktop's autostart: Wayland, since it answers.
e2e_spawn pindle env -u QT_QPA_PLATFORM "$PINDLE_BIN"
PINDLE_PID=$E2E_PID
# Ready once the portal has bound Alt+U, which shows a focused launcher that Escape closes to the
# editor; until then the keys go to the editor.
pindle_wait_ready
wl_keys key alt+u
e2e_wait_for 5 pindle_is_active || e2e_fail "Alt+U did not show the launcher again"
e2e_check "the launcher is on the output under the pointer (left)" test "$(pindle_output)" = 0
wl_keys key Escape
e2e_wait_for 5 pindle_is_back_to_editor || e2e_fail "Escape did not close the launcher"
wl_keys pointer 1900,400 key alt+u
e2e_check "Alt+U shows a focused launcher again" e2e_wait_for 5 pindle_is_active
e2e_check "on the output under the pointer (right)" test "$(pindle_output)" = 1
wl_keys type docs key Return pointer 640,400
e2e_check "Return opens the selected shortcut's address" e2e_wait_for 5 pindle_opened https://docs.example.com/
e2e_check "Return hides the launcher" e2e_wait_for 5 pindle_has_no_panel

# Opening hands the focus to the opener, which here shows no window: KWin 5 gives it to the
# editor, KWin 6 to nobody, so the user clicks back into the editor.
wl_kwin_activate "$editor" || e2e_fail "KWin did not find the editor's window"
e2e_wait_for 5 wl_has_focus editor || e2e_fail "the editor did not get the focus back after opening"
# The address must be on the clipboard before the panel loses the focus to the editor.
wl_keys key alt+u
e2e_wait_for 5 pindle_is_active || e2e_fail "Alt+U did not show the launcher for the copy"
wl_keys type news key ctrl+c
e2e_check "Ctrl+C hides the launcher, focus back to the editor" e2e_wait_for 5 pindle_is_back_to_editor
e2e_check "Ctrl+C put the address where wl-paste reads it" \
    test "$(timeout 5 wl-paste --no-newline 2>/dev/null)" = https://news.example.com/
wl_keys type after-copy key Return
e2e_check "typing goes to the editor again" e2e_wait_for 5 wl_typed editor after-copy

printf '%s' https://example.com/page | wl-copy
wl_keys key alt+i
e2e_check "Alt+I with an address copied shows the focused creator" e2e_wait_for 5 pindle_is_active
wl_keys type Example key Return
e2e_check "a name and Return save the shortcut with the copied address" \
    e2e_wait_for 5 grep -qsF https://example.com/page "$PINDLE_FOLDER/Example.webloc"
e2e_check "and the creator closes to the editor" e2e_wait_for 5 pindle_is_back_to_editor

# Without a web address the creator shows only for as long as it takes to read the clipboard:
# the editor getting the focus back shows that it has been and gone.
printf '%s' 'just some words' | wl-copy
focused=$(wl_focus_count editor)
wl_keys key alt+i
e2e_check "Alt+I without an address gives the focus back" e2e_wait_for 5 wl_focused_since editor "$focused"
e2e_check "and leaves nothing on screen" e2e_wait_for 5 pindle_is_back_to_editor

e2e_check "pindle --toggle launcher asks and ends with status 0" "$PINDLE_BIN" --toggle launcher
e2e_check "and the running pindle shows a focused launcher" e2e_wait_for 5 pindle_is_active
e2e_check "the same command again ends with status 0" "$PINDLE_BIN" --toggle launcher
e2e_check "and hides the launcher, focus back to the editor" e2e_wait_for 5 pindle_is_back_to_editor

# A clipboard owner that hangs once asked costs Alt+I its effect and nothing else: while pindle
# waits on it, its main thread still answers (D-Bus calls to its object are served there), and
# it gives up, closing the creator. The owner copies on Ctrl+C as a user would; the clipboard
# offering its own type shows that KWin took the selection, which it keeps once the user is back
# in the editor.
wl_window owner
owner=$WL_WINDOW_PID
wl_keys key ctrl+c
e2e_wait_for 5 sh -c 'timeout 5 wl-paste --list-types | grep -qx application/x-pindle-test-hung-owner' ||
    e2e_fail "the hung owner's copy did not reach the clipboard"
wl_kwin_activate "$editor" || e2e_fail "KWin did not find the editor's window"
e2e_wait_for 5 wl_has_focus editor || e2e_fail "the editor did not get the focus back from the owner"
wl_keys key alt+i
e2e_check "Alt+I with a hung owner shows the focused creator" e2e_wait_for 5 pindle_is_active
e2e_check "which asks the owner for text" e2e_wait_for_line "$E2E_TMP/owner.out" '^asked text/plain' 5
e2e_check "pindle answers on D-Bus meanwhile" timeout 10 dbus-send --session --print-reply \
    --dest=org.pindle.Pindle /org/pindle/Pindle org.freedesktop.DBus.Introspectable.Introspect
e2e_check "before it gives up on the owner" pindle_has_panel
e2e_check "then it gives up, closing the creator" e2e_wait_for 5 pindle_has_no_panel
kill "$owner"
printf '%s' https://example.com/after-hang | wl-copy
wl_keys key alt+i
e2e_check "Alt+I with an address copied after that shows the creator" e2e_wait_for 5 pindle_is_active
wl_keys type AfterHang key Return
e2e_check "which saves the address" e2e_wait_for 5 grep -qsF https://example.com/after-hang \
    "$PINDLE_FOLDER/AfterHang.webloc"

pindle_stop TERM "$PINDLE_PID"
e2e_finish
